// What the build makes of the model's traps. Receivers keep names and numbers, and other daemons the tags:
// none of them ever changes.

#include "generated/lconfd_trap_rows.h"
#include "generated/mgmt_mib_names.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>

static std::string mib()
{
    std::ifstream file(MIB_FILE);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(SchemaTrapsGoldenTest, rows_of_the_adapter)
{
    size_t traps = 0;
    std::set<std::pair<uint32_t, uint32_t>> keys;
    std::set<std::string> names;
    for (const t_lconfd_trap_row &row : lconfd_trap_rows) {
        traps += row.trap_index != 0 ? 1 : 0;
        EXPECT_TRUE(keys.emplace(row.ns, row.tag).second) << row.mib_name;
        EXPECT_TRUE(names.insert(row.mib_name).second) << row.mib_name;
    }
    EXPECT_EQ(traps, 100u);
    EXPECT_EQ(std::size(lconfd_trap_rows), 271u);
    static constexpr t_lconfd_trap_row golden[] = {
        {0x1a0c7ffb, 0x56c1b478, "lumoraBfdBfdStateChange", 4},
        {0x73e916a8, 0x25640284, "lumoraPolicyDataPolicyAssociationStatus", 84},
        {0x026db0d4, 0x25640284, "lumoraPolicyAccessListAssociationStatus", 85},
        {0x61fe004e, 0x25640284, "lumoraPolicyName", 0},
        {0x0ed4d8e3, 0x25640284, "lumoraPolicyVpnListName", 0},
        {0x1420cbfa, 0x25640284, "lumoraPolicyAccessListName", 0},
        {0x74470328, 0x25640284, "lumoraPolicyStatus", 0},
        {0x74470328, 0x5eff6e4f, "lumoraActionsStatus", 0},
    };
    for (const t_lconfd_trap_row &row : golden)
        EXPECT_EQ(std::ranges::count_if(lconfd_trap_rows,
                                        [&](const t_lconfd_trap_row &made) {
                                            return made.tag == row.tag && made.ns == row.ns &&
                                                   std::string_view(made.mib_name) == row.mib_name &&
                                                   made.trap_index == row.trap_index;
                                        }),
                  1)
            << row.mib_name;
}

// A hash over all names, branches and numbers: what is there stays. When the model grows, it changes after a
// look at what was added.
TEST(SchemaTrapsGoldenTest, numbers_of_the_names)
{
    EXPECT_EQ(std::size(mgmt_mib_names), 273u);
    uint64_t hash = 0xcbf29ce484222325;
    for (const t_mgmt_mib_name &name : mgmt_mib_names)
        for (char c :
             std::string(name.name) + ' ' + std::to_string(name.branch) + ' ' + std::to_string(name.number))
            hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    EXPECT_EQ(hash, 0xa9240dfe53e52eacu) << std::hex << hash;
}

TEST(SchemaTrapsGoldenTest, text_of_the_mib)
{
    static constexpr const char *golden[] = {
        R"(
lumoraMIB MODULE-IDENTITY
    LAST-UPDATED "202401150000Z"
    ORGANIZATION "Lumora"
    CONTACT-INFO "Lumora"
    DESCRIPTION "The traps of a router."
    REVISION "202401150000Z"
    DESCRIPTION "First version."
    ::= { enterprises 32473 1 }
)",
        R"(
netconfNotificationSeverity OBJECT-TYPE
    SYNTAX INTEGER { critical(1), major(2), minor(3) }
    MAX-ACCESS accessible-for-notify
    STATUS current
    DESCRIPTION "Severity."
    ::= { lumoraTrapFields 2 }
)",
        R"(
lumoraPolicyAccessListAssociationStatus NOTIFICATION-TYPE
    OBJECTS {
        eventTime,
        netconfNotificationSeverity,
        lumoraPolicyAccessListName,
        lumoraPolicyStatus }
    STATUS current
    DESCRIPTION "An access list could not be loaded for want of memory, or is loaded again."
    ::= { lumoraTraps 85 }
)",
        "\nlumoraVpnFibLastUpdateTime OBJECT-TYPE\n    SYNTAX DateAndTime\n",
        "\nlumoraSystemFreeMb OBJECT-TYPE\n    SYNTAX Counter64\n",
        "lte(6), n3g(7), red(8)",
        "metroEthernet(3)",
    };
    std::string text = mib();
    for (const char *part : golden)
        EXPECT_NE(text.find(part), std::string::npos) << part;
}

// Messages of fixed bytes, and every way in which one may not hold.
#include "lab/ftmd/ftm_decode.h"

#include "tests/lab/ftmd/ftm_bytes.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

static t_message_bytes from_hex(const std::string &text)
{
    t_message_bytes bytes;
    for (size_t i = 0; i < text.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

static std::string zeros(size_t bytes)
{
    return std::string(2 * bytes, '0');
}

static std::string decoded(const t_message_bytes &bytes)
{
    t_ftm_message message = {};
    std::string error;
    return ftm_decode(bytes, &message, &error) ? ftm_message_json(message).dump() : error;
}

TEST(FtmDecodeGoldenTest, MessagesOfFixedBytes)
{
    static const std::pair<std::string, const char *> cases[] = {
        // type, filter type, direction, filter id, "edge", two entries
        {"01010200000005"
         "65646765" +
             zeros(124) +
             "00000002"
             "0000000a00000014"
             "ffffffffffffffff",
         R"({"message":"vpn-filter-add","type":"data","direction":"service","filter":5,"name":"edge",)"
         R"("vpns":[{"min":10,"max":20},{"min":4294967295,"max":4294967295}]})"},
        {"020203ffffffff"
         "61" +
             zeros(127) +
             "00000001"
             "0001020300000001",
         R"({"message":"vpn-filter-delete","type":"application-route","direction":"all","filter":-1,"name":"a",)"
         R"("vpns":[{"min":66051,"max":1}]})"},
        // type, family, 0, filter id, "l6", one entry: VPN, direction, "ge0/1"
        {"03010000010203"
         "6c36" +
             zeros(126) +
             "00000001"
             "0000000a"
             "02"
             "6765302f31" +
             zeros(28),
         R"({"message":"interface-filter-add","family":"ipv6","filter":66051,"name":"l6",)"
         R"("interfaces":[{"interface":"ge0/1","direction":"out","vpn":10}]})"},
        {"04000000000000" + zeros(128) +
             "00000001"
             "00000000"
             "01" +
             zeros(33),
         R"({"message":"interface-filter-delete","family":"ipv4","filter":0,"name":"",)"
         R"("interfaces":[{"interface":"","direction":"in","vpn":0}]})"},
        {"05", R"({"message":"dpi-clear-flows"})"},
        {"06", R"({"message":"cflowd-clear-flows"})"},
    };
    for (const auto &[text, want] : cases)
        EXPECT_EQ(decoded(from_hex(text)), want);
    EXPECT_EQ(from_hex(cases[0].first).size(), 139u + 2 * 8);
    EXPECT_EQ(from_hex(cases[2].first).size(), 139u + 38);
}

TEST(FtmDecodeShortTest, OnlyTheWholeMessageHolds)
{
    static const t_message_bytes messages[] = {
        vpn_message({1, 1, 3, 5, "edge"}, {{1, 2}, {3, 4}}),
        interface_message({4, 0, 0, 5, "list"}, {{1, 1, "ge0/1"}, {1, 2, "ge0/1"}}),
        {5},
    };
    for (const t_message_bytes &message : messages) {
        for (size_t size = 0; size <= message.size() + 40; size++) {
            t_message_bytes bytes = message;
            bytes.resize(size, 0);
            t_ftm_message got = {};
            std::string error;
            EXPECT_EQ(ftm_decode(bytes, &got, &error), size == message.size()) << size;
            EXPECT_EQ(error.empty(), size == message.size()) << size;
        }
    }
}

TEST(FtmDecodeShortTest, ValuesThatNobodyKnowsAreTold)
{
    static const t_message_bytes vpn = vpn_message({1, 1, 3, 5, "edge"}, {{1, 2}});
    static const t_message_bytes interface = interface_message({3, 0, 0, 5, "list"}, {{1, 1, "ge0/1"}});
    struct t_case {
        const t_message_bytes *p_message;
        size_t offset;
        size_t size;  // bytes overwritten
        uint8_t value;
        const char *want;
    };
    static const t_case cases[] = {
        {&vpn, 0, 1, 0, "no message type: 0"},
        {&vpn, 0, 1, 7, "no message type: 7"},
        {&vpn, 1, 1, 4, "no filter type: 4"},
        {&vpn, 2, 1, 4, "no policy direction: 4"},
        {&vpn, 7, 128, 'x', "the name has no end"},
        {&vpn, 135, 4, 0, "there are no entries"},
        {&vpn, 135, 4, 0xff, "4294967295 entries are not 8 bytes"},
        {&vpn, 0, 1, 3, "1 entries are not 8 bytes"},
        {&interface, 1, 1, 2, "no family: 2"},
        {&interface, 2, 1, 1, "the byte behind the family is 1"},
        {&interface, 143, 1, 3, "no direction: 3"},
        {&interface, 144, 33, 'x', "an interface name has no end"},
    };
    for (const t_case &c : cases) {
        t_message_bytes bytes = *c.p_message;
        std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(c.offset), c.size, c.value);
        EXPECT_EQ(decoded(bytes), c.want);
    }
}

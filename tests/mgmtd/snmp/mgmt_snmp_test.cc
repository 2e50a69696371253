// Traps as an SNMP receiver of others reads them.

#include "mgmtd/snmp/mgmt_snmp.h"

#include "generated/lconfd_trap_rows.h"
#include "mgmtd/snmp/mgmt_snmp_names.h"
#include "platform/confd/confd_dp.h"

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

// ---- Configurations ----

static mgmt_tree_ptr config_of(const std::string &targets)
{
    static std::string reason;
    static std::vector<std::string> errors;
    static const schema_context_ptr context = schema_context_new(YANG_MODULE_FOLDER, &reason);
    static const std::unique_ptr<const t_schema_index> index = schema_index_new(context.get(), &errors);
    mgmt_work_tree_ptr tree = mgmt_tree_new(index.get(), context.get());
    t_mgmt_error error;
    EXPECT_TRUE(mgmt_tree_read(tree.get(),
                               R"({"lumora-snmp:snmp":{"trap":{"group":[{"name":"g"},{"name":"other"}],)"
                               R"("target":[)" +
                                   targets + "]}}}",
                               &error) &&
                mgmt_tree_validate(tree.get(), &error))
        << mgmt_error_text(error);
    return tree;
}

static std::string target(const std::string &address, uint16_t port, const std::string &group = "g",
                          const std::string &community = "")
{
    return R"({"address":")" + address + R"(","port":)" + std::to_string(port) + R"(,"group-name":")" +
           group + "\"" + (community.empty() ? "" : R"(,"community":")" + community + "\"") + "}";
}

// ---- Receivers ----

// A port of the loopback that nobody has.
static uint16_t free_port()
{
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), size), 0);
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size), 0);
    close(fd);
    return ntohs(address.sin_port);
}

// Whether the machine has IPv6 on its loopback; a second IPv4 address stands in for it otherwise.
static bool has_ipv6()
{
    int fd = socket(AF_INET6, SOCK_DGRAM, 0);
    sockaddr_in6 address = {};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    bool is_bound = fd >= 0 && bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0;
    close(fd);
    return is_bound;
}

// What Net-SNMP's programs read and write, gone afterwards.
struct ReceiverFolder {
    std::string path = std::string(getenv("TMPDIR") != nullptr ? getenv("TMPDIR") : "/tmp") + "/snmp-XXXXXX";

    ReceiverFolder()
    {
        EXPECT_NE(mkdtemp(path.data()), nullptr);
        std::filesystem::create_directory(path + "/cert_indexes");
    }

    ~ReceiverFolder()
    {
        std::filesystem::remove_all(path);
    }
};

// snmptrapd on two addresses; each trap is a line of identifiers and values: names with MIBs, numbers
// without.
struct TrapReceiver {
    uint16_t port = free_port();
    ReceiverFolder folder;
    pid_t pid;

    explicit TrapReceiver(bool has_mibs = false)
    {
        std::ofstream(folder.path + "/conf") << "authCommunity log public\nauthCommunity log hush\n";
        std::string addresses = "udp:127.0.0.1:" + std::to_string(port);
        std::string second = (has_ipv6() ? "udp6:[::1]:" : "udp:127.0.0.2:") + std::to_string(port);
        pid = fork();
        if (pid != 0)
            return;
        setenv("SNMP_PERSISTENT_DIR", folder.path.c_str(), 1);
        setenv("MIBDIRS", BASE_MIB_FOLDER ":" MIB_FOLDER, 1);
        setenv("MIBS", has_mibs ? "LUMORA-MIB" : "", 1);
        execl(SNMPTRAPD, SNMPTRAPD, "-f", "-C", "-c", (folder.path + "/conf").c_str(),
              has_mibs ? "-OS" : "-On", has_mibs ? "-OT" : "-Oe", "-Lf", (folder.path + "/log").c_str(), "-F",
              "trap %P|%v\n", addresses.c_str(), second.c_str(), nullptr);
        _exit(127);
    }

    ~TrapReceiver()
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }

    std::string log() const
    {
        std::ifstream file(folder.path + "/log");
        return {std::istreambuf_iterator<char>(file), {}};
    }

    size_t count(const std::string &text) const
    {
        std::string content = log();
        size_t found = 0;
        for (size_t at = content.find(text); at != std::string::npos; at = content.find(text, at + 1))
            found++;
        return found;
    }
};

static bool until(const std::function<bool()> &condition)
{
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

// ---- Notifications ----

static bool name_to_oid(const std::string &name, std::vector<uint32_t> *p_oid)
{
    static const std::vector<std::pair<std::string, uint32_t>> names = {
        {"testTrap", 1}, {"text", 2}, {"number", 3}, {"level", 4}, {"counter", 5},
        {"address", 6},  {"time", 7}, {"flag", 8},   {"bits", 9},  {"list", 10}};
    for (const auto &[known, number] : names)
        if (known == name)
            *p_oid = {1, 3, 6, 1, 4, 1, 99999, number};
    return !p_oid->empty();
}

static t_ipc_varbind varbind(const std::string &name, confd_vtype type,
                             const std::function<void(confd_value_t *)> &fill)
{
    confd_value_t value = {.type = type, .val = {}};
    fill(&value);
    return {.type = CONFD_SNMP_VARIABLE, .name = name, .oid = {}, .value = IpcValue(value)};
}

static t_ipc_snmp_notification notification(const std::string &name = "testTrap")
{
    t_ipc_snmp_notification made = {.sender_id = 1, .notify_name = "g", .notification = name, .varbinds = {}};
    made.varbinds = {
        {.type = CONFD_SNMP_VARIABLE, .name = "text", .oid = {}, .value = IpcValue::text("a b")},
        varbind("number", C_UINT32, [](confd_value_t *p_value) { p_value->val.u32 = 4000000000; }),
        varbind("level", C_ENUM_VALUE, [](confd_value_t *p_value) { p_value->val.enumvalue = -2; }),
        varbind("counter", C_UINT64, [](confd_value_t *p_value) { p_value->val.u64 = 1ull << 40; }),
        varbind("address", C_IPV4, [](confd_value_t *p_value) { inet_aton("192.0.2.7", &p_value->val.ip); }),
        varbind("time", C_DATETIME,
                [](confd_value_t *p_value) {
                    p_value->val.datetime = {2024, 1, 15, 10, 20, 30, 500000, -1, -30};
                }),
        varbind("flag", C_BOOL, [](confd_value_t *p_value) { p_value->val.boolean = 0; }),
        varbind("bits", C_BIT32, [](confd_value_t *p_value) { p_value->val.b32 = 0x101; }),
        varbind("nobody knows", C_BOOL, [](confd_value_t *) {}),
        varbind("list", C_NOEXISTS, [](confd_value_t *) {}),
    };
    t_ipc_varbind numbered = made.varbinds[1];
    numbered.type = CONFD_SNMP_OID;
    numbered.oid = {1, 3, 6, 1, 4, 1, 99999, 20, 7};
    made.varbinds.push_back(numbered);
    return made;
}

// ---- Tests ----

TEST(MgmtSnmp, AReceiverReadsWhatWasNotifiedOverBothFamilies)
{
    TrapReceiver receiver;
    mgmt_tree_ptr config = config_of(target("127.0.0.1", receiver.port) + "," +
                                     target(has_ipv6() ? "::1" : "127.0.0.2", receiver.port, "g", "hush") +
                                     "," + target("127.0.0.1", receiver.port, "other"));
    mgmt_snmp_ptr snmp = mgmt_snmp_new({.running = [&] { return config; }, .oid_of = name_to_oid});
    ASSERT_TRUE(until([&] { return receiver.count("NET-SNMP version") > 0; })) << receiver.log();
    g_mgmt_snmp_ops.send(snmp.get(), notification());
    ASSERT_TRUE(until([&] { return receiver.count("trap TRAP2") == 2; })) << receiver.log();
    std::string log = receiver.log();
    EXPECT_NE(log.find("SNMP v2c, community public"), std::string::npos) << log;
    EXPECT_NE(log.find("SNMP v2c, community hush"), std::string::npos) << log;
    static constexpr const char *enterprise = ".1.3.6.1.4.1.99999.";
    static const struct {
        std::string variable;
        std::string value;
    } rows[] = {
        {".1.3.6.1.2.1.1.3.0", "Timeticks: ("},
        {".1.3.6.1.6.3.1.1.4.1.0", "OID: .1.3.6.1.4.1.99999.1"},
        {std::string(enterprise) + "2.0", "STRING: \"a b\""},
        {std::string(enterprise) + "3.0", "Gauge32: 4000000000"},
        {std::string(enterprise) + "4.0", "INTEGER: -2"},
        {std::string(enterprise) + "5.0", "Counter64: 1099511627776"},
        {std::string(enterprise) + "6.0", "IpAddress: 192.0.2.7"},
        {std::string(enterprise) + "7.0", "Hex-STRING: 07 E8 01 0F 0A 14 1E 05 2D 01 1E"},
        {std::string(enterprise) + "8.0", "INTEGER: 2"},
        {std::string(enterprise) + "9.0", "Hex-STRING: 80 80 00 00"},
        {std::string(enterprise) + "20.7", "Gauge32: 4000000000"},
    };
    size_t at = log.find("trap TRAP2");
    for (const auto &row : rows) {
        at = log.find(row.variable + " = " + row.value, at);
        EXPECT_NE(at, std::string::npos) << row.variable << " in its place\n" << log;
    }
    EXPECT_EQ(log.find(std::string(enterprise) + "10"), std::string::npos) << "nothing has no form";

    g_mgmt_snmp_ops.send(snmp.get(), notification("nobodys"));
    config = config_of(target("127.0.0.1", receiver.port));
    g_mgmt_snmp_ops.send(snmp.get(), notification());
    ASSERT_TRUE(until([&] { return receiver.count("trap TRAP2") == 3; })) << "new running, one target";
    EXPECT_EQ(mgmt_snmp_status(*snmp).sent, 3u);
    EXPECT_EQ(mgmt_snmp_status(*snmp).unknown, 1u);
}

// As the adapter sends it: times and addresses as values, the notification by its name in the MIB.
TEST(MgmtSnmp, AReceiverWithTheMibReadsNames)
{
    TrapReceiver receiver(true);
    mgmt_tree_ptr config = config_of(target("127.0.0.1", receiver.port));
    mgmt_snmp_ptr snmp = mgmt_snmp_new({.running = [&] { return config; }, .oid_of = mgmt_snmp_name_find});
    ASSERT_TRUE(until([&] { return receiver.count("NET-SNMP version") > 0; })) << receiver.log();
    t_ipc_snmp_notification made = notification("lumoraVpnFibStateChange");
    made.varbinds = {
        varbind("eventTime", C_DATETIME,
                [](confd_value_t *p_value) {
                    p_value->val.datetime = {2024, 1, 15, 10, 20, 30, 500000, -1, -30};
                }),
        varbind("netconfNotificationSeverity", C_ENUM_VALUE,
                [](confd_value_t *p_value) { p_value->val.enumvalue = 2; }),
        varbind("lumoraVpnVpnId", C_UINT32, [](confd_value_t *p_value) { p_value->val.u32 = 12; }),
        {.type = CONFD_SNMP_VARIABLE, .name = "lumoraVpnIfName", .oid = {}, .value = IpcValue::text("ge0/1")},
    };
    g_mgmt_snmp_ops.send(snmp.get(), made);
    ASSERT_TRUE(until([&] { return receiver.count("trap TRAP2") == 1; })) << receiver.log();
    std::string log = receiver.log();
    static constexpr const char *wanted[] = {
        " = OID: LUMORA-MIB::lumoraVpnFibStateChange",
        "LUMORA-MIB::eventTime.0 = STRING: 2024-1-15,10:20:30.5,-1:30",
        "LUMORA-MIB::netconfNotificationSeverity.0 = INTEGER: major(2)",
        "LUMORA-MIB::lumoraVpnVpnId.0 = Gauge32: 12",
        "LUMORA-MIB::lumoraVpnIfName.0 = STRING: ge0/1",
    };
    for (const char *part : wanted)
        EXPECT_NE(log.find(part), std::string::npos) << part << "\n" << log;
}

// Another reader of the MIB finds each name where mgmtd puts it, and nothing to complain about.
TEST(MgmtSnmp, EveryNameHasTheIdentifierThatTheMibGives)
{
    std::vector<std::string> names = {"eventTime", "netconfNotificationSeverity"};
    for (const t_lconfd_trap_row &row : lconfd_trap_rows)
        names.push_back(row.mib_name);
    ReceiverFolder folder;
    std::string command = "SNMP_PERSISTENT_DIR=" + folder.path +
                          " MIBDIRS=" BASE_MIB_FOLDER ":" MIB_FOLDER " " SNMPTRANSLATE " -m LUMORA-MIB -On";
    std::string wanted;
    for (const std::string &name : names) {
        std::vector<uint32_t> id;
        ASSERT_TRUE(mgmt_snmp_name_find(name, &id)) << name;
        for (uint32_t number : id)
            wanted += "." + std::to_string(number);
        wanted += "\n";
        command += " LUMORA-MIB::" + name;
    }
    std::string found;
    std::unique_ptr<FILE, int (*)(FILE *)> output(popen((command + " 2>&1").c_str(), "r"), pclose);
    ASSERT_NE(output, nullptr);
    for (int c = fgetc(output.get()); c != EOF; c = fgetc(output.get()))
        found += static_cast<char>(c);
    found.erase(
        std::unique(found.begin(), found.end(), [](char a, char b) { return a == '\n' && b == '\n'; }),
        found.end());
    EXPECT_EQ(found, wanted);
    std::vector<uint32_t> none;
    EXPECT_FALSE(mgmt_snmp_name_find("lumoraPolicyX", &none) || mgmt_snmp_name_find("", &none));
}

// A closed port, an address that the system refuses, and a receiver that never reads: the others get theirs,
// and nobody waits.
TEST(MgmtSnmp, TargetsThatAreAwayHarmNobody)
{
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), size), 0);
    ASSERT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size), 0);
    mgmt_tree_ptr config = config_of(target("127.0.0.1", free_port()) + "," + target("255.255.255.255", 162) +
                                     "," + target("127.0.0.1", ntohs(address.sin_port)));
    mgmt_snmp_ptr snmp = mgmt_snmp_new({.running = [&] { return config; }, .oid_of = name_to_oid});
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 2000; i++)
        g_mgmt_snmp_ops.send(snmp.get(), notification());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    t_mgmt_snmp_status status = mgmt_snmp_status(*snmp);
    EXPECT_EQ(status.sent + status.dropped, 6000u);
    EXPECT_GE(status.sent, 2000u);
    EXPECT_GE(status.dropped, 2000u);
    char byte = 0;
    EXPECT_EQ(recv(fd, &byte, 1, MSG_DONTWAIT), 1);
    close(fd);
}

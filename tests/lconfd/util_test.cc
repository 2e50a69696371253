// Keys, prefixes and the operational store.

#include <gtest/gtest.h>

#include "tests/common/syslog_lines.h"
#include "tests/lconfd/framework.h"
#include "tests/lconfd/subscriber.h"

#include "common/e_err.h"
#include "lconfd/lconfd_util.h"

#include <arpa/inet.h>
#include <cstring>

// ---- Keys ----

static void push(confd_hkeypath_t *p_path, std::vector<confd_value_t> values)
{
    values.push_back({.type = C_NOEXISTS, .val = {}});
    memmove(p_path->v[1], p_path->v[0], static_cast<size_t>(p_path->len++) * sizeof(p_path->v[0]));
    std::copy(values.begin(), values.end(), p_path->v[0]);
}

static confd_value_t tag(uint32_t number)
{
    confd_value_t value = {.type = C_XMLTAG, .val = {}};
    value.val.xmltag = {number, 0};
    return value;
}

static confd_value_t number(uint32_t n)
{
    confd_value_t value = {.type = C_UINT32, .val = {}};
    value.val.u32 = n;
    return value;
}

TEST(Util, KeysAreFoundByTheListsTag)
{
    confd_hkeypath_t path = {};
    for (const auto &values :
         {std::vector{tag(1)}, {number(11), number(12)}, {tag(2)}, {number(21)}, {tag(3)}})
        push(&path, values);
    confd_value_t keys[2] = {};
    EXPECT_EQ(lconfd_keypath_get_keys(&path, keys, 2, 1), keys);
    EXPECT_EQ(keys[1].val.u32, 12u);
    confd_value_t *p_own = lconfd_keypath_get_keys(&path, nullptr, 1, 2);
    ASSERT_NE(p_own, nullptr);
    EXPECT_EQ(p_own->val.u32, 21u);
    lconfd_free_confd_list(p_own, 1);
    EXPECT_EQ(lconfd_keypath_get_keys(&path, keys, 0, 1), nullptr);
    syslog_lines_take();
    for (uint32_t absent : {3, 9})
        EXPECT_EQ(lconfd_keypath_get_keys(&path, nullptr, 1, absent), nullptr);
    EXPECT_EQ(lconfd_keypath_get_keys(&path, keys, 1, 1), nullptr);
    EXPECT_EQ(syslog_lines_take(),
              (std::vector<t_syslog_line>{
                  {LUM_LOG_DEBUG, "Number of keys given (1) != number of keys found (0) !"},
                  {LUM_LOG_DEBUG, "Number of keys given (1) != number of keys found (0) !"},
                  {LUM_LOG_DEBUG, "Number of keys given (1) != number of keys found (2) !"}}));
}

// ---- Texts ----

TEST(Util, PrefixesFromTexts)
{
    static const struct {
        std::string text;
        e_ipaddr_type type;
        int length;
    } cases[] = {{"10.0.0.1", IP_ADDR_V4, 32},
                 {"10.0.0.0/8", IP_ADDR_V4, 8},
                 {"2001:db8::1", IP_ADDR_V6, 128},
                 {"2001:db8::/48", IP_ADDR_V6, 48},
                 {"nonsense", IP_ADDR_UNKNOWN, 0},
                 {"nonsense/8", IP_ADDR_UNKNOWN, 77},
                 {std::string(500, '1') + "/8", IP_ADDR_UNKNOWN, 77}};
    for (const auto &c : cases) {
        t_ipprefix prefix = {.addr = {}, .prefixlen = 77};
        lconfd_ip_prefix_str_to_t_ipprefix(c.text.c_str(), &prefix);
        EXPECT_EQ(prefix.addr.addr_type, c.type) << c.text;
        EXPECT_EQ(prefix.prefixlen, c.length) << c.text;
    }
    confd_ipv4_prefix four = {};
    confd_ipv6_prefix six = {};
    lconfd_ipv4_prefix_str_to_confd("10.1.0.0/16", &four);
    EXPECT_EQ(four.ip.s_addr, htonl(0x0a010000));
    EXPECT_EQ(four.len, 16);
    lconfd_ipv6_prefix_str_to_confd("::1", &six);
    EXPECT_EQ(six.ip6.s6_addr[15], 1);
    EXPECT_EQ(six.len, 128);
}

TEST(Util, SnmpAddressesTimesAndDevices)
{
    std::vector<std::string> texts;
    for (int i = 0; i < 17; i++)
        texts.push_back(lconfd_snmp_get_transport_addr());
    EXPECT_EQ(texts[0], "127.0.0.1.214.216");
    EXPECT_EQ(texts[15], "127.0.0.1.214.231");
    EXPECT_EQ(texts[16], texts[0]);

    uint32_t ip = 0;
    uint16_t port = 0;
    const uint8_t bytes[] = {10, 1, 2, 3, 0x12, 0x34};
    EXPECT_EQ(lconfd_snmp_ipport_fm_transport_addr(bytes, 5, &ip, &port), ERR_BAD_PARAM);
    EXPECT_EQ(lconfd_snmp_ipport_fm_transport_addr(bytes, 6, &ip, &port), 0);
    EXPECT_EQ(ip, 0x0a010203u);
    EXPECT_EQ(port, 0x1234);

    confd_datetime time = {};
    const time_t leap_day = 1709210096;
    lconfd_time_to_confd(&leap_day, &time);
    EXPECT_EQ(std::make_tuple(time.year, time.month, time.day, time.hour, time.min, time.sec),
              std::make_tuple(2024, 2, 29, 12, 34, 56));
    static constexpr e_lum_device devices[] = {LUM_DEVICE_UNKNOWN, LUM_DEVICE_PYLON,  LUM_DEVICE_KEELSON,
                                               LUM_DEVICE_GANTRY,  LUM_DEVICE_CARREL, LUM_DEVICE_UNKNOWN};
    for (uint32_t value = 0; value < std::size(devices); value++)
        EXPECT_EQ(lconfd_get_device_type(value), devices[value]);
}

// ---- The store ----

static void write(Subscriber *p_daemon, int32_t label)
{
    confd_value_t value = {.type = C_INT32, .val = {}};
    value.val.i32 = label;
    EXPECT_EQ(
        lconfd_set_cdb_oper_value(p_daemon->ctx, &value, "/vpn/vpn-instance{5}/label", E_LCONFD_OPER_ADD, 0),
        0);
}

static void join_writers(Subscriber *p_daemon)
{
    pthread_t last = std::exchange(p_daemon->ctx->last_thread_id, 0);
    pthread_join(last, nullptr);
}

TEST(Util, TheOperationalStoreIsWrittenInOrderAndReadBack)
{
    OWN_SYSTEM_OR_SKIP();
    Framework framework;
    Subscriber daemon;
    ASSERT_EQ(daemon.start(), LCONFD_STATUS_OK);
    ASSERT_TRUE(daemon.until([&] { return daemon.ctx->init_config_read_done == 1; }));
    for (int32_t label = 1; label <= 20; label++)
        write(&daemon, label);
    join_writers(&daemon);
    EXPECT_EQ(lconfd_get_vpn_label(daemon.ctx, 5), 20);
    EXPECT_EQ(lconfd_get_vpn_label(daemon.ctx, 6), -1);
    EXPECT_EQ(lconfd_set_vpn_label(daemon.ctx, 6, 1006), 0);
    EXPECT_EQ(lconfd_get_vpn_label(daemon.ctx, 6), 1006);
    EXPECT_EQ(lconfd_set_service_label(daemon.ctx, 5, VPN_SVC_FW, 77), 0);
    EXPECT_EQ(lconfd_get_service_label(daemon.ctx, 5, VPN_SVC_FW), 77);
    EXPECT_EQ(lconfd_set_service_tracker_state(daemon.ctx, 5, VPN_SVC_FW, true), 0);

    // What is expected is told by the result, and not logged.
    syslog_lines_take();
    auto vset = [&](e_lconfd_oper_type oper, const char *path) {
        return lconfd_vset_cdb_oper_value(daemon.ctx, nullptr, oper, 1, "%s", path);
    };
    EXPECT_EQ(vset(E_LCONFD_OPER_CREATE, "/vpn/vpn-instance{8}"), 0);
    EXPECT_EQ(vset(E_LCONFD_OPER_CREATE, "/vpn/vpn-instance{8}"), CONFD_ERR_ALREADY_EXISTS);
    EXPECT_EQ(vset(E_LCONFD_OPER_DEL, "/vpn/vpn-instance{5}/label"), 0);
    EXPECT_EQ(vset(E_LCONFD_OPER_DEL, "/vpn/vpn-instance{5}/label"), CONFD_ERR_NOEXISTS);
    EXPECT_EQ(
        lconfd_set_cdb_oper_value(daemon.ctx, nullptr, "/vpn/vpn-instance{5}/label", E_LCONFD_OPER_DEL, 1),
        0);
    join_writers(&daemon);
    EXPECT_EQ(syslog_lines_take(), std::vector<t_syslog_line>());
    EXPECT_EQ(vset(E_LCONFD_OPER_DEL, "/no%s%n"), CONFD_ERR_BADPATH);
    EXPECT_EQ(syslog_lines_take().size(), 1u);
}

// A create hook as the daemon has them: keys out of the path, a walk, a value into the operator's
// transaction.
static int on_pair_created(confd_trans_ctx *tctx, confd_hkeypath_t *kp)
{
    t_lconfd_context *ctx = static_cast<t_lconfd_context *>(tctx->dx->d_opaque);
    confd_value_t name = {};
    confd_value_t id = number(0);
    auto count = [](t_lconfd_context *, confd_trans_ctx *, confd_value_t *keys, void *arg) -> int {
        EXPECT_EQ(keys[0].type, C_BUF);
        *static_cast<uint32_t *>(arg) += 1;
        return ITER_CONTINUE;
    };
    EXPECT_EQ(lconfd_keypath_get_keys(kp, &name, 1, 0x50679287), &name);
    EXPECT_EQ(maapi_attach(ctx->maapi_socket, 0, tctx), CONFD_OK);
    EXPECT_EQ(lconfd_maapi_walk_list(ctx, tctx, "/policy/zone", count, &id.val.u32), 0);
    auto stop = [](t_lconfd_context *, confd_trans_ctx *, confd_value_t *, void *) -> int {
        return ITER_STOP;
    };
    EXPECT_EQ(lconfd_maapi_walk_list(ctx, tctx, "/policy/zone", stop, nullptr), 1);
    EXPECT_EQ(maapi_set_elem(ctx->maapi_socket, tctx->thandle, &id, "/policy/zone-pair{%x}/pair-id", &name),
              CONFD_OK);
    return maapi_detach(ctx->maapi_socket, tctx);
}

TEST(Util, HooksWorkInTheOperatorsTransactionAndAddressesAreReadFromRunning)
{
    OWN_SYSTEM_OR_SKIP();
    Framework framework;
    Subscriber daemon;
    daemon.data.data_register_cb = [](t_lconfd_context *ctx) {
        confd_data_cbs hook = {};
        snprintf(hook.callpoint, sizeof(hook.callpoint), "zone-pair-id-cp");
        hook.create = on_pair_created;
        return confd_register_data_cb(ctx->confd_dctx_p, &hook);
    };
    ASSERT_EQ(daemon.start(), LCONFD_STATUS_OK);
    ASSERT_TRUE(daemon.until([&] { return daemon.ctx->init_config_read_done == 1; }));
    t_mgmt_commit_result result = daemon.wait(framework.commit(
        R"([{"op":"merge","path":"/policy/zone{a}"},{"op":"merge","path":"/policy/zone{b}"},
            {"op":"merge","path":"/policy/zone-based-policy{p}","value":{"default-action":"drop"}},
            {"op":"merge","path":"/policy/zone-pair{x}",
             "value":{"source-zone":"a","destination-zone":"b","zone-policy":"p"}},
            {"op":"merge","path":"/policy/mirror{m}/remote-dest{192.0.2.1}","value":{"source":"2001:db8::7"}}])"));
    EXPECT_EQ(result.error.code, MGMT_OK) << mgmt_error_text(result.error);

    int data = daemon.ctx->data_socket;
    uint32_t id = 0;
    t_ipaddr address = {};
    ASSERT_EQ(cdb_start_session(data, CDB_RUNNING), CONFD_OK);
    EXPECT_EQ(cdb_get_u_int32(data, &id, "/policy/zone-pair{x}/pair-id"), CONFD_OK);
    EXPECT_EQ(id, 2u);
    EXPECT_EQ(lconfd_cdb_get_ip(data, &address, "/policy/mirror{%s}/remote-dest[0]/address", "m"), CONFD_OK);
    EXPECT_EQ(address.u.addr4.s_addr, 0xc0000201u);
    EXPECT_EQ(lconfd_cdb_get_ip(data, &address, "/policy/mirror{m}/remote-dest[0]/source"), CONFD_OK);
    EXPECT_TRUE(IPADDR_IS_V6(&address));
    EXPECT_EQ(address.u.addr6_b[15], 7);
    EXPECT_EQ(lconfd_cdb_get_ip(data, &address, "/policy/mirror{n}/remote-dest[0]/source"), CONFD_ERR);
}

TEST(Util, ConnectingIsTriedFourTimes)
{
    OWN_SYSTEM_OR_SKIP();
    Subscriber daemon;
    LconfdSocket data;
    syslog_lines_take();
    EXPECT_EQ(lconfd_cdb_connect(data.fd, CDB_DATA_SOCKET, lconfd_address(), LCONFD_ADDRESS_SIZE), CONFD_ERR);
    EXPECT_EQ(syslog_lines_take().size(), 3u);
}

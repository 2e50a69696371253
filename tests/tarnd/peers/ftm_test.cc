// The channel to FTM: the bytes of its messages, what keeps one back, and the replay over a live connection.
#include "tarnd/peers/tarn_ftm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <event2/event.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "common/strlcpy.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/dpi/tarn_dpi.h"
#include "tests/common/own_root.h"
#include "tests/support/tarn_store.h"

using t_bytes = std::vector<uint8_t>;

// ---- Bytes ----

// A golden message: what stands before the name, the name in its zeroed field, what stands behind it.
static t_bytes message(const t_bytes &head, const std::string &name, const t_bytes &tail)
{
    t_bytes bytes = head;
    bytes.insert(bytes.end(), name.begin(), name.end());
    bytes.resize(head.size() + TARN_NAME_SIZE);
    bytes.insert(bytes.end(), tail.begin(), tail.end());
    return bytes;
}

// An interface entry behind its VPN and direction.
static t_bytes intf_entry(t_bytes bytes, const std::string &name)
{
    bytes.insert(bytes.end(), name.begin(), name.end());
    bytes.resize(bytes.size() + 33 - name.size());
    return bytes;
}

static t_bytes operator+(t_bytes a, const t_bytes &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

namespace {

class FtmGolden : public testing::Test {
protected:
    void SetUp() override
    {
        add_policy(TARN_POLICY_TYPE_DATA, "branch", "guests");
        p_context = find(TARN_POLICY_TYPE_DATA, "branch", "guests", &p_policy);
        avl_create(&acl.intf_db, tarn_intf_key_cmp, sizeof(t_tarn_intf), offsetof(t_tarn_intf, avl_node));
        lum_strlcpy(acl.key.name, "edge-in", sizeof(acl.key.name));
        acl.filter_id = 0x01020304;
    }
    void TearDown() override
    {
        avl_destroy_nodes(&acl.intf_db, nullptr);
    }

    void add_policy(e_tarn_policy_type type, const char *name, const char *list)
    {
        EXPECT_EQ(tarn_policy_add(&store.tarn, type, name, TARN_POLICY_DIR_SERVICE, 0), 0);
        if (type == TARN_POLICY_TYPE_ZBF)
            return;
        tarn_vpn_list_add(&store.tarn, list);
        EXPECT_EQ(tarn_vpn_list_add_to_policy(&store.tarn, type, name, list, 2, nullptr), 0);
    }
    t_tarn_policy_vpn_list *find(e_tarn_policy_type type, const char *name, const char *list,
                                 t_tarn_policy **pp_policy = nullptr)
    {
        t_tarn_policy_vpn_list *p_found = nullptr;
        EXPECT_EQ(tarn_policy_lookup(&store.tarn, type, name, pp_policy), 0);
        EXPECT_EQ(tarn_vpn_list_lookup_in_policy(&store.tarn, type, name, list, &p_found), 0);
        return p_found;
    }
    t_tarn_intf *add_intf(const std::string &name, uint8_t direction, uint64_t vpn_id)
    {
        t_tarn_intf &intf = intfs.emplace_back();
        memcpy(intf.key.name, name.data(), std::min(name.size(), sizeof(intf.key.name)));
        intf.key.direction = direction;
        intf.vpn_id = vpn_id;
        EXPECT_EQ(avl_insert(&acl.intf_db, &intf), 0);
        return &intf;
    }

    std::deque<t_tarn_intf> intfs;  // of the access list
    TarnStore store;
    t_tarn_policy *p_policy = nullptr;
    t_tarn_policy_vpn_list *p_context = nullptr;
    t_tarn_access_list acl = {};
};

}  // namespace

TEST_F(FtmGolden, VpnFilters)
{
    ASSERT_EQ(tarn_vpn_add(&store.tarn, "guests", 0x123456789A, 0xFFFFFFFFF), 0);
    ASSERT_EQ(tarn_vpn_add(&store.tarn, "guests", 100, 100), 0);
    p_context->filter_id = 0x0102;
    p_context->filter_type = 0x101;
    ASSERT_EQ(tarn_bind_policy_to_vpnlist(&store.tarn, p_policy, p_context, nullptr), 0);
    p_context->filter_id = TARN_FILTER_ID_NONE;
    p_context->direction = static_cast<e_tarn_policy_dir>(0x203);
    t_tarn_vpn vpn = {{}, {7, 9}};
    ASSERT_EQ(tarn_unbind_policy_from_vpnlist(&store.tarn, p_policy, p_context, &vpn), 0);
    EXPECT_EQ(
        store.take_bytes(),
        (std::vector<t_bytes>{
            message({1, 1, 2, 0, 0, 1, 2}, "branch",
                    {0, 0, 0, 2, 0, 0, 0, 100, 0, 0, 0, 100, 0x34, 0x56, 0x78, 0x9A, 255, 255, 255, 255}),
            message({2, 1, 3, 255, 255, 255, 255}, "branch", {0, 0, 0, 1, 0, 0, 0, 7, 0, 0, 0, 9}),
        }));
}

TEST_F(FtmGolden, InterfaceFilters)
{
    std::string longest(32, 'i');
    t_tarn_intf *p_second = add_intf(longest, 2, 0x1FFFFFFFF);
    t_tarn_intf *p_first = add_intf("ge0/0", 1, 10);
    t_bytes first = intf_entry({0, 0, 0, 10, 1}, "ge0/0");
    t_bytes second = intf_entry({255, 255, 255, 255, 2}, longest);
    ASSERT_EQ(tarn_bind_acl(&acl, &store.tarn, nullptr), 0);
    ASSERT_EQ(tarn_unbind_acl_from_intf(&store.tarn, &acl, p_second), 0);
    acl.key.af_type = TARN_AF_TYPE_IPV6;
    acl.filter_id = -1;
    ASSERT_EQ(tarn_bind_acl_to_intf(&store.tarn, &acl, p_first), 0);
    ASSERT_EQ(tarn_unbind_acl(&store.tarn, &acl), 0);
    EXPECT_EQ(store.take_bytes(),
              (std::vector<t_bytes>{
                  message({3, 0, 0, 1, 2, 3, 4}, "edge-in", t_bytes{0, 0, 0, 2} + first + second),
                  message({4, 0, 0, 1, 2, 3, 4}, "edge-in", t_bytes{0, 0, 0, 1} + second),
                  message({3, 1, 0, 255, 255, 255, 255}, "edge-in", t_bytes{0, 0, 0, 1} + first),
                  message({4, 1, 0, 255, 255, 255, 255}, "edge-in", t_bytes{0, 0, 0, 2} + first + second),
              }));
}

TEST_F(FtmGolden, FlowClearingIsOneByte)
{
    EXPECT_EQ(tarn_dpi_clear_fp_flows(&store.tarn), 0);
    EXPECT_EQ(store.take_bytes(), (std::vector<t_bytes>{{5}}));
}

// ---- What keeps a message back ----

TEST_F(FtmGolden, NothingToSayOrNobodyToTell)
{
    EXPECT_EQ(tarn_bind_policy_to_vpnlist(&store.tarn, p_policy, p_context, nullptr), 0) << "no range";
    EXPECT_EQ(tarn_bind_acl(&acl, &store.tarn, nullptr), 0) << "no interface";
    ASSERT_EQ(tarn_vpn_add(&store.tarn, "guests", 1, 1), 0);
    t_tarn_intf *p_intf = add_intf("ge0/0", 1, 10);
    EXPECT_EQ(tarn_bind_policy_to_vpnlist(&store.tarn, nullptr, p_context, nullptr), EBADMSG);
    EXPECT_EQ(tarn_unbind_policy_from_vpnlist(&store.tarn, p_policy, nullptr, nullptr), EBADMSG);
    t_tarn_policy_vpn_list stranger = {};
    EXPECT_EQ(tarn_bind_policy_to_vpnlist(&store.tarn, p_policy, &stranger, nullptr), ENOENT);
    store.ftm_up = false;
    EXPECT_EQ(tarn_bind_policy_to_vpnlist(&store.tarn, p_policy, p_context, nullptr), 0) << "down";
    EXPECT_EQ(tarn_unbind_acl(&store.tarn, &acl), 0) << "down";
    store.ftm_memory = false;
    EXPECT_EQ(tarn_bind_policy_to_vpnlist(&store.tarn, p_policy, p_context, nullptr), ENOMEM);
    EXPECT_EQ(tarn_bind_acl_to_intf(&store.tarn, &acl, p_intf), ENOMEM);
    store.tarn.p_ftm_msgq = nullptr;
    EXPECT_EQ(tarn_bind_policy_to_vpnlist(&store.tarn, p_policy, p_context, nullptr), EBADMSG)
        << "no channel";
    EXPECT_EQ(tarn_unbind_acl(&store.tarn, &acl), 0) << "no channel";
    EXPECT_EQ(store.take_bytes(), std::vector<t_bytes>());
}

TEST_F(FtmGolden, AnInterfaceNameWithoutTerminatorKeepsTheWholeMessageBack)
{
    add_intf("ge0/0", 1, 10);
    t_tarn_intf *p_longest = add_intf(std::string(33, 'i'), 1, 10);
    EXPECT_EQ(tarn_bind_acl(&acl, &store.tarn, nullptr), EINVAL);
    EXPECT_EQ(tarn_bind_acl_to_intf(&store.tarn, &acl, p_longest), EINVAL);
    EXPECT_EQ(store.take_bytes(), std::vector<t_bytes>());
}

TEST_F(FtmGolden, AMessageThatWouldNotFitIsNotSent)
{
    for (uint64_t id = 0; id < 8173; id++)
        ASSERT_EQ(tarn_vpn_add(&store.tarn, "guests", id, id), 0);
    for (uint16_t i = 0; i < 1720; i++)
        add_intf("ge" + std::to_string(i), 1, i);
    EXPECT_EQ(tarn_bind_policy_to_vpnlist(&store.tarn, p_policy, p_context, nullptr), 0);
    EXPECT_EQ(tarn_bind_acl(&acl, &store.tarn, nullptr), 0);
    std::vector<t_bytes> largest = store.take_bytes();
    ASSERT_EQ(largest.size(), 2u);
    EXPECT_EQ(largest[0].size(), 139u + 8 * 8173);
    EXPECT_EQ(largest[1].size(), 139u + 38 * 1720);
    ASSERT_EQ(tarn_vpn_add(&store.tarn, "guests", 8173, 8173), 0);
    add_intf("one-more", 1, 1);
    EXPECT_EQ(tarn_bind_policy_to_vpnlist(&store.tarn, p_policy, p_context, nullptr), ENOMEM);
    EXPECT_EQ(tarn_unbind_acl(&store.tarn, &acl), ENOMEM);
    EXPECT_EQ(store.take_bytes(), std::vector<t_bytes>());
}

// ---- A live connection ----

namespace {

// FTM's end, by hand.
class Peer {
public:
    Peer() : fd(socket(AF_UNIX, SOCK_STREAM, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, "/var/run/.tarnd");
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0) << strerror(errno);
        static const uint8_t register_message[] = {0xAF, 0xBE, 8, 0, 3, 9, 1, 0x0C};
        EXPECT_EQ(send(fd, register_message, sizeof(register_message), 0), 8);
    }
    ~Peer()
    {
        close(fd);
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    // All that has arrived when the daemon's loop has nothing more to do.
    t_bytes received(event_base *p_base)
    {
        t_bytes bytes;
        pollfd waiting = {fd, POLLIN, 0};
        for (int timeout_ms = 10'000; turn(p_base), poll(&waiting, 1, timeout_ms) == 1; timeout_ms = 50) {
            uint8_t part[4096];
            ssize_t size = recv(fd, part, sizeof(part), 0);
            if (size <= 0)
                break;
            bytes.insert(bytes.end(), part, part + size);
        }
        return bytes;
    }

private:
    static void turn(event_base *p_base)
    {
        for (int i = 0; i < 5; i++)
            event_base_loop(p_base, EVLOOP_NONBLOCK);
    }

    int fd;
};

}  // namespace

static t_bytes framed(const t_bytes &body)
{
    size_t size = body.size() + 8;
    return t_bytes{0xAF, 0xBE, static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8), 9, 3, 2, 0x0C} +
           body;
}

static void bind_access_list(avl_tree_t *p_lists, t_tarn_access_list *p_list, t_tarn_intf *p_intf)
{
    strcpy(p_list->key.name, "edge-in");
    avl_create(&p_list->intf_db, tarn_intf_key_cmp, sizeof(t_tarn_intf), offsetof(t_tarn_intf, avl_node));
    strcpy(p_intf->key.name, "ge0/0");
    p_intf->key.direction = 1;
    p_intf->vpn_id = 10;
    ASSERT_EQ(avl_insert(&p_list->intf_db, p_intf), 0);
    ASSERT_EQ(avl_insert(p_lists, p_list), 0);
}

// A loaded context, an unbound one, one on an empty list, a zone-based one, and an access list a family.
static void work_replay()
{
    TarnStore store;
    t_tarn *p_tarn = &store.tarn;
    p_tarn->p_ftm_msgq = nullptr;
    for (const char *list : {"guests", "empty"})
        ASSERT_EQ(tarn_vpn_list_add(p_tarn, list), 0);
    for (auto type : {TARN_POLICY_TYPE_ZBF, TARN_POLICY_TYPE_PFR, TARN_POLICY_TYPE_DATA})
        ASSERT_EQ(tarn_policy_add(p_tarn, type, "branch", TARN_POLICY_DIR_SERVICE, 2), 0);
    ASSERT_EQ(tarn_vpn_list_add_to_policy(p_tarn, TARN_POLICY_TYPE_DATA, "branch", "guests", 2, nullptr), 0);
    ASSERT_EQ(tarn_vpn_list_add_to_policy(p_tarn, TARN_POLICY_TYPE_DATA, "branch", "empty", 2, nullptr), 0);
    ASSERT_EQ(tarn_vpn_list_add_to_policy(p_tarn, TARN_POLICY_TYPE_PFR, "branch", "guests", 2, nullptr), 0);
    ASSERT_EQ(tarn_vpn_add(p_tarn, "guests", 1, 2), 0);
    ASSERT_EQ(tarn_vpn_add(p_tarn, TARN_ZBF_VPN_LIST, 5, 5), 0);
    t_tarn_policy *p_policy;
    t_tarn_policy_vpn_list *p_context;
    ASSERT_EQ(tarn_policy_lookup(p_tarn, TARN_POLICY_TYPE_PFR, "branch", &p_policy), 0);
    ASSERT_EQ(tarn_vpn_list_lookup_in_policy(p_tarn, TARN_POLICY_TYPE_PFR, "branch", "guests", &p_context),
              0);
    p_context->filter_id = 3;
    p_context->filter_type = TARN_FILTER_PFR;
    t_tarn_access_list lists[2] = {};
    t_tarn_intf intfs[2] = {};
    lists[1].key.af_type = TARN_AF_TYPE_IPV6;
    lists[1].filter_id = -1;
    bind_access_list(&p_tarn->access_list_db, &lists[0], &intfs[0]);
    bind_access_list(&p_tarn->access_list6_db, &lists[1], &intfs[1]);

    t_bytes intf = t_bytes{0, 0, 0, 1} + intf_entry({0, 0, 0, 10, 1}, "ge0/0");
    t_bytes range = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 2};
    // The names are the lists'.
    t_bytes replay = framed(message({1, 0, 2, 255, 255, 255, 255}, "guests", range)) +
                     framed(message({1, 2, 2, 0, 0, 0, 3}, "guests", range)) +
                     framed(message({1, 0, 2, 255, 255, 255, 255}, TARN_ZBF_VPN_LIST,
                                    {0, 0, 0, 1, 0, 0, 0, 5, 0, 0, 0, 5})) +
                     framed(message({3, 0, 0, 0, 0, 0, 0}, "edge-in", intf)) +
                     framed(message({3, 1, 0, 255, 255, 255, 255}, "edge-in", intf));
    p_tarn->p_event_base = event_base_new();
    ASSERT_EQ(tarn_ftm_init(p_tarn), 0);
    {
        Peer peer;
        EXPECT_EQ(peer.received(p_tarn->p_event_base), replay);
        EXPECT_EQ(tarn_bind_policy_to_vpnlist(p_tarn, p_policy, p_context, nullptr), 0);
        EXPECT_EQ(peer.received(p_tarn->p_event_base),
                  framed(message({1, 2, 2, 0, 0, 0, 3}, "branch", range)));
    }
    event_base_loop(p_tarn->p_event_base, EVLOOP_ONCE);
    EXPECT_EQ(tarn_bind_policy_to_vpnlist(p_tarn, p_policy, p_context, nullptr), 0) << "down is no error";
    {
        Peer peer;
        EXPECT_EQ(peer.received(p_tarn->p_event_base), replay) << "what was said meanwhile is in it";
    }
    EXPECT_EQ(tarn_ftm_destroy(p_tarn), 0);
    EXPECT_EQ(p_tarn->p_ftm_msgq, nullptr);
    event_base_free(p_tarn->p_event_base);
    for (avl_tree_t *p_lists :
         {&lists[0].intf_db, &lists[1].intf_db, &p_tarn->access_list_db, &p_tarn->access_list6_db})
        avl_destroy_nodes(p_lists, nullptr);
}

TEST(FtmChannel, TellsEverythingEachTimeThePeerComesUp)
{
    in_own_root(work_replay);
}

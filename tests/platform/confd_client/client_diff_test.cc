// What changed: notifications, iterating over pages and below nodes, and the values of the instance that the
// iterator is at.
#include "platform/confd/confd_cdb.h"
#include "tests/platform/confd_client/scripted_server.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>

static constexpr uint32_t list_tag = 100;
static constexpr uint32_t leaf_tag = 200;

// list{n}, and leaf below it.
static IpcKeypath entry_path(uint32_t number, bool is_leaf = false)
{
    confd_value_t key = {C_UINT32, {}};
    key.val.u32 = number;
    IpcKeypath path = {{{IpcValue(key)}, {IpcValue::tag(C_XMLTAG, list_tag, 1)}}};
    if (is_leaf)
        path.steps.insert(path.steps.begin(), {IpcValue::tag(C_XMLTAG, leaf_tag, 1)});
    return path;
}

static t_ipc_diff_entry entry_of(uint32_t number)
{
    t_ipc_diff_entry entry = {MOP_MODIFIED, entry_path(number), {}, {}, {}};
    for (uint32_t i = 0; i < number; i++)
        entry.modifications.push_back({{leaf_tag, 0}, IpcValue::text("value " + std::to_string(i))});
    return entry;
}

// Entries 0 to 4 in pages of two; below each, one leaf with an old and a new value.
static std::vector<uint8_t> answer_diff(const t_ipc_frame &frame)
{
    t_ipc_diff_request request;
    EXPECT_TRUE(ipc_decode(frame.body, &request) && request.id == 7);
    t_ipc_diff_page page = {{}, 0};
    if (!request.parent.steps.empty()) {
        uint32_t number = request.parent.steps[0][0].v.val.u32;
        page.entries.push_back(
            {MOP_VALUE_SET, entry_path(number, true), IpcValue::text("old"), IpcValue::text("new"), {}});
        return ipc_encode(page);
    }
    uint32_t first = static_cast<uint32_t>(request.cursor);
    for (uint32_t number = first; number < std::min(first + 2, 5u); number++)
        page.entries.push_back(entry_of(number));
    page.next = first + 2 < 5 ? first + 2 : 0;
    return ipc_encode(page);
}

namespace {

struct t_walk {
    int fd;
    uint32_t recurse_at;
    uint32_t stop_at;
    std::string seen;
};

}  // namespace

static std::string text_of(const confd_value_t *p_value)
{
    return p_value == nullptr
               ? "-"
               : std::string(reinterpret_cast<char *>(p_value->val.buf.ptr), p_value->val.buf.size);
}

// The number of values of the instance that the iterator is at.
static int count_modifications(int fd)
{
    confd_tag_value_t *p_values = nullptr;
    int count = -1;
    EXPECT_EQ(cdb_get_modifications_iter(fd, 0, &p_values, &count), CONFD_OK);
    EXPECT_NE(p_values, nullptr) << "also without values";
    for (int i = 0; i < count; i++) {
        EXPECT_EQ(text_of(&p_values[i].v), "value " + std::to_string(i));
        confd_free_value(&p_values[i].v);
    }
    free(p_values);
    return count;
}

static cdb_iter_ret iterate(confd_hkeypath_t *kp, confd_iter_op op, confd_value_t *oldv, confd_value_t *newv,
                            void *state)
{
    t_walk *p_walk = static_cast<t_walk *>(state);
    if (kp->len == 3) {
        EXPECT_EQ(kp->v[0][0].val.xmltag.tag, leaf_tag);
        EXPECT_EQ(op, MOP_VALUE_SET);
        p_walk->seen += "(" + text_of(oldv) + ">" + text_of(newv) + ")";
        return ITER_CONTINUE;
    }
    EXPECT_EQ(kp->len, 2);
    EXPECT_EQ(kp->v[0][1].type, C_NOEXISTS);
    EXPECT_EQ(kp->v[1][0].val.xmltag.tag, list_tag);
    uint32_t number = kp->v[0][0].val.u32;
    p_walk->seen += std::to_string(number);
    EXPECT_EQ(count_modifications(p_walk->fd), static_cast<int>(number));
    if (number == p_walk->stop_at)
        return ITER_STOP;
    return number == p_walk->recurse_at ? ITER_RECURSE : ITER_CONTINUE;
}

TEST(ClientDiff, WalksOverPagesAndBelowNodes)
{
    static const struct {
        int flags;
        uint32_t recurse_at;
        uint32_t stop_at;
        const char *seen;
    } cases[] = {
        {ITER_WANT_LEAF_LIST_AS_LEAF, 9, 9, "01234"},
        {ITER_WANT_PREV, 1, 9, "01(old>new)234"},
        {0, 3, 9, "0123(->new)4"},
        {0, 9, 2, "012"},
    };
    ScriptedServer server;
    server.answer_with(IPC_OP_SUB_DIFF, answer_diff);
    t_client_fd client;
    ASSERT_EQ(cdb_connect(client.fd, CDB_SUBSCRIPTION_SOCKET, server.address(), server.address_size()),
              CONFD_OK);
    for (const auto &c : cases) {
        t_walk walk = {client.fd, c.recurse_at, c.stop_at, ""};
        EXPECT_EQ(cdb_diff_iterate(client.fd, 7, iterate, c.flags, &walk), CONFD_OK);
        EXPECT_EQ(walk.seen, c.seen);
    }
    confd_tag_value_t *p_values = nullptr;
    int count = 0;
    EXPECT_EQ(cdb_get_modifications_iter(client.fd, 0, &p_values, &count), CONFD_ERR)
        << "the iterator is nowhere";
}

TEST(ClientDiff, PagesThatWouldNeverEndAreRefused)
{
    t_ipc_diff_page no_entries = {{}, 5};
    t_ipc_diff_page own_parent = {{entry_of(1)}, 0};  // as an answer to what is below it, too
    t_ipc_diff_page no_operation = {{entry_of(0)}, 0};
    no_operation.entries[0].op = 0;
    for (const t_ipc_diff_page &page : {no_entries, own_parent, no_operation}) {
        ScriptedServer server;
        server.answer(IPC_OP_SUB_DIFF, ipc_encode(page));
        t_client_fd client;
        ASSERT_EQ(cdb_connect(client.fd, CDB_SUBSCRIPTION_SOCKET, server.address(), server.address_size()),
                  CONFD_OK);
        t_walk walk = {client.fd, 1, 9, ""};
        EXPECT_EQ(cdb_diff_iterate(client.fd, 7, iterate, 0, &walk), CONFD_EOF);
    }
}

TEST(ClientDiff, TheServersDeathBetweenPagesIsTheEnd)
{
    ScriptedServer server;
    server.answer_with(IPC_OP_SUB_DIFF, answer_diff);
    t_client_fd client;
    ASSERT_EQ(cdb_connect(client.fd, CDB_SUBSCRIPTION_SOCKET, server.address(), server.address_size()),
              CONFD_OK);
    auto dies_at_one = [](confd_hkeypath_t *kp, confd_iter_op, confd_value_t *, confd_value_t *,
                          void *state) {
        if (kp->v[0][0].val.u32 == 1)
            static_cast<ScriptedServer *>(state)->hang_up(0);
        return ITER_CONTINUE;
    };
    EXPECT_EQ(cdb_diff_iterate(client.fd, 7, dies_at_one, 0, &server), CONFD_EOF);
}

TEST(ClientSubscription, ReadsBatches)
{
    ScriptedServer server;
    server.answer(IPC_OP_SUB_SYNC, {});
    t_client_fd client;
    ASSERT_EQ(cdb_connect(client.fd, CDB_SUBSCRIPTION_SOCKET, server.address(), server.address_size()),
              CONFD_OK);
    for (const std::vector<int32_t> &ids : {std::vector<int32_t>{3, 1, 2}, std::vector<int32_t>{}}) {
        server.push(0, {IPC_OP_SUB_BATCH, IPC_KIND_ONEWAY, 0, 0,
                        ipc_encode(t_ipc_batch{CDB_SUB_OPER, CDB_SUB_FLAG_TRIGGER, ids})});
        cdb_sub_notification type = CDB_SUB_PREPARE;
        int flags = 0;
        int *p_ids = nullptr;
        int count = -1;
        ASSERT_EQ(cdb_read_subscription_socket2(client.fd, &type, &flags, &p_ids, &count), CONFD_OK);
        EXPECT_EQ(type, CDB_SUB_OPER);
        EXPECT_EQ(flags, 2);
        EXPECT_EQ(std::vector<int32_t>(p_ids, p_ids + count), ids);
        free(p_ids);
        EXPECT_EQ(cdb_sync_subscription_socket(client.fd, CDB_DONE_PRIORITY), CONFD_OK);
    }
    server.push(0, {IPC_OP_SUB_BATCH, IPC_KIND_ONEWAY, 0, 0, ipc_encode(t_ipc_batch{9, 0, {1}})});
    cdb_sub_notification type = CDB_SUB_PREPARE;
    int flags = 0;
    int *p_ids = nullptr;
    int count = 0;
    EXPECT_EQ(cdb_read_subscription_socket2(client.fd, &type, &flags, &p_ids, &count), CONFD_EOF);
}

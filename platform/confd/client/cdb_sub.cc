// Subscriptions: registering, notifications and what changed.
#include "platform/confd/confd_cdb.h"

#include "platform/confd/client/client_private.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

// ---- Registering ----

static int subscribe(int sock, const t_ipc_subscribe &request, int *p_spoint)
{
    t_ipc_count reply;
    int result = client_ask(sock, IPC_CONN_CDB_SUB, IPC_OP_SUB_SUBSCRIBE, ipc_encode(request), &reply);
    if (result == CONFD_OK)
        *p_spoint = reply.count;
    return result;
}

int cdb_subscribe(int sock, int priority, int nspace, int *spoint, const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    return subscribe(sock, {CDB_SUB_RUNNING, 0, priority, static_cast<uint32_t>(nspace), path}, spoint);
}

int cdb_subscribe2(int sock, cdb_sub_type type, int flags, int priority, int *spoint, int nspace,
                   const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    return subscribe(sock, {static_cast<uint8_t>(type), flags, priority, static_cast<uint32_t>(nspace), path},
                     spoint);
}

int cdb_oper_subscribe(int sock, int nspace, int *spoint, const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    return subscribe(sock, {CDB_SUB_OPERATIONAL, 0, 0, static_cast<uint32_t>(nspace), path}, spoint);
}

int cdb_subscribe_done(int sock)
{
    return client_do(sock, IPC_CONN_CDB_SUB, IPC_OP_SUB_DONE, {});
}

static int trigger(int sock, e_ipc_op op, const int *p_ids, int count, int flags)
{
    t_ipc_trigger request = {{p_ids, p_ids + count}, flags};
    return client_do(sock, IPC_CONN_CDB_DATA, op, ipc_encode(request));
}

int cdb_trigger_subscriptions(int sock, int sub_points[], int len)
{
    return trigger(sock, IPC_OP_CDB_TRIGGER, sub_points, len, 0);
}

int cdb_trigger_oper_subscriptions(int sock, int sub_points[], int len, int flags)
{
    return trigger(sock, IPC_OP_CDB_TRIGGER_OPER, sub_points, len, flags);
}

// ---- Notifications ----

static int read_batch(t_confd_sock *p_sock, t_ipc_batch *p_batch)
{
    std::lock_guard guard(p_sock->call_lock);
    t_ipc_frame frame;
    int result = client_receive(p_sock, &frame);
    if (result != CONFD_OK)
        return result;
    bool is_batch = frame.kind == IPC_KIND_ONEWAY && frame.op == IPC_OP_SUB_BATCH &&
                    ipc_decode(frame.body, p_batch) && p_batch->type >= CDB_SUB_PREPARE &&
                    p_batch->type <= CDB_SUB_OPER;
    return is_batch ? CONFD_OK : client_drop(p_sock);
}

int cdb_read_subscription_socket2(int sock, cdb_sub_notification *type, int *flags, int *subpoints[],
                                  int *resultlen)
{
    t_confd_sock_ref ref = client_sock(sock, IPC_CONN_CDB_SUB);
    if (ref == nullptr)
        return CONFD_ERR;
    t_ipc_batch batch;
    int result = read_batch(ref.get(), &batch);
    if (result != CONFD_OK)
        return result;
    int *p_ids = static_cast<int *>(calloc(std::max<size_t>(batch.ids.size(), 1), sizeof(int)));
    if (p_ids == nullptr)
        return client_fail(CONFD_ERR_MALLOC, "No memory for subscription ids");
    std::copy(batch.ids.begin(), batch.ids.end(), p_ids);
    *type = static_cast<cdb_sub_notification>(batch.type);
    *flags = batch.flags;
    *subpoints = p_ids;
    *resultlen = static_cast<int>(batch.ids.size());
    return CONFD_OK;
}

int cdb_sync_subscription_socket(int sock, cdb_subscription_sync_type st)
{
    t_ipc_sync request = {static_cast<uint8_t>(st)};
    return client_do(sock, IPC_CONN_CDB_SUB, IPC_OP_SUB_SYNC, ipc_encode(request));
}

int cdb_sub_abort_trans(int sock, confd_errcode code, uint32_t apptag_ns, uint32_t apptag_tag,
                        const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    t_ipc_abort request = {code, apptag_ns, apptag_tag, client_vformat(fmt, args)};
    va_end(args);
    return client_do(sock, IPC_CONN_CDB_SUB, IPC_OP_SUB_ABORT, ipc_encode(request));
}

// ---- What changed ----

namespace {

// One call of cdb_diff_iterate.
struct t_diff_walk {
    int fd;
    t_confd_sock *p_sock;
    int subid;
    f_cdb_iter iter;
    bool wants_old;
    void *p_state;
};

}  // namespace

static constexpr int walk_stopped = 1;

static int walk_children(const t_diff_walk &walk, const IpcKeypath &parent);

// Below a node stand only longer paths; so a walk has an end.
static bool is_sound(const t_ipc_diff_entry &entry, const IpcKeypath &parent)
{
    return entry.op >= MOP_CREATED && entry.op <= MOP_ATTR_SET &&
           entry.keypath.steps.size() > parent.steps.size();
}

// What the callback answered.
static cdb_iter_ret report(const t_diff_walk &walk, t_ipc_diff_entry *p_entry)
{
    std::unique_ptr<confd_hkeypath_t> path = std::make_unique_for_overwrite<confd_hkeypath_t>();
    if (!ipc_keypath_view(p_entry->keypath, path.get()))
        return ITER_STOP;
    bool has_old = walk.wants_old && p_entry->old_value.v.type != C_NOEXISTS;
    bool has_new = p_entry->new_value.v.type != C_NOEXISTS;
    t_ipc_diff_entry *p_outer = std::exchange(walk.p_sock->p_iterated, p_entry);
    cdb_iter_ret answer = walk.iter(path.get(), static_cast<confd_iter_op>(p_entry->op),
                                    has_old ? &p_entry->old_value.v : nullptr,
                                    has_new ? &p_entry->new_value.v : nullptr, walk.p_state);
    walk.p_sock->p_iterated = p_outer;
    return answer;
}

// CONFD_OK, walk_stopped, or the failure.
static int walk_page(const t_diff_walk &walk, const IpcKeypath &parent,
                     std::vector<t_ipc_diff_entry> *p_entries)
{
    for (t_ipc_diff_entry &entry : *p_entries) {
        if (!is_sound(entry, parent))
            return client_drop(walk.p_sock);
        cdb_iter_ret answer = report(walk, &entry);
        if (answer == ITER_STOP)
            return walk_stopped;
        int result = answer == ITER_RECURSE ? walk_children(walk, entry.keypath) : CONFD_OK;
        if (result != CONFD_OK)
            return result;
    }
    return CONFD_OK;
}

static int walk_children(const t_diff_walk &walk, const IpcKeypath &parent)
{
    uint64_t cursor = 0;
    do {
        t_ipc_diff_page page;
        t_ipc_diff_request request = {walk.subid, parent, cursor};
        int result = client_ask(walk.fd, IPC_CONN_CDB_SUB, IPC_OP_SUB_DIFF, ipc_encode(request), &page);
        if (result == CONFD_OK)
            result = walk_page(walk, parent, &page.entries);
        if (result != CONFD_OK)
            return result;
        if (page.next != 0 && page.entries.empty())
            return client_drop(walk.p_sock);
        cursor = page.next;
    } while (cursor != 0);
    return CONFD_OK;
}

int cdb_diff_iterate(int sock, int subid, f_cdb_iter iter, int flags, void *initstate)
{
    t_confd_sock_ref ref = client_sock(sock, IPC_CONN_CDB_SUB);
    if (ref == nullptr)
        return CONFD_ERR;
    t_diff_walk walk = {sock, ref.get(), subid, iter, (flags & ITER_WANT_PREV) != 0, initstate};
    int result = walk_children(walk, {});
    return result == walk_stopped ? CONFD_OK : result;
}

int cdb_get_modifications_iter(int sock, int, confd_tag_value_t **values, int *nvalues)
{
    t_confd_sock_ref ref = client_sock(sock, IPC_CONN_CDB_SUB);
    if (ref == nullptr)
        return CONFD_ERR;
    if (ref->p_iterated == nullptr)
        return client_fail(CONFD_ERR_PROTOUSAGE, "Only in a callback of cdb_diff_iterate");
    std::vector<IpcTagValue> copies = ref->p_iterated->modifications;
    *nvalues = static_cast<int>(copies.size());
    *values = ipc_tag_values_release(&copies);
    return CONFD_OK;
}

int cdb_get_modifications(int sock, int subid, int flags, confd_tag_value_t **values, int *nvalues,
                          const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    t_ipc_tag_values reply;
    t_ipc_modifications request = {subid, flags, path};
    int result = client_ask(sock, IPC_CONN_CDB_SUB, IPC_OP_SUB_MODIFICATIONS, ipc_encode(request), &reply);
    if (result != CONFD_OK)
        return result;
    *nvalues = static_cast<int>(reply.values.size());
    *values = ipc_tag_values_release(&reply.values);
    return CONFD_OK;
}

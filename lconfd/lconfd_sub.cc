// Serving the subscription socket: one notification, all of one priority level.
#include "lconfd/lconfd_private.h"
#include "lconfd/lconfd_trap.h"

#include <cstdlib>
#include <functional>
#include <iterator>

// ---- Tables ----

static constexpr int snmp_space = 278916076;

t_lconfd_sub_entry lconfd_subscription_points[] = {{.path = "snmp/trap/group",
                                                    .config_cb = lconfd_config_trap_group,
                                                    .name_space = snmp_space,
                                                    .num_keys = 1,
                                                    .priority = 1},
                                                   {.path = "snmp/trap/group/enable",
                                                    .config_cb = lconfd_config_trap_group_enable,
                                                    .name_space = snmp_space,
                                                    .num_keys = 2,
                                                    .priority = 1},
                                                   {}};

static bool is_own(const t_lconfd_sub_entry *p_entry)
{
    std::less<const t_lconfd_sub_entry *> less;
    return !less(p_entry, std::begin(lconfd_subscription_points)) &&
           less(p_entry, std::end(lconfd_subscription_points));
}

t_lconfd_sub_entry *lconfd_sub_next(const t_lconfd_context *ctx, t_lconfd_sub_entry *p_entry)
{
    p_entry = p_entry == nullptr ? ctx->module_data.sub_point_arr : p_entry + 1;
    if (p_entry->path[0] == '\0' && !is_own(p_entry))
        p_entry = lconfd_subscription_points;
    return p_entry->path[0] != '\0' ? p_entry : nullptr;
}

// ---- One notification ----

namespace {

struct t_free {
    void operator()(void *p_mem) const
    {
        free(p_mem);
    }
};

struct t_sub_batch {
    int fd;
    cdb_sub_notification type;
    int flags;
    std::unique_ptr<int[], t_free> ids;
    int count;
    int pending;  // ids that no entry has taken
    bool call_end_cb;

    bool is_triggered() const
    {
        return (flags & CDB_SUB_FLAG_TRIGGER) != 0;
    }
};

}  // namespace

// The entry's id in the batch, or 0.
static int id_in_batch(const t_sub_batch &batch, const t_lconfd_sub_entry &entry)
{
    for (int i = batch.count - 1; i >= 0; i--)
        if (batch.ids[i] == entry.id || batch.ids[i] == entry.del_sub_id)
            return batch.ids[i];
    return 0;
}

static const char *kind_of(const t_lconfd_sub_entry &entry, int id)
{
    return id == entry.id ? "ADD" : "DEL";
}

// Gives the change to the daemon. 0, or the framework's failure.
static int deliver(const t_sub_batch &batch, t_lconfd_sub_entry *p_entry, int id)
{
    t_lconfd_sub_buf buffer = {p_entry, id};
    if (p_entry->num_keys == 0)
        return lconfd_sub_diff_no_keys(&buffer);
    if (p_entry->config_cb == nullptr)
        return CONFD_OK;
    return cdb_diff_iterate(batch.fd, id, lconfd_sub_diff_iter, ITER_WANT_LEAF_LIST_AS_LEAF, &buffer);
}

// What is to be done when a callback has failed: a prepare phase is refused, all else is too late.
static void refuse(const t_sub_batch &batch, t_lconfd_sub_entry *p_entry, int result)
{
    if (batch.type != CDB_SUB_PREPARE) {
        LCONFD_LOG("Error iterating subscription (%s - %d)", lconfd_module_name(), result);
        LUM_ASSERT(batch.type == CDB_SUB_PREPARE, "0");
    }
    LCONFD_LOG("Aborting transaction");
    cdb_sub_abort_trans(batch.fd, CONFD_ERR_BADTYPE, 0, 0, "Unable to apply changes");
    p_entry->is_triggered = 0;
}

// Serves one entry. False when the transaction was refused.
static bool serve_entry(t_sub_batch *p_batch, t_lconfd_sub_entry *p_entry, int id)
{
    p_entry->error = 0;
    int result = deliver(*p_batch, p_entry, id);
    if (p_entry->error != 0) {
        refuse(*p_batch, p_entry, result);
        return false;
    }
    if (result != CONFD_OK)
        LCONFD_LOG("Error iterating subscription (%s: %d). Unexpected type %d", p_entry->path, result,
                   static_cast<int>(p_batch->type));
    LUM_ASSERT(result == CONFD_OK || result == CONFD_EOF, "0");
    p_entry->is_triggered = 0;
    p_entry->end_time = time(nullptr);
    LCONFD_DEBUG("Success %s subscription %s", kind_of(*p_entry, id), p_entry->path);
    p_batch->pending--;
    return true;
}

// Later phases of a two-phase subscription change nothing here.
static bool is_later_phase(const t_sub_batch &batch, const t_lconfd_sub_entry &entry)
{
    if (entry.two_phase == 0)
        return false;
    if (batch.type == CDB_SUB_OPER)
        LCONFD_LOG("Two phase sub for Oper data");
    LUM_ASSERT(batch.type != CDB_SUB_OPER, "0");
    return batch.type == CDB_SUB_COMMIT || batch.type == CDB_SUB_ABORT;
}

// False when the transaction was refused.
static bool take_entry(t_sub_batch *p_batch, t_lconfd_sub_entry *p_entry, int id)
{
    // What comes before the first triggered read is in it.
    if (p_entry->init_cfg_read == 0 && !p_batch->is_triggered()) {
        p_batch->pending--;
        return true;
    }
    p_entry->start_time = time(nullptr);
    LCONFD_DEBUG("Received %s subscription %s", kind_of(*p_entry, id), p_entry->path);
    if (p_batch->is_triggered()) {
        p_entry->is_triggered = 1;
        p_entry->init_cfg_read = 1;
    }
    if (is_later_phase(*p_batch, *p_entry)) {
        p_entry->is_triggered = 0;
        return true;
    }
    return serve_entry(p_batch, p_entry, id);
}

// The order of the walk is that of the tables. False when the transaction was refused.
static bool take_entries(const t_lconfd_context *ctx, t_sub_batch *p_batch)
{
    for (t_lconfd_sub_entry *p_entry = lconfd_sub_next(ctx, nullptr);
         p_entry != nullptr && p_batch->pending > 0; p_entry = lconfd_sub_next(ctx, p_entry)) {
        int id = id_in_batch(*p_batch, *p_entry);
        if (id != 0 && !take_entry(p_batch, p_entry, id))
            return false;
    }
    return true;
}

// Somebody has set a bit of the mask: perhaps it is this daemon's turn.
static void take_mask_change(t_lconfd_context *ctx, t_sub_batch *p_batch)
{
    p_batch->pending = 0;
    p_batch->call_end_cb = false;
    if (lconfd_can_read_initial_config(ctx) == 0 || ctx->init_read_started.exchange(1) != 0)
        return;
    int result = lconfd_read_sub_config_all(ctx);
    if (result != 0)
        LCONFD_LOG("Cannot start initial read");
    LUM_ASSERT(result == 0, "0");
}

static void end_batch(t_lconfd_context *ctx, const t_sub_batch &batch)
{
    if (batch.pending > 0)
        LCONFD_LOG("Not all subscription points (%d) read", batch.pending);
    LUM_ASSERT(batch.pending <= 0, "0");
    if (batch.call_end_cb && ctx->module_data.sub_end_cb != nullptr)
        ctx->module_data.sub_end_cb(ctx, batch.flags & CDB_SUB_FLAG_TRIGGER);
    int result = cdb_sync_subscription_socket(batch.fd, CDB_DONE_PRIORITY);
    if (result != CONFD_OK)
        LCONFD_LOG("Failed to sync subscription (%s - %d)", lconfd_module_name(), result);
    else
        LCONFD_DEBUG("Sync subscription from %s succeeded", lconfd_module_name());
}

static void serve_batch(t_lconfd_context *ctx, t_sub_batch *p_batch)
{
    if (p_batch->count < 1)
        return;
    if (p_batch->ids[0] == ctx->module_data.initial_read_priority_sub_id)
        take_mask_change(ctx, p_batch);
    if (take_entries(ctx, p_batch))
        end_batch(ctx, *p_batch);
}

void lconfd_sub_cb(int fd, short, void *arg)
{
    t_lconfd_context *ctx = static_cast<t_lconfd_context *>(arg);
    cdb_sub_notification type = {};
    int flags = 0, count = 0;
    int *p_ids = nullptr;
    int result = cdb_read_subscription_socket2(fd, &type, &flags, &p_ids, &count);
    if (result == CONFD_EOF) {
        LCONFD_LOG("Subscription socket closed");
        lconfd_retry_connect(ctx);
        return;
    }
    if (result != CONFD_OK) {
        LCONFD_LOG("Failed to read ConfD subscription (%s - %d)%s (%d) : %s", lconfd_module_name(), result,
                   LCONFD_WHY);
        return;
    }
    LCONFD_DEBUG("Received %u subscriptions (type:%u, flags:%u)", static_cast<unsigned>(count),
                 static_cast<unsigned>(type), static_cast<unsigned>(flags));
    t_sub_batch batch = {.fd = fd,
                         .type = type,
                         .flags = flags,
                         .ids = std::unique_ptr<int[], t_free>(p_ids),
                         .count = count,
                         .pending = count,
                         .call_end_cb = true};
    serve_batch(ctx, &batch);
}

// Subscribers and their batches.

#include "mgmtd/engine/mgmt_engine_private.h"

#include "common/lum_log.h"

#include <algorithm>

static t_mgmt_subscriber *subscriber_of(t_mgmt_engine *p_engine, uint32_t connection)
{
    auto found = p_engine->subscribers.find(connection);
    return found == p_engine->subscribers.end() ? nullptr : &found->second;
}

void mgmt_subscriber_open(t_mgmt_engine *p_engine, uint32_t connection, const std::string &daemon)
{
    t_mgmt_subscriber &subscriber = p_engine->subscribers[connection];
    subscriber.daemon = daemon;
    subscriber.done = false;
}

// ---- Subscriptions ----

static bool path_find(const t_mgmt_engine &engine, const t_ipc_subscribe &subscription,
                      const t_schema_node **pp_schema, t_mgmt_error *p_error)
{
    *pp_schema = nullptr;
    if (subscription.path.empty() || subscription.path == "/")
        return true;
    const t_schema_node *p_node = schema_find(*engine.store.p_schema, subscription.path);
    const t_schema_node *p_top = p_node;
    while (p_top != nullptr && p_top->parent != nullptr)
        p_top = p_top->parent;
    if (p_top == nullptr || (subscription.ns != 0 && p_top->ns != subscription.ns))
        return mgmt_fail(p_error, MGMT_ERR_BADPATH, subscription.path, "no such path in the model");
    *pp_schema = p_node;
    return true;
}

int32_t mgmt_subscribe(t_mgmt_engine *p_engine, uint32_t connection, const t_ipc_subscribe &subscription,
                       t_mgmt_error *p_error)
{
    static constexpr size_t max_subscriptions = 1024;
    t_mgmt_subscriber *p_subscriber = subscriber_of(p_engine, connection);
    const t_schema_node *p_schema = nullptr;
    if (p_subscriber == nullptr || p_subscriber->done ||
        p_subscriber->subscriptions.size() >= max_subscriptions) {
        mgmt_fail(p_error, MGMT_ERR_BADSTATE, subscription.path, "no further subscription is possible");
        return 0;
    }
    if (subscription.type < CDB_SUB_RUNNING || subscription.type > CDB_SUB_OPERATIONAL) {
        mgmt_fail(p_error, MGMT_ERR_BADSTATE, subscription.path, "unknown type of subscription");
        return 0;
    }
    if (!path_find(*p_engine, subscription, &p_schema, p_error))
        return 0;
    p_subscriber->subscriptions.push_back({.id = ++p_engine->last_subscription,
                                           .type = static_cast<cdb_sub_type>(subscription.type),
                                           .priority = subscription.priority,
                                           .schema = p_schema});
    return p_engine->last_subscription;
}

void mgmt_subscribe_done(t_mgmt_engine *p_engine, uint32_t connection)
{
    t_mgmt_subscriber *p_subscriber = subscriber_of(p_engine, connection);
    if (p_subscriber != nullptr)
        p_subscriber->done = true;
}

// ---- Batches ----

static void batch_next(t_mgmt_engine *p_engine, uint32_t connection, t_mgmt_subscriber *p_subscriber)
{
    if (p_subscriber->open || p_subscriber->waiting.empty())
        return;
    p_subscriber->open = std::move(p_subscriber->waiting.front());
    p_subscriber->waiting.pop_front();
    const t_mgmt_batch &batch = *p_subscriber->open;
    mgmt_timer_set(&p_engine->timers, &p_subscriber->timeout, MGMT_SUBSCRIBER_TIMEOUT_MS,
                   [p_engine, connection] {
                       mgmt_subscriber_lose(p_engine, connection,
                                            "no acknowledgement for " +
                                                std::to_string(MGMT_SUBSCRIBER_TIMEOUT_MS / 1000) + " s");
                   });
    t_ipc_batch message = {.type = static_cast<uint8_t>(batch.type), .flags = batch.flags, .ids = batch.ids};
    t_ipc_frame frame = {
        .op = IPC_OP_SUB_BATCH, .kind = IPC_KIND_ONEWAY, .id = 0, .status = 0, .body = ipc_encode(message)};
    p_engine->p_link->send(p_engine->p_link_ctx, connection, frame);
}

void mgmt_batch_queue(t_mgmt_engine *p_engine, uint32_t connection, t_mgmt_batch batch)
{
    t_mgmt_subscriber &subscriber = p_engine->subscribers.at(connection);
    subscriber.waiting.push_back(std::move(batch));
    batch_next(p_engine, connection, &subscriber);
}

bool mgmt_batch_can_end(t_mgmt_engine *p_engine, uint32_t connection, bool is_refusal, t_mgmt_error *p_error)
{
    const t_mgmt_subscriber *p_subscriber = subscriber_of(p_engine, connection);
    if (p_subscriber == nullptr || !p_subscriber->open)
        return mgmt_fail(p_error, MGMT_ERR_BADSTATE, "", "there is no open notification");
    if (is_refusal && p_subscriber->open->type != CDB_SUB_PREPARE)
        return mgmt_fail(p_error, MGMT_ERR_BADSTATE, "", "only a prepare can be refused");
    return true;
}

void mgmt_batch_end(t_mgmt_engine *p_engine, uint32_t connection, const t_ipc_abort *p_refusal)
{
    t_mgmt_subscriber *p_subscriber = subscriber_of(p_engine, connection);
    if (p_subscriber == nullptr || !p_subscriber->open)
        return;
    t_mgmt_batch batch = std::move(*p_subscriber->open);
    p_subscriber->open.reset();
    mgmt_timer_cancel(&p_engine->timers, &p_subscriber->timeout);
    t_mgmt_error refusal;
    if (p_refusal != nullptr)
        mgmt_fail(&refusal, MGMT_ERR_EXTERNAL, "", p_subscriber->daemon + ": " + p_refusal->reason);
    batch.ended(p_refusal == nullptr ? MGMT_BATCH_ACKNOWLEDGED : MGMT_BATCH_REFUSED, refusal);
    batch_next(p_engine, connection, p_subscriber);
}

void mgmt_subscriber_lose(t_mgmt_engine *p_engine, uint32_t connection, const std::string &reason)
{
    auto node = p_engine->subscribers.extract(connection);
    if (node.empty())
        return;
    t_mgmt_subscriber &subscriber = node.mapped();
    mgmt_timer_cancel(&p_engine->timers, &subscriber.timeout);
    t_mgmt_error error;
    mgmt_fail(&error, MGMT_ERR_EXTERNAL, "", reason.empty() ? "the connection has ended" : reason);
    if (subscriber.open)
        subscriber.waiting.push_front(std::move(*subscriber.open));
    for (t_mgmt_batch &batch : subscriber.waiting)
        batch.ended(MGMT_BATCH_LOST, error);
    if (!subscriber.waiting.empty())
        LUM_LOG(LUM_LOG_ERROR, "Subscriber %s dropped from a commit: %s", subscriber.daemon.c_str(),
                error.reason.c_str());
    if (!reason.empty())
        p_engine->p_link->drop(p_engine->p_link_ctx, connection, reason);
}

// ---- What a batch reports ----

static t_mgmt_batch *open_batch(t_mgmt_engine *p_engine, uint32_t connection, int32_t id)
{
    t_mgmt_subscriber *p_subscriber = subscriber_of(p_engine, connection);
    if (p_subscriber == nullptr || !p_subscriber->open)
        return nullptr;
    const std::vector<int32_t> &ids = p_subscriber->open->ids;
    return std::find(ids.begin(), ids.end(), id) == ids.end() ? nullptr : &*p_subscriber->open;
}

static const t_schema_node *subscription_schema(const t_mgmt_engine &engine, uint32_t connection, int32_t id)
{
    for (const t_mgmt_subscription &subscription : engine.subscribers.at(connection).subscriptions)
        if (subscription.id == id)
            return subscription.schema;
    return nullptr;
}

static std::vector<uint8_t> keypath_bytes(const IpcKeypath &keypath)
{
    IpcWriter writer;
    ipc_keypath_write(&writer, keypath);
    return writer.take();
}

static std::vector<t_mgmt_report> instances_of(const t_mgmt_engine &engine, const t_mgmt_diff &diff,
                                               const t_schema_node *p_schema)
{
    if (p_schema != nullptr)
        return mgmt_report_instances(diff, p_schema);
    std::vector<t_mgmt_report> all;
    for (const t_schema_node *p_top : engine.store.p_schema->tops) {
        std::vector<t_mgmt_report> reports = mgmt_report_instances(diff, p_top);
        all.insert(all.end(), reports.begin(), reports.end());
    }
    return all;
}

// The reports that a request is for; computed once a batch.
static const std::vector<t_mgmt_report> *reports_of(t_mgmt_engine *p_engine, uint32_t connection,
                                                    t_mgmt_batch *p_batch, const t_ipc_diff_request &request)
{
    t_ipc_diff_request key = {.id = request.id, .parent = request.parent, .cursor = 0};
    auto [entry, is_new] = p_batch->reports.try_emplace(ipc_encode(key));
    if (!is_new)
        return &entry->second;
    if (request.parent.steps.empty()) {
        entry->second =
            instances_of(*p_engine, *p_batch->diff, subscription_schema(*p_engine, connection, request.id));
        return &entry->second;
    }
    auto told = p_batch->told.find(keypath_bytes(request.parent));
    if (told != p_batch->told.end())
        entry->second = mgmt_report_children(*p_batch->diff, told->second);
    return &entry->second;
}

static std::vector<IpcTagValue> tag_values(const t_mgmt_values &values)
{
    std::vector<IpcTagValue> copies;
    copies.reserve(values.items.size());
    for (const confd_tag_value_t &item : values.items)
        copies.push_back({.tag = item.tag, .value = IpcValue(item.v)});
    return copies;
}

static t_ipc_diff_entry diff_entry(t_mgmt_batch *p_batch, const t_mgmt_report &report)
{
    const t_mgmt_diff &diff = *p_batch->diff;
    t_mgmt_values kept;
    t_ipc_diff_entry entry = {.op = static_cast<uint8_t>(report.op),
                              .keypath = mgmt_ipc_keypath(mgmt_report_keypath(diff, report)),
                              .old_value = {},
                              .new_value = {},
                              .modifications = {}};
    if (report.schema->kind == SCHEMA_KIND_LEAF || report.schema->kind == SCHEMA_KIND_LEAF_LIST) {
        entry.old_value = IpcValue(mgmt_report_old_value(diff, report, &kept));
        entry.new_value = IpcValue(mgmt_report_new_value(diff, report, &kept));
        return entry;
    }
    entry.modifications = tag_values(mgmt_report_modifications(diff, report));
    if (report.op != MGMT_REPORT_DELETED)
        p_batch->told.insert_or_assign(keypath_bytes(entry.keypath), report);
    return entry;
}

bool mgmt_batch_diff(t_mgmt_engine *p_engine, uint32_t connection, const t_ipc_diff_request &request,
                     t_ipc_diff_page *p_page)
{
    t_mgmt_batch *p_batch = open_batch(p_engine, connection, request.id);
    if (p_batch == nullptr)
        return false;
    const std::vector<t_mgmt_report> &reports = *reports_of(p_engine, connection, p_batch, request);
    size_t position = request.cursor;
    size_t size = 0;
    while (position < reports.size() && size < IPC_PAGE_SIZE) {
        p_page->entries.push_back(diff_entry(p_batch, reports[position++]));
        size += ipc_encode(p_page->entries.back()).size();
    }
    p_page->next = position < reports.size() ? position : 0;
    return true;
}

// The report of the one node at a path.
static bool report_at(const t_mgmt_diff &diff, const t_mgmt_path &path, t_mgmt_report *p_report)
{
    std::string text = mgmt_path_text(path);
    for (const t_mgmt_report &report : mgmt_report_instances(diff, path.steps.back().schema)) {
        const t_mgmt_tree &tree = report.p_new != nullptr ? *diff.new_tree : *diff.old_tree;
        const lyd_node *p_node = report.p_new != nullptr ? report.p_new : report.p_old;
        if (mgmt_node_path(tree, p_node) == text) {
            *p_report = report;
            return true;
        }
    }
    return false;
}

bool mgmt_batch_modifications(t_mgmt_engine *p_engine, uint32_t connection,
                              const t_ipc_modifications &request, t_ipc_tag_values *p_values,
                              t_mgmt_error *p_error)
{
    t_mgmt_batch *p_batch = open_batch(p_engine, connection, request.id);
    if (p_batch == nullptr)
        return mgmt_fail(p_error, MGMT_ERR_BADSTATE, "", "the notification does not have this id");
    t_mgmt_report report;
    bool found = false;
    if (request.path.empty()) {
        const t_schema_node *p_schema = subscription_schema(*p_engine, connection, request.id);
        std::vector<t_mgmt_report> reports = p_schema != nullptr
                                                 ? mgmt_report_instances(*p_batch->diff, p_schema)
                                                 : std::vector<t_mgmt_report>();
        found = !reports.empty();
        if (found)
            report = reports.front();
    } else {
        t_mgmt_path path;
        if (!mgmt_path_read(*p_engine->store.p_schema, nullptr, request.path, &path, p_error))
            return false;
        found = !path.steps.empty() && report_at(*p_batch->diff, path, &report);
    }
    if (found)
        p_values->values = tag_values(mgmt_report_modifications(*p_batch->diff, report));
    return true;
}

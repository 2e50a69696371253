// Differences on their way to the subscribers: levels, triggers, operational writes.

#include "mgmtd/engine/mgmt_engine_private.h"

#include "common/lum_log.h"

#include <algorithm>

// ---- Level by level ----

void mgmt_delivery_collect(t_mgmt_engine *p_engine, t_mgmt_delivery *p_delivery, bool two_phase)
{
    for (const auto &[connection, subscriber] : p_engine->subscribers) {
        for (const t_mgmt_subscription &subscription : subscriber.subscriptions) {
            bool fits = two_phase ? subscription.type == CDB_SUB_RUNNING_TWOPHASE
                                  : subscription.type != CDB_SUB_OPERATIONAL;
            if (subscriber.done && fits && mgmt_report_concerns(*p_delivery->diff, subscription.schema))
                p_delivery->levels[subscription.priority][connection].push_back(subscription.id);
        }
    }
}

static void level_next(t_mgmt_engine *p_engine, const std::shared_ptr<t_mgmt_delivery> &delivery);

static void batch_ended(t_mgmt_engine *p_engine, const std::shared_ptr<t_mgmt_delivery> &delivery,
                        uint32_t connection, const std::string &daemon, e_mgmt_outcome outcome,
                        const t_mgmt_error &error)
{
    if (outcome == MGMT_BATCH_ACKNOWLEDGED)
        delivery->acknowledged.insert(connection);
    if (outcome == MGMT_BATCH_LOST)
        delivery->lost.push_back(daemon + ": " + error.reason);
    if (outcome == MGMT_BATCH_REFUSED && delivery->refusal.code == MGMT_OK)
        delivery->refusal = error;
    if (outcome == MGMT_BATCH_REFUSED)
        delivery->acknowledged.erase(connection);
    if (--delivery->open == 0)
        mgmt_later(p_engine, [p_engine, delivery] { level_next(p_engine, delivery); });
}

static void level_send(t_mgmt_engine *p_engine, const std::shared_ptr<t_mgmt_delivery> &delivery,
                       std::map<uint32_t, std::vector<int32_t>> subscribers)
{
    std::erase_if(subscribers,
                  [&](const auto &entry) { return !p_engine->subscribers.contains(entry.first); });
    delivery->open = subscribers.size();
    for (auto &[connection, ids] : subscribers) {
        t_mgmt_batch batch = {.type = delivery->type,
                              .flags = delivery->flags,
                              .ids = std::move(ids),
                              .diff = delivery->diff,
                              .ended = nullptr};
        batch.ended = [p_engine, delivery, id = connection,
                       daemon = p_engine->subscribers.at(connection).daemon](e_mgmt_outcome outcome,
                                                                             const t_mgmt_error &error) {
            batch_ended(p_engine, delivery, id, daemon, outcome, error);
        };
        mgmt_batch_queue(p_engine, connection, std::move(batch));
    }
}

static void level_next(t_mgmt_engine *p_engine, const std::shared_ptr<t_mgmt_delivery> &delivery)
{
    delivery->open = 0;
    while (delivery->open == 0 && !delivery->levels.empty() && delivery->refusal.code == MGMT_OK) {
        auto level = delivery->levels.extract(delivery->levels.begin());
        if (delivery->progress)
            delivery->progress("telling subscribers, priority " + std::to_string(level.key()));
        level_send(p_engine, delivery, std::move(level.mapped()));
    }
    if (delivery->open == 0)
        delivery->done();
}

void mgmt_delivery_run(t_mgmt_engine *p_engine, std::shared_ptr<t_mgmt_delivery> delivery)
{
    mgmt_later(p_engine, [p_engine, delivery = std::move(delivery)] { level_next(p_engine, delivery); });
}

// ---- Triggers ----

namespace {

struct t_target {
    uint32_t connection;
    const t_mgmt_subscription *p_subscription;
};

}  // namespace

static bool target_find(const t_mgmt_engine &engine, const std::string &daemon, int32_t id, bool oper,
                        t_target *p_target)
{
    for (const auto &[connection, subscriber] : engine.subscribers) {
        if (subscriber.daemon != daemon || !subscriber.done)
            continue;
        for (const t_mgmt_subscription &subscription : subscriber.subscriptions)
            if (subscription.id == id && (subscription.type == CDB_SUB_OPERATIONAL) == oper) {
                *p_target = {connection, &subscription};
                return true;
            }
    }
    return false;
}

static bool trigger_levels(const t_mgmt_engine &engine, const std::string &daemon,
                           const t_ipc_trigger &trigger, bool oper, t_mgmt_delivery *p_delivery,
                           t_mgmt_error *p_error)
{
    for (int32_t id : trigger.ids) {
        t_target target;
        if (!target_find(engine, daemon, id, oper, &target))
            return mgmt_fail(p_error, MGMT_ERR_NOEXISTS, "", "no subscription " + std::to_string(id));
        std::vector<int32_t> &ids = p_delivery->levels[target.p_subscription->priority][target.connection];
        if (std::find(ids.begin(), ids.end(), id) == ids.end())
            ids.push_back(id);
    }
    return true;
}

static void trigger_start(t_mgmt_engine *p_engine, const std::string &daemon, const t_ipc_trigger &trigger,
                          bool oper, const f_mgmt_done &done)
{
    t_mgmt_error error;
    auto delivery = std::make_shared<t_mgmt_delivery>();
    if (!trigger_levels(*p_engine, daemon, trigger, oper, delivery.get(), &error)) {
        done(error);
        mgmt_serial_end(p_engine);
        return;
    }
    const t_mgmt_store &store = p_engine->store;
    mgmt_tree_ptr present = oper ? mgmt_tree_ptr(mgmt_tree_copy(*store.operational)) : store.running;
    delivery->diff = std::make_shared<const t_mgmt_diff>(
        mgmt_diff_new(mgmt_tree_new(store.p_schema, store.p_context), present));
    delivery->type = oper ? CDB_SUB_OPER : CDB_SUB_COMMIT;
    delivery->flags = CDB_SUB_FLAG_TRIGGER;
    t_mgmt_delivery *p_delivery = delivery.get();
    delivery->done = [p_engine, p_delivery, done] {
        t_mgmt_error result;
        if (!p_delivery->lost.empty())
            mgmt_fail(&result, MGMT_ERR_BADSTATE, "", p_delivery->lost.front());
        done(result);
        mgmt_serial_end(p_engine);
    };
    mgmt_delivery_run(p_engine, std::move(delivery));
}

void mgmt_trigger(t_mgmt_engine *p_engine, const std::string &daemon, const t_ipc_trigger &trigger, bool oper,
                  f_mgmt_done done)
{
    mgmt_serial(p_engine, [p_engine, daemon, trigger, oper, done = std::move(done)] {
        trigger_start(p_engine, daemon, trigger, oper, done);
    });
}

// ---- Operational writes ----

// Whether one of the nodes is, or stands below, the other.
static bool is_related(const t_schema_node *p_left, const t_schema_node *p_right)
{
    auto stands_below = [](const t_schema_node *p_node, const t_schema_node *p_top) {
        while (p_node != nullptr && p_node != p_top)
            p_node = p_node->parent;
        return p_node == p_top;
    };
    return stands_below(p_left, p_right) || stands_below(p_right, p_left);
}

static std::vector<int32_t> oper_ids(const t_mgmt_subscriber &subscriber, const t_schema_node *p_schema)
{
    std::vector<int32_t> ids;
    for (const t_mgmt_subscription &subscription : subscriber.subscriptions)
        if (subscriber.done && subscription.type == CDB_SUB_OPERATIONAL &&
            is_related(subscription.schema, p_schema))
            ids.push_back(subscription.id);
    return ids;
}

static bool has_oper_batch(const t_mgmt_subscriber &subscriber)
{
    auto is_oper = [](const t_mgmt_batch &batch) { return batch.type == CDB_SUB_OPER; };
    return (subscriber.open && is_oper(*subscriber.open)) ||
           std::any_of(subscriber.waiting.begin(), subscriber.waiting.end(), is_oper);
}

static bool oper_must_wait(const t_mgmt_engine &engine, const t_schema_node *p_schema)
{
    for (const auto &[connection, subscriber] : engine.subscribers)
        if (has_oper_batch(subscriber) && !oper_ids(subscriber, p_schema).empty())
            return true;
    return false;
}

static bool oper_apply(t_mgmt_engine *p_engine, e_mgmt_oper_op op, const t_mgmt_path &path,
                       const IpcValue &value, t_mgmt_error *p_error)
{
    switch (op) {
    case MGMT_OPER_SET:
        return mgmt_oper_set(&p_engine->store, path, value.v, p_error);
    case MGMT_OPER_CREATE:
        return mgmt_oper_create(&p_engine->store, path, p_error);
    case MGMT_OPER_DELETE:
        break;
    }
    return mgmt_oper_delete(&p_engine->store, path, p_error);
}

static void oper_tell(t_mgmt_engine *p_engine, const std::map<uint32_t, std::vector<int32_t>> &subscribers,
                      mgmt_tree_ptr before)
{
    auto diff = std::make_shared<const t_mgmt_diff>(
        mgmt_diff_new(std::move(before), mgmt_tree_copy(*p_engine->store.operational)));
    for (const auto &[connection, ids] : subscribers) {
        t_mgmt_batch batch = {.type = CDB_SUB_OPER, .flags = 0, .ids = ids, .diff = diff, .ended = nullptr};
        batch.ended = [p_engine](e_mgmt_outcome, const t_mgmt_error &) {
            mgmt_later(p_engine, [p_engine] { mgmt_oper_resume(p_engine); });
        };
        mgmt_batch_queue(p_engine, connection, std::move(batch));
    }
}

static t_mgmt_error oper_write(t_mgmt_engine *p_engine, e_mgmt_oper_op op, const t_mgmt_path &path,
                               const IpcValue &value, bool notify)
{
    std::map<uint32_t, std::vector<int32_t>> subscribers;
    for (const auto &[connection, subscriber] : p_engine->subscribers) {
        std::vector<int32_t> ids =
            notify ? oper_ids(subscriber, path.steps.back().schema) : std::vector<int32_t>();
        if (!ids.empty())
            subscribers.emplace(connection, std::move(ids));
    }
    mgmt_tree_ptr before = subscribers.empty() ? nullptr : mgmt_tree_copy(*p_engine->store.operational);
    t_mgmt_error error;
    if (oper_apply(p_engine, op, path, value, &error) && !subscribers.empty())
        oper_tell(p_engine, subscribers, std::move(before));
    return error;
}

void mgmt_oper_write(t_mgmt_engine *p_engine, e_mgmt_oper_op op, const t_mgmt_path &path,
                     const IpcValue &value, bool notify, f_mgmt_done done)
{
    if (path.steps.empty()) {
        t_mgmt_error error;
        mgmt_fail(&error, MGMT_ERR_BADPATH, "/", "the top can't be written");
        mgmt_later(p_engine, [done = std::move(done), error] { done(error); });
        return;
    }
    auto waiting = std::make_shared<t_mgmt_oper_waiting>();
    waiting->schema = notify ? path.steps.back().schema : nullptr;
    waiting->write = [=, done = std::move(done)] { done(oper_write(p_engine, op, path, value, notify)); };
    p_engine->oper_waiting.push_back(std::move(waiting));
    mgmt_later(p_engine, [p_engine] { mgmt_oper_resume(p_engine); });
}

// In the order in which they came, but past those whose subscribers are busy.
void mgmt_oper_resume(t_mgmt_engine *p_engine)
{
    auto may_go = [&](const std::shared_ptr<t_mgmt_oper_waiting> &waiting) {
        return waiting->schema == nullptr || !oper_must_wait(*p_engine, waiting->schema);
    };
    std::vector<std::shared_ptr<t_mgmt_oper_waiting>> &all = p_engine->oper_waiting;
    for (auto next = std::find_if(all.begin(), all.end(), may_go); next != all.end();
         next = std::find_if(all.begin(), all.end(), may_go)) {
        std::shared_ptr<t_mgmt_oper_waiting> waiting = std::move(*next);
        all.erase(next);
        waiting->write();
    }
}

// Set up, the loop, sessions and locks.

#include "mgmtd/engine/mgmt_engine_private.h"

#include "common/lum_log.h"

#include <event2/event.h>
#include <new>
#include <sys/eventfd.h>
#include <unistd.h>

// ---- The loop ----

void mgmt_later(t_mgmt_engine *p_engine, std::function<void()> fn)
{
    p_engine->later.push_back(std::move(fn));
    event_active(p_engine->p_later_event, EV_TIMEOUT, 0);
}

void mgmt_later_for(t_mgmt_engine *p_engine, uint32_t session, std::function<void()> fn)
{
    mgmt_later(p_engine, [p_engine, session, fn = std::move(fn)] {
        if (p_engine->sessions.contains(session))
            fn();
    });
}

static void later_run(evutil_socket_t, short, void *p_ctx)
{
    t_mgmt_engine *p_engine = static_cast<t_mgmt_engine *>(p_ctx);
    std::deque<std::function<void()>> now;
    now.swap(p_engine->later);
    for (std::function<void()> &fn : now)
        fn();
}

static void timers_due(evutil_socket_t, short, void *p_ctx)
{
    mgmt_timers_run(&static_cast<t_mgmt_engine *>(p_ctx)->timers);
}

static void timers_changed(t_mgmt_engine *p_engine)
{
    int64_t wait_ms = mgmt_timers_wait_ms(p_engine->timers);
    if (wait_ms < 0) {
        event_del(p_engine->p_timer_event);
        return;
    }
    timeval wait = {.tv_sec = static_cast<time_t>(wait_ms / 1000),
                    .tv_usec = static_cast<suseconds_t>(wait_ms % 1000 * 1000)};
    event_add(p_engine->p_timer_event, &wait);
}

static void posted_run(evutil_socket_t fd, short, void *p_ctx)
{
    t_mgmt_engine *p_engine = static_cast<t_mgmt_engine *>(p_ctx);
    uint64_t count;
    if (read(fd, &count, sizeof(count)) != sizeof(count))
        return;
    std::vector<std::function<void()>> now;
    {
        std::lock_guard guard(p_engine->post_lock);
        now.swap(p_engine->posted);
    }
    for (std::function<void()> &fn : now)
        fn();
}

void mgmt_engine_post(t_mgmt_engine *p_engine, std::function<void()> fn)
{
    {
        std::lock_guard guard(p_engine->post_lock);
        p_engine->posted.push_back(std::move(fn));
    }
    uint64_t one = 1;
    if (write(p_engine->post_fd, &one, sizeof(one)) != sizeof(one))
        LUM_LOG(LUM_LOG_ERROR, "The owner's thread can't be woken");
}

// ---- Set up ----

static void loop_set_up(t_mgmt_engine *p_engine)
{
    p_engine->post_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    p_engine->p_timer_event = event_new(p_engine->p_base, -1, 0, timers_due, p_engine);
    p_engine->p_later_event = event_new(p_engine->p_base, -1, 0, later_run, p_engine);
    p_engine->p_post_event =
        event_new(p_engine->p_base, p_engine->post_fd, EV_READ | EV_PERSIST, posted_run, p_engine);
    if (p_engine->post_fd < 0 || p_engine->p_timer_event == nullptr || p_engine->p_later_event == nullptr ||
        p_engine->p_post_event == nullptr || event_add(p_engine->p_post_event, nullptr) != 0)
        throw std::bad_alloc();
    p_engine->timers.changed = [p_engine] { timers_changed(p_engine); };
}

static void points_collect(t_mgmt_engine *p_engine)
{
    auto add = [](std::set<std::string, std::less<>> *p_points, std::string_view point) {
        if (!point.empty())
            p_points->emplace(point);
    };
    for (const auto &node : p_engine->store.p_schema->nodes) {
        add(&p_engine->data_points, node->callpoint);
        add(&p_engine->data_points, node->hook);
        add(&p_engine->action_points, node->actionpoint);
        add(&p_engine->validation_points, node->validation);
    }
}

mgmt_engine_ptr mgmt_engine_new(event_base *p_base, const t_schema_index *p_schema, const ly_ctx *p_context,
                                const t_mgmt_engine_options &options, t_mgmt_error *p_error)
{
    mgmt_engine_ptr engine(new t_mgmt_engine);
    engine->p_base = p_base;
    engine->folder = options.store_folder;
    engine->p_snmp = options.p_snmp;
    engine->p_snmp_ctx = options.p_snmp_ctx;
    engine->timers.now_ms = options.now_ms ? options.now_ms : mgmt_clock_ms;
    loop_set_up(engine.get());
    engine->store.supply_vrf_ids = options.supply_vrf_ids;
    engine->store.supply_read_priority = options.supply_read_priority;
    if (!mgmt_store_open(&engine->store, p_schema, p_context, options.store_folder, p_error))
        return nullptr;
    points_collect(engine.get());
    mgmt_notif_load(engine.get());
    engine->phase = 1;
    return engine;
}

void t_mgmt_engine_deleter::operator()(t_mgmt_engine *p_engine) const
{
    if (p_engine == nullptr)
        return;
    p_engine->timers.changed = nullptr;
    for (event *p_event : {p_engine->p_timer_event, p_engine->p_later_event, p_engine->p_post_event})
        if (p_event != nullptr)
            event_free(p_event);
    if (p_engine->post_fd >= 0)
        close(p_engine->post_fd);
    delete p_engine;
}

const t_schema_index &mgmt_engine_schema(const t_mgmt_engine &engine)
{
    return *engine.store.p_schema;
}

const ly_ctx *mgmt_engine_context(const t_mgmt_engine &engine)
{
    return engine.store.p_context;
}

t_mgmt_timers *mgmt_engine_timers(t_mgmt_engine *p_engine)
{
    return &p_engine->timers;
}

// ---- Phases and events ----

void mgmt_engine_set_phase(t_mgmt_engine *p_engine, int phase)
{
    if (phase <= p_engine->phase)
        return;
    p_engine->phase = phase;
    auto waiters = std::move(p_engine->phase_waiters);
    p_engine->phase_waiters.clear();
    for (auto &[connection, waiter] : waiters)
        mgmt_phase_wait(p_engine, connection, waiter.first, std::move(waiter.second));
    mgmt_event_tell(p_engine, CONFD_NOTIF_DAEMON, 0, CONFD_NO_DB, "start phase " + std::to_string(phase));
}

int mgmt_engine_phase(const t_mgmt_engine &engine)
{
    return engine.phase;
}

void mgmt_phase_wait(t_mgmt_engine *p_engine, uint32_t connection, int phase, std::function<void()> done)
{
    if (phase <= p_engine->phase)
        mgmt_later(p_engine, std::move(done));
    else
        p_engine->phase_waiters.emplace(connection, std::pair(phase, std::move(done)));
}

void mgmt_engine_on_event(t_mgmt_engine *p_engine, f_mgmt_event on_event)
{
    p_engine->on_event = std::move(on_event);
}

void mgmt_event_tell(t_mgmt_engine *p_engine, uint32_t type, uint32_t usid, confd_dbname database,
                     const std::string &text)
{
    if (!p_engine->on_event)
        return;
    p_engine->on_event({.type = type,
                        .usid = static_cast<int32_t>(usid),
                        .database = static_cast<uint8_t>(database),
                        .text = text});
}

// ---- One after the other ----

static void serial_next(t_mgmt_engine *p_engine)
{
    if (p_engine->serial_at_work || p_engine->serial.empty())
        return;
    p_engine->serial_at_work = true;
    std::function<void()> start = std::move(p_engine->serial.front());
    p_engine->serial.pop_front();
    mgmt_later(p_engine, std::move(start));
}

void mgmt_serial(t_mgmt_engine *p_engine, std::function<void()> start)
{
    p_engine->serial.push_back(std::move(start));
    serial_next(p_engine);
}

void mgmt_serial_end(t_mgmt_engine *p_engine)
{
    p_engine->serial_at_work = false;
    serial_next(p_engine);
}

// ---- Sessions ----

uint32_t mgmt_session_open(t_mgmt_engine *p_engine, const t_mgmt_user &user)
{
    uint32_t session = ++p_engine->last_usid;
    p_engine->sessions.emplace(session, user);
    mgmt_event_tell(p_engine, CONFD_NOTIF_AUDIT, session, CONFD_NO_DB,
                    "login of " + user.name + " by " + user.context);
    return session;
}

static void candidate_release(t_mgmt_engine *p_engine)
{
    p_engine->candidate_holder = 0;
    if (!p_engine->writer_at_work && p_engine->writers.empty()) {
        p_engine->store.candidate.reset();
        return;
    }
    auto writer = std::make_shared<t_mgmt_writer>();
    writer->outlives = true;
    writer->changes = false;
    writer->start = [](t_mgmt_txn *p_txn, t_mgmt_error *) {
        mgmt_txn_discard(p_txn);
        return true;
    };
    mgmt_writer_queue(p_engine, std::move(writer));
}

void mgmt_session_close(t_mgmt_engine *p_engine, uint32_t session)
{
    auto found = p_engine->sessions.find(session);
    if (found == p_engine->sessions.end())
        return;
    mgmt_event_tell(p_engine, CONFD_NOTIF_AUDIT, session, CONFD_NO_DB, "logout of " + found->second.name);
    p_engine->sessions.erase(found);
    if (p_engine->running_holder == session)
        p_engine->running_holder = 0;
    if (p_engine->candidate_holder == session)
        candidate_release(p_engine);
    mgmt_confirm_session_closed(p_engine, session);
    mgmt_notif_session_closed(p_engine, session);
}

// ---- Locks ----

static uint32_t *lock_of(t_mgmt_engine *p_engine, e_mgmt_datastore datastore, t_mgmt_error *p_error)
{
    if (datastore == MGMT_DS_RUNNING)
        return &p_engine->running_holder;
    if (datastore == MGMT_DS_CANDIDATE)
        return &p_engine->candidate_holder;
    mgmt_fail(p_error, MGMT_ERR_BADSTATE, "", "this datastore has no lock");
    return nullptr;
}

static bool candidate_is_edited(const t_mgmt_engine &engine)
{
    return engine.store.candidate != nullptr && engine.store.candidate != engine.store.running &&
           !mgmt_tree_equal(*engine.store.candidate, *engine.store.running);
}

bool mgmt_lock(t_mgmt_engine *p_engine, uint32_t session, e_mgmt_datastore datastore, t_mgmt_error *p_error)
{
    uint32_t *p_holder = lock_of(p_engine, datastore, p_error);
    if (p_holder == nullptr)
        return false;
    if (*p_holder != 0)
        return mgmt_fail(p_error, MGMT_ERR_LOCKED, "",
                         "session " + std::to_string(*p_holder) + " holds the lock");
    if (datastore == MGMT_DS_RUNNING && p_engine->unconfirmed && p_engine->unconfirmed->session != session)
        return mgmt_fail(p_error, MGMT_ERR_LOCKED, "",
                         "session " + std::to_string(p_engine->unconfirmed->session) +
                             " has a commit that waits for its confirmation");
    if (datastore == MGMT_DS_CANDIDATE && p_engine->writer_at_work)
        return mgmt_fail(p_error, MGMT_ERR_LOCKED, "", "an edit is under way");
    if (datastore == MGMT_DS_CANDIDATE && candidate_is_edited(*p_engine))
        return mgmt_fail(p_error, MGMT_ERR_BADSTATE, "", "the candidate has uncommitted edits");
    *p_holder = session;
    return true;
}

bool mgmt_unlock(t_mgmt_engine *p_engine, uint32_t session, e_mgmt_datastore datastore, t_mgmt_error *p_error)
{
    uint32_t *p_holder = lock_of(p_engine, datastore, p_error);
    if (p_holder == nullptr)
        return false;
    if (*p_holder != session)
        return mgmt_fail(p_error, MGMT_ERR_BADSTATE, "", "the session does not hold the lock");
    if (datastore == MGMT_DS_CANDIDATE)
        candidate_release(p_engine);
    else
        *p_holder = 0;
    return true;
}

uint32_t mgmt_lock_holder(const t_mgmt_engine &engine, e_mgmt_datastore datastore)
{
    if (datastore == MGMT_DS_RUNNING)
        return engine.running_holder;
    return datastore == MGMT_DS_CANDIDATE ? engine.candidate_holder : 0;
}

// ---- Trees ----

mgmt_tree_ptr mgmt_tree_of(t_mgmt_engine *p_engine, e_mgmt_datastore datastore)
{
    switch (datastore) {
    case MGMT_DS_CANDIDATE:
        return mgmt_store_candidate(p_engine->store);
    case MGMT_DS_PRE_COMMIT:
        return mgmt_store_pre_commit(p_engine->store);
    case MGMT_DS_OPERATIONAL:
        return p_engine->store.operational;
    case MGMT_DS_RUNNING:
        break;
    }
    return p_engine->store.running;
}

bool mgmt_pre_commit_is_open(const t_mgmt_engine &engine)
{
    return engine.store.pre_commit != nullptr;
}

void mgmt_link_set(t_mgmt_engine *p_engine, const t_mgmt_link_ops *p_ops, void *p_ctx)
{
    p_engine->p_link = p_ops;
    p_engine->p_link_ctx = p_ctx;
}

void mgmt_link_closed(t_mgmt_engine *p_engine, uint32_t connection)
{
    p_engine->phase_waiters.erase(connection);
    mgmt_subscriber_lose(p_engine, connection, "");
    mgmt_daemon_lose(p_engine, connection);
}

// ---- Status ----

std::vector<t_mgmt_daemon_info> mgmt_daemons(const t_mgmt_engine &engine)
{
    std::map<std::string, t_mgmt_daemon_info> infos;
    auto info_of = [&](const std::string &name) -> t_mgmt_daemon_info & {
        return infos.try_emplace(name, t_mgmt_daemon_info{name, false, 0, 0, false, false}).first->second;
    };
    for (const auto &[control, daemon] : engine.daemons) {
        t_mgmt_daemon_info &info = info_of(daemon.name);
        info.is_ready = daemon.ready;
        info.points = daemon.data.size() + daemon.actions.size() + daemon.validations.size();
        info.is_asked = daemon.open.has_value();
    }
    for (const auto &[connection, subscriber] : engine.subscribers) {
        t_mgmt_daemon_info &info = info_of(subscriber.daemon);
        info.subscriptions += subscriber.subscriptions.size();
        info.is_told = info.is_told || subscriber.open.has_value();
    }
    std::vector<t_mgmt_daemon_info> list;
    for (auto &[name, info] : infos)
        list.push_back(std::move(info));
    return list;
}

const std::vector<std::string> &mgmt_alarms(const t_mgmt_engine &engine)
{
    return engine.store.files.alarms;
}

// Notifications of daemons: the log, and who listens.
//
// The log is the last notifications in memory and a file of one JSON object a line, {"eventTime": "...",
// "notification": {...}}. When the file has grown too long it becomes the old one and a new one begins; at
// start both are read.

#include "mgmtd/engine/mgmt_engine_private.h"

#include "common/lum_log.h"
#include "mgmtd/store/mgmt_tree_private.h"

#include <cstdio>
#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>

static constexpr size_t max_stored = 10000;          // notifications in memory
static constexpr size_t max_file_size = 4u << 20;    // bytes
static constexpr size_t max_line_size = 256u << 10;  // bytes of a line that is read

static std::string log_path(const t_mgmt_engine &engine)
{
    return engine.folder + "/notifications.log";
}

// ---- Times ----

static std::string time_text(int64_t time_us)
{
    time_t seconds = static_cast<time_t>(time_us / 1000000);
    tm parts = {};
    gmtime_r(&seconds, &parts);
    char text[64];
    size_t used = strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &parts);
    snprintf(text + used, sizeof(text) - used, ".%06ldZ", static_cast<long>(time_us % 1000000));
    return text;
}

static bool time_read(const std::string &text, int64_t *p_time_us)
{
    tm parts = {};
    const char *p_rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (p_rest == nullptr || *p_rest != '.')
        return false;
    *p_time_us = static_cast<int64_t>(timegm(&parts)) * 1000000 + strtol(p_rest + 1, nullptr, 10);
    return true;
}

static int64_t time_of(const t_ipc_datetime &time)
{
    tm parts = {};
    parts.tm_year = time.year - 1900;
    parts.tm_mon = time.month - 1;
    parts.tm_mday = time.day;
    parts.tm_hour = time.hour;
    parts.tm_min = time.min;
    parts.tm_sec = time.sec;
    int64_t seconds = timegm(&parts);
    if (time.timezone != CONFD_TIMEZONE_UNDEF)
        seconds -= time.timezone * 3600 + time.timezone_minutes * 60;
    bool is_sane = time.year >= 1970 && time.year < 10000 && time.month >= 1 && time.month <= 12 &&
                   time.day <= 31 && time.micro < 1000000;
    if (!is_sane || seconds < 0)
        seconds = ::time(nullptr);
    return seconds * 1000000 + (is_sane ? time.micro : 0);
}

// ---- The log ----

static void log_write(t_mgmt_engine *p_engine, const t_mgmt_notification &notification)
{
    std::string line =
        "{\"eventTime\":\"" + notification.time + "\",\"notification\":" + notification.json + "}\n";
    std::string path = log_path(*p_engine);
    if (p_engine->notif_file_size + line.size() > max_file_size) {
        rename(path.c_str(), (path + ".old").c_str());
        p_engine->notif_file_size = 0;
    }
    std::ofstream file(path, std::ios::app | std::ios::binary);
    file << line;
    if (!file.flush())
        LUM_LOG(LUM_LOG_ERROR, "%s can't be written", path.c_str());
    p_engine->notif_file_size += line.size();
}

static void store(t_mgmt_engine *p_engine, t_mgmt_notification notification)
{
    notification.number = ++p_engine->last_notification;
    p_engine->notifications.push_back(std::move(notification));
    if (p_engine->notifications.size() > max_stored)
        p_engine->notifications.pop_front();
}

// A line that can't be read was cut by a crash and is passed over.
static void line_load(t_mgmt_engine *p_engine, const std::string &line)
{
    nlohmann::ordered_json object = nlohmann::ordered_json::parse(line, nullptr, false);
    t_mgmt_notification notification = {};
    if (!object.is_object() || !object.contains("eventTime") || !object["eventTime"].is_string() ||
        !object.contains("notification") || !object["notification"].is_object() ||
        object["notification"].empty())
        return;
    notification.time = object["eventTime"].get<std::string>();
    if (!time_read(notification.time, &notification.time_us))
        return;
    std::string name = object["notification"].begin().key();
    notification.name = name.substr(name.find(':') + 1);
    notification.json = object["notification"].dump();
    store(p_engine, std::move(notification));
}

void mgmt_notif_load(t_mgmt_engine *p_engine)
{
    std::string path = log_path(*p_engine);
    for (const std::string &part : {path + ".old", path}) {
        std::ifstream file(part, std::ios::binary);
        std::string line;
        p_engine->notif_file_size = 0;
        bool is_cut = false;
        while (std::getline(file, line)) {
            p_engine->notif_file_size += line.size() + 1;
            is_cut = file.eof();
            if (line.size() <= max_line_size)
                line_load(p_engine, line);
        }
        // The next line must not continue the one that was cut.
        if (is_cut)
            std::ofstream(part, std::ios::app | std::ios::binary) << '\n';
    }
}

const std::deque<t_mgmt_notification> &mgmt_notifications(const t_mgmt_engine &engine)
{
    return engine.notifications;
}

// ---- From daemons ----

static bool json_make(const t_mgmt_engine &engine, const t_schema_node *p_schema,
                      const std::vector<IpcTagValue> &values, std::string *p_json)
{
    std::vector<std::string> warnings;
    mgmt_work_tree_ptr tree = mgmt_tree_new(engine.store.p_schema, engine.store.p_context);
    lyd_node *p_node = mgmt_build_container(tree.get(), nullptr, p_schema);
    mgmt_rows_fill(tree.get(), p_node, p_schema, std::span(values).subspan(1), &warnings);
    for (const std::string &warning : warnings)
        LUM_LOG(LUM_LOG_NOTICE, "In a notification: %s", warning.c_str());
    char *p_text = nullptr;
    if (lyd_print_mem(&p_text, p_node, LYD_JSON, LYD_PRINT_SHRINK) != LY_SUCCESS || p_text == nullptr)
        return false;
    *p_json = p_text;
    free(p_text);
    return true;
}

// The daemon behind a worker connection, if it has registered the sender.
static const t_mgmt_daemon *sender_of(const t_mgmt_engine &engine, uint32_t connection, int32_t sender_id)
{
    auto worker = engine.workers.find(connection);
    if (worker == engine.workers.end())
        return nullptr;
    const t_mgmt_daemon &daemon = engine.daemons.at(worker->second);
    return daemon.senders.contains(sender_id) ? &daemon : nullptr;
}

static void listeners_tell(t_mgmt_engine *p_engine, const t_mgmt_notification &notification)
{
    auto listeners = p_engine->notif_subscriptions;
    for (const auto &[id, subscription] : listeners)
        if (p_engine->notif_subscriptions.contains(id) && subscription->is_live)
            subscription->request.notify(notification);
}

void mgmt_notif_take(t_mgmt_engine *p_engine, uint32_t connection, const t_ipc_notification &notification)
{
    const std::vector<IpcTagValue> &values = notification.values;
    const t_schema_node *p_schema = nullptr;
    if (!values.empty() && values[0].value.v.type == C_XMLBEGIN)
        p_schema =
            schema_child_by_tag(*p_engine->store.p_schema, nullptr, values[0].tag.tag, values[0].tag.ns);
    t_mgmt_notification taken = {};
    if (sender_of(*p_engine, connection, notification.sender_id) == nullptr || p_schema == nullptr ||
        p_schema->kind != SCHEMA_KIND_NOTIFICATION || !json_make(*p_engine, p_schema, values, &taken.json)) {
        LUM_LOG(LUM_LOG_NOTICE, "A notification that does not fit the model is dropped");
        return;
    }
    taken.time_us = time_of(notification.time);
    taken.time = time_text(taken.time_us);
    taken.name = p_schema->name;
    store(p_engine, std::move(taken));
    t_mgmt_notification stored = p_engine->notifications.back();
    log_write(p_engine, stored);
    listeners_tell(p_engine, stored);
}

void mgmt_snmp_take(t_mgmt_engine *p_engine, uint32_t connection, const t_ipc_snmp_notification &notification)
{
    if (sender_of(*p_engine, connection, notification.sender_id) == nullptr)
        return;
    if (p_engine->p_snmp != nullptr)
        p_engine->p_snmp->send(p_engine->p_snmp_ctx, notification);
    else
        LUM_LOG(LUM_LOG_INFO, "No SNMP agent: %s for group %s is dropped", notification.notification.c_str(),
                notification.notify_name.c_str());
}

// ---- Listeners ----

static void notif_end(t_mgmt_engine *p_engine, uint32_t id, e_mgmt_notif_end end)
{
    auto found = p_engine->notif_subscriptions.find(id);
    if (found == p_engine->notif_subscriptions.end())
        return;
    std::shared_ptr<t_mgmt_notif_subscription> subscription = found->second;
    if (end == MGMT_NOTIF_COMPLETE)
        mgmt_notif_unsubscribe(p_engine, id);
    if (subscription->request.ended)
        subscription->request.ended(end);
}

static int64_t now_us()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

static void notif_start(t_mgmt_engine *p_engine, uint32_t id)
{
    auto found = p_engine->notif_subscriptions.find(id);
    if (found == p_engine->notif_subscriptions.end())
        return;
    std::shared_ptr<t_mgmt_notif_subscription> subscription = found->second;
    const t_mgmt_notif_request &request = subscription->request;
    subscription->is_live = true;
    if (request.start_us >= 0) {
        auto stored = p_engine->notifications;
        for (const t_mgmt_notification &notification : stored)
            if (p_engine->notif_subscriptions.contains(id) && notification.time_us >= request.start_us &&
                (request.stop_us < 0 || notification.time_us <= request.stop_us))
                request.notify(notification);
        notif_end(p_engine, id, MGMT_NOTIF_REPLAYED);
    }
    if (request.stop_us < 0)
        return;
    int64_t rest_ms = std::max<int64_t>((request.stop_us - now_us()) / 1000, 0);
    if (p_engine->notif_subscriptions.contains(id))
        mgmt_timer_set(&p_engine->timers, &subscription->stop, rest_ms,
                       [p_engine, id] { notif_end(p_engine, id, MGMT_NOTIF_COMPLETE); });
}

uint32_t mgmt_notif_subscribe(t_mgmt_engine *p_engine, uint32_t session, t_mgmt_notif_request request)
{
    uint32_t id = ++p_engine->last_notif_subscription;
    auto subscription = std::make_shared<t_mgmt_notif_subscription>();
    subscription->session = session;
    subscription->request = std::move(request);
    p_engine->notif_subscriptions.emplace(id, std::move(subscription));
    mgmt_later(p_engine, [p_engine, id] { notif_start(p_engine, id); });
    return id;
}

void mgmt_notif_unsubscribe(t_mgmt_engine *p_engine, uint32_t subscription)
{
    auto node = p_engine->notif_subscriptions.extract(subscription);
    if (!node.empty())
        mgmt_timer_cancel(&p_engine->timers, &node.mapped()->stop);
}

void mgmt_notif_session_closed(t_mgmt_engine *p_engine, uint32_t session)
{
    std::vector<uint32_t> ended;
    for (const auto &[id, subscription] : p_engine->notif_subscriptions)
        if (subscription->session == session)
            ended.push_back(id);
    for (uint32_t id : ended)
        mgmt_notif_unsubscribe(p_engine, id);
}

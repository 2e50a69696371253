#include "lab/sysmgrd/sysmgr_service.h"

#include "common/lum_util.h"
#include "lab/control/lab_program.h"
#include "lab/peers/peer_link.h"
#include "lab/sysmgrd/daemon_process.h"
#include "lab/sysmgrd/sysmgr_record.h"

#include <algorithm>
#include <ctime>
#include <nlohmann/json.hpp>

using t_json = nlohmann::ordered_json;

static constexpr timeval step_pause = {.tv_sec = 0, .tv_usec = 50'000};
static constexpr uint32_t mask_modules = 64;

struct t_sysmgr_service {
    event_base *p_base;
    peer_server_ptr server;
    lab_event_ptr step;
    std::vector<t_daemon> daemons;
    bool is_stopping;
    uint64_t connections;
    uint64_t malformed;  // in connections and records, of daemons and others
};

static uint64_t clock_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1'000'000;
}

// ---- Daemons ----

static t_daemon *daemon_of_module(t_sysmgr_service *p_service, uint32_t module)
{
    auto place = std::find_if(p_service->daemons.begin(), p_service->daemons.end(),
                              [module](const t_daemon &daemon) { return daemon.spec.module == module; });
    return place != p_service->daemons.end() ? &*place : nullptr;
}

static t_daemon *daemon_observe(t_sysmgr_service *p_service, uint32_t module)
{
    t_daemon_spec spec = {};
    spec.name = module < LUM_MODULE_MAX ? lum_util_module_name(module) : "module " + std::to_string(module);
    spec.module = module;
    spec.has_hello = true;
    p_service->daemons.push_back(daemon_make(spec, {.p_ops = &g_daemon_process_ops, .p_user = p_service}));
    p_service->daemons.back().state = DAEMON_OBSERVED;
    return &p_service->daemons.back();
}

static t_daemon *daemon_of_session(t_sysmgr_service *p_service, const t_peer_session *p_session)
{
    t_daemon *p_daemon = daemon_of_module(p_service, peer_session_module(p_session));
    return p_daemon != nullptr ? p_daemon : daemon_observe(p_service, peer_session_module(p_session));
}

static bool has_process(const t_daemon &daemon)
{
    return daemon.pid > 0 && daemon.state != DAEMON_OBSERVED;
}

static void end_note(t_sysmgr_service *p_service, t_daemon *p_ended, const std::string &how, uint64_t now_ms)
{
    daemon_ended(p_ended, how, now_ms);
    for (t_daemon &other : p_service->daemons)
        daemon_other_ended(&other, p_ended->spec.name, now_ms);
}

static void on_step(evutil_socket_t, short, void *p_arg)
{
    t_sysmgr_service *p_service = static_cast<t_sysmgr_service *>(p_arg);
    uint64_t now_ms = clock_ms();
    std::string how;
    for (t_daemon &daemon : p_service->daemons) {
        if (has_process(daemon) && daemon_process_gone(&daemon, &how))
            end_note(p_service, &daemon, how, now_ms);
        daemon_step(&daemon, now_ms);
    }
    if (p_service->is_stopping &&
        std::none_of(p_service->daemons.begin(), p_service->daemons.end(), has_process))
        event_base_loopbreak(p_service->p_base);
}

void sysmgr_service_stop(t_sysmgr_service *p_service)
{
    for (auto daemon = p_service->daemons.rbegin(); daemon != p_service->daemons.rend(); ++daemon) {
        if (p_service->is_stopping)
            daemon_kill(&*daemon);
        else
            daemon_stop(&*daemon, clock_ms());
    }
    p_service->is_stopping = true;
}

// ---- Clients ----

// The modules of the sessions, those below 64.
static uint64_t modules_up(const t_sysmgr_service *p_service)
{
    uint64_t mask = 0;
    for (const t_peer_session *p_session : peer_server_sessions(p_service->server.get())) {
        uint32_t module = peer_session_module(p_session);
        mask |= module < mask_modules ? uint64_t{1} << module : 0;
    }
    return mask;
}

static void on_up(void *p_user, t_peer_session *p_session)
{
    t_sysmgr_service *p_service = static_cast<t_sysmgr_service *>(p_user);
    p_service->connections++;
    lab_log("%s has connected", daemon_of_session(p_service, p_session)->spec.name.c_str());
    peer_session_send(p_session, sysmgr_reply_encode(0, modules_up(p_service)));
}

static void on_down(void *p_user, t_peer_session *p_session)
{
    t_sysmgr_service *p_service = static_cast<t_sysmgr_service *>(p_user);
    lab_log("%s has closed its connection", daemon_of_session(p_service, p_session)->spec.name.c_str());
}

static void malformed_note(t_sysmgr_service *p_service, const t_peer_session *p_session,
                           const std::string &reason)
{
    p_service->malformed++;
    t_daemon *p_daemon = p_session != nullptr ? daemon_of_session(p_service, p_session) : nullptr;
    if (p_daemon != nullptr)
        p_daemon->malformed++;
    lab_log("%s: %s", p_daemon != nullptr ? p_daemon->spec.name.c_str() : "a connection", reason.c_str());
}

static void on_bad(void *p_user, t_peer_session *p_session, const std::string &reason)
{
    malformed_note(static_cast<t_sysmgr_service *>(p_user), p_session, reason);
}

static void request_note(t_daemon *p_daemon, const t_sysmgr_record &record)
{
    p_daemon->requests++;
    lab_log("%s, pid %u, requests: %s, vpn %lu%s%s", p_daemon->spec.name.c_str(), record.pid,
            sysmgr_record_name(record.type), record.vpn,
            record.reason.empty() ? "" : ", reason: ", record.reason.c_str());
}

static void on_message(void *p_user, t_peer_session *p_session, t_peer_bytes body)
{
    t_sysmgr_service *p_service = static_cast<t_sysmgr_service *>(p_user);
    t_sysmgr_record record = {};
    std::string reason;
    if (!sysmgr_record_decode(body, &record, &reason))
        return malformed_note(p_service, p_session,
                              "record of " + std::to_string(body.size()) + " bytes: " + reason);
    t_daemon *p_daemon = daemon_of_session(p_service, p_session);
    if (record.type == SYSMGR_RECORD_HELLO)
        return daemon_hello(p_daemon, static_cast<pid_t>(record.pid), clock_ms());
    request_note(p_daemon, record);
}

static constexpr t_peer_server_ops server_ops = {
    .up = on_up, .down = on_down, .message = on_message, .bad = on_bad};

// ---- Requests ----

static t_json daemon_json(const t_daemon &daemon, uint64_t now_ms)
{
    t_json row = {{"name", daemon.spec.name},
                  {"module", daemon.spec.module},
                  {"state", daemon_state_name(daemon.state)},
                  {"pid", daemon.pid},
                  {"hellos", daemon.hellos}};
    row["hello_age_ms"] = daemon.hellos != 0 ? t_json(now_ms - daemon.last_hello_ms) : t_json(nullptr);
    row["longest_gap_ms"] = daemon.longest_gap_ms;
    row["restarts"] = daemon.starts != 0 ? daemon.starts - 1 : 0;
    row["missed"] = daemon.missed;
    row["malformed"] = daemon.malformed;
    row["foreign"] = daemon.foreign;
    row["requests"] = daemon.requests;
    row["last_end"] = daemon.last_end;
    return row;
}

static t_json list_answer(const t_sysmgr_service *p_service)
{
    t_json answer = lab_answer_done();
    answer["daemons"] = t_json::array();
    for (const t_daemon &daemon : p_service->daemons)
        answer["daemons"].push_back(daemon_json(daemon, clock_ms()));
    return answer;
}

static t_json stats_answer(const t_sysmgr_service *p_service)
{
    t_json answer = lab_answer_done();
    answer["clients"] = peer_server_sessions(p_service->server.get()).size();
    answer["connections"] = p_service->connections;
    answer["malformed"] = p_service->malformed;
    return answer;
}

struct t_verb {
    const char *name;
    void (*act)(t_daemon *p_daemon, uint64_t now_ms);
};

static constexpr t_verb verbs[] = {
    {"start", daemon_start}, {"stop", daemon_stop}, {"restart", daemon_restart}};

static t_json verb_answer(t_sysmgr_service *p_service, const t_verb &verb, const t_lab_words &words)
{
    if (words.size() != 2)
        return lab_answer_refusal(words[0] + " takes a daemon's name");
    auto place = std::find_if(p_service->daemons.begin(), p_service->daemons.end(),
                              [&words](const t_daemon &daemon) { return daemon.spec.name == words[1]; });
    if (place == p_service->daemons.end() || place->state == DAEMON_OBSERVED)
        return lab_answer_refusal(words[1] + " is not supervised");
    if (p_service->is_stopping)
        return lab_answer_refusal("the manager is stopping");
    verb.act(&*place, clock_ms());
    return lab_answer_done();
}

t_json sysmgr_service_answer(t_sysmgr_service *p_service, const t_lab_words &words)
{
    for (const t_verb &verb : verbs) {
        if (words[0] == verb.name)
            return verb_answer(p_service, verb, words);
    }
    if (words.size() == 1 && words[0] == "list")
        return list_answer(p_service);
    if (words.size() == 1 && words[0] == "stats")
        return stats_answer(p_service);
    return lab_answer_refusal("the requests are list, stats, start NAME, stop NAME, restart NAME");
}

// ---- Service ----

sysmgr_service_ptr sysmgr_service_open(event_base *p_base, const std::string &path,
                                       const std::vector<t_daemon_spec> &specs, std::string *p_error)
{
    sysmgr_service_ptr service(new t_sysmgr_service());
    service->p_base = p_base;
    for (const t_daemon_spec &spec : specs) {
        service->daemons.push_back(
            daemon_make(spec, {.p_ops = &g_daemon_process_ops, .p_user = service.get()}));
        daemon_start(&service->daemons.back(), clock_ms());
    }
    service->server = peer_server_open(p_base, path, LUM_MODULE_SYSMGR, &server_ops, service.get(), p_error);
    if (service->server == nullptr)
        return nullptr;
    service->step.reset(event_new(p_base, -1, EV_PERSIST, on_step, service.get()));
    if (service->step != nullptr && event_add(service->step.get(), &step_pause) == 0)
        return service;
    *p_error = "no timer";
    return nullptr;
}

void t_sysmgr_service_deleter::operator()(t_sysmgr_service *p_service) const
{
    delete p_service;
}

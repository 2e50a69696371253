#include "lab/ftmd/ftm_daemon.h"

#include "common/lum_util.h"
#include "lab/control/lab_control.h"
#include "lab/control/lab_program.h"
#include "lab/ftmd/ftm_handover.h"
#include "lab/ftmd/ftm_service.h"
#include "lab/peers/peer_link.h"

struct t_ftm_daemon {
    t_ftm_service service = {};
    ftm_handover_ptr handover;
    peer_client_ptr tarnd;
    lab_control_ptr control;
};

// ---- tarnd ----

static void on_up(void *p_user)
{
    t_ftm_daemon *p_daemon = static_cast<t_ftm_daemon *>(p_user);
    ftm_service_up(&p_daemon->service);
    ftm_handover_change(p_daemon->handover.get());
    lab_log("connection %llu to tarnd", static_cast<unsigned long long>(p_daemon->service.stats.connections));
}

static void on_down(void *p_user)
{
    ftm_service_down(&static_cast<t_ftm_daemon *>(p_user)->service);
    lab_log("tarnd is gone");
}

static void on_message(void *p_user, t_peer_bytes body)
{
    t_ftm_daemon *p_daemon = static_cast<t_ftm_daemon *>(p_user);
    std::string error;
    if (ftm_service_message(&p_daemon->service, body, &error))
        ftm_handover_change(p_daemon->handover.get());
    else
        lab_log("malformed message of %zu bytes: %s", body.size(), error.c_str());
}

static void on_bad(void *p_user, const std::string &reason)
{
    ftm_service_bad_frame(&static_cast<t_ftm_daemon *>(p_user)->service);
    lab_log("bad frame: %s", reason.c_str());
}

static constexpr t_peer_client_ops client_ops = {
    .up = on_up,
    .down = on_down,
    .message = on_message,
    .bad = on_bad,
};

// ---- Own requests, the forwarding plane ----

static t_fp_bindings current_bindings(void *p_user)
{
    return ftm_table_bindings(static_cast<t_ftm_daemon *>(p_user)->service.table);
}

static nlohmann::ordered_json on_request(void *p_user, const t_lab_words &words)
{
    const t_ftm_daemon *p_daemon = static_cast<const t_ftm_daemon *>(p_user);
    nlohmann::ordered_json answer = ftm_service_answer(&p_daemon->service, words);
    if (answer.value("request", "") != "stats")
        return answer;
    t_ftm_handover_stats stats = ftm_handover_stats(p_daemon->handover.get());
    answer["fpd-connected"] = stats.is_connected;
    answer["fpd-connections"] = stats.connections;
    answer["handovers"] = stats.sent;
    answer["handovers-refused"] = stats.refused;
    return answer;
}

// ---- The whole ----

ftm_daemon_ptr ftm_daemon_open(event_base *p_base, const t_ftm_daemon_places &places, std::string *p_error)
{
    ftm_daemon_ptr daemon(new t_ftm_daemon());
    daemon->handover = ftm_handover_open(p_base, places.fpd, current_bindings, daemon.get());
    if (daemon->handover == nullptr) {
        *p_error = "no memory";
        return nullptr;
    }
    daemon->control = lab_control_open(p_base, places.control, on_request, daemon.get(), p_error);
    if (daemon->control == nullptr)
        return nullptr;
    t_peer_client_place place = {.path = places.tarnd, .source = LUM_MODULE_FTM, .target = LUM_MODULE_TARN};
    daemon->tarnd = peer_client_open(p_base, place, &client_ops, daemon.get(), p_error);
    return daemon->tarnd != nullptr ? std::move(daemon) : nullptr;
}

void t_ftm_daemon_deleter::operator()(t_ftm_daemon *p_daemon) const
{
    delete p_daemon;
}

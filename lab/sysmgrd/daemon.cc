#include "lab/sysmgrd/daemon.h"

#include <algorithm>
#include <csignal>
#include <iterator>

static void log_text(const t_daemon *p_daemon, const std::string &text)
{
    p_daemon->host.p_ops->log(p_daemon->host.p_user, p_daemon->spec, text);
}

static void signal_send(const t_daemon *p_daemon, int number)
{
    p_daemon->host.p_ops->signal(p_daemon->host.p_user, p_daemon->pid, number);
}

static void pid_file_set(const t_daemon *p_daemon, pid_t pid)
{
    p_daemon->host.p_ops->pid_file(p_daemon->host.p_user, p_daemon->spec, pid);
}

static bool is_running(const t_daemon *p_daemon)
{
    return p_daemon->state == DAEMON_STARTED || p_daemon->state == DAEMON_UP;
}

t_daemon daemon_make(const t_daemon_spec &spec, const t_daemon_host &host)
{
    t_daemon daemon = {};
    daemon.spec = spec;
    daemon.host = host;
    daemon.state = DAEMON_STOPPED;
    daemon.pause_ms = DAEMON_MIN_PAUSE_MSECS;
    return daemon;
}

// ---- Start and end ----

static void process_note(t_daemon *p_daemon, pid_t pid, e_daemon_state state, uint64_t now_ms)
{
    p_daemon->pid = pid;
    p_daemon->state = state;
    p_daemon->started_ms = now_ms;
    p_daemon->last_hello_ms = now_ms;
    p_daemon->hellos = 0;
}

static void launch(t_daemon *p_daemon, uint64_t now_ms)
{
    const t_daemon_host &host = p_daemon->host;
    p_daemon->starts++;
    pid_t pid = host.p_ops->adopt(host.p_user, p_daemon->spec);
    if (pid > 0) {
        // It had said hello once, or there were no pid file: so its silence counts from now on.
        log_text(p_daemon, "runs already, pid " + std::to_string(pid));
        return process_note(p_daemon, pid, DAEMON_UP, now_ms);
    }
    pid = host.p_ops->start(host.p_user, p_daemon->spec);
    process_note(p_daemon, pid, DAEMON_STARTED, now_ms);
    if (pid > 0)
        log_text(p_daemon, "started, pid " + std::to_string(pid));
    else
        daemon_ended(p_daemon, "could not be started", now_ms);
}

void daemon_ended(t_daemon *p_daemon, const std::string &how, uint64_t now_ms)
{
    bool was_steady = now_ms - p_daemon->started_ms >= DAEMON_STEADY_MSECS;
    if (p_daemon->pid > 0)
        pid_file_set(p_daemon, 0);
    p_daemon->pid = 0;
    p_daemon->last_end = how;
    log_text(p_daemon, how);
    p_daemon->state = p_daemon->is_wanted ? DAEMON_WAITING : DAEMON_STOPPED;
    if (was_steady)
        p_daemon->pause_ms = DAEMON_MIN_PAUSE_MSECS;
    p_daemon->due_ms = now_ms + p_daemon->pause_ms;
    if (!was_steady)
        p_daemon->pause_ms = std::min(2 * p_daemon->pause_ms, DAEMON_MAX_PAUSE_MSECS);
}

void daemon_start(t_daemon *p_daemon, uint64_t now_ms)
{
    if (p_daemon->state == DAEMON_OBSERVED)
        return;
    p_daemon->is_wanted = true;
    if (p_daemon->state != DAEMON_STOPPED && p_daemon->state != DAEMON_WAITING)
        return;
    p_daemon->state = DAEMON_WAITING;
    p_daemon->due_ms = now_ms;
    p_daemon->pause_ms = DAEMON_MIN_PAUSE_MSECS;
}

void daemon_stop(t_daemon *p_daemon, uint64_t now_ms)
{
    p_daemon->is_wanted = false;
    if (p_daemon->state == DAEMON_WAITING)
        p_daemon->state = DAEMON_STOPPED;
    if (!is_running(p_daemon))
        return;
    p_daemon->state = DAEMON_STOPPING;
    p_daemon->due_ms = now_ms + DAEMON_STOP_MSECS;
    signal_send(p_daemon, p_daemon->spec.stop_signal);
}

void daemon_restart(t_daemon *p_daemon, uint64_t now_ms)
{
    daemon_stop(p_daemon, now_ms);
    daemon_start(p_daemon, now_ms);
}

void daemon_other_ended(t_daemon *p_daemon, const std::string &name, uint64_t now_ms)
{
    const std::vector<std::string> &names = p_daemon->spec.restart_with;
    if (!is_running(p_daemon) || std::find(names.begin(), names.end(), name) == names.end())
        return;
    log_text(p_daemon, name + " has ended, so it begins anew");
    daemon_restart(p_daemon, now_ms);
}

void daemon_kill(t_daemon *p_daemon)
{
    if (!is_running(p_daemon) && p_daemon->state != DAEMON_STOPPING)
        return;
    p_daemon->state = DAEMON_KILLED;
    signal_send(p_daemon, SIGKILL);
}

// ---- Time ----

static void silence_check(t_daemon *p_daemon, uint64_t now_ms)
{
    uint64_t silence_ms = now_ms - p_daemon->last_hello_ms;
    if (!p_daemon->spec.has_hello || silence_ms <= DAEMON_SILENCE_MSECS)
        return;
    p_daemon->missed++;
    log_text(p_daemon, "no hello for " + std::to_string(silence_ms) + " ms, killed");
    daemon_kill(p_daemon);
}

static void up_set(t_daemon *p_daemon)
{
    p_daemon->state = DAEMON_UP;
    pid_file_set(p_daemon, p_daemon->pid);
}

void daemon_step(t_daemon *p_daemon, uint64_t now_ms)
{
    bool is_due = now_ms >= p_daemon->due_ms;
    bool is_steady = now_ms - p_daemon->started_ms >= DAEMON_STEADY_MSECS;
    if (p_daemon->state == DAEMON_WAITING && is_due)
        launch(p_daemon, now_ms);
    else if (p_daemon->state == DAEMON_STARTED && !p_daemon->spec.has_hello && is_steady)
        up_set(p_daemon);
    else if (p_daemon->state == DAEMON_UP)
        silence_check(p_daemon, now_ms);
    else if (p_daemon->state == DAEMON_STOPPING && is_due)
        daemon_kill(p_daemon);
}

// ---- Hellos ----

// Whether the hello is the watched process's. An observed one may be another process each time.
static bool is_own(t_daemon *p_daemon, pid_t pid, uint64_t now_ms)
{
    if (p_daemon->state == DAEMON_OBSERVED && p_daemon->pid != pid)
        process_note(p_daemon, pid, DAEMON_OBSERVED, now_ms);
    return p_daemon->pid != 0 && p_daemon->pid == pid;
}

void daemon_hello(t_daemon *p_daemon, pid_t pid, uint64_t now_ms)
{
    if (!is_own(p_daemon, pid, now_ms)) {
        if (p_daemon->foreign++ == 0)
            log_text(p_daemon, "hello of another process, pid " + std::to_string(pid));
        return;
    }
    if (p_daemon->hellos++ > 0)
        p_daemon->longest_gap_ms = std::max(p_daemon->longest_gap_ms, now_ms - p_daemon->last_hello_ms);
    p_daemon->last_hello_ms = now_ms;
    if (p_daemon->state == DAEMON_STARTED) {
        log_text(p_daemon, "is up");
        up_set(p_daemon);
    }
}

const char *daemon_state_name(e_daemon_state state)
{
    static constexpr const char *names[] = {"stopped",  "waiting", "started", "up",
                                            "stopping", "killed",  "observed"};
    return names[state];
}

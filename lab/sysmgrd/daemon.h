// One supervised daemon: when it is started, taken for dead, killed and started again.
//
// A daemon is started without its pid file, since it refuses to start where one exists; the file is written
// with its first hello, or after a second for one that says none, and goes with the process. From the first
// hello on one is due every second. After three missed ones the process is killed. A process that ends while
// it is wanted is started again after a pause, which doubles, from half a second to 8, as long as it lives
// shorter than a second. A process that an earlier manager started is taken over. A daemon that can't outlive
// another one is started anew when that one has ended.
//
// The logic has no clock and no system calls of its own: time comes in, in milliseconds of one clock that
// doesn't jump, and what is to be done goes out through t_daemon_ops.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

inline constexpr uint64_t DAEMON_HELLO_MSECS = 1000;
inline constexpr uint64_t DAEMON_SILENCE_MSECS = 3 * DAEMON_HELLO_MSECS + 500;  // longer ones are deadly
inline constexpr uint64_t DAEMON_STOP_MSECS = 3000;                             // then it is killed
inline constexpr uint64_t DAEMON_STEADY_MSECS = 1000;  // shorter lives are failed starts
inline constexpr uint64_t DAEMON_MIN_PAUSE_MSECS = 500;
inline constexpr uint64_t DAEMON_MAX_PAUSE_MSECS = 8000;

enum e_daemon_state {
    DAEMON_STOPPED,
    DAEMON_WAITING,  // for its start
    DAEMON_STARTED,  // no hello yet
    DAEMON_UP,
    DAEMON_STOPPING,  // was asked to end
    DAEMON_KILLED,    // has not gone yet
    DAEMON_OBSERVED,  // started by somebody else; only its hellos are watched
};

struct t_daemon_spec {
    std::string name;
    uint32_t module;  // e_lum_module; 0 for one without hellos
    std::vector<std::string> command;
    bool has_hello;
    int stop_signal;
    std::string output;                     // file for its outputs; empty: the manager's own
    std::vector<std::string> restart_with;  // names of daemons whose end it does not outlive
};

// All set. They don't call back.
struct t_daemon_ops {
    // The living process that the daemon's pid file names, or 0; a stale pid file is removed.
    pid_t (*adopt)(void *p_user, const t_daemon_spec &spec);
    // The new process, or -1.
    pid_t (*start)(void *p_user, const t_daemon_spec &spec);
    void (*signal)(void *p_user, pid_t pid, int number);
    // pid 0 removes the file.
    void (*pid_file)(void *p_user, const t_daemon_spec &spec, pid_t pid);
    void (*log)(void *p_user, const t_daemon_spec &spec, const std::string &text);
};

struct t_daemon_host {
    const t_daemon_ops *p_ops;
    void *p_user;
};

struct t_daemon {
    t_daemon_spec spec;
    t_daemon_host host;
    e_daemon_state state;
    bool is_wanted;
    pid_t pid;            // 0 when there is none
    uint64_t started_ms;  // of the process
    uint64_t due_ms;      // the start while waiting, the kill while stopping
    uint64_t pause_ms;    // before the start after the next failed one
    uint64_t last_hello_ms;
    // What `list` shows.
    uint64_t hellos;          // of the present process
    uint64_t longest_gap_ms;  // between two hellos of one process
    uint64_t starts;          // a process that was taken over counts, too
    uint64_t missed;          // how often it was killed for its silence
    uint64_t malformed;       // records
    uint64_t foreign;         // hellos with another pid
    uint64_t requests;        // records that are no hellos
    std::string last_end;
};

// A stopped daemon.
t_daemon daemon_make(const t_daemon_spec &spec, const t_daemon_host &host);

void daemon_start(t_daemon *p_daemon, uint64_t now_ms);
void daemon_stop(t_daemon *p_daemon, uint64_t now_ms);
void daemon_restart(t_daemon *p_daemon, uint64_t now_ms);

// To be told of each daemon's end. One that follows it and runs is stopped in order and started again.
void daemon_other_ended(t_daemon *p_daemon, const std::string &name, uint64_t now_ms);

// Kills it if it lives; for one that must end now.
void daemon_kill(t_daemon *p_daemon);

// To be called some times a second: starts and kills what is due.
void daemon_step(t_daemon *p_daemon, uint64_t now_ms);

void daemon_hello(t_daemon *p_daemon, pid_t pid, uint64_t now_ms);

// The process has gone; how tells why, in words.
void daemon_ended(t_daemon *p_daemon, const std::string &how, uint64_t now_ms);

const char *daemon_state_name(e_daemon_state state);

// What the lab's daemons have in common as programs: a command line, a loop that a signal ends, and a log.
//
// A daemon's main lists its options and hands lab_program_main what it does with a base. SIGPIPE is ignored,
// SIGTERM and SIGINT end the loop in order, from before the daemon opens anything. One daemon a process.
#pragma once

#include <event2/event.h>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct t_lab_event_deleter {
    void operator()(event_base *p_base) const
    {
        event_base_free(p_base);
    }
    void operator()(event *p_event) const
    {
        event_free(p_event);
    }
};
using lab_base_ptr = std::unique_ptr<event_base, t_lab_event_deleter>;
using lab_event_ptr = std::unique_ptr<event, t_lab_event_deleter>;

// ---- Command line ----

// An option with a value, or a switch.
struct t_lab_option {
    const char *name;
    int letter;                      // or 0
    std::string *p_value = nullptr;  // null for a switch
    bool *p_switch = nullptr;        // set when the switch is given
};

struct t_lab_program {
    const char *name;
    const char *usage;  // what --help and -h print
    std::span<const t_lab_option> options;
};

// Reads the command line. The exit status, or -1 to go on: 0 for help, 2 for a command line that is wrong.
// Options end at the first other word if p_words takes what follows; with null, other words are wrong.
int lab_options_read(const t_lab_program &program, int argc, char **argv,
                     std::vector<std::string> *p_words = nullptr);

// ---- A daemon ----

struct t_lab_daemon {
    event_base *p_base;
    std::function<void()> on_end;  // what SIGTERM and SIGINT do; at first it ends the loop
};

// Reads the command line, makes a loop and serves with it. The exit status: serve's, that of
// lab_options_read, or 1 without a loop.
int lab_program_main(const t_lab_program &program, int argc, char **argv,
                     const std::function<int(t_lab_daemon *p_daemon)> &serve);

// Runs the loop until it is ended. The exit status.
int lab_daemon_run(const t_lab_daemon *p_daemon);

// The reason on standard error, behind the program's name. Returns the exit status 1.
int lab_program_fail(const std::string &reason);

// A line on standard output, flushed: the program's name and the text.
[[gnu::format(printf, 1, 2)]] void lab_log(const char *format, ...);

// The real mgmtd in a folder of its own, and lumora-cli on a terminal of its own.
#pragma once

#include "tests/tools/run_command.h"

#include <sys/types.h>

struct t_live_daemon {
    t_live_daemon();  // waits until the control socket is served
    ~t_live_daemon();
    t_live_daemon(const t_live_daemon &) = delete;
    t_live_daemon &operator=(const t_live_daemon &) = delete;

    // Feeds lines to lumora-cli as a script.
    t_command_result script(const std::string &lines, const std::string &options = "") const;

    t_temp_folder folder;
    std::string socket;
    pid_t pid = -1;
};

// lumora-cli on a pseudo-terminal of 24 lines and 80 columns.
struct t_live_terminal {
    explicit t_live_terminal(const t_live_daemon &daemon);
    ~t_live_terminal();
    t_live_terminal(const t_live_terminal &) = delete;
    t_live_terminal &operator=(const t_live_terminal &) = delete;

    void type(const std::string &keys) const;

    // Waits until the text comes behind what earlier calls have found; gives all that came up to its end.
    // Fails the test after 30 seconds.
    std::string until(const std::string &text);

    // Waits for the program's end. Its exit status, or -1 after 30 seconds.
    int end();

    int fd = -1;
    pid_t pid = -1;
    std::string came;  // and was not found yet
};

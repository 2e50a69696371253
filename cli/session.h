// A session: commands line by line, from a terminal or as a script from standard input or a file.
//
// At a terminal errors are told and the session goes on. A script stops at its first error, told with the
// line's number, and its exit status is that error's.
#pragma once

#include "cli/command.h"

// Runs a session to its end. The exit status.
e_cli_status cli_session_run(t_cli *p_cli);

// Runs one line: the command, its output through the pipes. An empty line does nothing.
e_cli_status cli_session_line(t_cli *p_cli, const std::string &line);

// Whether the person at the terminal really wants to leave the mode, or the program, where something would
// be lost or left behind. Scripts always may.
[[nodiscard]] bool cli_session_may_leave(t_cli *p_cli, bool ends);

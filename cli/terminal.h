// Lines from a terminal: editing, history (~/.lumora_cli_history), completion by Tab, help by "?".
#pragma once

#include "cli/command.h"

struct t_cli_terminal;

struct t_cli_terminal_deleter {
    void operator()(t_cli_terminal *p_terminal) const;  // stores the history
};
using cli_terminal_ptr = std::unique_ptr<t_cli_terminal, t_cli_terminal_deleter>;

// Null with errno. The program's state must outlive the terminal; completion asks the daemon over it.
[[nodiscard]] cli_terminal_ptr cli_terminal_open(t_cli *p_cli);

enum e_cli_terminal_line {
    CLI_TERMINAL_LINE,
    CLI_TERMINAL_INTERRUPTED,  // Ctrl-C
    CLI_TERMINAL_END,          // Ctrl-D, or the terminal has gone
};

// Reads a line, without its end.
e_cli_terminal_line cli_terminal_line(t_cli_terminal *p_terminal, const std::string &prompt,
                                      std::string *p_line);

// What follows the bars of a line: "show policy | match zone | count".
#pragma once

#include "cli/command.h"
#include "cli/line_words.h"

struct t_cli_pipe {
    const char *name;
    const char *argument;  // of help; null for none
    const char *help;
    // Sets the program's form or the output's filters. False with the reason.
    bool (*apply)(t_cli *p_cli, const std::string &argument, std::string *p_reason);
};

extern const std::span<const t_cli_pipe> g_cli_pipes;

// Applies all behind the first bar. False with the reason.
[[nodiscard]] bool cli_pipes_apply(t_cli *p_cli, std::span<const t_cli_token> tokens, std::string *p_reason);

// What the commands' functions share: calls to the daemon, and results on standard output.
//
// With --json every result is one object on standard output, and a refusal one on standard error.
#pragma once

#include "cli/command.h"

// {"op": op}, to add members to.
t_cli_json cli_head(const char *op);

// Asks the daemon; connects before the first call. Warnings and failures are told on standard error. p_answer
// may be null.
[[nodiscard]] e_cli_status cli_call(t_cli *p_cli, const t_cli_json &head, std::string_view body = {},
                                    t_cli_answer *p_answer = nullptr, const t_cli_listener &listener = {});

// Tells a failure that is not the daemon's; gives the status for `return`.
e_cli_status cli_fail(e_cli_status status, const std::string &reason);

// Writes a result. CLI_LOCAL, with the reason told, when that fails.
e_cli_status cli_print(std::string_view text);
e_cli_status cli_print_json(const t_cli_json &result);

// The commands.
e_cli_status cli_configure(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_compare(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_check(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_commit(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_discard(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_rollback(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_history(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_show(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_describe(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_status(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_request(t_cli *p_cli, const t_cli_arguments &arguments);

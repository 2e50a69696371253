// What the commands' functions share: calls to the daemon, and results on standard output.
//
// With --json every result is one object on standard output, and a refusal one on standard error. Errors read
// "lumora-cli: /path: reason"; in a script "lumora-cli: line 3: ...", in a session at a terminal "error:
// ...".
#pragma once

#include "cli/command.h"

// {"op": op}, to add members to.
t_cli_json cli_head(const char *op);

// Asks the daemon and tells nothing; connects before the first call. Questions that need no session (show,
// actions, the model...) go over a connection of their own in a session, so that Ctrl-C can end them.
t_cli_answer cli_ask(t_cli *p_cli, const t_cli_json &head, std::string_view body = {},
                     const t_cli_listener &listener = {});

// Tells an answer's warnings, and its failure if it is one. Its status.
e_cli_status cli_answer_tell(const t_cli &cli, const t_cli_answer &answer);

e_cli_status cli_answer_status(const t_cli_answer &answer);

// Asks the daemon. Warnings and failures are told on standard error. p_answer may be null.
[[nodiscard]] e_cli_status cli_call(t_cli *p_cli, const t_cli_json &head, std::string_view body = {},
                                    t_cli_answer *p_answer = nullptr, const t_cli_listener &listener = {});

// Tells a failure; gives the status for `return`.
e_cli_status cli_fail(const t_cli &cli, e_cli_status status, const std::string &reason);

void cli_warn(const t_cli &cli, const std::string &warning);

// Writes a result. CLI_LOCAL when that fails; the reason is told by cli_output_finish.
e_cli_status cli_print(t_cli *p_cli, std::string_view text);
e_cli_status cli_print_json(t_cli *p_cli, const t_cli_json &result);

// The result of what has none: an empty object where JSON is wanted.
e_cli_status cli_print_done(t_cli *p_cli);

// What is left of the command's output. The command's status, or CLI_LOCAL with the reason told when the
// output could not be written.
e_cli_status cli_output_finish(t_cli *p_cli, e_cli_status status);

// Runs an action and prints its output as it comes; where JSON is wanted that is added to *p_kept. p_answer
// may be null.
[[nodiscard]] e_cli_status cli_action_run(t_cli *p_cli, const t_cli_json &head, std::string *p_kept,
                                          t_cli_answer *p_answer);

// The status of the daemon, without a word where there is none: null then.
t_cli_json cli_status_ask(t_cli *p_cli);

// The commands.
e_cli_status cli_configure(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_enter(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_set(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_delete(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_rename(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_load(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_edit(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_up(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_top(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_compare(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_check(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_commit(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_cancel_commit(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_discard(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_rollback(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_history(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_show(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_describe(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_status(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_request(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_operate(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_monitor(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_help_show(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_exit(t_cli *p_cli, const t_cli_arguments &arguments);
e_cli_status cli_quit(t_cli *p_cli, const t_cli_arguments &arguments);

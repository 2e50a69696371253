#include "cli/commands.h"

#include "cli/interrupt.h"
#include "cli/text_escape.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

// ---- Standard output and error ----

static std::string error_prefix(const t_cli &cli)
{
    if (cli.is_terminal)
        return "error: ";
    return cli.line > 0 ? "lumora-cli: line " + std::to_string(cli.line) + ": " : "lumora-cli: ";
}

e_cli_status cli_fail(const t_cli &cli, e_cli_status status, const std::string &reason)
{
    fprintf(stderr, "%s%s\n", error_prefix(cli).c_str(), cli_text_printable(reason, true).c_str());
    return status;
}

e_cli_status cli_print(t_cli *p_cli, std::string_view text)
{
    cli_output_text(&p_cli->output, text);
    return p_cli->output.failed ? CLI_LOCAL : CLI_DONE;
}

static std::string json_lines(const t_cli_json &result)
{
    return cli_json_printable(result.dump(2, ' ', false, t_cli_json::error_handler_t::replace)) + '\n';
}

e_cli_status cli_print_json(t_cli *p_cli, const t_cli_json &result)
{
    return cli_print(p_cli, json_lines(result));
}

e_cli_status cli_print_done(t_cli *p_cli)
{
    return p_cli->form == CLI_FORM_JSON ? cli_print_json(p_cli, t_cli_json::object()) : CLI_DONE;
}

e_cli_status cli_output_finish(t_cli *p_cli, e_cli_status status)
{
    cli_output_end(&p_cli->output);
    if (p_cli->output.failed)
        status = cli_fail(*p_cli, CLI_LOCAL, std::string("standard output: ") + strerror(errno));
    p_cli->output = {};
    return status;
}

// ---- Calls ----

t_cli_json cli_head(const char *op)
{
    t_cli_json head = t_cli_json::object();
    head["op"] = op;
    return head;
}

// The connection for a question. Outside of sessions there is one.
static t_cli_client *client_for(t_cli *p_cli, const t_cli_json &head)
{
    static constexpr std::string_view without_session[] = {"show",   "action",  "monitor", "schema",
                                                           "values", "commits", "compare", "status"};
    bool is_aside =
        p_cli->mode != CLI_MODE_SHELL && std::ranges::count(without_session, head.value("op", "")) > 0;
    return is_aside ? &p_cli->side : &p_cli->client;
}

t_cli_answer cli_ask(t_cli *p_cli, const t_cli_json &head, std::string_view body,
                     const t_cli_listener &listener)
{
    t_cli_client *p_client = client_for(p_cli, head);
    std::string reason;
    if (p_client->fd < 0 && !cli_client_connect(p_client, p_cli->socket, &reason))
        return {.outcome = CLI_ANSWER_LOST,
                .result = {},
                .warnings = {},
                .path = p_cli->socket,
                .reason = reason};
    t_cli_answer answer = cli_client_call(p_client, head, body, listener);
    if (answer.outcome == CLI_ANSWER_LOST)
        answer.path = p_cli->socket;
    if (answer.outcome == CLI_ANSWER_LOST && p_client == &p_cli->client) {
        p_cli->session = 0;  // with it went the lock
        p_cli->holds_lock = false;
    }
    if (answer.outcome == CLI_ANSWER_INTERRUPTED && p_client == &p_cli->side)
        cli_client_close(p_client);
    return answer;
}

e_cli_status cli_answer_status(const t_cli_answer &answer)
{
    switch (answer.outcome) {
    case CLI_ANSWER_DONE:
        return CLI_DONE;
    case CLI_ANSWER_REFUSED:
        return CLI_REFUSED;
    case CLI_ANSWER_LOST:
        return CLI_NO_CONNECTION;
    case CLI_ANSWER_INTERRUPTED:
        break;
    }
    return CLI_STOPPED;
}

static e_cli_status failure_tell(const t_cli &cli, const t_cli_answer &answer)
{
    if (answer.outcome == CLI_ANSWER_INTERRUPTED && !cli_interrupted())
        return CLI_STOPPED;  // left in the pager
    if (answer.outcome != CLI_ANSWER_REFUSED || cli.form != CLI_FORM_JSON)
        return cli_fail(cli, cli_answer_status(answer),
                        answer.path.empty() ? answer.reason : answer.path + ": " + answer.reason);
    fputs(json_lines({{"path", answer.path}, {"reason", answer.reason}}).c_str(), stderr);
    return CLI_REFUSED;
}

void cli_warn(const t_cli &cli, const std::string &warning)
{
    fprintf(stderr, "%swarning: %s\n",
            cli.is_terminal ? "" : "lumora-cli: ", cli_text_printable(warning, false).c_str());
}

e_cli_status cli_answer_tell(const t_cli &cli, const t_cli_answer &answer)
{
    for (const std::string &warning : answer.warnings)
        cli_warn(cli, warning);
    return answer.outcome == CLI_ANSWER_DONE ? CLI_DONE : failure_tell(cli, answer);
}

e_cli_status cli_call(t_cli *p_cli, const t_cli_json &head, std::string_view body, t_cli_answer *p_answer,
                      const t_cli_listener &listener)
{
    t_cli_answer answer = cli_ask(p_cli, head, body, listener);
    e_cli_status status = cli_answer_tell(*p_cli, answer);
    if (status != CLI_DONE)
        return status;
    if (p_answer != nullptr)
        *p_answer = std::move(answer);
    return CLI_DONE;
}

t_cli_json cli_status_ask(t_cli *p_cli)
{
    t_cli_answer answer = cli_ask(p_cli, cli_head("status"));
    return answer.outcome == CLI_ANSWER_DONE ? std::move(answer.result) : t_cli_json();
}

#include "cli/commands.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

// ---- Standard output and error ----

e_cli_status cli_fail(e_cli_status status, const std::string &reason)
{
    fprintf(stderr, "lumora-cli: %s\n", reason.c_str());
    return status;
}

e_cli_status cli_print(std::string_view text)
{
    if (fwrite(text.data(), 1, text.size(), stdout) == text.size() && fflush(stdout) == 0)
        return CLI_DONE;
    return cli_fail(CLI_LOCAL, std::string("standard output: ") + strerror(errno));
}

e_cli_status cli_print_json(const t_cli_json &result)
{
    return cli_print(result.dump(2, ' ', false, t_cli_json::error_handler_t::replace) + '\n');
}

// ---- Calls ----

t_cli_json cli_head(const char *op)
{
    t_cli_json head = t_cli_json::object();
    head["op"] = op;
    return head;
}

static e_cli_status refusal_tell(const t_cli &cli, const t_cli_answer &answer)
{
    if (!cli.json)
        return cli_fail(CLI_REFUSED,
                        answer.path.empty() ? answer.reason : answer.path + ": " + answer.reason);
    t_cli_json refusal = {{"path", answer.path}, {"reason", answer.reason}};
    fprintf(stderr, "%s\n", refusal.dump(2, ' ', false, t_cli_json::error_handler_t::replace).c_str());
    return CLI_REFUSED;
}

e_cli_status cli_call(t_cli *p_cli, const t_cli_json &head, std::string_view body, t_cli_answer *p_answer,
                      const t_cli_listener &listener)
{
    std::string reason;
    if (p_cli->client.fd < 0 && !cli_client_connect(&p_cli->client, p_cli->socket, &reason))
        return cli_fail(CLI_NO_CONNECTION, p_cli->socket + ": " + reason);
    t_cli_answer answer = cli_client_call(&p_cli->client, head, body, listener);
    for (const std::string &warning : answer.warnings)
        fprintf(stderr, "lumora-cli: warning: %s\n", warning.c_str());
    if (answer.outcome == CLI_ANSWER_LOST)
        return cli_fail(CLI_NO_CONNECTION, p_cli->socket + ": " + answer.reason);
    if (answer.outcome == CLI_ANSWER_REFUSED)
        return refusal_tell(*p_cli, answer);
    if (p_answer != nullptr)
        *p_answer = std::move(answer);
    return CLI_DONE;
}

// Commands of a session: its modes, its place, its end.

#include "cli/commands.h"
#include "cli/model_walk.h"
#include "cli/session.h"

e_cli_status cli_enter(t_cli *p_cli, const t_cli_arguments &arguments)
{
    if (cli_option_is_given(arguments, "--exclusive")) {
        e_cli_status status = cli_call(p_cli, cli_head("lock"));
        if (status != CLI_DONE)
            return status;
        p_cli->holds_lock = true;
    }
    p_cli->mode = CLI_MODE_CONFIGURATION;
    return CLI_DONE;
}

e_cli_status cli_edit(t_cli *p_cli, const t_cli_arguments &arguments)
{
    t_cli_walk walk = {};
    bool found = cli_walk_start(&walk, p_cli, p_cli->position);
    for (const std::string &word : arguments.words)
        found = found && cli_walk_word(&walk, word);
    if (!found)
        return cli_fail(*p_cli, walk.status, walk.reason);
    std::string kind = cli_walk_kind(walk);
    bool is_place = walk.state == CLI_WALK_NODE && (kind == "container" || kind == "list" || kind == "top");
    if (!is_place || cli_model_flag(*walk.p_node, "state"))
        return cli_fail(*p_cli, CLI_USAGE,
                        cli_walk_path(walk) + ": this is no container or entry of the configuration");
    p_cli->position = cli_path_text(walk.steps);
    return CLI_DONE;
}

static void position_raise(t_cli *p_cli, size_t levels)
{
    std::vector<t_cli_step> steps;
    if (cli_path_split(p_cli->position, &steps))
        steps.resize(steps.size() - std::min(levels, steps.size()));
    p_cli->position = cli_path_text(steps);
}

e_cli_status cli_up(t_cli *p_cli, const t_cli_arguments &arguments)
{
    position_raise(p_cli, arguments.words.empty() ? 1 : std::stoul(arguments.words[0]));
    return CLI_DONE;
}

e_cli_status cli_top(t_cli *p_cli, const t_cli_arguments &)
{
    p_cli->position.clear();
    return CLI_DONE;
}

e_cli_status cli_exit(t_cli *p_cli, const t_cli_arguments &arguments)
{
    if (p_cli->mode == CLI_MODE_OPERATION)
        return cli_quit(p_cli, arguments);
    if (!p_cli->position.empty())
        return cli_up(p_cli, {});
    if (!cli_session_may_leave(p_cli, false))
        return CLI_DONE;
    p_cli->mode = CLI_MODE_OPERATION;
    if (!p_cli->holds_lock)
        return CLI_DONE;
    p_cli->holds_lock = false;
    return cli_call(p_cli, cli_head("unlock"));
}

e_cli_status cli_quit(t_cli *p_cli, const t_cli_arguments &)
{
    p_cli->is_over = cli_session_may_leave(p_cli, true);
    return CLI_DONE;
}

e_cli_status cli_help_show(t_cli *p_cli, const t_cli_arguments &arguments)
{
    if (arguments.words.empty())
        return cli_print(p_cli, cli_session_help(p_cli->mode));
    std::string reason;
    const t_cli_command *p_command = cli_command_find(p_cli->mode, arguments.words[0], &reason);
    if (p_command == nullptr)
        return cli_fail(*p_cli, CLI_USAGE, reason);
    return cli_print(p_cli, cli_command_help(p_cli->mode, *p_command));
}

// lumora-cli: the operator's command line. See docs/management.md.

#include "cli/commands.h"
#include "mgmtd/control/control_frame.h"

#include <cstdio>
#include <exception>

static e_cli_status usage_fail(const std::string &reason, const std::string &usage)
{
    fprintf(stderr, "lumora-cli: %s\n%s\n", reason.c_str(), usage.c_str());
    return CLI_USAGE;
}

static e_cli_status run(std::span<const std::string> texts)
{
    static constexpr char usage[] =
        "Usage: lumora-cli COMMAND [ARGUMENT]... [OPTION]..., see lumora-cli --help";
    t_cli cli;
    cli.socket = CONTROL_SOCKET;
    std::string reason;
    if (!cli_leading_options_read(&texts, &cli, &reason))
        return usage_fail(reason, usage);
    if (cli.wants_help)
        return cli_print(cli_help());
    if (texts.empty())
        return usage_fail("the command is missing", usage);
    const t_cli_command *p_command = cli_command_find(texts[0]);
    if (p_command == nullptr)
        return usage_fail("there is no command " + texts[0], usage);
    t_cli_arguments arguments;
    if (!cli_command_read(*p_command, texts.subspan(1), &cli, &arguments, &reason))
        return usage_fail(reason, "Usage: " + cli_command_usage(*p_command));
    return cli.wants_help ? cli_print(cli_command_help(*p_command)) : p_command->run(&cli, arguments);
}

int main(int argc, char **argv)
{
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const std::exception &error) {
        return cli_fail(CLI_LOCAL, error.what());
    }
}

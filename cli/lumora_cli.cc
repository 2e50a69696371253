// lumora-cli: the operator's command line. See docs/cli.md.

#include "cli/commands.h"
#include "cli/completion.h"
#include "cli/session.h"
#include "mgmtd/control/control_frame.h"

#include <cstdio>
#include <exception>

static e_cli_status usage_fail(const t_cli &cli, const std::string &reason, const std::string &usage)
{
    cli_fail(cli, CLI_USAGE, reason);
    fprintf(stderr, "%s\n", usage.c_str());
    return CLI_USAGE;
}

static e_cli_status text_print(t_cli *p_cli, const std::string &text)
{
    cli_print(p_cli, text);
    return cli_output_finish(p_cli, CLI_DONE);
}

// For the build and for the shell's completion; no help tells of them. False if it is none of these.
static bool service_run(std::span<const t_cli_argument> texts, t_cli *p_cli, e_cli_status *p_status)
{
    std::string what = texts.empty() ? "" : texts[0].text;
    std::string text;
    if (what == "--print-man") {
        text = cli_man_page();
    } else if (what == "--print-completion") {
        text = cli_bash_completion();
    } else if (what == "--complete" && texts.size() >= 2) {
        std::span<const t_cli_argument> options = texts.subspan(2);
        if (!cli_leading_options_read(&options, p_cli, &text))
            return false;
        for (const t_cli_candidate &candidate : cli_complete(p_cli, texts[1].text).candidates)
            text += candidate.is_hint ? "" : candidate.text + '\n';
    } else {
        return false;
    }
    *p_status = text_print(p_cli, text);
    return true;
}

static e_cli_status command_run(t_cli *p_cli, std::span<const t_cli_argument> texts, const std::string &usage)
{
    std::string reason;
    const t_cli_command *p_command = cli_command_find(CLI_MODE_SHELL, texts[0].text, &reason);
    if (p_command == nullptr)
        return usage_fail(*p_cli, reason, usage);
    t_cli_arguments arguments;
    if (!cli_command_read(*p_command, texts.subspan(1), p_cli, &arguments, &reason))
        return usage_fail(*p_cli, reason, "Usage: " + cli_command_usage(CLI_MODE_SHELL, *p_command));
    if (p_cli->wants_help)
        return text_print(p_cli, cli_command_help(CLI_MODE_SHELL, *p_command));
    return cli_output_finish(p_cli, p_command->run(p_cli, arguments));
}

static e_cli_status run(t_cli *p_cli, std::span<const t_cli_argument> texts)
{
    static constexpr char usage[] =
        "Usage: lumora-cli [OPTION]... [COMMAND [ARGUMENT]... [OPTION]...], see lumora-cli --help";
    std::string reason;
    e_cli_status status;
    if (service_run(texts, p_cli, &status))
        return status;
    if (!cli_leading_options_read(&texts, p_cli, &reason))
        return usage_fail(*p_cli, reason, usage);
    if (p_cli->wants_help)
        return text_print(p_cli, cli_help());
    if (texts.empty())
        return cli_session_run(p_cli);
    if (!p_cli->script.empty())
        return usage_fail(*p_cli, "a file of commands, or one command, not both", usage);
    return command_run(p_cli, texts, usage);
}

int main(int argc, char **argv)
{
    t_cli cli;
    cli.socket = CONTROL_SOCKET;
    try {
        std::vector<t_cli_argument> texts;
        for (int i = 1; i < argc; i++)
            texts.push_back({.text = argv[i]});
        return run(&cli, texts);
    } catch (const std::exception &error) {
        return cli_fail(cli, CLI_LOCAL, error.what());
    }
}

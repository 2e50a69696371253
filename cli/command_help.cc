#include "cli/command.h"
#include "cli/text_layout.h"

const char *cli_value_name(e_cli_value value)
{
    switch (value) {
    case CLI_VALUE_NONE:
        return "";
    case CLI_VALUE_ACTION:
        return "ACTION";
    case CLI_VALUE_COMMENT:
        return "COMMENT";
    case CLI_VALUE_FILE:
        return "FILE";
    case CLI_VALUE_NUMBER:
        return "N";
    case CLI_VALUE_PARAMETER:
        return "NAME=VALUE";
    case CLI_VALUE_PATH:
    case CLI_VALUE_SOCKET:
        return "PATH";
    case CLI_VALUE_TEXT:
        return "VALUE";
    }
    return "";
}

static std::string option_form(const t_cli_option &option)
{
    std::string form = option.letter != 0 ? std::string("-") + option.letter + ", " : "";
    form += option.name;
    for (e_cli_value value : option.values)
        form += value != CLI_VALUE_NONE ? std::string(" ") + cli_value_name(value) : "";
    return form;
}

std::string cli_command_usage(const t_cli_command &command)
{
    std::string usage = std::string("lumora-cli ") + command.name;
    for (const t_cli_word &word : command.words) {
        std::string form = std::string(cli_value_name(word.value)) + (word.repeats ? "..." : "");
        usage += ' ' + (word.is_optional ? '[' + form + ']' : form);
    }
    return usage + (command.options.empty() ? "" : " [OPTION]...");
}

static void options_help(std::span<const t_cli_option> own, std::string *p_text)
{
    t_cli_entries entries;
    for (std::span<const t_cli_option> options : {own, g_cli_common_options}) {
        for (const t_cli_option &option : options)
            entries.emplace_back(option_form(option), option.help);
    }
    cli_text_entries(entries, p_text);
}

static constexpr char status_help[] = "Exit status: 0 done, 1 refused by the daemon, 2 usage, 3 no "
                                      "connection, 4 a file can't be read or written.";

std::string cli_command_help(const t_cli_command &command)
{
    std::string text = "Usage: " + cli_command_usage(command) + "\n\n";
    cli_text_wrap(command.details, 0, &text);
    text += "\nOptions:\n";
    options_help(command.options, &text);
    text += '\n';
    cli_text_wrap(status_help, 0, &text);
    return text;
}

std::string cli_help()
{
    std::string text =
        "Usage: lumora-cli COMMAND [ARGUMENT]... [OPTION]...\n"
        "Configures a router and shows its state, over the control socket of mgmtd.\n\nCommands:\n";
    t_cli_entries entries;
    for (const t_cli_command &command : g_cli_commands)
        entries.emplace_back(command.name, command.summary);
    cli_text_entries(entries, &text);
    text += "\nOptions of all commands:\n";
    options_help({}, &text);
    text += "\n\"lumora-cli COMMAND --help\" tells more.\n";
    cli_text_wrap(status_help, 0, &text);
    return text;
}

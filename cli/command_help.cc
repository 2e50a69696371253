#include "cli/command.h"
#include "cli/phrase.h"
#include "cli/pipes.h"
#include "cli/text_layout.h"

const char *cli_value_name(e_cli_value value)
{
    static constexpr std::pair<e_cli_value, const char *> names[] = {
        {CLI_VALUE_ACTION, "ACTION"}, {CLI_VALUE_COMMAND, "COMMAND"},    {CLI_VALUE_COMMENT, "COMMENT"},
        {CLI_VALUE_COUNT, "COUNT"},   {CLI_VALUE_FILE, "FILE"},          {CLI_VALUE_ID, "NAME"},
        {CLI_VALUE_KEY, "KEY"},       {CLI_VALUE_NUMBER, "N"},           {CLI_VALUE_PARAMETER, "NAME=VALUE"},
        {CLI_VALUE_PHRASE, "WHAT"},   {CLI_VALUE_PATH, "PATH"},          {CLI_VALUE_NODE, "PATH"},
        {CLI_VALUE_CONFIG, "PATH"},   {CLI_VALUE_SETTING, "PATH VALUE"}, {CLI_VALUE_SECONDS, "SECONDS"},
        {CLI_VALUE_SINCE, "TIME"},    {CLI_VALUE_SOCKET, "PATH"},        {CLI_VALUE_TEXT, "VALUE"},
        {CLI_VALUE_TIME, "TIME"},
    };
    for (auto [kind, name] : names) {
        if (kind == value)
            return name;
    }
    return "";
}

// Paths are words in a row as well as one word, phrases too.
static bool is_path(e_cli_value value)
{
    return value == CLI_VALUE_PHRASE || value == CLI_VALUE_NODE || value == CLI_VALUE_CONFIG ||
           value == CLI_VALUE_SETTING;
}

// " NAME", " [SECONDS]"
static std::string values_form(const t_cli_option &option)
{
    std::string form;
    for (e_cli_value value : option.values) {
        if (value == CLI_VALUE_NONE)
            break;
        std::string name = cli_value_name(value);
        form += ' ' + (option.value_is_optional ? '[' + name + ']' : name);
    }
    return form;
}

static std::string option_form(const t_cli_option &option)
{
    std::string form = option.letter != 0 ? std::string("-") + option.letter + ", " : "";
    return form + option.name + values_form(option);
}

std::string cli_command_usage(e_cli_mode mode, const t_cli_command &command)
{
    std::string usage = (mode == CLI_MODE_SHELL ? "lumora-cli " : "") + std::string(command.name);
    for (const t_cli_word &word : command.words) {
        bool has_dots = word.repeats && !is_path(word.value);
        std::string form = std::string(cli_value_name(word.value)) + (has_dots ? "..." : "");
        form += word.value != CLI_VALUE_PHRASE && command.p_phrases != nullptr ? "|WHAT" : "";
        usage += ' ' + (word.is_optional ? '[' + form + ']' : form);
    }
    return usage + (command.options.empty() ? "" : " [OPTION]...");
}

static std::string keyword_form(const t_cli_option &option)
{
    return option.name + 2 + values_form(option);
}

// In a session options are keywords.
static void options_help(e_cli_mode mode, std::span<const t_cli_option> own, std::string *p_text)
{
    t_cli_entries entries;
    for (const t_cli_option &option : own)
        entries.emplace_back(mode == CLI_MODE_SHELL ? option_form(option) : keyword_form(option),
                             option.help);
    for (const t_cli_option &option :
         mode == CLI_MODE_SHELL ? g_cli_common_options : std::span<const t_cli_option>())
        entries.emplace_back(option_form(option), option.help);
    cli_text_entries(entries, p_text);
}

static void phrases_help(const t_cli_command &command, std::string *p_text)
{
    t_cli_entries entries;
    for (const t_cli_phrase &phrase : cli_phrases_of(command))
        entries.emplace_back(cli_phrase_form(phrase), phrase.help);
    if (entries.empty())
        return;
    *p_text += "\nWHAT it can be:\n";
    cli_text_entries(entries, p_text);
}

static constexpr char status_help[] = "Exit status: 0 done, 1 refused by the daemon, 2 usage, 3 no "
                                      "connection, 4 a file can't be read or written.";

std::string cli_command_help(e_cli_mode mode, const t_cli_command &command)
{
    std::string text = "Usage: " + cli_command_usage(mode, command) + "\n\n";
    cli_text_wrap(command.details, 0, &text);
    phrases_help(command, &text);
    if (mode == CLI_MODE_SHELL || !command.options.empty())
        text += "\nOptions:\n";
    options_help(mode, command.options, &text);
    if (mode != CLI_MODE_SHELL)
        return text;
    text += '\n';
    cli_text_wrap(status_help, 0, &text);
    return text;
}

static void commands_help(e_cli_mode mode, std::string *p_text)
{
    t_cli_entries entries;
    for (const t_cli_command &command : g_cli_commands) {
        if ((command.modes & mode) != 0)
            entries.emplace_back(command.name, command.summary);
    }
    cli_text_entries(entries, p_text);
}

std::string cli_help()
{
    std::string text = "Usage: lumora-cli [OPTION]... [COMMAND [ARGUMENT]... [OPTION]...]\n";
    cli_text_wrap(
        "Configures a router and shows its state, over the control socket of mgmtd. Without a command "
        "it is a session at the terminal, or a script of the session's commands from standard input.",
        0, &text);
    text += "\nCommands:\n";
    commands_help(CLI_MODE_SHELL, &text);
    text += "\nOptions without a command:\n";
    t_cli_entries program;
    for (const t_cli_option &option : g_cli_program_options)
        program.emplace_back(option_form(option), option.help);
    cli_text_entries(program, &text);
    text += "\nOptions of all commands:\n";
    options_help(CLI_MODE_SHELL, {}, &text);
    text += "\n\"lumora-cli COMMAND --help\" tells more.\n";
    cli_text_wrap(status_help, 0, &text);
    return text;
}

std::string cli_session_help(e_cli_mode mode)
{
    std::string text = "Commands:\n";
    commands_help(mode, &text);
    text += "\nOutput goes through filters:\n";
    t_cli_entries entries;
    for (const t_cli_pipe &pipe : g_cli_pipes)
        entries.emplace_back(std::string("| ") + pipe.name +
                                 (pipe.argument != nullptr ? std::string(" ") + pipe.argument : ""),
                             pipe.help);
    cli_text_entries(entries, &text);
    return text + "\n\"help COMMAND\" tells more.\n";
}

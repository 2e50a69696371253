// The manual page and the shell's completion, from the table of commands.

#include "cli/command.h"
#include "cli/phrase.h"
#include "cli/pipes.h"

#include <algorithm>

// ---- The manual page ----

// Text for roff: backslashes, hyphens, and no line that begins like a request.
static std::string roff(std::string_view text)
{
    std::string escaped;
    for (char character : text) {
        bool begins = escaped.empty() || escaped.back() == '\n';
        if (begins && (character == '.' || character == '\''))
            escaped += "\\&";
        if (character == '\\' || character == '-')
            escaped += '\\';
        escaped += character;
    }
    return escaped;
}

static std::string paragraphs(std::string_view text)
{
    std::string page = roff(text);
    for (size_t at; (at = page.find("\n\n")) != std::string::npos;)
        page.replace(at, 2, "\n.PP\n");
    return page + '\n';
}

static std::string option_page(const t_cli_option &option)
{
    std::string form = option.letter != 0 ? std::string("\\fB\\-") + option.letter + "\\fR, " : "";
    form += "\\fB" + roff(option.name) + "\\fR";
    for (e_cli_value value : option.values) {
        if (value == CLI_VALUE_NONE)
            break;
        std::string name = "\\fI" + roff(cli_value_name(value)) + "\\fR";
        form += ' ' + (option.value_is_optional ? '[' + name + ']' : name);
    }
    return ".TP\n" + form + '\n' + roff(option.help) + '\n';
}

static std::string modes_text(const t_cli_command &command)
{
    if (command.modes == CLI_EVERYWHERE)
        return "";
    if ((command.modes & CLI_MODE_SHELL) == 0)
        return command.modes == CLI_IN_SESSION       ? " (in a session)"
               : command.modes == CLI_MODE_OPERATION ? " (in a session, operation mode)"
                                                     : " (in a session, configuration mode)";
    if (command.modes == CLI_MODE_SHELL)
        return " (from the shell)";
    return (command.modes & CLI_MODE_OPERATION) != 0 ? " (from the shell, and in the operation mode)"
                                                     : " (from the shell, and in the configuration mode)";
}

static std::string command_page(const t_cli_command &command)
{
    std::string page =
        ".SS " + roff(cli_command_usage(CLI_MODE_OPERATION, command)) + roff(modes_text(command)) + '\n';
    page += paragraphs(command.details);
    for (const t_cli_phrase &phrase : cli_phrases_of(command))
        page += ".TP\n\\fB" + roff(command.name) + ' ' + roff(cli_phrase_form(phrase)) + "\\fR\n" +
                roff(phrase.help) + '\n';
    for (const t_cli_option &option : command.options)
        page += option_page(option);
    return page;
}

std::string cli_man_page()
{
    std::string page =
        ".TH LUMORA\\-CLI 1\n.SH NAME\nlumora\\-cli \\- configure a router and show its state\n"
        ".SH SYNOPSIS\n.B lumora\\-cli\n[\\fIOPTION\\fR]... [\\fICOMMAND\\fR [\\fIARGUMENT\\fR]... "
        "[\\fIOPTION\\fR]...]\n.SH DESCRIPTION\n";
    page += paragraphs(
        "Speaks to the management daemon over its control socket. Without a command it is a session: at a "
        "terminal with completion (Tab), help (?), history and pages, otherwise a script of the session's "
        "commands, one a line, which stops at the first error.\n\n"
        "A session begins in the operation mode; \"configure\" and \"exit\" lead to the configuration mode "
        "and back. Options of a command are keywords there: \"commit comment why\" is \"commit --comment "
        "why\" of the shell. Commands can be cut short where no other begins so.");
    page += ".SH COMMANDS\n";
    for (const t_cli_command &command : g_cli_commands)
        page += command_page(command);
    page += ".SH OPTIONS\n";
    for (std::span<const t_cli_option> options : {g_cli_program_options, g_cli_common_options}) {
        for (const t_cli_option &option : options)
            page += option_page(option);
    }
    page += ".SH FILTERS\nIn a session a bar leads a command's output through a filter.\n";
    for (const t_cli_pipe &pipe : g_cli_pipes)
        page += ".TP\n\\fB| " + roff(pipe.name) + "\\fR" +
                (pipe.argument != nullptr ? std::string(" \\fI") + pipe.argument + "\\fR" : "") + '\n' +
                roff(pipe.help) + '\n';
    page += ".SH PATHS\n";
    page += paragraphs(
        "A path is words, \"policy zone guest vpn 10\": names, and behind a list its keys; or one word, "
        "\"/policy/zone{guest}/vpn{10}\". Words with blanks or one of \"|{}? stand in double quotes, in "
        "which a "
        "backslash stands before quotes and backslashes.");
    page += ".SH EXIT STATUS\n0 done, 1 refused by the daemon, 2 usage, 3 no connection, 4 a file can't be "
            "read or "
            "written.\n.SH FILES\n.TP\n~/.lumora_cli_history\nThe last lines of sessions at a terminal.\n";
    return page;
}

// ---- The shell's completion ----

static std::string words_of(std::span<const t_cli_option> options)
{
    std::string words;
    for (const t_cli_option &option : options)
        words += (words.empty() ? "" : " ") + std::string(option.name);
    return words;
}

// Options come from the table. Words (paths, actions, commits...) are asked of the program, which asks the
// daemon.
std::string cli_bash_completion()
{
    std::string commands;
    std::string cases;
    for (const t_cli_command &command : g_cli_commands) {
        if ((command.modes & CLI_MODE_SHELL) == 0)
            continue;
        commands += (commands.empty() ? "" : " ") + std::string(command.name);
        if (!command.options.empty())
            cases += std::string("        ") + command.name + ") options=\"" + words_of(command.options) +
                     "\" ;;\n";
    }
    return "# bash completion of lumora-cli\n"
           "_lumora_cli() {\n"
           "    local word=\"${COMP_WORDS[COMP_CWORD]}\" before=\"${COMP_WORDS[COMP_CWORD-1]}\" "
           "options=\"\"\n"
           "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
           "        COMPREPLY=($(compgen -W \"" +
           commands + ' ' + words_of(g_cli_program_options) + ' ' + words_of(g_cli_common_options) +
           "\" -- \"$word\"))\n"
           "        return\n"
           "    fi\n"
           "    case \"$before\" in -f|--file|-s|--socket|merge|replace)\n"
           "        COMPREPLY=($(compgen -f -- \"$word\"))\n"
           "        return ;;\n"
           "    esac\n"
           "    case \"${COMP_WORDS[1]}\" in\n" +
           cases +
           "    esac\n"
           "    if [[ \"$word\" == -* ]]; then\n"
           "        COMPREPLY=($(compgen -W \"$options " +
           words_of(g_cli_common_options) +
           "\" -- \"$word\"))\n"
           "        return\n"
           "    fi\n"
           "    local IFS=$'\\n'\n"
           "    COMPREPLY=($(\"${COMP_WORDS[0]}\" --complete \"$(IFS=' '; echo "
           "\"${COMP_WORDS[*]:1:COMP_CWORD}\")\" 2>/dev/null))\n"
           "}\n"
           "complete -F _lumora_cli lumora-cli\n";
}

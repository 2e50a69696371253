// Commands: one table says what there is, and reading, help, completion, the man page and the shell's
// completion follow it.
//
// A command has a name, options and words, and the modes in which it exists: as one command of the shell's
// ("lumora-cli show /policy"), and in the two modes of a session. Options are written "--name VALUE",
// "--name=VALUE" or "-nVALUE", anywhere up to a "--"; or as keywords, the bare name and its value, before the
// command's words ("commit comment why"; where the option says so also between them: "rename PATH to KEY").
// In a session a quoted word is never an option or keyword. The kinds of values say what a value names, for
// help and completion. A command runs on what was read, over the connection in t_cli, and gives the exit
// status.
#pragma once

#include "cli/client.h"
#include "cli/output.h"

#include <iosfwd>
#include <map>
#include <span>

// Exit status.
enum e_cli_status {
    CLI_DONE = 0,
    CLI_REFUSED = 1,        // by the daemon; path and reason stand on standard error
    CLI_USAGE = 2,          // the command line makes no sense
    CLI_NO_CONNECTION = 3,  // nobody serves the socket, or the connection broke
    CLI_LOCAL = 4,          // a file can't be read or is no JSON, or the output can't be written
    CLI_STOPPED = 130,      // by Ctrl-C
};

enum e_cli_value {
    CLI_VALUE_NONE,
    CLI_VALUE_ACTION,
    CLI_VALUE_COMMAND,
    CLI_VALUE_COMMENT,
    CLI_VALUE_COUNT,
    CLI_VALUE_FILE,
    CLI_VALUE_ID,
    CLI_VALUE_KEY,
    CLI_VALUE_NUMBER,  // of a commit, counted back
    CLI_VALUE_PARAMETER,
    CLI_VALUE_PHRASE,   // words of the command's own
    CLI_VALUE_PATH,     // one word, in the framework's form
    CLI_VALUE_NODE,     // a path, as words or in the framework's form
    CLI_VALUE_CONFIG,   // the same, of configuration
    CLI_VALUE_SETTING,  // the same with values
    CLI_VALUE_SECONDS,
    CLI_VALUE_SINCE,  // a time, or how long ago
    CLI_VALUE_SOCKET,
    CLI_VALUE_TEXT,
    CLI_VALUE_TIME,  // minutes, or with a unit
};

// The letters that help prints for a value.
const char *cli_value_name(e_cli_value value);

struct t_cli_option {
    const char *name;  // with its dashes
    char letter;       // 0 for none
    e_cli_value values[2];
    const char *help;
    bool stands_between = false;     // as a keyword also behind words, and takes all that follows
    bool value_is_optional = false;  // what follows is its value if it is a number
};

struct t_cli_word {
    e_cli_value value;
    bool is_optional;
    bool repeats;  // the last one only
};

struct t_cli_given {
    const t_cli_option *p_option;
    std::vector<std::string> values;
};

struct t_cli_command;
struct t_cli_phrase;

struct t_cli_arguments {
    const t_cli_command *p_command = nullptr;
    std::vector<t_cli_given> options;  // in their order; without those of all commands
    std::vector<std::string> words;
};

enum e_cli_mode : unsigned int {
    CLI_MODE_SHELL = 1,
    CLI_MODE_OPERATION = 2,
    CLI_MODE_CONFIGURATION = 4,
};

inline constexpr unsigned int CLI_IN_SESSION = CLI_MODE_OPERATION | CLI_MODE_CONFIGURATION;
inline constexpr unsigned int CLI_EVERYWHERE = CLI_MODE_SHELL | CLI_IN_SESSION;

enum e_cli_form {
    CLI_FORM_TEXT,
    CLI_FORM_JSON,
    CLI_FORM_SET,      // as "set" commands; show only
    CLI_FORM_COMPARE,  // what the candidate changes; show only
};

// The program's state. What a session does not change stands as the options have it.
struct t_cli {
    std::string socket;
    e_cli_form form = CLI_FORM_TEXT;
    bool wants_help = false;
    std::string script;   // a file of commands instead of standard input
    t_cli_client client;  // edits, locks and commits; its end is that of their session
    t_cli_output output;  // of the command under way

    e_cli_mode mode = CLI_MODE_SHELL;
    bool is_terminal = false;                 // a person sits there
    bool is_over = false;                     // the session is to end
    bool holds_lock = false;                  // of the candidate
    uint32_t session = 0;                     // by which the daemon knows this one; 0 for unknown
    size_t line = 0;                          // of the script, for its errors
    std::string position;                     // "edit": a path in the framework's form; "" is the top
    std::istream *p_input = nullptr;          // where the script's lines come from; null at a terminal
    t_cli_client side;                        // what needs no session, so that Ctrl-C can close it
    std::map<std::string, t_cli_json> model;  // what the daemon said about nodes, by path without keys
};

struct t_cli_command {
    const char *name;
    unsigned int modes;
    const char *summary;  // begins small, no full stop
    const char *details;  // paragraphs, unwrapped
    std::span<const t_cli_option> options;
    std::span<const t_cli_word> words;
    e_cli_status (*run)(t_cli *p_cli, const t_cli_arguments &arguments);
    const std::span<const t_cli_phrase> *p_phrases = nullptr;  // what it takes beside other words; null: none
};

extern const std::span<const t_cli_command> g_cli_commands;
extern const std::span<const t_cli_option> g_cli_common_options;   // of all commands
extern const std::span<const t_cli_option> g_cli_program_options;  // of the program, before any command

// A word of a command line.
struct t_cli_argument {
    std::string text;
    bool is_quoted = false;
};

// The command of a mode by its name, or by a beginning that no other has. Null with the reason.
const t_cli_command *cli_command_find(e_cli_mode mode, std::string_view name, std::string *p_reason);

// Reads the options of all commands that stand before a command's name, and takes them off. False with the
// reason.
[[nodiscard]] bool cli_leading_options_read(std::span<const t_cli_argument> *p_texts, t_cli *p_cli,
                                            std::string *p_reason);

// Reads what stands behind a command's name, into *p_cli what is for all commands. False with the reason.
// Where help is wanted nothing else has to be complete.
[[nodiscard]] bool cli_command_read(const t_cli_command &command, std::span<const t_cli_argument> texts,
                                    t_cli *p_cli, t_cli_arguments *p_arguments, std::string *p_reason);

// The option that a word begins, as an option or as a keyword; null for none. Words are those before it.
const t_cli_option *cli_option_find(const t_cli_command &command, const t_cli_argument &text,
                                    size_t word_count);

// Whether an option whose value may be missing takes this text for it.
bool cli_option_takes(const t_cli_option &option, const t_cli_argument &text);

// An option as it was given; null if it was not.
const t_cli_given *cli_option_given(const t_cli_arguments &arguments, std::string_view name);
bool cli_option_is_given(const t_cli_arguments &arguments, std::string_view name);

// The first value of an option, or null if it was not given.
const std::string *cli_option_value(const t_cli_arguments &arguments, std::string_view name);

// "10" (minutes), "90s", "10m", "2h", "1d" as seconds; 0 if it is none of these or longer than a week.
int64_t cli_seconds_read(const std::string &text);

// ---- Help ----

// One line with all that a command takes; mode SHELL has the program's name in front.
std::string cli_command_usage(e_cli_mode mode, const t_cli_command &command);
std::string cli_command_help(e_cli_mode mode, const t_cli_command &command);
std::string cli_help();
std::string cli_session_help(e_cli_mode mode);

// The manual page in roff, and the completion for bash.
std::string cli_man_page();
std::string cli_bash_completion();

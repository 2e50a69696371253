// Commands: one table says what there is, and reading, help and (from the same rows) whatever else tells of
// commands follow it.
//
// A command has a name, options and words. Words stand in the order of the table; options anywhere, as
// "--name VALUE", "--name=VALUE" or "-nVALUE", up to a "--". The kinds of values say what a value names, for
// its name in the help and for completion. A command runs on what was read, over the connection in t_cli, and
// gives the exit status.
#pragma once

#include "cli/client.h"

#include <span>

// Exit status.
enum e_cli_status {
    CLI_DONE = 0,
    CLI_REFUSED = 1,        // by the daemon; path and reason stand on standard error
    CLI_USAGE = 2,          // the command line makes no sense
    CLI_NO_CONNECTION = 3,  // nobody serves the socket, or the connection broke
    CLI_LOCAL = 4,          // a file can't be read or is no JSON, or the output can't be written
};

enum e_cli_value {
    CLI_VALUE_NONE,
    CLI_VALUE_ACTION,
    CLI_VALUE_COMMENT,
    CLI_VALUE_FILE,
    CLI_VALUE_NUMBER,  // of a commit, counted back
    CLI_VALUE_PARAMETER,
    CLI_VALUE_PATH,
    CLI_VALUE_SOCKET,
    CLI_VALUE_TEXT,
};

// The letters that help prints for a value.
const char *cli_value_name(e_cli_value value);

struct t_cli_option {
    const char *name;  // with its dashes
    char letter;       // 0 for none
    e_cli_value values[2];
    const char *help;
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

struct t_cli_arguments {
    std::vector<t_cli_given> options;  // in their order; without those of all commands
    std::vector<std::string> words;
};

struct t_cli {
    std::string socket;
    bool json = false;
    bool wants_help = false;
    t_cli_client client;
};

struct t_cli_command {
    const char *name;
    const char *summary;  // begins small, no full stop
    const char *details;  // paragraphs, unwrapped
    std::span<const t_cli_option> options;
    std::span<const t_cli_word> words;
    e_cli_status (*run)(t_cli *p_cli, const t_cli_arguments &arguments);
};

extern const std::span<const t_cli_command> g_cli_commands;
extern const std::span<const t_cli_option> g_cli_common_options;

const t_cli_command *cli_command_find(std::string_view name);

// Reads the options of all commands that stand before a command's name, and takes them off. False with the
// reason.
[[nodiscard]] bool cli_leading_options_read(std::span<const std::string> *p_texts, t_cli *p_cli,
                                            std::string *p_reason);

// Reads what stands behind a command's name, into *p_cli what is for all commands. False with the reason.
// Where help is wanted nothing else has to be complete.
[[nodiscard]] bool cli_command_read(const t_cli_command &command, std::span<const std::string> texts,
                                    t_cli *p_cli, t_cli_arguments *p_arguments, std::string *p_reason);

bool cli_option_is_given(const t_cli_arguments &arguments, std::string_view name);

// The first value of an option, or null if it was not given.
const std::string *cli_option_value(const t_cli_arguments &arguments, std::string_view name);

// ---- Help ----

// One line with all that a command takes.
std::string cli_command_usage(const t_cli_command &command);
std::string cli_command_help(const t_cli_command &command);
std::string cli_help();

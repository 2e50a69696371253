#include "cli/commands.h"

static constexpr t_cli_option common_options[] = {
    {"--json", 'j', {}, "print JSON instead of text"},
    {"--socket", 's', {CLI_VALUE_SOCKET}, "mgmtd's control socket; default /var/run/mgmtd.sock"},
    {"--help", 'h', {}, "this text"},
};

static constexpr t_cli_option configure_options[] = {
    {"--file", 'f', {CLI_VALUE_FILE}, "merge a configuration in JSON; - is standard input"},
    {"--replace", 'r', {}, "what the first file does not name goes"},
    {"--set", 0, {CLI_VALUE_PATH, CLI_VALUE_TEXT}, "give a leaf a value"},
    {"--add", 0, {CLI_VALUE_PATH}, "make a list's entry, a leaf-list's element or an empty leaf"},
    {"--delete", 0, {CLI_VALUE_PATH}, "delete a node, which must exist, with all below"},
    {"--commit", 'c', {CLI_VALUE_COMMENT}, "commit, all or nothing"},
};

static constexpr t_cli_option rollback_options[] = {
    {"--commit", 'c', {CLI_VALUE_COMMENT}, "commit, all or nothing"},
};

static constexpr t_cli_option commit_options[] = {
    {"--comment", 'c', {CLI_VALUE_COMMENT}, "comment for the history"},
};

static constexpr t_cli_option show_options[] = {
    {"--config", 0, {}, "the running configuration only"},
    {"--candidate", 0, {}, "the candidate"},
    {"--state", 0, {}, "operational state only"},
};

static constexpr t_cli_word path_word[] = {{CLI_VALUE_PATH, false, false}};
static constexpr t_cli_word optional_path_word[] = {{CLI_VALUE_PATH, true, false}};
static constexpr t_cli_word number_word[] = {{CLI_VALUE_NUMBER, false, false}};
static constexpr t_cli_word optional_number_word[] = {{CLI_VALUE_NUMBER, true, false}};
static constexpr t_cli_word action_words[] = {{CLI_VALUE_ACTION, false, false},
                                              {CLI_VALUE_PARAMETER, true, true}};

static constexpr t_cli_command commands[] = {
    {
        .name = "configure",
        .summary = "change the candidate, and commit it on wish",
        .details = "Changes the candidate configuration. Files, --set, --add and --delete are done in their "
                   "order, all of "
                   "them or none. Paths are like /policy/zone{a}/vpn{1}; quote them for the shell.\n\n"
                   "With --commit the candidate is locked meanwhile, so it must have no other changes, and "
                   "is as it was if "
                   "anything is refused. Without it the changes stay in the candidate for later commands.",
        .options = configure_options,
        .words = {},
        .run = cli_configure,
    },
    {
        .name = "compare",
        .summary = "show what the candidate changes",
        .details =
            "Shows what the candidate changes in the running configuration, a line for each node: + created "
            "or "
            "set, - deleted. With a number: what has changed since that commit, counted back as in the "
            "history. Nothing is printed where there is no difference.",
        .options = {},
        .words = optional_number_word,
        .run = cli_compare,
    },
    {
        .name = "check",
        .summary = "validate the candidate",
        .details = "Does all the checks of a commit and changes nothing.",
        .options = {},
        .words = {},
        .run = cli_check,
    },
    {
        .name = "commit",
        .summary = "make the candidate the running configuration",
        .details =
            "Validates the candidate, stores it and tells the daemons. Ends when all of them have taken it.",
        .options = commit_options,
        .words = {},
        .run = cli_commit,
    },
    {
        .name = "discard",
        .summary = "drop the candidate's changes",
        .details = "Makes the candidate as running, whoever has changed it.",
        .options = {},
        .words = {},
        .run = cli_discard,
    },
    {
        .name = "rollback",
        .summary = "take the candidate back to an earlier commit",
        .details =
            "Gives the candidate the configuration of a commit: 0 is running, 1 the one before; \"lumora-cli "
            "history\" lists them. With --commit as in \"configure\".",
        .options = rollback_options,
        .words = number_word,
        .run = cli_rollback,
    },
    {
        .name = "history",
        .summary = "list the commits",
        .details = "Lists the stored commits, newest first, with the number for rollback and compare.",
        .options = {},
        .words = {},
        .run = cli_history,
    },
    {
        .name = "show",
        .summary = "show configuration and state",
        .details = "Shows what stands at a path and below: the running configuration and the state as the "
                   "daemons give "
                   "it now. A list without keys means all its entries; / is everything.",
        .options = show_options,
        .words = path_word,
        .run = cli_show,
    },
    {
        .name = "describe",
        .summary = "tell what the model says about a node",
        .details =
            "Tells what a node of the model means and what stands below it; without a path, the top level.",
        .options = {},
        .words = optional_path_word,
        .run = cli_describe,
    },
    {
        .name = "request",
        .summary = "run an action",
        .details =
            "Runs an action of a daemon and prints its output as it comes. Parameters are given by name; "
            "\"lumora-cli describe /ACTION\" lists them. Words without = go to the action as they are.",
        .options = {},
        .words = action_words,
        .run = cli_request,
    },
    {
        .name = "status",
        .summary = "show the management daemon itself",
        .details = "Shows the start phase (2 is running), the sessions, the candidate and the last commit.",
        .options = {},
        .words = {},
        .run = cli_status,
    },
};

const std::span<const t_cli_command> g_cli_commands = commands;
const std::span<const t_cli_option> g_cli_common_options = common_options;

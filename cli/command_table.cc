#include "cli/commands.h"
#include "cli/phrase.h"

static constexpr t_cli_option common_options[] = {
    {"--json", 'j', {}, "print JSON instead of text"},
    {"--socket", 's', {CLI_VALUE_SOCKET}, "mgmtd's control socket; default /var/run/mgmtd.sock"},
    {"--help", 'h', {}, "this text"},
};

static constexpr t_cli_option program_options[] = {
    {"--file", 'f', {CLI_VALUE_FILE}, "read commands from a file"},
};

static constexpr t_cli_option configure_options[] = {
    {"--file", 'f', {CLI_VALUE_FILE}, "merge a configuration in JSON; - is standard input"},
    {"--replace", 'r', {}, "what the first file does not name goes"},
    {"--set", 0, {CLI_VALUE_PATH, CLI_VALUE_TEXT}, "give a leaf a value"},
    {"--add", 0, {CLI_VALUE_PATH}, "make a list's entry, a leaf-list's element or an empty leaf"},
    {"--delete", 0, {CLI_VALUE_PATH}, "delete a node, which must exist, with all below"},
    {"--commit", 'c', {CLI_VALUE_COMMENT}, "commit, all or nothing"},
};

static constexpr t_cli_option enter_options[] = {
    {"--exclusive", 0, {}, "lock the candidate; needs one without changes"},
};

static constexpr t_cli_option rename_options[] = {
    {"--to", 0, {CLI_VALUE_KEY}, "the new keys", true},
};

static constexpr t_cli_option load_options[] = {
    {"--merge", 0, {CLI_VALUE_FILE}, "merge it into the candidate"},
    {"--replace", 0, {CLI_VALUE_FILE}, "what the file does not name goes"},
};

static constexpr t_cli_option commit_options[] = {
    {"--check", 0, {}, "validate only, as \"check\""},
    {"--comment", 'c', {CLI_VALUE_COMMENT}, "comment for the history"},
    {"--confirmed", 0, {CLI_VALUE_TIME}, "undo it after this time unless it is confirmed"},
    {"--persist", 0, {CLI_VALUE_ID}, "with confirmed: other sessions can confirm it by this name"},
    {"--persist-id", 0, {CLI_VALUE_ID}, "confirm the commit with this name"},
};

static constexpr t_cli_option cancel_options[] = {
    {"--persist-id", 0, {CLI_VALUE_ID}, "the commit with this name"},
};

static constexpr t_cli_option rollback_options[] = {
    {"--commit", 'c', {CLI_VALUE_COMMENT}, "commit, all or nothing"},
};

static constexpr t_cli_option show_options[] = {
    {"--config", 0, {}, "the running configuration only"},
    {"--candidate", 0, {}, "the candidate"},
    {"--state", 0, {}, "operational state only"},
    {"--watch", 0, {CLI_VALUE_SECONDS}, "show WHAT again and again, every 2 seconds", false, true},
    {"--count", 0, {CLI_VALUE_COUNT}, "with watch: end after so many"},
};

// The same in the configuration mode, where it is about the candidate.
static constexpr std::span<const t_cli_option> show_path_options = std::span(show_options).first(3);

static constexpr t_cli_option monitor_options[] = {
    {"--from", 0, {CLI_VALUE_SINCE}, "tell the stored ones since then first"},
    {"--count", 0, {CLI_VALUE_COUNT}, "end after so many"},
};

static constexpr t_cli_word node_word[] = {{CLI_VALUE_NODE, true, true}};
static constexpr t_cli_word phrase_word[] = {{CLI_VALUE_PHRASE, false, true}};
static constexpr t_cli_word config_word[] = {{CLI_VALUE_CONFIG, false, true}};
static constexpr t_cli_word setting_words[] = {{CLI_VALUE_SETTING, false, true}};
static constexpr t_cli_word number_word[] = {{CLI_VALUE_NUMBER, false, false}};
static constexpr t_cli_word optional_number_word[] = {{CLI_VALUE_NUMBER, true, false}};
static constexpr t_cli_word count_word[] = {{CLI_VALUE_COUNT, true, false}};
static constexpr t_cli_word command_word[] = {{CLI_VALUE_COMMAND, true, false}};
static constexpr t_cli_word action_words[] = {{CLI_VALUE_ACTION, false, false},
                                              {CLI_VALUE_PARAMETER, true, true}};

static constexpr t_cli_command commands[] = {
    {
        .name = "configure",
        .modes = CLI_MODE_SHELL,
        .summary = "change the candidate, and commit it on wish",
        .details = "Changes the candidate configuration. Files, --set, --add and --delete are done in their "
                   "order, all of them or none. Paths are like /policy/zone{a}/vpn{1}; quote them for the "
                   "shell.\n\n"
                   "With --commit the candidate is locked meanwhile, so it must have no other changes, and "
                   "is as it was if anything is refused. Without it the changes stay in the candidate for "
                   "later commands.",
        .options = configure_options,
        .words = {},
        .run = cli_configure,
    },
    {
        .name = "configure",
        .modes = CLI_MODE_OPERATION,
        .summary = "change the configuration",
        .details = "Goes to the configuration mode. All sessions share one candidate; exclusive keeps the "
                   "others from it until the mode is left.",
        .options = enter_options,
        .words = {},
        .run = cli_enter,
    },
    {
        .name = "set",
        .modes = CLI_MODE_SHELL | CLI_MODE_CONFIGURATION,
        .summary = "give leaves values, make entries",
        .details = "Sets a leaf in the candidate, or makes a list's entry, a leaf-list's element or an empty "
                   "leaf; what stands around it is made as needed. Behind a value the next leaf of the same "
                   "place may follow: set policy policer p rate 1000 burst 1500 exceed drop.",
        .options = {},
        .words = setting_words,
        .run = cli_set,
    },
    {
        .name = "delete",
        .modes = CLI_MODE_SHELL | CLI_MODE_CONFIGURATION,
        .summary = "delete a node with all below",
        .details = "Deletes a node of the candidate, which must exist, with all below. A list without keys "
                   "means all its entries.",
        .options = {},
        .words = config_word,
        .run = cli_delete,
    },
    {
        .name = "rename",
        .modes = CLI_MODE_SHELL | CLI_MODE_CONFIGURATION,
        .summary = "give a list's entry another key",
        .details =
            "Gives an entry of the candidate another key: rename policy zone a to b. The entry is made "
            "anew with all below, and the old one goes. What refers to it is left alone; the checks "
            "of a commit tell of it.",
        .options = rename_options,
        .words = config_word,
        .run = cli_rename,
    },
    {
        .name = "load",
        .modes = CLI_MODE_SHELL | CLI_MODE_CONFIGURATION,
        .summary = "take a configuration from a file",
        .details =
            "Takes a configuration in JSON into the candidate: load merge FILE, load replace FILE. The "
            "file \"-\" or \"terminal\" is what follows, up to a line with a single dot or the end.",
        .options = load_options,
        .words = {},
        .run = cli_load,
    },
    {
        .name = "edit",
        .modes = CLI_MODE_CONFIGURATION,
        .summary = "go to a place",
        .details = "Goes to a container or entry, which need not exist yet. Paths that do not begin with / "
                   "count from there.",
        .options = {},
        .words = config_word,
        .run = cli_edit,
    },
    {
        .name = "up",
        .modes = CLI_MODE_CONFIGURATION,
        .summary = "go up a level",
        .details = "Goes up one level, or as many as are given.",
        .options = {},
        .words = count_word,
        .run = cli_up,
    },
    {
        .name = "top",
        .modes = CLI_MODE_CONFIGURATION,
        .summary = "go to the top",
        .details = "Goes to the top of the configuration.",
        .options = {},
        .words = {},
        .run = cli_top,
    },
    {
        .name = "compare",
        .modes = CLI_EVERYWHERE,
        .summary = "show what the candidate changes",
        .details = "Shows what the candidate changes in the running configuration, a line for each node: + "
                   "created or set, - deleted. With a number: what has changed since that commit, counted "
                   "back as in the history. Nothing is printed where there is no difference.",
        .options = {},
        .words = optional_number_word,
        .run = cli_compare,
    },
    {
        .name = "check",
        .modes = CLI_EVERYWHERE,
        .summary = "validate the candidate",
        .details = "Does all the checks of a commit and changes nothing.",
        .options = {},
        .words = {},
        .run = cli_check,
    },
    {
        .name = "commit",
        .modes = CLI_EVERYWHERE,
        .summary = "make the candidate the running configuration",
        .details = "Validates the candidate, stores it and tells the daemons. Ends when all of them have "
                   "taken it.\n\n"
                   "A confirmed commit is undone after its time (minutes, or as 90s, 10m, 2h), unless "
                   "another commit confirms it before. Only the session that gave it can do that, and its "
                   "end undoes the commit at once; with persist any session can that knows the name.",
        .options = commit_options,
        .words = {},
        .run = cli_commit,
    },
    {
        .name = "cancel-commit",
        .modes = CLI_EVERYWHERE,
        .summary = "undo a confirmed commit at once",
        .details = "Undoes the commit that waits for its confirmation. Ends when the daemons have taken it.",
        .options = cancel_options,
        .words = {},
        .run = cli_cancel_commit,
    },
    {
        .name = "discard",
        .modes = CLI_EVERYWHERE,
        .summary = "drop the candidate's changes",
        .details = "Makes the candidate as running, whoever has changed it.",
        .options = {},
        .words = {},
        .run = cli_discard,
    },
    {
        .name = "rollback",
        .modes = CLI_EVERYWHERE,
        .summary = "take the candidate back to an earlier commit",
        .details = "Gives the candidate the configuration of a commit: 0 is running, 1 the one before; "
                   "\"history\" lists them. With --commit it is committed, all or nothing.",
        .options = rollback_options,
        .words = number_word,
        .run = cli_rollback,
    },
    {
        .name = "history",
        .modes = CLI_EVERYWHERE,
        .summary = "list the commits",
        .details = "Lists the stored commits, newest first, with the number for rollback and compare.",
        .options = {},
        .words = {},
        .run = cli_history,
    },
    {
        .name = "show",
        .modes = CLI_MODE_SHELL | CLI_MODE_OPERATION,
        .summary = "show configuration, state and what packets did",
        .details = "Shows what stands at a path and below, or everything: the running configuration and the "
                   "state as the daemons give it now. A list without keys means all its entries.\n\n"
                   "Other words show tables and the policy daemon's dumps. With watch a table comes again "
                   "and again until Ctrl-C, with rates per second beside its counts; at a terminal it "
                   "stays in its place.",
        .options = show_options,
        .words = node_word,
        .run = cli_show,
        .p_phrases = &g_cli_show_phrases,
    },
    {
        .name = "show",
        .modes = CLI_MODE_CONFIGURATION,
        .summary = "show the candidate",
        .details = "Shows what stands in the candidate at a path and below, or all below this place. A list "
                   "without keys means all its entries.",
        .options = show_path_options,
        .words = node_word,
        .run = cli_show,
    },
    {
        .name = "clear",
        .modes = CLI_MODE_SHELL | CLI_MODE_OPERATION,
        .summary = "zero counters",
        .details = "Zeroes counters and policers of the loaded programs: of all of a kind, or of what is "
                   "named.",
        .options = {},
        .words = phrase_word,
        .run = cli_operate,
        .p_phrases = &g_cli_clear_phrases,
    },
    {
        .name = "debug",
        .modes = CLI_MODE_SHELL | CLI_MODE_OPERATION,
        .summary = "log more of what the policy daemon does",
        .details = "Makes the policy daemon log what it does. \"show debugs\" tells what is on, \"undebug "
                   "all\" ends it.",
        .options = {},
        .words = phrase_word,
        .run = cli_operate,
        .p_phrases = &g_cli_debug_phrases,
    },
    {
        .name = "undebug",
        .modes = CLI_MODE_SHELL | CLI_MODE_OPERATION,
        .summary = "end all debugging",
        .details = "Ends what \"debug\" has begun.",
        .options = {},
        .words = phrase_word,
        .run = cli_operate,
        .p_phrases = &g_cli_undebug_phrases,
    },
    {
        .name = "no",
        .modes = CLI_MODE_SHELL | CLI_MODE_OPERATION,
        .summary = "as undebug",
        .details = "\"no debug\" is \"undebug all\".",
        .options = {},
        .words = phrase_word,
        .run = cli_operate,
        .p_phrases = &g_cli_no_phrases,
    },
    {
        .name = "describe",
        .modes = CLI_EVERYWHERE,
        .summary = "tell what the model says about a node",
        .details = "Tells what a node of the model means and what stands below it; without a path, the top "
                   "level.",
        .options = {},
        .words = node_word,
        .run = cli_describe,
    },
    {
        .name = "request",
        .modes = CLI_EVERYWHERE,
        .summary = "run an action",
        .details = "Runs an action of a daemon and prints its output as it comes. Parameters are given by "
                   "name; \"describe /ACTION\" lists them. Words without = go to the action as they are.",
        .options = {},
        .words = action_words,
        .run = cli_request,
    },
    {
        .name = "monitor",
        .modes = CLI_EVERYWHERE,
        .summary = "show notifications as they come",
        .details =
            "Shows the daemons' notifications as they come, until Ctrl-C. A time to begin from is like "
            "2024-01-15T10:00:00Z, or how long ago: 90s, 10m, 2h, 1d. As JSON each is one line.",
        .options = monitor_options,
        .words = {},
        .run = cli_monitor,
    },
    {
        .name = "status",
        .modes = CLI_EVERYWHERE,
        .summary = "show the management daemon itself",
        .details =
            "Shows the start phase (2 is running), sessions, the candidate, a commit that waits for its "
            "confirmation, the last commit, the connected daemons and alarms.",
        .options = {},
        .words = {},
        .run = cli_status,
    },
    {
        .name = "help",
        .modes = CLI_IN_SESSION,
        .summary = "tell what there is",
        .details = "Lists the commands of this mode, or tells about one of them. The key ? tells what can "
                   "follow in a line, Tab completes it.",
        .options = {},
        .words = command_word,
        .run = cli_help_show,
    },
    {
        .name = "exit",
        .modes = CLI_IN_SESSION,
        .summary = "go up a level, leave the mode, or end",
        .details = "Goes one level up; at the top it leaves the configuration mode, and from the operation "
                   "mode the program.",
        .options = {},
        .words = {},
        .run = cli_exit,
    },
    {
        .name = "quit",
        .modes = CLI_IN_SESSION,
        .summary = "end the program",
        .details = "Ends the session from any mode. Ctrl-D does as well.",
        .options = {},
        .words = {},
        .run = cli_quit,
    },
};

const std::span<const t_cli_command> g_cli_commands = commands;
const std::span<const t_cli_option> g_cli_common_options = common_options;
const std::span<const t_cli_option> g_cli_program_options = program_options;

// Phrases: words behind "show", "clear" and "debug" that are no path, as "policy counters data".
//
// The table (phrase_table.cc) has a row for each; help, completion, the man page and running follow it. Of
// phrases that begin alike the longest counts. Behind its words may stand a name of what it is about, where
// the row says where names come from.
#pragma once

#include "cli/command.h"

struct t_cli_view;

struct t_cli_phrase {
    const char *words;  // parted by single blanks
    const char *help;
    std::span<const char *const> names;  // lists whose keys a name behind can be; empty: none may stand there
    const t_cli_view *p_view;            // what is shown; null: actions are run, one after the other
    const char *actions[3];              // null: no more
};

extern const std::span<const t_cli_phrase> g_cli_show_phrases;
extern const std::span<const t_cli_phrase> g_cli_clear_phrases;
extern const std::span<const t_cli_phrase> g_cli_debug_phrases;
extern const std::span<const t_cli_phrase> g_cli_undebug_phrases;
extern const std::span<const t_cli_phrase> g_cli_no_phrases;

// Those that a command takes; most take none.
std::span<const t_cli_phrase> cli_phrases_of(const t_cli_command &command);

// "policy counters [NAME]"
std::string cli_phrase_form(const t_cli_phrase &phrase);

// The phrase that words are, with the name behind it. Null where they are none.
const t_cli_phrase *cli_phrase_find(std::span<const t_cli_phrase> phrases, std::span<const std::string> words,
                                    std::string *p_name);

// Why words are no phrase, for people.
std::string cli_phrase_fault(std::span<const t_cli_phrase> phrases, std::span<const std::string> words);

// What can follow words: the next word of each phrase, once, with its help.
std::vector<std::pair<std::string, std::string>> cli_phrase_next(std::span<const t_cli_phrase> phrases,
                                                                 std::span<const std::string> words);

// Shows the phrase's view, or runs its actions.
e_cli_status cli_phrase_run(t_cli *p_cli, const t_cli_arguments &arguments, const t_cli_phrase &phrase,
                            const std::string &name);

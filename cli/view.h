// Views: rows of the model as a table, "show policy counters".
//
// A view says where its rows come from and what stands in which column; phrase_table.cc has one for each. The
// rows of a source are what stands at the end of a chain of lists; each carries the names of the entries
// around it. A view may make other rows of them, totals for example. What the daemon does not say (the
// counters of a program that is not loaded) is null in JSON and "-" in a table.
//
// Tables are at most CLI_PAGE_WIDTH columns wide: numbers are shortened first (12.3M), then the longest names
// lose their middle. JSON has all in full, as {"policy-counters": [...]}, with numbers as numbers.
#pragma once

#include "cli/command.h"

// A list on the way to a row.
struct t_cli_level {
    const char *list;    // its name; of the first one the source's path tells
    const char *key;     // the leaf that names its entries; null for none
    const char *member;  // what the name is called in the row
};

struct t_cli_source {
    const char *kind;  // the row's member "kind"; null for none
    const char *path;  // of the first list, or of a container, which gives one row {"data": ...}
    const char *from;  // "state" or "running"; "status": the daemon's own status instead of a path
    std::span<const t_cli_level> levels;  // empty for a container
};

enum e_cli_column {
    CLI_COLUMN_TEXT,
    CLI_COLUMN_COUNT,     // a whole number
    CLI_COLUMN_RATE,      // only while watching: of another column, per second
    CLI_COLUMN_BIT_RATE,  // the same of bytes, in bits
    CLI_COLUMN_PERCENT,
};

struct t_cli_column {
    const char *title;
    const char *member;  // of the row
    e_cli_column kind;
    const char *of = nullptr;  // rates: the member that is watched
};

struct t_cli_view {
    const char *title;  // the member of the JSON result
    std::span<const t_cli_source> sources;
    std::span<const t_cli_column> columns;
    t_cli_json (*shape)(const t_cli_json &rows);  // makes the view's rows of the sources'; null: they are
    bool marks_missing;                           // a row without its counts is "(not loaded)"
};

// ---- Rows ----

// Asks for the rows, in the sources' order: with a name only of entries that are named so. The answer's
// result is an array; it is a refusal if no source has the name.
t_cli_answer cli_view_ask(t_cli *p_cli, const t_cli_view &view, const std::string &name);

// Shapes.
t_cli_json cli_rows_of_programs(const t_cli_json &rows);      // one for each program, with what belongs to it
t_cli_json cli_rows_of_access_lists(const t_cli_json &rows);  // the same where all are access lists
t_cli_json cli_rows_of_summary(const t_cli_json &rows);       // of these one for each kind
t_cli_json cli_rows_of_memory(const t_cli_json &rows);        // use and size
t_cli_json cli_rows_of_debugs(const t_cli_json &rows);        // daemon and what is on
t_cli_json cli_rows_of_daemons(const t_cli_json &status);     // from the daemon's status
t_cli_json cli_rows_of_zones(const t_cli_json &rows);         // one for each zone with its VPNs

// ---- Tables ----

// Appends the table; with the columns of rates where they are wanted.
void cli_view_table(const t_cli_view &view, const t_cli_json &rows, bool has_rates, std::string *p_text);

// A number in few characters: 1234 is "1.23k".
std::string cli_short_number(double value);

// ---- Live views ----

// Gives the rows their rates: of what they counted before elapsed_us. A count that went back (a clear, a new
// program) has the rate 0; what was not there before, and all where elapsed_us is 0, has none.
void cli_view_rates(const t_cli_view &view, const t_cli_json &before, int64_t elapsed_us, t_cli_json *p_rows);

struct t_cli_watch {
    int64_t interval_ms;
    size_t count;  // ends after so many tables
};

// Shows the view once, or again and again until Ctrl-C or the count; p_watch null: once.
e_cli_status cli_view_show(t_cli *p_cli, const t_cli_view &view, const std::string &name,
                           const t_cli_watch *p_watch);

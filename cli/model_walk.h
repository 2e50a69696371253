// Words on their way through the data model: "policy zone guest vpn 10" becomes /policy/zone{guest}/vpn{10}.
//
// A walk begins at a place and takes a word at a time; the daemon says what stands where, and what it said is
// kept for the connection's life. A word is a child's name, then as many keys as the list has, then children
// again, or a leaf's value. Where a name is expected the framework's form does as well: /policy/zone{guest}
// from the top, zone{guest}/vpn from here.
#pragma once

#include "cli/command.h"
#include "cli/path_words.h"

enum e_cli_walk {
    CLI_WALK_NODE,   // at the top, a container or an entry: a child's name may follow
    CLI_WALK_KEYS,   // at a list, or between its keys: a key may follow
    CLI_WALK_VALUE,  // at a leaf or leaf-list: a value may follow
};

struct t_cli_walk {
    t_cli *p_cli;
    std::vector<t_cli_step> steps;  // the last one's keys may be incomplete
    e_cli_walk state = CLI_WALK_NODE;
    const t_cli_json *p_node = nullptr;  // what the daemon says about the place
    std::string reason;                  // of the failure that ended the walk
    e_cli_status status = CLI_USAGE;     // and what kind it was
};

// Begins at a path in the framework's form ("" is the top). False with reason and status.
[[nodiscard]] bool cli_walk_start(t_cli_walk *p_walk, t_cli *p_cli, const std::string &path);

// Takes a word that is no value. False with reason and status.
[[nodiscard]] bool cli_walk_word(t_cli_walk *p_walk, const std::string &word);

// Back to where the leaf at hand stands, after its value.
[[nodiscard]] bool cli_walk_back(t_cli_walk *p_walk);

std::string cli_walk_path(const t_cli_walk &walk);

// Kind of the place: "container", "list", "leaf"... ; "top" at the top.
std::string cli_walk_kind(const t_cli_walk &walk);

// Whether the leaf at hand has no values.
bool cli_walk_is_empty_leaf(const t_cli_walk &walk);

// How many keys the list at hand has.
size_t cli_walk_key_count(const t_cli_walk &walk);

// What the daemon says about a node of the model, named without keys. Null with the reason.
const t_cli_json *cli_model_node(t_cli *p_cli, const std::string &schema_path, std::string *p_reason,
                                 e_cli_status *p_status);

// A member of a description that is a text, or "".
std::string cli_model_text(const t_cli_json &node, const char *name);
bool cli_model_flag(const t_cli_json &node, const char *name);
const t_cli_json *cli_model_child(const t_cli_json &node, std::string_view name);

// Commands that change single places of the candidate.

#include "cli/commands.h"
#include "cli/edit_text.h"
#include "cli/model_walk.h"

static e_cli_status walk_failed(const t_cli_walk &walk)
{
    return cli_fail(*walk.p_cli, walk.status, walk.reason);
}

static e_cli_status edits_call(t_cli *p_cli, const std::string &edits)
{
    e_cli_status status = cli_call(p_cli, cli_head("edit"), '[' + edits + ']');
    return status == CLI_DONE ? cli_print_done(p_cli) : status;
}

// ---- set ----

static void edit_append(const std::string &edit, std::string *p_edits)
{
    *p_edits += (p_edits->empty() ? "" : ",") + edit;
}

// A leaf's value or a leaf-list's element. False with the reason in the walk.
static bool value_take(t_cli_walk *p_walk, const std::string &value, std::string *p_edits)
{
    if (cli_walk_kind(*p_walk) == "leaf-list") {
        p_walk->steps.back().keys = {value};
        edit_append(cli_edit_text("merge", cli_walk_path(*p_walk), ""), p_edits);
    } else {
        edit_append(cli_edit_text("merge", cli_walk_path(*p_walk), cli_json_text(value)), p_edits);
    }
    return cli_walk_back(p_walk);
}

static bool setting_take(t_cli_walk *p_walk, const std::string &word, bool *p_is_set, std::string *p_edits)
{
    *p_is_set = p_walk->state == CLI_WALK_VALUE;
    if (*p_is_set)
        return value_take(p_walk, word, p_edits);
    if (!cli_walk_word(p_walk, word))
        return false;
    *p_is_set = cli_walk_is_empty_leaf(*p_walk);
    if (!*p_is_set)
        return true;
    edit_append(cli_edit_text("merge", cli_walk_path(*p_walk), ""), p_edits);
    return cli_walk_back(p_walk);
}

// What the words ended with, where that was no value: an entry to be made, or a fault.
static e_cli_status setting_end(const t_cli_walk &walk, std::string *p_edits)
{
    std::string path = cli_walk_path(walk);
    if (walk.state == CLI_WALK_KEYS)
        return cli_fail(*walk.p_cli, CLI_USAGE, path + ": a key is missing");
    if (walk.state == CLI_WALK_VALUE)
        return cli_fail(*walk.p_cli, CLI_USAGE, path + ": the value is missing");
    std::string kind = cli_walk_kind(walk);
    if (kind != "list" && kind != "leaf-list")
        return cli_fail(*walk.p_cli, CLI_USAGE, path + ": what is to be set here?");
    edit_append(cli_edit_text("merge", path, ""), p_edits);
    return CLI_DONE;
}

e_cli_status cli_set(t_cli *p_cli, const t_cli_arguments &arguments)
{
    t_cli_walk walk = {};
    if (!cli_walk_start(&walk, p_cli, p_cli->position))
        return walk_failed(walk);
    std::string edits;
    bool is_set = false;
    for (const std::string &word : arguments.words) {
        if (!setting_take(&walk, word, &is_set, &edits))
            return walk_failed(walk);
    }
    e_cli_status status = is_set ? CLI_DONE : setting_end(walk, &edits);
    return status == CLI_DONE ? edits_call(p_cli, edits) : status;
}

// ---- delete ----

// Where the words lead; a leaf-list may have an element behind it.
static e_cli_status node_find(t_cli_walk *p_walk, t_cli *p_cli, const std::vector<std::string> &words)
{
    if (!cli_walk_start(p_walk, p_cli, p_cli->position))
        return walk_failed(*p_walk);
    for (const std::string &word : words) {
        bool is_element = p_walk->state == CLI_WALK_VALUE && cli_walk_kind(*p_walk) == "leaf-list";
        if (is_element) {
            p_walk->steps.back().keys = {word};
            p_walk->state = CLI_WALK_NODE;
        } else if (!cli_walk_word(p_walk, word)) {
            return walk_failed(*p_walk);
        }
    }
    bool is_half = p_walk->state == CLI_WALK_KEYS && !p_walk->steps.back().keys.empty();
    return is_half ? cli_fail(*p_cli, CLI_USAGE, cli_walk_path(*p_walk) + ": a key is missing") : CLI_DONE;
}

e_cli_status cli_delete(t_cli *p_cli, const t_cli_arguments &arguments)
{
    t_cli_walk walk = {};
    e_cli_status status = node_find(&walk, p_cli, arguments.words);
    return status == CLI_DONE ? edits_call(p_cli, cli_edit_text("delete", cli_walk_path(walk), "")) : status;
}

// ---- rename ----

// The entry at a path of the candidate, without its keys.
static e_cli_status entry_read(const t_cli_walk &walk, t_cli_json *p_entry)
{
    t_cli_answer answer;
    t_cli_json head = {{"op", "show"}, {"path", cli_walk_path(walk)}, {"from", "candidate"}};
    e_cli_status status = cli_call(walk.p_cli, head, {}, &answer);
    if (status != CLI_DONE)
        return status;
    bool is_entry = answer.result.size() == 1 && answer.result.front().is_array() &&
                    answer.result.front().size() == 1 && answer.result.front()[0].is_object();
    if (!is_entry)
        return cli_fail(*walk.p_cli, CLI_REFUSED,
                        cli_walk_path(walk) + ": the daemon's answer makes no sense");
    *p_entry = answer.result.front()[0];
    for (const t_cli_json &key : walk.p_node->value("keys", t_cli_json::array()))
        p_entry->erase(key.get<std::string>());
    return CLI_DONE;
}

e_cli_status cli_rename(t_cli *p_cli, const t_cli_arguments &arguments)
{
    if (!cli_option_is_given(arguments, "--to"))
        return cli_fail(*p_cli, CLI_USAGE, "rename PATH to KEY: \"to\" is missing");
    const std::vector<std::string> &keys = arguments.options[0].values;
    t_cli_walk walk = {};
    e_cli_status status = node_find(&walk, p_cli, arguments.words);
    if (status != CLI_DONE)
        return status;
    std::string path = cli_walk_path(walk);
    if (cli_walk_kind(walk) != "list" || walk.state != CLI_WALK_NODE)
        return cli_fail(*p_cli, CLI_USAGE, path + ": this is no entry of a list");
    if (keys.size() != cli_walk_key_count(walk))
        return cli_fail(*p_cli, CLI_USAGE,
                        path + ": the list has " + std::to_string(cli_walk_key_count(walk)) + " keys");
    t_cli_json entry;
    status = entry_read(walk, &entry);
    if (status != CLI_DONE)
        return status;
    walk.steps.back().keys = keys;
    std::string value = entry.dump(-1, ' ', false, t_cli_json::error_handler_t::replace);
    return edits_call(p_cli, cli_edit_text("create", cli_walk_path(walk), value) + ',' +
                                 cli_edit_text("delete", path, ""));
}

// ---- load ----

e_cli_status cli_load(t_cli *p_cli, const t_cli_arguments &arguments)
{
    if (arguments.options.size() != 1)
        return cli_fail(*p_cli, CLI_USAGE, "load merge FILE, or load replace FILE");
    const t_cli_given &given = arguments.options[0];
    bool follows = p_cli->mode != CLI_MODE_SHELL && (given.values[0] == "terminal" || given.values[0] == "-");
    std::string text;
    e_cli_status status =
        follows ? cli_lines_read(p_cli, &text)
                : cli_file_read(*p_cli, given.values[0] == "terminal" ? "-" : given.values[0], &text);
    if (status != CLI_DONE)
        return status;
    status = cli_call(p_cli, {{"op", "load"}, {"mode", given.p_option->name + 2}}, text);
    return status == CLI_DONE ? cli_print_done(p_cli) : status;
}

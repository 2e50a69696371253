#include "cli/model_walk.h"

#include "cli/commands.h"

// ---- What the daemon says ----

const t_cli_json *cli_model_node(t_cli *p_cli, const std::string &schema_path, std::string *p_reason,
                                 e_cli_status *p_status)
{
    auto known = p_cli->model.find(schema_path);
    if (known != p_cli->model.end())
        return &known->second;
    t_cli_answer answer =
        cli_ask(p_cli, {{"op", "schema"}, {"path", schema_path.empty() ? "/" : schema_path}});
    if (answer.outcome != CLI_ANSWER_DONE || !answer.result.is_object()) {
        *p_reason = (answer.path.empty() ? "" : answer.path + ": ") + answer.reason;
        *p_status = cli_answer_status(answer);
        return nullptr;
    }
    return &p_cli->model.emplace(schema_path, std::move(answer.result)).first->second;
}

std::string cli_model_text(const t_cli_json &node, const char *name)
{
    auto member = node.find(name);
    return member != node.end() && member->is_string() ? member->get<std::string>() : "";
}

bool cli_model_flag(const t_cli_json &node, const char *name)
{
    auto member = node.find(name);
    return member != node.end() && *member == true;
}

const t_cli_json *cli_model_child(const t_cli_json &node, std::string_view name)
{
    auto children = node.find("children");
    if (children == node.end())
        return nullptr;
    for (const t_cli_json &child : *children) {
        if (cli_model_text(child, "name") == name)
            return &child;
    }
    return nullptr;
}

// ---- The walk ----

static bool walk_fail(t_cli_walk *p_walk, std::string reason)
{
    p_walk->reason = std::move(reason);
    p_walk->status = CLI_USAGE;
    return false;
}

std::string cli_walk_path(const t_cli_walk &walk)
{
    std::string path = cli_path_text(walk.steps);
    return path.empty() ? "/" : path;
}

std::string cli_walk_kind(const t_cli_walk &walk)
{
    return walk.steps.empty() ? "top" : cli_model_text(*walk.p_node, "kind");
}

bool cli_walk_is_empty_leaf(const t_cli_walk &walk)
{
    return cli_walk_kind(walk) == "leaf" && cli_model_text(*walk.p_node, "type") == "empty";
}

size_t cli_walk_key_count(const t_cli_walk &walk)
{
    auto keys = walk.p_node->find("keys");
    return keys != walk.p_node->end() && keys->is_array() ? keys->size() : 0;
}

// Looks at the place where the steps lead.
static bool walk_look(t_cli_walk *p_walk)
{
    std::string schema = cli_path_schema(p_walk->steps);
    p_walk->p_node = cli_model_node(p_walk->p_cli, schema, &p_walk->reason, &p_walk->status);
    if (p_walk->p_node == nullptr)
        return false;
    std::string kind = cli_walk_kind(*p_walk);
    size_t given = p_walk->steps.empty() ? 0 : p_walk->steps.back().keys.size();
    if (kind == "list")
        p_walk->state = given < cli_walk_key_count(*p_walk) ? CLI_WALK_KEYS : CLI_WALK_NODE;
    else if (kind == "leaf" || (kind == "leaf-list" && given == 0))
        p_walk->state = CLI_WALK_VALUE;
    else
        p_walk->state = CLI_WALK_NODE;
    return true;
}

bool cli_walk_start(t_cli_walk *p_walk, t_cli *p_cli, const std::string &path)
{
    p_walk->p_cli = p_cli;
    if (!cli_path_split(path, &p_walk->steps))
        return walk_fail(p_walk, path + ": this is no path");
    return walk_look(p_walk);
}

// The framework's form: from the top, or from here.
static bool path_take(t_cli_walk *p_walk, const std::string &word)
{
    std::vector<t_cli_step> steps;
    if (!cli_path_split(word, &steps))
        return walk_fail(p_walk, word + ": this is no path");
    if (word.starts_with('/'))
        p_walk->steps.clear();
    p_walk->steps.insert(p_walk->steps.end(), steps.begin(), steps.end());
    return walk_look(p_walk);
}

bool cli_walk_word(t_cli_walk *p_walk, const std::string &word)
{
    if (p_walk->state == CLI_WALK_KEYS) {
        p_walk->steps.back().keys.push_back(word);
        return walk_look(p_walk);
    }
    if (p_walk->state == CLI_WALK_VALUE)
        return walk_fail(p_walk, cli_walk_path(*p_walk) + ": nothing can follow but a value, what is \"" +
                                     word + "\"?");
    if (word.find_first_of("/{") != std::string::npos)
        return path_take(p_walk, word);
    if (cli_model_child(*p_walk->p_node, word) == nullptr)
        return walk_fail(p_walk, cli_walk_path(*p_walk) + ": there is no \"" + word + "\" here");
    p_walk->steps.push_back({.name = word, .keys = {}});
    return walk_look(p_walk);
}

bool cli_walk_back(t_cli_walk *p_walk)
{
    p_walk->steps.pop_back();
    return walk_look(p_walk);
}

// Commands that show something, and requests of actions.

#include "cli/commands.h"
#include "cli/text_layout.h"
#include "cli/text_model.h"

#include <algorithm>

// Prints a result in the form that was asked for.
static e_cli_status result_print(const t_cli &cli, const t_cli_json &result)
{
    if (cli.json)
        return cli_print_json(result);
    std::string text;
    cli_text_object(result, &text);
    return cli_print(text);
}

static e_cli_status call_and_print(t_cli *p_cli, const t_cli_json &head)
{
    t_cli_answer answer;
    e_cli_status status = cli_call(p_cli, head, {}, &answer);
    return status == CLI_DONE ? result_print(*p_cli, answer.result) : status;
}

e_cli_status cli_show(t_cli *p_cli, const t_cli_arguments &arguments)
{
    static constexpr std::pair<const char *, const char *> sources[] = {
        {"--config", "running"}, {"--candidate", "candidate"}, {"--state", "state"}};
    const char *p_from = "all";
    for (auto [option, from] : sources) {
        if (cli_option_is_given(arguments, option))
            p_from = from;
    }
    return call_and_print(p_cli, {{"op", "show"}, {"path", arguments.words[0]}, {"from", p_from}});
}

e_cli_status cli_status(t_cli *p_cli, const t_cli_arguments &)
{
    return call_and_print(p_cli, cli_head("status"));
}

// ---- The model ----

static std::string member_text(const t_cli_json &node, const char *name)
{
    auto member = node.find(name);
    return member != node.end() && member->is_string() ? member->get<std::string>() : "";
}

// "leaf, uint32 1..max, mandatory"
static std::string node_kind(const t_cli_json &node)
{
    std::string text = member_text(node, "kind");
    for (const char *p_name : {"type", "range", "units"}) {
        std::string word = member_text(node, p_name);
        text += word.empty() ? "" : (std::string_view(p_name) == "type" ? ", " : " ") + word;
    }
    for (const char *p_name : {"key", "mandatory"}) {
        if (node.value(p_name, t_cli_json()) == true)
            text += std::string(", ") + p_name;
    }
    return node.value("state", t_cli_json()) == true ? text + ", state" : text;
}

static std::string values_text(const t_cli_json &node)
{
    static constexpr size_t max_values = 32;
    t_cli_json values = node.value("values", t_cli_json::array());
    std::string text;
    for (size_t i = 0; i < std::min(values.size(), max_values); i++)
        text += (i == 0 ? " One of: " : ", ") + values[i].get<std::string>();
    return text + (values.size() > max_values ? "..." : text.empty() ? "" : ".");
}

e_cli_status cli_describe(t_cli *p_cli, const t_cli_arguments &arguments)
{
    t_cli_answer answer;
    std::string path = arguments.words.empty() ? "/" : arguments.words[0];
    e_cli_status status = cli_call(p_cli, {{"op", "schema"}, {"path", path}}, {}, &answer);
    if (status != CLI_DONE || p_cli->json)
        return status == CLI_DONE ? cli_print_json(answer.result) : status;
    const t_cli_json &node = answer.result;
    std::string text = member_text(node, "path") + '\n';
    if (node.contains("kind"))
        cli_text_wrap('(' + node_kind(node) + ") " + member_text(node, "description") + values_text(node), 2,
                      &text);
    t_cli_entries entries;
    for (const t_cli_json &child : node.value("children", t_cli_json::array())) {
        std::string explanation = '(' + node_kind(child) + ") " + member_text(child, "description");
        entries.emplace_back(member_text(child, "name"), explanation + values_text(child));
    }
    text += entries.empty() ? "" : "\n";
    cli_text_entries(entries, &text);
    return cli_print(text);
}

// ---- Actions ----

// "name=value" is a parameter; what has no name before an equals sign is a word for the action.
static t_cli_json action_head(const t_cli_arguments &arguments)
{
    t_cli_json input = t_cli_json::object();
    t_cli_json words = t_cli_json::array();
    for (size_t i = 1; i < arguments.words.size(); i++) {
        const std::string &word = arguments.words[i];
        size_t equals = word.find('=');
        if (equals != std::string::npos && equals > 0)
            input[word.substr(0, equals)] = word.substr(equals + 1);
        else
            words.push_back(word);
    }
    return {{"op", "action"}, {"action", arguments.words[0]}, {"input", input}, {"words", words}};
}

e_cli_status cli_request(t_cli *p_cli, const t_cli_arguments &arguments)
{
    std::string kept;
    e_cli_status printed = CLI_DONE;
    t_cli_listener listener;
    listener.output = [&](std::string_view text) {
        if (p_cli->json)
            kept += text;
        else if (printed == CLI_DONE)
            printed = cli_print(text);
    };
    t_cli_answer answer;
    e_cli_status status = cli_call(p_cli, action_head(arguments), {}, &answer, listener);
    if (status != CLI_DONE || printed != CLI_DONE)
        return status != CLI_DONE ? status : printed;
    if (p_cli->json)
        return cli_print_json({{"output", kept}, {"values", answer.result}});
    return result_print(*p_cli, answer.result);
}

// Commands that show something, and requests of actions.

#include "cli/commands.h"
#include "cli/model_walk.h"
#include "cli/phrase.h"
#include "cli/text_escape.h"
#include "cli/text_layout.h"
#include "cli/text_model.h"
#include "cli/text_node.h"
#include "cli/text_set.h"

#include <algorithm>
#include <cstring>
#include <ctime>

// Prints a result in the form that was asked for.
static e_cli_status result_print(t_cli *p_cli, const t_cli_json &result)
{
    if (p_cli->form == CLI_FORM_JSON)
        return cli_print_json(p_cli, result);
    std::string text;
    cli_text_object(result, &text);
    return cli_print(p_cli, text);
}

static e_cli_status call_and_print(t_cli *p_cli, const t_cli_json &head)
{
    t_cli_answer answer;
    e_cli_status status = cli_call(p_cli, head, {}, &answer);
    return status == CLI_DONE ? result_print(p_cli, answer.result) : status;
}

// ---- Configuration and state ----

// The path that words lead to. One that stands alone in the framework's form needs no look at the model.
static e_cli_status path_find(t_cli *p_cli, const std::vector<std::string> &words, std::string *p_path)
{
    if (words.size() == 1 && words[0].starts_with('/')) {
        *p_path = words[0];
        return CLI_DONE;
    }
    *p_path = p_cli->position.empty() ? "/" : p_cli->position;
    if (words.empty())
        return CLI_DONE;
    t_cli_walk walk = {};
    bool found = cli_walk_start(&walk, p_cli, p_cli->position);
    for (const std::string &word : words)
        found = found && cli_walk_word(&walk, word);
    if (!found)
        return cli_fail(*p_cli, walk.status, walk.reason);
    *p_path = cli_walk_path(walk);
    return CLI_DONE;
}

// The source that an option names; null for none.
static const char *given_source(const t_cli_arguments &arguments)
{
    static constexpr std::pair<const char *, const char *> sources[] = {
        {"--config", "running"}, {"--candidate", "candidate"}, {"--state", "state"}};
    for (auto [option, from] : sources) {
        if (cli_option_is_given(arguments, option))
            return from;
    }
    return nullptr;
}

static const char *show_source(const t_cli &cli, const t_cli_arguments &arguments)
{
    if (const char *p_given = given_source(arguments); p_given != nullptr)
        return p_given;
    if (cli.mode == CLI_MODE_CONFIGURATION)
        return "candidate";
    return cli.form == CLI_FORM_SET ? "running" : "all";
}

// Whether a line of a comparison ("+ /policy/zone{a}") is about a path or what lies below.
static bool line_is_below(const std::string &line, const std::string &path)
{
    if (path == "/" || line.size() < 2)
        return true;
    std::string_view rest = std::string_view(line).substr(2);
    return rest.starts_with(path) &&
           (rest.size() == path.size() || strchr("/{ ", rest[path.size()]) != nullptr);
}

static e_cli_status compare_print(t_cli *p_cli, const std::string &path)
{
    t_cli_answer answer;
    e_cli_status status = cli_call(p_cli, cli_head("compare"), {}, &answer);
    if (status != CLI_DONE)
        return status;
    std::string text;
    for (const t_cli_json &change : answer.result.value("changes", t_cli_json::array())) {
        std::string line = change.get<std::string>();
        if (line_is_below(line, path))
            text += cli_text_printable(line, false) + '\n';
    }
    return cli_print(p_cli, text);
}

// Whether words are meant for a phrase: they begin one, and nothing of the model.
static bool is_phrase(t_cli *p_cli, std::span<const t_cli_phrase> phrases,
                      const std::vector<std::string> &words)
{
    auto first = cli_phrase_next(phrases, {});
    bool begins = !words.empty() &&
                  std::ranges::any_of(first, [&](const auto &next) { return next.first == words[0]; });
    std::string reason;
    e_cli_status status;
    const t_cli_json *p_top = begins ? cli_model_node(p_cli, "", &reason, &status) : nullptr;
    return p_top != nullptr && cli_model_child(*p_top, words[0]) == nullptr;
}

e_cli_status cli_show(t_cli *p_cli, const t_cli_arguments &arguments)
{
    std::span<const t_cli_phrase> phrases = cli_phrases_of(*arguments.p_command);
    std::string name;
    std::string path;
    bool is_path =
        given_source(arguments) != nullptr || p_cli->form == CLI_FORM_SET || p_cli->form == CLI_FORM_COMPARE;
    const t_cli_phrase *p_phrase = is_path ? nullptr : cli_phrase_find(phrases, arguments.words, &name);
    if (p_phrase != nullptr)
        return cli_phrase_run(p_cli, arguments, *p_phrase, name);
    if (cli_option_is_given(arguments, "--watch") || cli_option_is_given(arguments, "--count"))
        return cli_fail(*p_cli, CLI_USAGE, "watch is for tables, as \"show policy counters\"");
    if (!is_path && is_phrase(p_cli, phrases, arguments.words))
        return cli_fail(*p_cli, CLI_USAGE, cli_phrase_fault(phrases, arguments.words));
    e_cli_status status = path_find(p_cli, arguments.words, &path);
    if (status != CLI_DONE)
        return status;
    if (p_cli->form == CLI_FORM_COMPARE)
        return compare_print(p_cli, path);
    t_cli_json head = {{"op", "show"}, {"path", path}, {"from", show_source(*p_cli, arguments)}};
    if (p_cli->form != CLI_FORM_SET)
        return call_and_print(p_cli, head);
    t_cli_answer answer;
    std::string text;
    status = cli_call(p_cli, head, {}, &answer);
    if (status == CLI_DONE)
        status = cli_text_set(p_cli, path, answer.result, &text);
    return status == CLI_DONE ? cli_print(p_cli, text) : status;
}

e_cli_status cli_status(t_cli *p_cli, const t_cli_arguments &)
{
    return call_and_print(p_cli, cli_head("status"));
}

// ---- The model ----

e_cli_status cli_describe(t_cli *p_cli, const t_cli_arguments &arguments)
{
    t_cli_answer answer;
    std::string path;
    e_cli_status status = path_find(p_cli, arguments.words, &path);
    if (status == CLI_DONE)
        status = cli_call(p_cli, {{"op", "schema"}, {"path", path}}, {}, &answer);
    if (status != CLI_DONE || p_cli->form == CLI_FORM_JSON)
        return status == CLI_DONE ? cli_print_json(p_cli, answer.result) : status;
    const t_cli_json &node = answer.result;
    std::string text = cli_model_text(node, "path") + '\n';
    if (node.contains("kind"))
        cli_text_wrap('(' + cli_node_kind(node) + ") " + cli_model_text(node, "description") +
                          cli_node_values(node),
                      2, &text);
    t_cli_entries entries;
    for (const t_cli_json &child : node.value("children", t_cli_json::array())) {
        std::string explanation = '(' + cli_node_kind(child) + ") " + cli_model_text(child, "description");
        entries.emplace_back(cli_model_text(child, "name"), explanation + cli_node_values(child));
    }
    text += entries.empty() ? "" : "\n";
    cli_text_entries(entries, &text);
    return cli_print(p_cli, text);
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

e_cli_status cli_action_run(t_cli *p_cli, const t_cli_json &head, std::string *p_kept, t_cli_answer *p_answer)
{
    e_cli_status printed = CLI_DONE;
    t_cli_listener listener;
    listener.output = [&](std::string_view text) {
        if (p_cli->form == CLI_FORM_JSON)
            *p_kept += text;
        else if (printed == CLI_DONE)
            printed = cli_print(p_cli, text);
    };
    listener.until = [p_cli] { return p_cli->output.is_over; };
    e_cli_status status = cli_call(p_cli, head, {}, p_answer, listener);
    return status != CLI_DONE ? status : printed;
}

e_cli_status cli_request(t_cli *p_cli, const t_cli_arguments &arguments)
{
    std::string kept;
    t_cli_answer answer;
    e_cli_status status = cli_action_run(p_cli, action_head(arguments), &kept, &answer);
    if (status != CLI_DONE)
        return status;
    if (p_cli->form == CLI_FORM_JSON)
        return cli_print_json(p_cli, {{"output", kept}, {"values", answer.result}});
    return result_print(p_cli, answer.result);
}

// ---- Notifications ----

// A time as in 2024-01-15T10:00:00Z, or how long ago; microseconds since 1970. False if it is neither.
static bool since_read(const std::string &text, int64_t *p_us)
{
    tm parts = {};
    const char *p_rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    int64_t ago = cli_seconds_read(text);
    if (p_rest != nullptr && *p_rest == '.')
        p_rest += 1 + strspn(p_rest + 1, "0123456789");
    if (p_rest != nullptr && std::string_view(p_rest) == "Z")
        *p_us = static_cast<int64_t>(timegm(&parts)) * 1'000'000;
    else if (ago > 0)
        *p_us = (time(nullptr) - ago) * 1'000'000;
    else
        return false;
    return *p_us >= 0;
}

static void notification_print(t_cli *p_cli, std::string_view text)
{
    t_cli_json notification = t_cli_json::parse(text, nullptr, false);
    if (!notification.is_object())
        return;
    if (p_cli->form == CLI_FORM_JSON) {
        cli_print(p_cli, notification.dump(-1, ' ', false, t_cli_json::error_handler_t::replace) + '\n');
        return;
    }
    std::string shown =
        cli_model_text(notification, "time") + ' ' + cli_model_text(notification, "name") + '\n';
    t_cli_json data = notification.value("data", t_cli_json::object());
    std::string members;
    if (data.is_object() && data.size() == 1 && data.front().is_object())
        cli_text_object(data.front(), &members);
    for (size_t at = 0, end; (end = members.find('\n', at)) != std::string::npos; at = end + 1)
        shown += "  " + members.substr(at, end + 1 - at);
    cli_print(p_cli, shown);
}

e_cli_status cli_monitor(t_cli *p_cli, const t_cli_arguments &arguments)
{
    t_cli_json head = cli_head("monitor");
    if (const std::string *p_since = cli_option_value(arguments, "--from"); p_since != nullptr) {
        int64_t start_us = 0;
        if (!since_read(*p_since, &start_us))
            return cli_fail(*p_cli, CLI_USAGE, '"' + *p_since + "\" is no time");
        head["start"] = start_us;
    }
    const std::string *p_count = cli_option_value(arguments, "--count");
    size_t left = p_count != nullptr ? std::stoul(*p_count) : SIZE_MAX;
    t_cli_listener listener;
    listener.until = [p_cli, &left] { return left == 0 || p_cli->output.is_over || p_cli->output.failed; };
    listener.output = [p_cli, &left](std::string_view text) {
        notification_print(p_cli, text);
        left--;
    };
    p_cli->output.pages = false;
    if (left == 0)
        return CLI_DONE;
    t_cli_answer answer = cli_ask(p_cli, head, {}, listener);
    if (answer.outcome == CLI_ANSWER_INTERRUPTED)
        return CLI_DONE;
    return cli_fail(*p_cli, cli_answer_status(answer),
                    answer.path.empty() ? answer.reason : answer.path + ": " + answer.reason);
}

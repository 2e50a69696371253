#include "cli/completion.h"

#include "cli/commands.h"
#include "cli/line_words.h"
#include "cli/model_walk.h"
#include "cli/phrase.h"
#include "cli/pipes.h"
#include "cli/text_node.h"

#include <algorithm>
#include <filesystem>
#include <set>

static void candidate_add(t_cli_completion *p_completion, t_cli_candidate candidate)
{
    if (candidate.is_hint || candidate.text.starts_with(p_completion->typed))
        p_completion->candidates.push_back(std::move(candidate));
}

// ---- The model ----

// Whether a kind of value takes this child.
static bool child_fits(e_cli_value value, const t_cli_json &child)
{
    std::string kind = cli_model_text(child, "kind");
    if (kind == "action" || kind == "notification")
        return false;
    return value == CLI_VALUE_NODE || !cli_model_flag(child, "state");
}

static void children_add(const t_cli_json &node, e_cli_value value, const std::string &before,
                         t_cli_completion *p_completion)
{
    bool is_list = cli_model_text(node, "kind") == "list";
    for (const t_cli_json &child : node.value("children", t_cli_json::array())) {
        bool is_own_key = is_list && cli_model_flag(child, "key");
        if (child_fits(value, child) && !is_own_key)
            candidate_add(p_completion, {.text = before + cli_model_text(child, "name"),
                                         .help = cli_node_description(child)});
    }
}

// The values that the daemon knows for a place. words are the keys before.
static void values_add(t_cli *p_cli, const std::string &path, const std::vector<std::string> &words,
                       const std::string &before, const std::string &help, t_cli_completion *p_completion)
{
    t_cli_json head = {{"op", "values"}, {"path", path}, {"words", words}};
    head["prefix"] = p_completion->typed.substr(before.size());
    t_cli_answer answer = cli_ask(p_cli, head);
    for (const t_cli_json &value :
         answer.result.is_object() ? answer.result.value("values", t_cli_json::array()) : t_cli_json::array())
        candidate_add(p_completion, {.text = before + value.get<std::string>(), .help = help});
}

static void type_hint_add(const t_cli_json &leaf, t_cli_completion *p_completion)
{
    std::string type = cli_model_text(leaf, "type");
    for (const char *p_name : {"range", "units"}) {
        std::string more = cli_model_text(leaf, p_name);
        type += more.empty() ? "" : ' ' + more;
    }
    candidate_add(p_completion,
                  {.text = '<' + type + '>', .help = cli_node_description(leaf), .is_hint = true});
}

static void key_add(const t_cli_walk &walk, t_cli_completion *p_completion)
{
    std::vector<t_cli_step> list = walk.steps;
    std::vector<std::string> given = std::move(list.back().keys);
    list.back().keys.clear();
    std::string name = walk.p_node->at("keys")[given.size()].get<std::string>();
    const t_cli_json *p_key = cli_model_child(*walk.p_node, name);
    if (p_key != nullptr)
        type_hint_add(*p_key, p_completion);
    values_add(walk.p_cli, cli_path_text(list), given, "", "", p_completion);
}

// A word in the framework's form: children behind its last slash.
static void path_add(t_cli_walk *p_walk, e_cli_value value, t_cli_completion *p_completion)
{
    std::string before = p_completion->typed.substr(0, p_completion->typed.rfind('/') + 1);
    if (cli_walk_start(p_walk, p_walk->p_cli, before))
        children_add(*p_walk->p_node, value, before, p_completion);
}

static bool node_word_take(t_cli_walk *p_walk, e_cli_value value, const std::string &word)
{
    bool is_value = p_walk->state == CLI_WALK_VALUE;
    if (!is_value && !cli_walk_word(p_walk, word))
        return false;
    bool is_set = is_value || (value == CLI_VALUE_SETTING && cli_walk_is_empty_leaf(*p_walk));
    return !is_set || cli_walk_back(p_walk);
}

static void node_add(t_cli *p_cli, e_cli_value value, const std::vector<std::string> &words,
                     t_cli_completion *p_completion)
{
    t_cli_walk walk = {};
    bool holds = cli_walk_start(&walk, p_cli, p_cli->position);
    for (const std::string &word : words)
        holds = holds && node_word_take(&walk, value, word);
    p_completion->note = walk.reason;
    if (!holds)
        return;
    bool takes_value = value == CLI_VALUE_SETTING || cli_walk_kind(walk) == "leaf-list";
    if (walk.state == CLI_WALK_NODE && p_completion->typed.starts_with('/'))
        return path_add(&walk, value, p_completion);
    if (walk.state == CLI_WALK_NODE)
        return children_add(*walk.p_node, value, "", p_completion);
    if (walk.state == CLI_WALK_KEYS)
        return key_add(walk, p_completion);
    if (!takes_value)
        return;
    type_hint_add(*walk.p_node, p_completion);
    values_add(p_cli, cli_walk_path(walk), {}, "", "", p_completion);
}

// ---- Actions ----

static void actions_add(t_cli *p_cli, t_cli_completion *p_completion)
{
    e_cli_status status;
    const t_cli_json *p_top = cli_model_node(p_cli, "", &p_completion->note, &status);
    for (const t_cli_json &child : p_top != nullptr ? p_top->at("children") : t_cli_json::array()) {
        if (cli_model_text(child, "kind") == "action")
            candidate_add(p_completion,
                          {.text = cli_model_text(child, "name"), .help = cli_node_description(child)});
    }
}

static void parameters_add(t_cli *p_cli, const std::string &action, t_cli_completion *p_completion)
{
    e_cli_status status;
    size_t equals = p_completion->typed.find('=');
    std::string path = (action.starts_with('/') ? "" : "/") + action;
    if (equals != std::string::npos)
        return values_add(p_cli, path + '/' + p_completion->typed.substr(0, equals), {},
                          p_completion->typed.substr(0, equals + 1), "", p_completion);
    const t_cli_json *p_action = cli_model_node(p_cli, path, &p_completion->note, &status);
    for (const t_cli_json &child :
         p_action != nullptr ? p_action->value("children", t_cli_json::array()) : t_cli_json::array())
        candidate_add(p_completion, {.text = cli_model_text(child, "name") + '=',
                                     .help = cli_node_description(child),
                                     .is_hint = false,
                                     .goes_on = true});
}

// ---- Other values ----

static void files_add(t_cli_completion *p_completion)
{
    static constexpr size_t max_files = 1000;
    const std::string &typed = p_completion->typed;
    std::string folder = typed.substr(0, typed.rfind('/') + 1);
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(folder.empty() ? "." : folder, error)) {
        bool is_folder = entry.is_directory(error);
        if (p_completion->candidates.size() < max_files)
            candidate_add(p_completion,
                          {.text = folder + entry.path().filename().string() + (is_folder ? "/" : ""),
                           .help = "",
                           .is_hint = false,
                           .goes_on = is_folder});
    }
    std::ranges::sort(p_completion->candidates, {}, &t_cli_candidate::text);
}

static void commits_add(t_cli *p_cli, t_cli_completion *p_completion)
{
    t_cli_answer answer = cli_ask(p_cli, cli_head("commits"));
    t_cli_json commits =
        answer.result.is_object() ? answer.result.value("commits", t_cli_json::array()) : t_cli_json::array();
    for (const t_cli_json &commit : commits)
        candidate_add(p_completion,
                      {.text = commit.value("rollback", t_cli_json()).dump(),
                       .help = cli_model_text(commit, "time") + ' ' + cli_model_text(commit, "user") + ' ' +
                               cli_model_text(commit, "comment")});
}

static void commands_add(e_cli_mode mode, t_cli_completion *p_completion)
{
    for (const t_cli_command &command : g_cli_commands) {
        if ((command.modes & mode) != 0)
            candidate_add(p_completion, {.text = command.name, .help = command.summary});
    }
}

// ---- Phrases ----

static void names_add(t_cli *p_cli, const t_cli_phrase &phrase, t_cli_completion *p_completion)
{
    candidate_add(p_completion, {.text = "<name>", .help = "", .is_hint = true});
    for (const char *p_list : phrase.names)
        values_add(p_cli, p_list, {}, "", "", p_completion);
}

// Words that the model has as well, and names that several lists have, are offered once.
static void phrases_add(t_cli *p_cli, std::span<const t_cli_phrase> phrases,
                        const std::vector<std::string> &words, t_cli_completion *p_completion)
{
    for (const auto &[word, help] : cli_phrase_next(phrases, words))
        candidate_add(p_completion, {.text = word, .help = help});
    std::string name;
    const t_cli_phrase *p_phrase = cli_phrase_find(phrases, words, &name);
    if (p_phrase != nullptr && name.empty() && !p_phrase->names.empty())
        names_add(p_cli, *p_phrase, p_completion);
    std::set<std::string> seen;
    std::erase_if(p_completion->candidates,
                  [&](const t_cli_candidate &candidate) { return !seen.insert(candidate.text).second; });
}

static void value_add(t_cli *p_cli, e_cli_value value, const std::vector<std::string> &words,
                      t_cli_completion *p_completion)
{
    switch (value) {
    case CLI_VALUE_NODE:
    case CLI_VALUE_CONFIG:
    case CLI_VALUE_SETTING:
        return node_add(p_cli, value, words, p_completion);
    case CLI_VALUE_PATH: {
        t_cli_walk walk = {.p_cli = p_cli, .steps = {}, .reason = {}};
        return path_add(&walk, value, p_completion);
    }
    case CLI_VALUE_ACTION:
        return actions_add(p_cli, p_completion);
    case CLI_VALUE_PARAMETER:
        return parameters_add(p_cli, words[0], p_completion);
    case CLI_VALUE_FILE:
    case CLI_VALUE_SOCKET:
        return files_add(p_completion);
    case CLI_VALUE_NUMBER:
        return commits_add(p_cli, p_completion);
    case CLI_VALUE_PHRASE:
        return;  // what follows is added for all commands that take them
    case CLI_VALUE_COMMAND:
        return commands_add(p_cli->mode, p_completion);
    default:
        candidate_add(p_completion,
                      {.text = std::string("<") + cli_value_name(value) + '>', .help = "", .is_hint = true});
    }
}

// ---- Lines ----

// Where a line stands: what was given, and which option's value comes next.
struct t_line_place {
    std::vector<std::string> words;
    std::vector<const t_cli_option *> options;
    const t_cli_option *p_open = nullptr;
    size_t values = 0;  // of the open option that are given
};

static bool is_open(const t_line_place &place)
{
    return place.p_open != nullptr &&
           (place.p_open->stands_between ||
            (place.values < 2 && place.p_open->values[place.values] != CLI_VALUE_NONE));
}

static t_line_place line_place(const t_cli_command &command, std::span<const t_cli_token> tokens)
{
    t_line_place place;
    for (const t_cli_token &token : tokens) {
        if (is_open(place) && cli_option_takes(*place.p_open, {token.text, token.is_quoted})) {
            place.values++;
            continue;
        }
        place.p_open = cli_option_find(command, {token.text, token.is_quoted}, place.words.size());
        place.values = 0;
        if (place.p_open != nullptr)
            place.options.push_back(place.p_open);
        else
            place.words.push_back(token.text);
    }
    return place;
}

// Options are offered as keywords where they may stand as such, with dashes where one was typed.
static void options_add(const t_cli_command &command, const t_line_place &place,
                        t_cli_completion *p_completion)
{
    bool dashed = p_completion->typed.starts_with('-');
    for (const t_cli_option &option : command.options) {
        bool stands_well = dashed || (option.stands_between ? !place.words.empty() : place.words.empty());
        if (stands_well && std::ranges::count(place.options, &option) == 0)
            candidate_add(p_completion,
                          {.text = dashed ? option.name : option.name + 2, .help = option.help});
    }
    for (const t_cli_option &option : dashed ? g_cli_common_options : std::span<const t_cli_option>())
        candidate_add(p_completion, {.text = option.name, .help = option.help});
}

static void command_add(t_cli *p_cli, std::span<const t_cli_token> tokens, t_cli_completion *p_completion)
{
    const t_cli_command *p_command = cli_command_find(p_cli->mode, tokens[0].text, &p_completion->note);
    if (p_command == nullptr)
        return;
    t_line_place place = line_place(*p_command, tokens.subspan(1));
    bool may_end = is_open(place) && place.p_open->value_is_optional;
    if (is_open(place) && !may_end)
        return value_add(p_cli, place.p_open->values[std::min<size_t>(place.values, 1)], place.words,
                         p_completion);
    options_add(*p_command, place, p_completion);
    size_t count = p_command->words.size();
    bool has_word = count > 0 && (place.words.size() < count || p_command->words.back().repeats);
    if (has_word && !p_completion->typed.starts_with('-'))
        value_add(p_cli, p_command->words[std::min(place.words.size(), count - 1)].value, place.words,
                  p_completion);
    if (!p_completion->typed.starts_with('-'))
        phrases_add(p_cli, cli_phrases_of(*p_command), place.words, p_completion);
}

static void pipes_add(std::span<const t_cli_token> behind_bar, t_cli_completion *p_completion)
{
    for (const t_cli_pipe &pipe : g_cli_pipes) {
        if (behind_bar.empty())
            candidate_add(p_completion, {.text = pipe.name, .help = pipe.help});
        else if (behind_bar.size() == 1 && behind_bar[0].text == pipe.name && pipe.argument != nullptr)
            candidate_add(
                p_completion,
                {.text = std::string("<") + pipe.argument + '>', .help = pipe.help, .is_hint = true});
    }
}

t_cli_completion cli_complete(t_cli *p_cli, std::string_view line)
{
    t_cli_completion completion = {.begin = line.size(), .typed = {}, .candidates = {}, .note = {}};
    std::vector<t_cli_token> tokens;
    e_cli_line result = cli_line_split(line, &tokens);
    bool is_inside = !line.empty() && !tokens.empty() && !tokens.back().is_pipe &&
                     (result != CLI_LINE_WHOLE || line.find_last_of(" \t") != line.size() - 1);
    if (result == CLI_LINE_TOO_LONG)
        return completion;
    if (is_inside) {
        completion.begin = tokens.back().begin;
        completion.typed = tokens.back().text;
        tokens.pop_back();
    }
    auto bar = std::ranges::find_if(tokens.rbegin(), tokens.rend(),
                                    [](const t_cli_token &token) { return token.is_pipe; });
    if (bar != tokens.rend())
        pipes_add({bar.base(), tokens.end()}, &completion);
    else if (tokens.empty())
        commands_add(p_cli->mode, &completion);
    else
        command_add(p_cli, tokens, &completion);
    return completion;
}

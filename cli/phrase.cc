#include "cli/phrase.h"

#include "cli/commands.h"
#include "cli/view.h"

#include <algorithm>

// ---- Words ----

static std::vector<std::string> words_of(const t_cli_phrase &phrase)
{
    std::vector<std::string> words;
    std::string_view text = phrase.words;
    while (!text.empty()) {
        size_t size = std::min(text.find(' '), text.size());
        words.emplace_back(text.substr(0, size));
        text.remove_prefix(std::min(size + 1, text.size()));
    }
    return words;
}

// How many words both begin with.
static size_t common_size(std::span<const std::string> left, std::span<const std::string> right)
{
    return static_cast<size_t>(std::ranges::mismatch(left, right).in1 - left.begin());
}

std::span<const t_cli_phrase> cli_phrases_of(const t_cli_command &command)
{
    return command.p_phrases != nullptr ? *command.p_phrases : std::span<const t_cli_phrase>();
}

std::string cli_phrase_form(const t_cli_phrase &phrase)
{
    return std::string(phrase.words) + (phrase.names.empty() ? "" : " [NAME]");
}

const t_cli_phrase *cli_phrase_find(std::span<const t_cli_phrase> phrases, std::span<const std::string> words,
                                    std::string *p_name)
{
    const t_cli_phrase *p_found = nullptr;
    size_t used = 0;
    for (const t_cli_phrase &phrase : phrases) {
        std::vector<std::string> own = words_of(phrase);
        if (own.size() > used && common_size(own, words) == own.size()) {
            p_found = &phrase;
            used = own.size();
        }
    }
    bool fits = p_found != nullptr && words.size() <= used + (p_found->names.empty() ? 0 : 1);
    if (!fits)
        return nullptr;
    *p_name = words.size() > used ? words[used] : "";
    return p_found;
}

std::string cli_phrase_fault(std::span<const t_cli_phrase> phrases, std::span<const std::string> words)
{
    size_t known = 0;
    for (const t_cli_phrase &phrase : phrases) {
        size_t common = common_size(words_of(phrase), words);
        bool is_whole = common == words_of(phrase).size() && !phrase.names.empty();
        known = std::max(known, std::min(common + (is_whole ? 1 : 0), words.size()));
    }
    if (known < words.size())
        return "what is \"" + words[known] + "\"?";
    std::string next;
    for (const auto &[word, help] : cli_phrase_next(phrases, words))
        next += (next.empty() ? "" : ", ") + word;
    return "one of these is missing: " + next;
}

std::vector<std::pair<std::string, std::string>> cli_phrase_next(std::span<const t_cli_phrase> phrases,
                                                                 std::span<const std::string> words)
{
    std::vector<std::pair<std::string, std::string>> next;
    for (const t_cli_phrase &phrase : phrases) {
        std::vector<std::string> own = words_of(phrase);
        if (own.size() <= words.size() || common_size(own, words) < words.size())
            continue;
        const std::string &word = own[words.size()];
        std::string help = own.size() == words.size() + 1 ? phrase.help : "";
        auto known = std::ranges::find(next, word, &std::pair<std::string, std::string>::first);
        if (known == next.end())
            next.emplace_back(word, help);
        else if (!help.empty())
            known->second = help;
    }
    return next;
}

// ---- Running ----

// The daemon takes a name that nothing has for nothing to do.
static void name_check(t_cli *p_cli, const t_cli_phrase &phrase, const std::string &name)
{
    for (const char *p_list : phrase.names) {
        t_cli_json head = {
            {"op", "values"}, {"path", p_list}, {"words", t_cli_json::array()}, {"prefix", name}};
        t_cli_answer answer = cli_ask(p_cli, head);
        if (answer.outcome != CLI_ANSWER_DONE || !answer.result.is_object())
            return;
        for (const t_cli_json &value : answer.result.value("values", t_cli_json::array())) {
            if (value == name)
                return;
        }
    }
    cli_warn(*p_cli, "nothing here is named \"" + name + '"');
}

static e_cli_status actions_run(t_cli *p_cli, const t_cli_phrase &phrase, const std::string &name)
{
    t_cli_json input = t_cli_json::object();
    std::string kept;
    if (!name.empty()) {
        input["name"] = name;
        name_check(p_cli, phrase, name);
    }
    for (const char *p_action : phrase.actions) {
        if (p_action == nullptr)
            break;
        t_cli_json head = {
            {"op", "action"}, {"action", p_action}, {"input", input}, {"words", t_cli_json::array()}};
        e_cli_status status = cli_action_run(p_cli, head, &kept, nullptr);
        if (status != CLI_DONE)
            return status;
    }
    if (p_cli->form == CLI_FORM_JSON && !kept.empty())
        return cli_print_json(p_cli, {{"output", kept}});
    return cli_print_done(p_cli);
}

e_cli_status cli_phrase_run(t_cli *p_cli, const t_cli_arguments &arguments, const t_cli_phrase &phrase,
                            const std::string &name)
{
    const t_cli_given *p_watch = cli_option_given(arguments, "--watch");
    const std::string *p_count = cli_option_value(arguments, "--count");
    if (p_watch != nullptr && phrase.p_view == nullptr)
        return cli_fail(*p_cli, CLI_USAGE, std::string(phrase.words) + " can't be watched");
    if (p_count != nullptr && p_watch == nullptr)
        return cli_fail(*p_cli, CLI_USAGE, "a count needs --watch");
    if (phrase.p_view == nullptr)
        return actions_run(p_cli, phrase, name);
    if (p_watch == nullptr)
        return cli_view_show(p_cli, *phrase.p_view, name, nullptr);
    int64_t seconds = p_watch->values.empty() ? 2 : std::stoll(p_watch->values[0]);
    t_cli_watch watch = {.interval_ms = seconds * 1000,
                         .count = p_count != nullptr ? std::stoul(*p_count) : SIZE_MAX};
    return cli_view_show(p_cli, *phrase.p_view, name, &watch);
}

e_cli_status cli_operate(t_cli *p_cli, const t_cli_arguments &arguments)
{
    std::span<const t_cli_phrase> phrases = cli_phrases_of(*arguments.p_command);
    std::string name;
    const t_cli_phrase *p_phrase = cli_phrase_find(phrases, arguments.words, &name);
    if (p_phrase == nullptr)
        return cli_fail(*p_cli, CLI_USAGE, cli_phrase_fault(phrases, arguments.words));
    return cli_phrase_run(p_cli, arguments, *p_phrase, name);
}

#include "cli/command.h"

#include <algorithm>

static bool fail(std::string *p_reason, std::string reason)
{
    *p_reason = std::move(reason);
    return false;
}

const t_cli_command *cli_command_find(std::string_view name)
{
    const auto found =
        std::ranges::find_if(g_cli_commands, [name](const t_cli_command &item) { return name == item.name; });
    return found == g_cli_commands.end() ? nullptr : &*found;
}

static const t_cli_given *given_find(const t_cli_arguments &arguments, std::string_view name)
{
    for (const t_cli_given &given : arguments.options) {
        if (name == given.p_option->name)
            return &given;
    }
    return nullptr;
}

bool cli_option_is_given(const t_cli_arguments &arguments, std::string_view name)
{
    return given_find(arguments, name) != nullptr;
}

const std::string *cli_option_value(const t_cli_arguments &arguments, std::string_view name)
{
    const t_cli_given *p_given = given_find(arguments, name);
    return p_given != nullptr ? &p_given->values[0] : nullptr;
}

// ---- Options ----

struct t_reader {
    const t_cli_command &command;
    std::span<const std::string> rest;
    t_cli *p_cli;
    t_cli_arguments *p_arguments;
    std::string *p_reason;
};

static std::string next_take(t_reader *p_reader)
{
    std::string text = p_reader->rest.front();
    p_reader->rest = p_reader->rest.subspan(1);
    return text;
}

// An option by its name or letter, the command's own first.
static const t_cli_option *option_find(const t_cli_command &command, std::string_view name, char letter)
{
    for (std::span<const t_cli_option> options : {command.options, g_cli_common_options}) {
        for (const t_cli_option &option : options) {
            if (name == option.name || (letter != 0 && letter == option.letter))
                return &option;
        }
    }
    return nullptr;
}

static bool number_is_sane(const std::string &text)
{
    return !text.empty() && text.size() <= 4 &&
           std::ranges::all_of(text, [](char digit) { return digit >= '0' && digit <= '9'; });
}

static bool value_check(e_cli_value value, const std::string &text, std::string *p_reason)
{
    if (value == CLI_VALUE_NUMBER && !number_is_sane(text))
        return fail(p_reason, '"' + text + "\" is no number of a commit");
    return true;
}

static bool common_take(t_cli *p_cli, const t_cli_given &given)
{
    std::string_view name = given.p_option->name;
    if (name == "--help")
        p_cli->wants_help = true;
    else if (name == "--json")
        p_cli->json = true;
    else if (name == "--socket")
        p_cli->socket = given.values[0];
    else
        return false;
    return true;
}

// Takes one option with its values; glued is a value in the same text.
static bool option_take(t_reader *p_reader, const t_cli_option &option, const std::string *p_glued)
{
    t_cli_given given = {.p_option = &option, .values = {}};
    for (e_cli_value value : option.values) {
        if (value == CLI_VALUE_NONE)
            break;
        if (p_glued != nullptr && given.values.empty())
            given.values.push_back(*p_glued);
        else if (!p_reader->rest.empty())
            given.values.push_back(next_take(p_reader));
        else
            return fail(p_reader->p_reason, std::string(option.name) + " needs " + cli_value_name(value));
        if (!value_check(value, given.values.back(), p_reader->p_reason))
            return false;
    }
    if (p_glued != nullptr && given.values.empty())
        return fail(p_reader->p_reason, std::string(option.name) + " takes no value");
    if (!common_take(p_reader->p_cli, given))
        p_reader->p_arguments->options.push_back(std::move(given));
    return true;
}

static bool option_read(t_reader *p_reader, const std::string &text)
{
    bool is_long = text.starts_with("--");
    size_t name_end = is_long ? std::min(text.find('='), text.size()) : 2;
    size_t glued_start = is_long ? name_end + 1 : name_end;
    std::string name = text.substr(0, name_end);
    const t_cli_option *p_option = option_find(p_reader->command, name, is_long ? '\0' : text[1]);
    if (p_option == nullptr)
        return fail(p_reader->p_reason, "there is no option " + name);
    bool has_glued = is_long ? name_end < text.size() : text.size() > 2;
    std::string glued = has_glued ? text.substr(glued_start) : "";
    return option_take(p_reader, *p_option, has_glued ? &glued : nullptr);
}

// ---- Words ----

static bool words_check(const t_cli_command &command, const t_cli_arguments &arguments, std::string *p_reason)
{
    size_t needed = static_cast<size_t>(
        std::ranges::count_if(command.words, [](const t_cli_word &word) { return !word.is_optional; }));
    bool has_end = command.words.empty() || !command.words.back().repeats;
    if (arguments.words.size() < needed)
        return fail(p_reason,
                    std::string(cli_value_name(command.words[arguments.words.size()].value)) + " is missing");
    if (has_end && arguments.words.size() > command.words.size())
        return fail(p_reason, "what is \"" + arguments.words[command.words.size()] + "\"?");
    for (size_t i = 0; i < arguments.words.size(); i++) {
        const t_cli_word &word = command.words[std::min(i, command.words.size() - 1)];
        if (!value_check(word.value, arguments.words[i], p_reason))
            return false;
    }
    return true;
}

bool cli_leading_options_read(std::span<const std::string> *p_texts, t_cli *p_cli, std::string *p_reason)
{
    static constexpr t_cli_command none = {};
    t_cli_arguments unused;
    t_reader reader = {none, *p_texts, p_cli, &unused, p_reason};
    while (!reader.rest.empty() && reader.rest.front().size() > 1 && reader.rest.front()[0] == '-') {
        if (!option_read(&reader, next_take(&reader)))
            return false;
    }
    *p_texts = reader.rest;
    return true;
}

bool cli_command_read(const t_cli_command &command, std::span<const std::string> texts, t_cli *p_cli,
                      t_cli_arguments *p_arguments, std::string *p_reason)
{
    t_reader reader = {command, texts, p_cli, p_arguments, p_reason};
    bool options_end = false;
    while (!reader.rest.empty()) {
        std::string text = next_take(&reader);
        if (options_end || text.size() < 2 || text[0] != '-')
            p_arguments->words.push_back(std::move(text));
        else if (text == "--")
            options_end = true;
        else if (!option_read(&reader, text))
            return false;
    }
    return p_cli->wants_help || words_check(command, *p_arguments, p_reason);
}

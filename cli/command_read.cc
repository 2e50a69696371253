#include "cli/command.h"

#include <algorithm>

static bool fail(std::string *p_reason, std::string reason)
{
    *p_reason = std::move(reason);
    return false;
}

const t_cli_command *cli_command_find(e_cli_mode mode, std::string_view name, std::string *p_reason)
{
    const t_cli_command *p_found = nullptr;
    std::string others;
    for (const t_cli_command &command : g_cli_commands) {
        bool fits = (command.modes & mode) != 0 && std::string_view(command.name).starts_with(name);
        if (fits && name == command.name)
            return &command;
        if (!fits || mode == CLI_MODE_SHELL || name.empty())
            continue;
        others += (p_found != nullptr ? ", " : "") + std::string(command.name);
        p_found = &command;
    }
    if (others.find(',') != std::string::npos)
        p_found = nullptr;
    if (p_found == nullptr)
        *p_reason = others.empty() ? "there is no command " + std::string(name)
                                   : '"' + std::string(name) + "\" could be " + others;
    return p_found;
}

const t_cli_given *cli_option_given(const t_cli_arguments &arguments, std::string_view name)
{
    for (const t_cli_given &given : arguments.options) {
        if (name == given.p_option->name)
            return &given;
    }
    return nullptr;
}

bool cli_option_is_given(const t_cli_arguments &arguments, std::string_view name)
{
    return cli_option_given(arguments, name) != nullptr;
}

const std::string *cli_option_value(const t_cli_arguments &arguments, std::string_view name)
{
    const t_cli_given *p_given = cli_option_given(arguments, name);
    return p_given != nullptr ? &p_given->values[0] : nullptr;
}

// ---- Options ----

namespace {

struct t_reader {
    const t_cli_command &command;
    std::span<const t_cli_argument> rest;
    t_cli *p_cli;
    t_cli_arguments *p_arguments;
    std::string *p_reason;
};

}  // namespace

static t_cli_argument next_take(t_reader *p_reader)
{
    t_cli_argument text = p_reader->rest.front();
    p_reader->rest = p_reader->rest.subspan(1);
    return text;
}

// "-5" is a number.
static bool is_dashed(const t_cli_argument &text)
{
    return !text.is_quoted && text.text.size() > 1 && text.text[0] == '-' &&
           (text.text[1] < '0' || text.text[1] > '9');
}

static std::string option_name(const std::string &text)
{
    return text.starts_with("--") ? text.substr(0, text.find('=')) : text.substr(0, 2);
}

const t_cli_option *cli_option_find(const t_cli_command &command, const t_cli_argument &text,
                                    size_t word_count)
{
    bool dashed = is_dashed(text);
    std::string name = dashed ? option_name(text.text) : "--" + text.text;
    char letter = dashed && name.size() == 2 ? name[1] : '\0';
    for (const t_cli_option &option : command.options) {
        bool stands_well = dashed || word_count == 0 || option.stands_between;
        if (!text.is_quoted && stands_well &&
            (name == option.name || (letter != 0 && letter == option.letter)))
            return &option;
    }
    for (const t_cli_option &option : dashed ? g_cli_common_options : std::span<const t_cli_option>()) {
        if (name == option.name || (letter != 0 && letter == option.letter))
            return &option;
    }
    return nullptr;
}

static bool number_is_sane(const std::string &text)
{
    return !text.empty() && text.size() <= 4 &&
           std::ranges::all_of(text, [](char digit) { return digit >= '0' && digit <= '9'; });
}

int64_t cli_seconds_read(const std::string &text)
{
    static constexpr std::pair<char, int64_t> units[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}};
    static constexpr int64_t max_seconds = 604'800;
    int64_t unit = 60;
    std::string number = text;
    for (auto [letter, seconds] : units) {
        if (!text.ends_with(letter))
            continue;
        unit = seconds;
        number.pop_back();
    }
    if (number.empty() || number.size() > 6 || number.find_first_not_of("0123456789") != std::string::npos)
        return 0;
    int64_t seconds = std::stoll(number) * unit;
    return seconds <= max_seconds ? seconds : 0;
}

static bool value_check(e_cli_value value, const std::string &text, std::string *p_reason)
{
    if (value == CLI_VALUE_NUMBER && !number_is_sane(text))
        return fail(p_reason, '"' + text + "\" is no number of a commit");
    if (value == CLI_VALUE_COUNT && !number_is_sane(text))
        return fail(p_reason, '"' + text + "\" is no count");
    if (value == CLI_VALUE_SECONDS && (!number_is_sane(text) || std::stoi(text) == 0))
        return fail(p_reason, '"' + text + "\" is no number of seconds");
    if (value == CLI_VALUE_TIME && cli_seconds_read(text) == 0)
        return fail(p_reason, '"' + text + "\" is no time of up to a week: minutes, or as 90s, 10m, 2h, 1d");
    return true;
}

bool cli_option_takes(const t_cli_option &option, const t_cli_argument &text)
{
    return !option.value_is_optional || (!text.is_quoted && number_is_sane(text.text));
}

static bool common_take(t_cli *p_cli, const t_cli_given &given)
{
    std::string_view name = given.p_option->name;
    if (name == "--help")
        p_cli->wants_help = true;
    else if (name == "--json")
        p_cli->form = CLI_FORM_JSON;
    else if (name == "--socket")
        p_cli->socket = given.values[0];
    else
        return false;
    return true;
}

// As it is written where it was read.
static const char *option_title(const t_reader &reader, const t_cli_option &option)
{
    return reader.p_cli->mode == CLI_MODE_SHELL ? option.name : option.name + 2;
}

// Takes one option with its values; glued is a value in the same text.
static bool option_take(t_reader *p_reader, const t_cli_option &option, const std::string *p_glued)
{
    t_cli_given given = {.p_option = &option, .values = {}};
    for (e_cli_value value : option.values) {
        if (value == CLI_VALUE_NONE)
            break;
        bool is_next = !p_reader->rest.empty() && cli_option_takes(option, p_reader->rest.front());
        if (p_glued != nullptr && given.values.empty())
            given.values.push_back(*p_glued);
        else if (is_next)
            given.values.push_back(next_take(p_reader).text);
        else if (option.value_is_optional)
            break;
        else
            return fail(p_reader->p_reason,
                        std::string(option_title(*p_reader, option)) + " needs " + cli_value_name(value));
        if (!value_check(value, given.values.back(), p_reader->p_reason))
            return false;
    }
    if (p_glued != nullptr && given.values.empty())
        return fail(p_reader->p_reason, std::string(option.name) + " takes no value");
    while (option.stands_between && !p_reader->rest.empty())
        given.values.push_back(next_take(p_reader).text);
    if (!common_take(p_reader->p_cli, given))
        p_reader->p_arguments->options.push_back(std::move(given));
    return true;
}

// An option with dashes, which may have its first value glued to it.
static bool dashed_read(t_reader *p_reader, const t_cli_option &option, const std::string &text)
{
    size_t name_size = option_name(text).size();
    bool is_long = text.starts_with("--");
    bool has_glued = name_size < text.size();
    std::string glued = has_glued ? text.substr(name_size + (is_long ? 1 : 0)) : "";
    return option_take(p_reader, option, has_glued ? &glued : nullptr);
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

bool cli_leading_options_read(std::span<const t_cli_argument> *p_texts, t_cli *p_cli, std::string *p_reason)
{
    static const t_cli_command program = {.name = "",
                                          .modes = CLI_MODE_SHELL,
                                          .summary = "",
                                          .details = "",
                                          .options = g_cli_program_options,
                                          .words = {},
                                          .run = nullptr,
                                          .p_phrases = nullptr};
    t_cli_arguments given;
    t_reader reader = {program, *p_texts, p_cli, &given, p_reason};
    while (!reader.rest.empty() && is_dashed(reader.rest.front())) {
        t_cli_argument text = next_take(&reader);
        const t_cli_option *p_option = cli_option_find(program, text, 0);
        if (p_option == nullptr)
            return fail(p_reason, "there is no option " + option_name(text.text));
        if (!dashed_read(&reader, *p_option, text.text))
            return false;
    }
    if (const std::string *p_script = cli_option_value(given, "--file"); p_script != nullptr)
        p_cli->script = *p_script;
    *p_texts = reader.rest;
    return true;
}

bool cli_command_read(const t_cli_command &command, std::span<const t_cli_argument> texts, t_cli *p_cli,
                      t_cli_arguments *p_arguments, std::string *p_reason)
{
    t_reader reader = {command, texts, p_cli, p_arguments, p_reason};
    p_arguments->p_command = &command;
    bool options_end = false;
    while (!reader.rest.empty()) {
        t_cli_argument text = next_take(&reader);
        const t_cli_option *p_option =
            options_end ? nullptr : cli_option_find(command, text, p_arguments->words.size());
        bool dashed = !options_end && is_dashed(text);
        if (dashed && text.text == "--")
            options_end = true;
        else if (dashed && p_option == nullptr)
            return fail(p_reason, "there is no option " + option_name(text.text));
        else if (p_option == nullptr)
            p_arguments->words.push_back(std::move(text.text));
        else if (!(dashed ? dashed_read(&reader, *p_option, text.text)
                          : option_take(&reader, *p_option, nullptr)))
            return false;
    }
    return p_cli->wants_help || words_check(command, *p_arguments, p_reason);
}

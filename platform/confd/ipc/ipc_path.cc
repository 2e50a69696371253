#include "platform/confd/ipc/ipc_path.h"

#include "platform/confd/confd_lib.h"

#include <charconv>
#include <utility>

static constexpr std::string_view name_ends = "/{[";
static constexpr std::string_view bare_key_ends = " {}\"\\";

// Takes the characters before the first of ends (or all) off the front of *p_rest.
static std::string_view take_until(std::string_view *p_rest, std::string_view ends)
{
    std::string_view taken = p_rest->substr(0, p_rest->find_first_of(ends));
    p_rest->remove_prefix(taken.size());
    return taken;
}

static bool take_char(std::string_view *p_rest, char wanted)
{
    if (p_rest->empty() || p_rest->front() != wanted)
        return false;
    p_rest->remove_prefix(1);
    return true;
}

// After the opening quote.
static bool take_quoted(std::string_view *p_rest, std::string *p_key)
{
    while (!p_rest->empty()) {
        if (take_char(p_rest, '"'))
            return true;
        take_char(p_rest, '\\');
        if (p_rest->empty())
            return false;
        *p_key += p_rest->front();
        p_rest->remove_prefix(1);
    }
    return false;
}

// After the opening brace: keys separated by blanks, and the closing brace.
static bool take_keys(std::string_view *p_rest, std::vector<std::string> *p_keys)
{
    while (!take_char(p_rest, '}')) {
        if (take_char(p_rest, ' '))
            continue;
        std::string key;
        bool is_quoted = take_char(p_rest, '"');
        if (is_quoted && !take_quoted(p_rest, &key))
            return false;
        if (!is_quoted)
            key = take_until(p_rest, bare_key_ends);
        bool is_ended = !p_rest->empty() && (p_rest->front() == ' ' || p_rest->front() == '}');
        if (!is_ended || (key.empty() && !is_quoted) || p_keys->size() == MAXKEYLEN - 1)
            return false;
        p_keys->push_back(std::move(key));
    }
    return !p_keys->empty();
}

// After the opening bracket.
static bool take_index(std::string_view *p_rest, std::optional<uint32_t> *p_index)
{
    std::string_view digits = take_until(p_rest, "]");
    uint32_t index = 0;
    auto [p_end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), index);
    if (error != std::errc() || p_end != digits.data() + digits.size() || !take_char(p_rest, ']'))
        return false;
    *p_index = index;
    return true;
}

static bool take_step(std::string_view *p_rest, t_ipc_path_step *p_step)
{
    std::string_view name = take_until(p_rest, name_ends);
    size_t colon = name.find(':');
    if (colon != std::string_view::npos) {
        p_step->prefix = name.substr(0, colon);
        name.remove_prefix(colon + 1);
        if (p_step->prefix.empty())
            return false;
    }
    p_step->name = name;
    if (name.empty() || name.find_first_of(": }]\"") != std::string_view::npos)
        return false;
    if (take_char(p_rest, '{'))
        return take_keys(p_rest, &p_step->keys);
    return !take_char(p_rest, '[') || take_index(p_rest, &p_step->index);
}

bool ipc_path_parse(std::string_view text, t_ipc_parsed_path *p_path)
{
    *p_path = {};
    p_path->is_absolute = take_char(&text, '/');
    while (!text.empty()) {
        t_ipc_path_step step;
        if (p_path->steps.size() == MAXDEPTH || !take_step(&text, &step))
            return false;
        p_path->steps.push_back(std::move(step));
        if (!text.empty() && (!take_char(&text, '/') || text.empty()))
            return false;
    }
    return true;
}

std::string ipc_path_quote_key(std::string_view key)
{
    if (!key.empty() && key.find_first_of(bare_key_ends) == std::string_view::npos)
        return std::string(key);
    std::string quoted = "\"";
    for (char c : key) {
        if (c == '"' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

#include "cli/path_words.h"

#include "cli/line_words.h"

#include <algorithm>

// ---- Taking apart ----

// A key up to a blank or the closing brace. False without one.
static bool key_take(std::string_view *p_text, std::string *p_key)
{
    bool quoted = p_text->starts_with('"');
    size_t at = quoted ? 1 : 0;
    for (; at < p_text->size(); at++) {
        char character = (*p_text)[at];
        if (quoted && character == '\\' && at + 1 < p_text->size())
            character = (*p_text)[++at];
        else if (quoted ? character == '"' : character == ' ' || character == '}')
            break;
        p_key->push_back(character);
    }
    if (at >= p_text->size())
        return false;
    p_text->remove_prefix(quoted ? at + 1 : at);
    return true;
}

static bool keys_take(std::string_view *p_text, std::vector<std::string> *p_keys)
{
    p_text->remove_prefix(1);
    while (true) {
        while (p_text->starts_with(' '))
            p_text->remove_prefix(1);
        if (p_text->empty())
            return false;
        if (p_text->starts_with('}'))
            break;
        if (!key_take(p_text, &p_keys->emplace_back()))
            return false;
    }
    p_text->remove_prefix(1);
    return true;
}

bool cli_path_split(std::string_view path, std::vector<t_cli_step> *p_steps)
{
    std::vector<t_cli_step> steps;
    while (path.starts_with('/'))
        path.remove_prefix(1);
    while (!path.empty()) {
        size_t size = std::min(path.find_first_of("/{"), path.size());
        t_cli_step step = {.name = std::string(path.substr(0, size)), .keys = {}};
        path.remove_prefix(size);
        if (step.name.empty() || (path.starts_with('{') && !keys_take(&path, &step.keys)))
            return false;
        if (!path.empty() && path[0] != '/')
            return false;
        path.remove_prefix(path.empty() ? 0 : 1);
        steps.push_back(std::move(step));
    }
    *p_steps = std::move(steps);
    return true;
}

// ---- Putting together ----

std::string cli_path_keys(const std::vector<std::string> &keys)
{
    std::string text;
    for (const std::string &key : keys) {
        text += text.empty() ? '{' : ' ';
        bool is_plain = !key.empty() && key.find_first_of(" \t\n{}\"\\") == std::string::npos;
        if (is_plain) {
            text += key;
            continue;
        }
        text += '"';
        for (char character : key) {
            if (character == '"' || character == '\\')
                text += '\\';
            text += character;
        }
        text += '"';
    }
    return text.empty() ? "" : text + '}';
}

std::string cli_path_text(const std::vector<t_cli_step> &steps)
{
    std::string text;
    for (const t_cli_step &step : steps)
        text += '/' + step.name + cli_path_keys(step.keys);
    return text;
}

std::string cli_path_schema(const std::vector<t_cli_step> &steps)
{
    std::string text;
    for (const t_cli_step &step : steps)
        text += '/' + step.name;
    return text;
}

std::string cli_path_words(const std::vector<t_cli_step> &steps)
{
    std::string text;
    for (const t_cli_step &step : steps) {
        text += (text.empty() ? "" : " ") + step.name;
        for (const std::string &key : step.keys)
            text += ' ' + cli_line_quote(key);
    }
    return text;
}

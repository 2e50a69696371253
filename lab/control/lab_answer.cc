#include "lab/control/lab_answer.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

using t_json = nlohmann::ordered_json;

t_json lab_answer_refusal(const std::string &reason)
{
    return {{"ok", false}, {"error", reason}};
}

t_json lab_answer_done()
{
    return {{"ok", true}};
}

std::string lab_answer_line(const t_json &answer)
{
    return answer.dump(-1, ' ', false, t_json::error_handler_t::replace);
}

// ---- Text: members in the order of the answer, arrays of objects as tables ----

// A cell or value: text without quotes, truth as yes and no, and no control characters.
static std::string value_text(const t_json &value)
{
    if (value.is_boolean())
        return value.get<bool>() ? "yes" : "no";
    std::string text = value.is_string() ? value.get<std::string>() : lab_answer_line(value);
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 127; }, '?');
    return text;
}

using t_row = std::vector<std::string>;

static std::vector<t_row> table_rows(const t_json &objects)
{
    std::vector<t_row> rows(1);  // names of all members, as they first come up
    for (const t_json &object : objects) {
        for (const auto &[name, value] : object.items()) {
            if (std::find(rows[0].begin(), rows[0].end(), name) == rows[0].end())
                rows[0].push_back(name);
        }
    }
    for (const t_json &object : objects) {
        t_row row;
        for (const std::string &name : rows[0])
            row.push_back(object.contains(name) ? value_text(object[name]) : "-");
        rows.push_back(row);
    }
    return rows;
}

static std::string table_text(const t_json &objects)
{
    std::vector<t_row> rows = table_rows(objects);
    std::vector<size_t> widths(rows[0].size());
    for (const t_row &row : rows) {
        for (size_t i = 0; i < row.size(); i++)
            widths[i] = std::max(widths[i], row[i].size());
    }
    std::string text;
    for (const t_row &row : rows) {
        for (size_t i = 0; i < row.size(); i++) {
            text += "  " + row[i];
            if (i + 1 < row.size())
                text.append(widths[i] - row[i].size(), ' ');
        }
        text += '\n';
    }
    return text;
}

// The actions of one packet have few members in common: a line each.
static std::string action_text(const t_json &action)
{
    std::string text = "  " + value_text(action["slot"]) + ": " + value_text(action["action"]);
    for (const auto &[name, value] : action.items()) {
        if (name != "slot" && name != "action")
            text += ' ' + name + '=' + value_text(value);
    }
    return text + '\n';
}

static std::string members_text(const t_json &object);

// Every line of the text, moved in.
static std::string indented(const std::string &text)
{
    std::string result;
    for (size_t begin = 0, end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
        result += "  " + text.substr(begin, end + 1 - begin);
    return result;
}

// What repeats and has arrays of its own: its members below each other, a dash before the first.
static std::string block_text(const t_json &object)
{
    std::string text = indented(indented(members_text(object)));
    return text.empty() ? text : text.replace(2, 1, "-");
}

static std::string array_text(const std::string &name, const t_json &array)
{
    if (array.empty())
        return name + ": none\n";
    std::string text = name + ":\n";
    if (name != "actions" && name != "stages")
        return text + table_text(array);
    for (const t_json &item : array)
        text += name == "actions" ? action_text(item) : block_text(item);
    return text;
}

static std::string member_text(const std::string &name, const t_json &value)
{
    if (value.is_array())
        return array_text(name, value);
    if (value.is_object())
        return name + ":\n" + indented(members_text(value));
    return name + ": " + value_text(value) + '\n';
}

static std::string members_text(const t_json &object)
{
    std::string text;
    for (const auto &[name, value] : object.items())
        text += member_text(name, value);
    return text;
}

std::string lab_answer_text(const t_json &answer)
{
    t_json shown = answer;
    shown.erase("ok");
    shown.erase("request");
    return members_text(shown);
}

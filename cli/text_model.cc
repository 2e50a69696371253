#include "cli/text_model.h"

#include "cli/text_escape.h"
#include "cli/text_layout.h"

#include <algorithm>

// ---- Simple values ----

static std::string short_name(const std::string &name)
{
    size_t colon = name.find(':');
    return colon == std::string::npos ? name : name.substr(colon + 1);
}

// A leaf of type empty has [null] for a value.
static bool is_empty_leaf(const t_cli_json &value)
{
    return value.is_null() || (value.is_array() && value.size() == 1 && value[0].is_null());
}

static bool is_simple(const t_cli_json &value)
{
    if (!value.is_array())
        return !value.is_object();
    return std::ranges::none_of(value, [](const t_cli_json &item) { return item.is_structured(); });
}

static std::string scalar_text(const t_cli_json &value, bool quotes)
{
    if (!value.is_string())
        return value.dump();
    std::string text = cli_text_printable(value.get<std::string>(), false);
    if (quotes && (text.empty() || text.find(' ') != std::string::npos))
        return '"' + text + '"';
    return text;
}

// The elements of a leaf-list stand side by side.
static std::string simple_text(const t_cli_json &value, bool quotes)
{
    if (is_empty_leaf(value))
        return "";
    if (!value.is_array())
        return scalar_text(value, quotes);
    std::string text;
    for (const t_cli_json &item : value)
        text += (text.empty() ? "" : " ") + scalar_text(item, true);
    return text;
}

// ---- Tables ----

struct t_column {
    std::string title;
    std::vector<std::string> cells;
    bool is_number = true;
    size_t width;
};

static bool is_number(const std::string &text)
{
    size_t start = text.starts_with('-') ? 1 : 0;
    return text.size() > start && std::all_of(text.begin() + static_cast<ptrdiff_t>(start), text.end(),
                                              [](char digit) { return digit >= '0' && digit <= '9'; });
}

static std::vector<t_column> columns_make(const t_cli_json &rows, const std::vector<std::string> &names)
{
    std::vector<t_column> columns;
    for (const std::string &name : names) {
        t_column &column = columns.emplace_back(t_column{.title = short_name(name), .cells = {}, .width = 0});
        column.width = cli_text_width(column.title);
        for (const t_cli_json &row : rows) {
            auto member = row.find(name);
            std::string &cell = column.cells.emplace_back();
            if (member != row.end())
                cell = is_empty_leaf(*member) ? "yes" : simple_text(*member, false);
            column.is_number = column.is_number && (cell.empty() || is_number(cell));
            column.width = std::max(column.width, cli_text_width(cell));
        }
    }
    return columns;
}

static size_t table_width(const std::vector<t_column> &columns)
{
    size_t width = 2 * (columns.size() - 1);
    for (const t_column &column : columns)
        width += column.width;
    return width;
}

static void cell_append(const t_column &column, const std::string &cell, std::string *p_line)
{
    size_t blanks = column.width - cli_text_width(cell);
    p_line->append(column.is_number ? blanks : 0, ' ')
        .append(cell)
        .append(column.is_number ? 0 : blanks, ' ');
}

static void line_append(const std::string &line, size_t indent, std::string *p_text)
{
    size_t size = line.find_last_not_of(' ') + 1;  // 0 for a line of blanks
    p_text->append(size > 0 ? indent : 0, ' ').append(line, 0, size).push_back('\n');
}

static void table_print(const std::vector<t_column> &columns, size_t row_count, size_t indent,
                        std::string *p_text)
{
    for (size_t row = 0; row <= row_count; row++) {  // the titles first
        std::string line;
        for (const t_column &column : columns) {
            line += line.empty() ? "" : "  ";
            cell_append(column, row == 0 ? column.title : column.cells[row - 1], &line);
        }
        line_append(line, indent, p_text);
    }
}

void cli_text_table(const t_cli_json &rows, const std::vector<std::string> &columns, std::string *p_text)
{
    table_print(columns_make(rows, columns), rows.size(), 0, p_text);
}

// ---- Objects ----

static void object_print(const t_cli_json &object, size_t indent, std::string *p_text);

// The names of a list's columns, in the order in which they come up. Empty if the entries are not flat.
static std::vector<std::string> column_names(const t_cli_json &entries)
{
    std::vector<std::string> names;
    for (const t_cli_json &entry : entries) {
        for (const auto &[name, value] : entry.items()) {
            if (!is_simple(value))
                return {};
            if (std::ranges::find(names, name) == names.end())
                names.push_back(name);
        }
    }
    return names;
}

static bool table_try(const std::string &name, const t_cli_json &entries, size_t indent, std::string *p_text)
{
    std::vector<std::string> names = column_names(entries);
    if (names.empty())
        return false;
    std::vector<t_column> columns = columns_make(entries, names);
    if (table_width(columns) + indent + 2 > CLI_PAGE_WIDTH)
        return false;
    line_append(name, indent, p_text);
    table_print(columns, entries.size(), indent + 2, p_text);
    return true;
}

static void entry_print(const std::string &name, t_cli_json entry, size_t indent, std::string *p_text)
{
    std::string heading = name;
    if (!entry.empty() && is_simple(entry.front())) {
        heading += ' ' + simple_text(entry.front(), true);
        entry.erase(entry.begin());
    }
    line_append(heading, indent, p_text);
    object_print(entry, indent + 2, p_text);
}

static bool is_list(const t_cli_json &value)
{
    return value.is_array() && !value.empty() &&
           std::ranges::all_of(value, [](const t_cli_json &item) { return item.is_object(); });
}

static void member_print(const std::string &name, const t_cli_json &value, size_t indent, std::string *p_text)
{
    if (is_list(value)) {
        if (!table_try(name, value, indent, p_text)) {
            for (const t_cli_json &entry : value)
                entry_print(name, entry, indent, p_text);
        }
        return;
    }
    line_append(name, indent, p_text);
    if (value.is_object())
        object_print(value, indent + 2, p_text);
}

// Simple values share one column, which their longest name sets.
static void object_print(const t_cli_json &object, size_t indent, std::string *p_text)
{
    size_t width = 0;
    for (const auto &[name, value] : object.items())
        width = is_simple(value) ? std::max(width, cli_text_width(short_name(name))) : width;
    for (const auto &[long_name, value] : object.items()) {
        std::string name = short_name(long_name);
        if (!is_simple(value)) {
            member_print(name, value, indent, p_text);
            continue;
        }
        std::string line =
            name + std::string(width - cli_text_width(name) + 2, ' ') + simple_text(value, true);
        line_append(line, indent, p_text);
    }
}

void cli_text_object(const t_cli_json &object, std::string *p_text)
{
    object_print(object, 0, p_text);
}

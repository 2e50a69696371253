// Views as tables.

#include "cli/text_escape.h"
#include "cli/text_layout.h"
#include "cli/view.h"

#include <algorithm>
#include <cmath>

static constexpr char not_loaded[] = "(not loaded)";
static constexpr size_t gap = 2;           // columns between columns
static constexpr size_t short_width = 12;  // numbers are shortened before a name gets narrower than this
static constexpr size_t narrow_width = 4;  // no column gets narrower

// ---- Numbers ----

std::string cli_short_number(double value)
{
    static constexpr char units[] = " kMGTPEZY";
    size_t unit = 0;
    for (; value >= 999.5 && unit + 2 < sizeof(units); unit++)
        value /= 1000;
    int digits = unit == 0 && value == std::floor(value) ? 0 : value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
    char text[32];
    snprintf(text, sizeof(text), "%.*f", digits, value);
    return unit == 0 ? text : std::string(text) + units[unit];
}

// "1,234,567"
static std::string grouped(uint64_t value)
{
    std::string text = std::to_string(value);
    for (size_t at = text.size(); at > 3;)
        text.insert(at -= 3, ",");
    return text;
}

static std::string percent_text(double value)
{
    char text[32];
    snprintf(text, sizeof(text), "%.1f %%", value);
    return text;
}

// ---- Cells ----

static std::string value_text(const t_cli_json &value)
{
    if (value.is_string())
        return cli_text_printable(value.get<std::string>(), false);
    std::string text;
    for (const t_cli_json &item : value.is_array() ? value : t_cli_json::array({value}))
        text += (text.empty() ? "" : " ") + (item.is_string() ? value_text(item) : item.dump());
    return text;
}

static std::string cell_text(const t_cli_column &column, const t_cli_json &row, bool is_short)
{
    t_cli_json value = row.value(column.member, t_cli_json());
    bool is_text = column.kind == CLI_COLUMN_TEXT;
    if (value.is_null() || (!is_text && !value.is_number()))
        return is_text && !row.contains(column.member) ? "" : "-";
    switch (column.kind) {
    case CLI_COLUMN_TEXT:
        return value_text(value);
    case CLI_COLUMN_PERCENT:
        return percent_text(value.get<double>());
    case CLI_COLUMN_COUNT:
        return is_short && value.get<uint64_t>() > 999'999 ? cli_short_number(value.get<double>())
                                                           : grouped(value.get<uint64_t>());
    case CLI_COLUMN_RATE:
    case CLI_COLUMN_BIT_RATE:
        break;
    }
    return cli_short_number(value.get<double>());
}

// The first line has the titles.
using t_cells = std::vector<std::vector<std::string>>;

static bool misses_counts(std::span<const t_cli_column> columns, const t_cli_json &row)
{
    return std::ranges::any_of(columns, [&](const t_cli_column &column) {
        return column.kind == CLI_COLUMN_COUNT && row.value(column.member, t_cli_json()).is_null();
    });
}

static t_cells cells_make(const t_cli_view &view, std::span<const t_cli_column> columns,
                          const t_cli_json &rows, bool is_short)
{
    t_cells cells(1);
    for (const t_cli_column &column : columns)
        cells[0].emplace_back(column.title);
    for (const t_cli_json &row : rows) {
        std::vector<std::string> &line = cells.emplace_back();
        for (const t_cli_column &column : columns)
            line.push_back(cell_text(column, row, is_short));
        if (view.marks_missing && misses_counts(columns, row))
            line.back() = not_loaded;
    }
    return cells;
}

// ---- Widths ----

static std::vector<size_t> widths_of(const t_cells &cells)
{
    std::vector<size_t> widths(cells[0].size());
    for (const std::vector<std::string> &line : cells) {
        for (size_t i = 0; i < line.size(); i++)
            widths[i] = std::max(widths[i], cli_text_width(line[i]));
    }
    return widths;
}

// Takes width from the widest columns of names until the table fits. The width that the narrowest of those
// has then, or SIZE_MAX where none had to give.
static size_t widths_fit(std::span<const t_cli_column> columns, std::vector<size_t> *p_widths)
{
    size_t total = gap * (columns.size() - 1);
    for (size_t width : *p_widths)
        total += width;
    size_t narrowest = SIZE_MAX;
    for (; total > CLI_PAGE_WIDTH; total--) {
        size_t *p_widest = nullptr;
        for (size_t i = 0; i < columns.size(); i++) {
            bool is_name = columns[i].kind == CLI_COLUMN_TEXT && (*p_widths)[i] > narrow_width;
            if (is_name && (p_widest == nullptr || (*p_widths)[i] > *p_widest))
                p_widest = &(*p_widths)[i];
        }
        if (p_widest == nullptr)
            return 0;
        narrowest = std::min(narrowest, --*p_widest);
    }
    return narrowest;
}

// ---- Lines ----

// Bytes that the first characters of a text have, or from the end the last ones.
static size_t bytes_of(std::string_view text, size_t characters)
{
    size_t at = 0;
    for (; at < text.size(); at++) {
        bool begins = (static_cast<unsigned char>(text[at]) & 0xc0) != 0x80;
        if (begins && characters-- == 0)
            break;
    }
    return at;
}

// A long text loses its middle.
static std::string text_cut(const std::string &text, size_t width)
{
    size_t size = cli_text_width(text);
    if (size <= width)
        return text;
    size_t behind = (width - 1) / 2;
    size_t before = width - 1 - behind;
    return text.substr(0, bytes_of(text, before)) + '~' + text.substr(bytes_of(text, size - behind));
}

static std::string line_text(std::span<const t_cli_column> columns, const std::vector<std::string> &cells,
                             const std::vector<size_t> &widths)
{
    std::string line;
    for (size_t i = 0; i < cells.size(); i++) {
        std::string cell = text_cut(cells[i], widths[i]);
        std::string blanks(widths[i] - cli_text_width(cell), ' ');
        line += i == 0 ? "" : std::string(gap, ' ');
        line += columns[i].kind == CLI_COLUMN_TEXT ? cell + blanks : blanks + cell;
    }
    return line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
}

void cli_view_table(const t_cli_view &view, const t_cli_json &rows, bool has_rates, std::string *p_text)
{
    std::vector<t_cli_column> columns;
    for (const t_cli_column &column : view.columns) {
        if (has_rates || (column.kind != CLI_COLUMN_RATE && column.kind != CLI_COLUMN_BIT_RATE))
            columns.push_back(column);
    }
    t_cells cells = cells_make(view, columns, rows, false);
    std::vector<size_t> widths = widths_of(cells);
    if (widths_fit(columns, &widths) < short_width) {
        cells = cells_make(view, columns, rows, true);
        widths = widths_of(cells);
        widths_fit(columns, &widths);
    }
    for (const std::vector<std::string> &line : cells)
        *p_text += line_text(columns, line, widths);
}

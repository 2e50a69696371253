// Views shown once, or live.

#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/pager.h"
#include "cli/view.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <unistd.h>

using t_clock = std::chrono::steady_clock;

// ---- Rates ----

// What the row is about: all that is no number of a column.
static std::string row_key(const t_cli_view &view, const t_cli_json &row)
{
    std::string key;
    for (const t_cli_column &column : view.columns) {
        if (column.kind == CLI_COLUMN_TEXT)
            key += row.value(column.member, t_cli_json()).dump() + '\n';
    }
    return key;
}

static t_cli_json rate_of(const t_cli_json &before, const t_cli_json &now, int64_t elapsed_us, double factor)
{
    if (!before.is_number() || !now.is_number() || elapsed_us <= 0)
        return nullptr;
    uint64_t was = before.get<uint64_t>();
    uint64_t is = now.get<uint64_t>();
    double more = is > was ? static_cast<double>(is - was) : 0;
    return std::round(more * factor * 1e7 / static_cast<double>(elapsed_us)) / 10;
}

void cli_view_rates(const t_cli_view &view, const t_cli_json &before, int64_t elapsed_us, t_cli_json *p_rows)
{
    std::map<std::string, const t_cli_json *> old;
    for (const t_cli_json &row : before)
        old.emplace(row_key(view, row), &row);
    for (t_cli_json &row : *p_rows) {
        auto found = old.find(row_key(view, row));
        for (const t_cli_column &column : view.columns) {
            if (column.of == nullptr)
                continue;
            double factor = column.kind == CLI_COLUMN_BIT_RATE ? 8 : 1;
            t_cli_json was =
                found != old.end() ? found->second->value(column.of, t_cli_json()) : t_cli_json();
            row[column.member] = rate_of(was, row.value(column.of, t_cli_json()), elapsed_us, factor);
        }
    }
}

// ---- Printing ----

// Leaves out what the screen has no room for.
static void screen_fit(std::string *p_text)
{
    size_t room = cli_screen_rows() - 1;
    auto rows = static_cast<size_t>(std::ranges::count(*p_text, '\n'));
    if (rows <= room)
        return;
    size_t end = 0;
    for (size_t row = 0; row + 1 < room; row++)
        end = p_text->find('\n', end) + 1;
    p_text->resize(end);
    *p_text += "(" + std::to_string(rows + 1 - room) + " more)\n";
}

static e_cli_status rows_print(t_cli *p_cli, const t_cli_view &view, const t_cli_json &rows)
{
    if (p_cli->form == CLI_FORM_JSON)
        return cli_print_json(p_cli, {{view.title, rows}});
    std::string text;
    cli_view_table(view, rows, false, &text);
    return cli_print(p_cli, text);
}

// A table of a live view: in the place of the one before, or behind it after an empty line.
static e_cli_status block_print(t_cli *p_cli, const t_cli_view &view, const t_cli_json &rows, bool is_first)
{
    if (p_cli->form == CLI_FORM_JSON) {
        t_cli_json block = {{view.title, rows}};
        return cli_print(p_cli, block.dump(-1, ' ', false, t_cli_json::error_handler_t::replace) + '\n');
    }
    bool stays = isatty(STDOUT_FILENO) != 0 && p_cli->output.filters.empty();
    std::string text = is_first || stays ? "" : "\n";
    cli_view_table(view, rows, true, &text);
    if (stays) {
        fputs("\x1b[H\x1b[J", stdout);  // to the top, and clear
        screen_fit(&text);
    }
    return cli_print(p_cli, text);
}

// ---- Watching ----

// Ctrl-C ends it well.
static e_cli_status watch_end(t_cli *p_cli, e_cli_status status)
{
    bool is_stopped = cli_interrupted();
    p_cli->output.is_whole = false;
    if (is_stopped && !p_cli->is_terminal)
        cli_interrupt_forget();  // in a script the next line follows
    return is_stopped ? CLI_DONE : status;
}

static e_cli_status view_watch(t_cli *p_cli, const t_cli_view &view, const std::string &name,
                               const t_cli_watch &watch)
{
    if (!cli_interrupt_install())
        return cli_fail(*p_cli, CLI_LOCAL, "Ctrl-C can't be caught");
    p_cli->output.pages = false;
    p_cli->output.is_whole = true;
    t_cli_json before = t_cli_json::array();
    t_clock::time_point last;
    e_cli_status status = CLI_DONE;
    for (size_t block = 0; block < watch.count && status == CLI_DONE && !p_cli->output.is_over; block++) {
        if (block > 0 && !cli_wait_ms(watch.interval_ms))
            break;
        t_cli_answer answer = cli_view_ask(p_cli, view, name);
        if (answer.outcome == CLI_ANSWER_INTERRUPTED)
            break;
        t_clock::time_point now = t_clock::now();
        auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(now - last);
        status = cli_answer_tell(*p_cli, answer);
        if (status != CLI_DONE)
            break;
        cli_view_rates(view, before, block > 0 ? elapsed.count() : 0, &answer.result);
        status = block_print(p_cli, view, answer.result, block == 0);
        before = std::move(answer.result);
        last = now;
    }
    return watch_end(p_cli, status);
}

e_cli_status cli_view_show(t_cli *p_cli, const t_cli_view &view, const std::string &name,
                           const t_cli_watch *p_watch)
{
    if (p_watch != nullptr)
        return view_watch(p_cli, view, name, *p_watch);
    t_cli_answer answer = cli_view_ask(p_cli, view, name);
    e_cli_status status = cli_answer_tell(*p_cli, answer);
    return status == CLI_DONE ? rows_print(p_cli, view, answer.result) : status;
}

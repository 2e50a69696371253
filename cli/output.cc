#include "cli/output.h"

#include "cli/interrupt.h"
#include "cli/pager.h"
#include "cli/text_escape.h"

#include <algorithm>
#include <cstdio>
#include <utility>

static constexpr size_t max_line = 64 * 1024;  // bytes; a longer one is cut into lines

void t_cli_regex_deleter::operator()(regex_t *p_regex) const
{
    regfree(p_regex);
    delete p_regex;
}

cli_regex_ptr cli_regex_new(const std::string &text, std::string *p_reason)
{
    auto regex = std::make_unique<regex_t>();
    int result =
        text.size() > 1024 ? REG_ESPACE : regcomp(regex.get(), text.c_str(), REG_EXTENDED | REG_NOSUB);
    if (result == 0)
        return {regex.release(), t_cli_regex_deleter()};
    char reason[128];
    regerror(result, nullptr, reason, sizeof(reason));
    *p_reason = '"' + text + "\": " + reason;
    return nullptr;
}

// Whether a line passes all filters.
static bool line_passes(t_cli_output *p_output, const std::string &line)
{
    for (t_cli_filter &filter : p_output->filters) {
        if (filter.regex == nullptr) {
            filter.count++;
            return false;
        }
        bool matches = regexec(filter.regex.get(), line.c_str(), 0, nullptr, 0) == 0;
        if (matches != filter.passes)
            return false;
    }
    return true;
}

static void line_write(t_cli_output *p_output, std::string line)
{
    line = cli_text_printable(line, true);
    if (p_output->pages && !cli_pager_room(line, &p_output->rows_used)) {
        p_output->is_over = true;
        return;
    }
    line += '\n';
    p_output->failed = fwrite(line.data(), 1, line.size(), stdout) != line.size();
}

static void line_take(t_cli_output *p_output, std::string line)
{
    if (line_passes(p_output, line))
        line_write(p_output, std::move(line));
}

void cli_output_text(t_cli_output *p_output, std::string_view text)
{
    while (!text.empty() && !p_output->is_over && !p_output->failed) {
        size_t end = text.find('\n');
        size_t size = std::min(end, text.size());
        p_output->rest += text.substr(0, size);
        text.remove_prefix(std::min(size + 1, text.size()));
        bool is_whole = end != std::string_view::npos || p_output->rest.size() > max_line;
        if (is_whole)
            line_take(p_output, std::exchange(p_output->rest, {}));
        p_output->is_over = p_output->is_over || (!p_output->is_whole && cli_interrupted());
    }
    if (!p_output->failed)
        p_output->failed = fflush(stdout) != 0;
}

void cli_output_end(t_cli_output *p_output)
{
    if (!p_output->rest.empty() && !p_output->is_over && !p_output->failed)
        line_take(p_output, std::exchange(p_output->rest, {}));
    for (const t_cli_filter &filter : p_output->filters) {
        if (filter.regex == nullptr && !p_output->is_over)
            line_write(p_output,
                       "Count: " + std::to_string(filter.count) + (filter.count == 1 ? " line" : " lines"));
    }
    if (!p_output->failed)
        p_output->failed = fflush(stdout) != 0;
}

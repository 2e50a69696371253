#include "cli/text_layout.h"

#include <algorithm>

static constexpr size_t max_name = 24;  // columns; the explanation of a longer name begins on the next line

// Fills lines with words. column is where the first line stands already.
static void words_fill(std::string_view text, size_t indent, size_t column, std::string *p_text)
{
    bool line_is_new = true;
    while (!text.empty()) {
        size_t size = std::min(text.find_first_of(" \n"), text.size());
        std::string_view word = text.substr(0, size);
        text.remove_prefix(std::min(size + 1, text.size()));
        if (word.empty())
            continue;
        if (!line_is_new && column + 1 + word.size() > CLI_PAGE_WIDTH) {
            p_text->append("\n").append(indent, ' ');
            column = indent;
            line_is_new = true;
        }
        p_text->append(line_is_new ? 0 : 1, ' ').append(word);
        column += word.size() + (line_is_new ? 0 : 1);
        line_is_new = false;
    }
    p_text->push_back('\n');
}

void cli_text_wrap(std::string_view text, size_t indent, std::string *p_text)
{
    while (!text.empty()) {
        size_t end = std::min(text.find("\n\n"), text.size());
        p_text->append(indent, ' ');
        words_fill(text.substr(0, end), indent, indent, p_text);
        text.remove_prefix(std::min(end + 2, text.size()));
        if (!text.empty())
            p_text->push_back('\n');
    }
}

void cli_text_entries(const t_cli_entries &entries, std::string *p_text)
{
    size_t width = 0;
    for (const auto &[name, explanation] : entries)
        width = name.size() <= max_name ? std::max(width, name.size()) : width;
    size_t column = 2 + width + 2;
    for (const auto &[name, explanation] : entries) {
        p_text->append(2, ' ').append(name);
        if (explanation.empty()) {
            p_text->push_back('\n');
            continue;
        }
        if (name.size() > width)
            p_text->append("\n").append(column, ' ');
        else
            p_text->append(width - name.size() + 2, ' ');
        words_fill(explanation, column, column, p_text);
    }
}

// Where a command's text goes: line by line through filters, then to standard output, a page at a time where
// a person sits there.
//
// Control characters never pass (text_escape.h). Once the pager was quit or Ctrl-C came, the rest of the
// command's output is dropped.
#pragma once

#include <memory>
#include <regex.h>
#include <string>
#include <string_view>
#include <vector>

struct t_cli_regex_deleter {
    void operator()(regex_t *p_regex) const;
};
using cli_regex_ptr = std::shared_ptr<regex_t>;

// An extended regular expression (regex(7)). Null with the reason.
[[nodiscard]] cli_regex_ptr cli_regex_new(const std::string &text, std::string *p_reason);

struct t_cli_filter {
    cli_regex_ptr regex;  // null: count lines, and pass none
    bool passes;          // lines that match, or the others
    size_t count = 0;
};

struct t_cli_output {
    std::vector<t_cli_filter> filters;
    bool pages = false;     // stop at each full screen
    bool is_whole = false;  // Ctrl-C does not cut what is being printed
    size_t rows_used = 0;   // of the screen
    bool is_over = false;   // nobody wants the rest
    bool failed = false;    // with errno
    std::string rest;       // of a line that is not complete
};

void cli_output_text(t_cli_output *p_output, std::string_view text);

// What is left: a last line without an end, counts. Once, at the end of the command.
void cli_output_end(t_cli_output *p_output);

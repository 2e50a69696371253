// A line of the interactive command line as words.
//
// Blanks part words. Double quotes keep blanks and everything else together; in them \" and \\ stand for a
// quote and a backslash. What stands in braces belongs to the word as it is, for the keys of a path
// (/policy/zone{"a b"}). A bare | parts a command from what its output goes through. A line that begins with
// # is a comment.
#pragma once

#include <string>
#include <string_view>
#include <vector>

inline constexpr size_t CLI_LINE_MAX = 1024 * 1024;  // bytes

struct t_cli_token {
    std::string text;
    size_t begin;    // offset in the line
    bool is_pipe;    // a bare |
    bool is_quoted;  // or part of it: neither option nor keyword
};

enum e_cli_line { CLI_LINE_WHOLE, CLI_LINE_OPEN_QUOTE, CLI_LINE_OPEN_BRACE, CLI_LINE_TOO_LONG };

// Reads a line. What is left open stands in the last word.
e_cli_line cli_line_split(std::string_view line, std::vector<t_cli_token> *p_tokens);

// Why a line is no whole one, for people.
const char *cli_line_fault(e_cli_line result);

// A word as a line needs it: in quotes where it would be read as something else.
std::string cli_line_quote(std::string_view word);

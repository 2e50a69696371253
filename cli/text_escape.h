// Text from the daemon, made safe for a terminal: control characters, those of the second half of the code
// (U+0080 to U+009F) and bytes that are no UTF-8 stand as \x1b; everything else as it is.
#pragma once

#include <string>
#include <string_view>

// keeps_lines: line ends and tabs stay.
std::string cli_text_printable(std::string_view text, bool keeps_lines);

// The same for JSON, where such characters stand in strings only: as \u009b.
std::string cli_json_printable(std::string_view text);

// Columns of a text on the screen: the characters of UTF-8.
size_t cli_text_width(std::string_view text);

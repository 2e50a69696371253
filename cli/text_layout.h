// Prose on a page of 80 columns, for help and descriptions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

inline constexpr size_t CLI_PAGE_WIDTH = 80;  // columns

// Appends paragraphs (parted by empty lines), broken at blanks.
void cli_text_wrap(std::string_view text, size_t indent, std::string *p_text);

using t_cli_entries = std::vector<std::pair<std::string, std::string>>;

// Appends names with their explanations beside them, in two columns.
void cli_text_entries(const t_cli_entries &entries, std::string *p_text);

// From a file's name to a rule set.
#pragma once

#include "tools/rule_set.h"
#include "tools/text_scan.h"

#include <string>
#include <string_view>

enum class e_rule_format {
    detect,  // ClassBench if the first line that is not empty begins with '@', else rules
    classbench,
    rules,
};

// Largest rule file in bytes.
inline constexpr size_t RULE_FILE_MAX_SIZE = size_t{256} << 20;

// "auto", "classbench" or "rules".
bool rule_format_read(std::string_view name, e_rule_format *p_format);

// Reads a whole regular file (or what stands behind a pipe), up to max_size bytes. On false *p_error has the
// reason.
bool file_load(const std::string &file, size_t max_size, std::string *p_text, t_text_error *p_error);

// Reads rules out of text that is already here.
bool rule_set_read(std::string_view text, std::string_view file, e_rule_format format, t_rule_set *p_set,
                   t_text_error *p_error);

// Both together. On false *p_error has file, line and reason.
bool rule_set_load(const std::string &file, e_rule_format format, t_rule_set *p_set, t_text_error *p_error);

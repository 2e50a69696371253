// Reader of the project's own rule files.
//
// One statement a line; '#' begins a comment, a backslash at the end of a line goes on with the next.
//
//   table NAME                              name of the table; else the file's name without its suffix
//   default ACTIONS                         what happens to packets that no rule matches; else reject
//   list NAME ADDRESSES...                  a named set of addresses, for src and dst; stands before its use
//   rule NAME [FIELD VALUES]... ACTIONS     the first rule that matches wins
//
// VALUES are alternatives with commas between and no blanks: numbers, ranges LOW-HIGH, names of protocols,
// services and code points, `any`; for src and dst prefixes, addresses, ranges and @LIST. Fields are those of
// rule_fields.h, actions those of rule_actions.h. A rule names each field at most once and says accept or
// reject.
#pragma once

#include "tools/rule_set.h"
#include "tools/text_scan.h"

#include <string_view>

// Ranges that a file may make in all, lists taken apart.
inline constexpr size_t RULE_FILE_MAX_RANGES = 16 << 20;

// False with *p_error set for the first statement that does not hold, for no rules and for too many. *p_set
// is then incomplete.
bool rule_file_read(std::string_view text, std::string_view file, t_rule_set *p_set, t_text_error *p_error);

// Reader of filter sets in ClassBench format.
//
// One rule a line, the first line has the highest priority:
//
//   @source/len  destination/len  slo : shi  dlo : dhi  protocol/mask  flags/mask
//
// Columns stand apart by blanks or tabs. Protocol and flags are hexadecimal after "0x", else decimal. The
// flags column may be missing and is ignored. Empty lines are skipped. Rules are named by their number and
// have no action of their own.
#pragma once

#include "tools/rule_set.h"
#include "tools/text_scan.h"

#include <string_view>

// False with *p_error set for the first line that does not hold, for no rules and for too many. *p_set is
// then incomplete.
bool classbench_read(std::string_view text, std::string_view file, t_rule_set *p_set, t_text_error *p_error);

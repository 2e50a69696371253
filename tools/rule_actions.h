// The actions of rules: read from words of a rule file, and printed again.
//
//   accept | reject                              the verdict
//   count NAME                                   counter, up to 63 bytes
//   log | cflowd | fallback | inspect | tcp-optimization | ssl-optimization | fec-adaptive | fec-always |
//   packet-duplication police NAME rate BYTES burst BYTES [mark]    bytes a second and bytes; mark marks
//   instead of dropping mirror interface NAME | mirror tunnel SOURCE DESTINATION redirect-dns ADDRESS set
//   class N | set dscp N | set traffic-class N | set next-hop ADDRESS | set nat-vpn N | set nat-pool N
//
// An action fills one slot of a record. The verdict stands in the slot's `action`, every other in
// `fwding_action`.
#pragma once

#include "tarnd/compiler/tarn_program_format.h"

#include <string>
#include <string_view>

enum e_action_read {
    ACTION_READ,     // the slot is filled and the words behind it are taken
    ACTION_UNKNOWN,  // the word begins no action
    ACTION_REFUSED,  // it does, but what follows does not hold
};

// Reads the action that begins with `word`; its further words are taken off *p_rest. The slot is overwritten.
e_action_read rule_action_read(std::string_view word, std::string_view *p_rest, t_tarn_filter_action *p_slot,
                               std::string *p_reason);

// The slot in the words above; a slot not in use is empty text, and rates come out in clock ticks.
std::string rule_action_print(const t_tarn_filter_action &slot);

// A name of tables, rules, lists, counters and policers: letters, digits and "._-:/+". False with the reason.
bool rule_name_valid(std::string_view what, std::string_view name, size_t max_size, std::string *p_reason);

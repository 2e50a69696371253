// Compiled rules as text, and what rules can name.
#pragma once

#include "tarnd/compiler/tarn_program_format.h"
#include "tests/support/compile.h"
#include "tests/tarnd/config/pass_world.h"

#include <string>

// A table with the one rule, as the pass would fill it.
ruletable_ptr table_of(PassWorld *p_world, const t_tarn_config_rule *p_rule);
const t_tarn_filter_action *slots_of(const ruletable_ptr &table);

// Bytes other than 0 with their offsets: "4:0e 64:2e".
std::string slot_text(const t_tarn_filter_action &slot);

// Compiler field types and their intervals in hexadecimal, of all but match-any: "2:50-50,1bb-1bb 6:2e-2e".
std::string fields_text(const ruletable_ptr &table);

// What operators see of the rule's slots.
std::string display_text(const ruletable_ptr &table);

// TLOC 10.0.0.<number>, as rules name it, and as TTM announces it with that number as its index.
t_tloc_id test_tloc(uint8_t number);
void announce_tloc(PassWorld *p_world, uint8_t number, uint32_t weight, bool up = true);
void withdraw_tlocs(PassWorld *p_world);

// Adds an element to the list of the rule's sequence.
void add_tloc_element(PassWorld *p_world, const t_tarn_config_rule *p_rule, uint32_t list_num,
                      uint8_t tloc_number, uint32_t preference, uint32_t label);

t_tarn_policer_config policer_config(const char *name, uint64_t bandwidth, uint32_t burst, uint8_t action);

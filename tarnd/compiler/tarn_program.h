// The reading and resetting side of a program in memory: counters, policers, text dump.
//
// Counters and policers live in a program's action records and are written by the forwarding plane while it
// runs. There is no lock. Each has a selector, `version`, of the element in use: a clear flips the selector
// first and zeroes the element that was left afterwards, so at most the increments between the two stores are
// lost. Programs here come from the compiler; for bytes of unknown origin there is the walker in lab/fp. Main
// thread only.
#pragma once

#include "tarnd/compiler/tarn_program_format.h"

#include <cstdint>

struct t_lconfd_context;

// Sums over all slots of that name; the name is compared over 64 bytes. Both outputs are 0 when there is
// none.
void tarn_program_get_counter(const void *p_program, const char *counter_name, int64_t *p_pkts,
                              int64_t *p_bytes);

// Packets and bytes out of bounds. A policer's name in a program is "sequence.name".
void tarn_program_get_policer(const void *p_program, const char *policer_name, int64_t *p_pkts,
                              int64_t *p_bytes);

// A policer's oob_pkt_snapshot stays.
void tarn_program_clear_counter(void *p_program, const char *counter_name);
void tarn_program_clear_policer(void *p_program, const char *policer_name);

using t_tarn_pol_chg_cb = void (*)(void *action_data, t_fp_policer *p_policer);

// Calls pol_chg_cb with the 12 slots of every action record.
void tarn_change_policer(void *p_program, t_fp_policer *p_policer, t_tarn_pol_chg_cb pol_chg_cb);

// Prints the payload of one action record.
using t_tarn_display_action = void (*)(t_lconfd_context *ctx, int usid, const void *action_data);

// Prints the whole program but its instructions, to the session or, with a null ctx, to standard output.
void tarn_display_program(t_lconfd_context *ctx, int usid, const void *p_program,
                          t_tarn_display_action display_action);

// A t_tarn_display_action for records of 12 slots: for each slot in use its name, and for a forwarding action
// its details.
void ftm_oct_filter_action_dump(t_lconfd_context *ctx, int usid, const void *action_data);

// The details of one slot.
void tarn_oct_filter_action_print(t_lconfd_context *ctx, int usid, const t_tarn_filter_action *p_action);

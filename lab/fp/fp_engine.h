// The engine: finds a filter's program in filter memory, executes it on a packet's fields and carries out
// what the action record says.
//
// Programs are executed where they lie: the slot is looked up, its blocks are opened by a walker, and
// counters and policers change inside the records that the daemon reads. Slots and blocks may hold any bytes;
// a program that can't be opened, is not inside its blocks or has other records than those of twelve slots is
// no program.
//
// A walker flattens what it opens, so one is kept for each slot. It is good while
//   - the slot is valid with the same first block, number of blocks, program length and program name, and
//   - the slot's activity bit is still set since the engine set it on the last use.
// The daemon clears that bit only when it reclaims the program or gives the slot out again, so a bit found
// clear means that the slot may hold another program by now, one of the same size and name included; it is
// opened anew. Loading opens all. A program is complete before anybody names its filter id, so opening at the
// first use is early enough; loading while a program is being written may find it broken, and its first use
// then opens it again. Not only programs are remembered, but also why a slot has none.
//
// Of a record's slots, all are carried out in order: counters and policers here; other actions are reported
// (t_fp_outcome) and left to the caller. A packet that a policer drops or the record rejects is counted all
// the same. A packet whose value lies in no entry gets the record of the table's default action, or none if
// no class of the table is the default.
//
// One thread. The daemon runs beside it without a lock; see fp_filter.h and tarn_program_format.h.
#pragma once

#include "fp_api/fp_filter.h"
#include "lab/fp/fp_policer_run.h"
#include "lab/fp/walker.h"

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

// Where filters live. The blocks lie on a multiple of 8 and outlive the engine.
struct t_fp_pool {
    std::span<t_tarn_filter> filters;
    std::span<t_tarn_filter_mem_block> blocks;
};

enum e_fp_decision {
    FP_DECISION_NO_PROGRAM,  // there is no program: the packet goes on
    FP_DECISION_NONE,        // no slot says anything, or there is no record
    FP_DECISION_ACCEPT,
    FP_DECISION_REJECT,
    FP_DECISION_OTHER,  // another plain action; see plain_action
};

// A slot of the record with a forwarding action.
struct t_fp_executed {
    uint32_t slot;
    e_fp_police police;  // of a policer
};

// What happened to one packet. Pointers lead into filter memory and into the engine; they are good until its
// next call.
struct t_fp_outcome {
    uint32_t filter_id;
    e_fp_decision decision;
    uint32_t plain_action;       // of the first slot that has one, or 0
    const std::string *p_name;   // of the program; null without one
    const std::string *p_error;  // why there is no program, else null
    t_fp_verdict verdict;        // as the program ended; the record of a default may be another
    uint32_t record;             // number of the record, FP_NO_RECORD for none
    bool is_default;             // no rule matched
    bool policer_drop;
    bool came_high;                       // the packet came with high loss priority
    bool plp_high;                        // a policer marked the packet
    const t_tarn_filter_action *p_slots;  // the record's twelve; null without a record
    uint32_t num_executed;
    std::array<t_fp_executed, MAX_ACTIONS_IN_RULE> executed;
};

struct t_fp_filter_stats {
    uint64_t packets;
    uint64_t bytes;
    uint64_t accepted;
    uint64_t rejected;
    uint64_t defaults;  // no rule matched
    uint64_t no_program;
    uint64_t policer_drops;  // packets, accepted and rejected ones
    uint64_t policer_marks;
};

// What loading found in a slot.
struct t_fp_filter_info {
    uint32_t filter_id;
    uint32_t hw_index;
    uint32_t num_blocks;
    bool activity;
    std::string name;
    uint32_t length;  // bytes
    uint32_t num_records;
    std::string error;  // why it can't be opened; then name, length and records are empty
};

struct t_fp_engine;

struct t_fp_engine_deleter {
    void operator()(t_fp_engine *p_engine) const;
};
using fp_engine_ptr = std::unique_ptr<t_fp_engine, t_fp_engine_deleter>;

fp_engine_ptr fp_engine_new(const t_fp_pool &pool);

// Opens the programs of all valid slots anew, in the order of their ids, and forgets those of the others. Not
// a use: activity stays as it is.
std::vector<t_fp_filter_info> fp_engine_load(t_fp_engine *p_engine);

// A packet and the filter that it meets.
struct t_fp_use {
    uint32_t filter_id;  // any number
    const t_fp_header *p_header;
    uint32_t bytes;  // of the packet, for counters and policers
    uint64_t now;    // clock ticks
};

t_fp_outcome fp_engine_run(t_fp_engine *p_engine, const t_fp_use &use);

// Adds one packet to the counts.
void fp_filter_stats_count(t_fp_filter_stats *p_stats, const t_fp_outcome &outcome, uint32_t bytes);

// Since the engine began; programs come and go under a filter id. An id from the number of slots up is
// counted in the total only.
const t_fp_filter_stats &fp_engine_total(const t_fp_engine *p_engine);
std::span<const t_fp_filter_stats> fp_engine_stats(const t_fp_engine *p_engine);  // by filter id

// The daemon's filter memory without the daemon: block, allocator, compiler context and timer wheel, set up
// as at its start.
//
// One exists at a time, since filter memory keeps its state in globals. Programs are known by their filter
// id; those freed stay in filter memory until a pass of the wheel finds that the forwarding plane has stopped
// using them. Main thread only.
#pragma once

#include "tarnd/core/tarn.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

enum e_demo_program : uint8_t {
    DEMO_PROGRAM_NONE,
    DEMO_PROGRAM_LIVE,
    DEMO_PROGRAM_FREED,  // waits for its release
};

struct t_demo {
    t_tarn tarn;
    t_tarn_hw_api hwapi;                   // the daemon's, but for what happens with blocks that come free
    std::vector<e_demo_program> programs;  // by filter id
    uint64_t released_blocks;              // since the start
};

struct t_demo_deleter {
    void operator()(t_demo *p_demo) const;
};
using demo_ptr = std::unique_ptr<t_demo, t_demo_deleter>;

// Maps the block and clears the filter tables; blocks until the forwarding plane is ready. Null with the
// reason.
demo_ptr demo_open(std::string *p_error);

// Runs the timers that are due.
void demo_timers_run(t_demo *p_demo);

struct t_demo_compiled {
    int filter_id;       // -1 without a program
    size_t rules;        // in the file
    uint64_t length;     // bytes; of a program that does not fit a lower bound
    std::string reason;  // why there is no program
};

// Compiles a rule file into filter memory.
t_demo_compiled demo_compile(t_demo *p_demo, const std::string &rule_file);

// Any number may be asked for; one that names no program here is DEMO_PROGRAM_NONE.
e_demo_program demo_program_state(const t_demo *p_demo, int filter_id);
uint32_t demo_freed_count(const t_demo *p_demo);

// The program of a filter that has one.
void *demo_program(const t_demo *p_demo, int filter_id);

// Frees a live program.
void demo_free(t_demo *p_demo, int filter_id);

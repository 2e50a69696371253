// The commands of filter_demo: one line in, one JSON object on one line out (see README.md).
//
// An answer has "command" and "ok"; on false "error" tells why.
#pragma once

#include "lab/demo/demo_memory.h"

#include <string>
#include <string_view>

// The answer to a command, without a line end; empty for an empty line. `wait` runs the wheel meanwhile.
std::string demo_command_run(t_demo *p_demo, std::string_view line);

// Whether the line is the command that ends the demo.
bool demo_command_ends(std::string_view line);

// Sleeps until the wheel may have something to do, or the descriptor (none: -1) can be read. True in the
// latter case.
bool demo_tick_wait(int fd);

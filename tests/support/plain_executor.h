// The program walker written a second time, by the words of the format: it reads the raw bytes at every step,
// descends each search tree along its links from entry 0 and executes each instruction as it stands. It
// checks nothing; programs come from the compiler or have passed fp_walker_open.
#pragma once

#include "lab/fp/walker.h"

// The verdict; with p_steps also every executed instruction.
t_fp_verdict plain_execute(std::span<const std::byte> program, const t_fp_header &header,
                           std::vector<t_fp_step> *p_steps = nullptr);

// The forwarding plane's part of the shared block: creating it, filling what it owns, saying that it is
// ready.
//
// Other processes wait for the ready bit before they use the block, so it is set last and cleared first. What
// they own is left alone: programs of an earlier run stay in filter memory, and the heads of the zone tables'
// free lists are the daemon's. Main thread only.
#pragma once

#include "lab/fp/fp_engine.h"
#include "lab/fp/fp_zones.h"

// Creates the block, or lays out the one that an earlier run left, and fills the control record: clock rate,
// the clock's distance from the time of day, cores, work groups; empties tracing, capture, policers,
// profilers and the two application tables. recreate first removes a block that is there; processes that
// still have it mapped are then on their own. False when the block can't be had; the reason is logged.
[[nodiscard]] bool fp_block_create(bool recreate);

// Filter memory in the block.
t_fp_pool fp_block_pool();

// The zone tables in the block.
t_fp_zone_tables fp_block_zones();

// Sets the ready bit, and clears it when the process leaves.
void fp_block_set_ready(bool is_ready);

// Which core does what, and which work groups it serves.
//
// The lowest num_ctl_cores cores run the control processes; min_fp_core_num to max_fp_core_num run the
// forwarding plane. A work group is a number in a packet's work entry; fp_work_grps_init deals the groups out
// over the forwarding cores, and all processes read the maps in the shared control record. Bit n of a mask
// stands for core n or group n.
#pragma once

#include <cstdint>

// ---- Cores ----

// Whether the core runs the forwarding plane.
bool fp_core_is_dpi(int core);

// Cores of the machine, of both kinds.
int fp_get_total_core_num();

// The cores that a program, named by its path, may run on: the forwarding cores for "fp-um", with *is_fp 1;
// the control cores for any other, with *is_fp 0. Initialises the scaling if needed.
uint64_t fp_get_coremask(const char *prog_name, int *is_fp);

// Shares the cores out anew when fewer are online (or, with coremask_valid, outside coremask) than the table
// counts on: what is there goes to control, what is missing to the forwarding plane's count. 0 if the cores
// were shared out or TCP optimisation forbids it, 1 if there was nothing to do. Call it after
// fp_global_shmem_init, whose layout depends on the forwarding cores, and before the groups are dealt out.
int fp_readjust_num_cores(int coremask_valid, uint64_t coremask);

// The same for one process's own cores: nothing to do here, always 0.
int fp_core_readjust_num_cores(uint64_t coremask);

// ---- Work groups, after fp_global_shmem_init ----

// Deals num_per_core_work_grps groups, from work_grp_per_core_base up, over the forwarding cores in turn.
// Only the process that creates the layout calls it.
void fp_work_grps_init();

// The first group of the core; 0, which is never dealt out, for a core without one.
int fp_core_to_work_grp(int core);

// The core that serves the group; 0 also for a group that was never dealt out.
int fp_work_grp_to_core(int grp);

bool fp_grp_belongs_to_core(int core, int grp);

// All groups of the core. Built from the map on the first call and then kept in the core's shared data.
uint64_t fp_get_core_grp_mask(int core);

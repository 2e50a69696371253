// Filter memory: where programs live in shared memory.
//
// A pool of 128-byte blocks with a first-fit allocator, and a table of filter slots through which the
// forwarding plane finds a program by its filter id. A program never moves and is never written while it
// runs, but for the fields of its policers. It is freed late: its blocks and its slot stay as they are on a
// delete list until a pass of a 500 ms timer finds that the forwarding plane has not used the filter since
// the pass before. Blocks that come free are offered to the policies that found no memory.
//
// Sharing is by protocol, not by lock: a slot and its blocks stay untouched while record_valid is set,
// `activity` is set over there and cleared here. Main thread only.
#pragma once

#include "tarnd/core/tarn.h"

struct confd_user_info;

// Waits until the forwarding plane has laid out the named block, maps it and, with do_init, clears the filter
// tables. 0, 12 without memory, or what the mapping reports. Blocks for as long as the forwarding plane is
// not up.
int tarn_oct_filter_init(t_tarn *p_tarn, uint8_t do_init);
int tarn_oct_filter_destroy();

// Blocks for a program of `size` bytes, contiguous; null when no slot or no run of blocks is free. Leaves the
// slot's number in g_filter_id, -1 on failure. The memory is not cleared.
void *tarn_oct_filter_mem_alloc(size_t size);

// Puts a program on the delete list. ptr is what an allocation gave (assertion).
void tarn_oct_filter_mem_free(void *ptr);

// Changes rate, burst and action of a policer in a running program: 0, or 22 for a filter that has none.
int tarn_oct_filter_policer_change(int filter_id, t_fp_policer *p_policer);

// Timer callback of the delayed delete; tarn is the t_tarn.
void tarn_oct_filter_mem_delete(t_timer *p_timer, void *tarn, void *arg2, void *arg3, void *arg4);

// Overwrites the policers of one action record whose name behind the sequence number is the policer's.
void tarn_oct_filter_pol_change_cb(void *action_data, t_fp_policer *p_policer);

// Whether the hardware can be asked at all; always so here.
bool is_hw_initialized();

// Dumps to an operator's session, or with a null ctx to standard output. verbosity is not used.
void tarn_oct_filter_stats_dump(t_lconfd_context *ctx, int usid, int verbosity);
void tarn_oct_filter_table_dump(t_lconfd_context *ctx, int usid, int verbosity);
void tarn_oct_filter_memory_map_dump(t_lconfd_context *ctx, int usid, int verbosity);

// The same as commands of the management framework, printed to the user's session. path, argc and argv are
// not used. 0.
int tarn_dump_memory_stats(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_filter(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_memory_map(confd_user_info *uinfo, char *path, int argc, char **argv);

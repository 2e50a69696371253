// The three dumps of filter memory.
#include "common/cli_print.h"
#include "fp_api/fp_scaling.h"
#include "fp_api/fp_tables.h"
#include "lconfd/lconfd_api.h"
#include "libcvmx/sim/_cvmx-clock.h"
#include "platform/confd/confd_lib.h"
#include "tarnd/compiler/tarn_program.h"
#include "tarnd/filter/tarn_if_octeon.h"
#include "tarnd/filter/tarn_if_octeon_private.h"

static bool is_shown(const t_tarn_filter &filter)
{
    return filter.record_valid || filter.activity;
}

static int shown(uint32_t value)
{
    return static_cast<int>(value);
}

static void print_slot_titles(t_lconfd_context *ctx, int usid)
{
    cli_print(ctx, usid, "%-5s\t%-5s\t%-8s\t%-13s\t%-8s\n", "Index", "Valid", "HW Index", "Num HW Blocks",
              "Activity");
}

static void print_slot(t_lconfd_context *ctx, int usid, int index)
{
    const t_tarn_filter &filter = g_fp_filter[index];
    cli_print(ctx, usid, "%5d\t%5d\t%8d\t%13d\t%8d\n", index, filter.record_valid, shown(filter.hw_index),
              shown(filter.num_hw_mem_blocks), filter.activity);
}

void tarn_oct_filter_stats_dump(t_lconfd_context *ctx, int usid, int)
{
    int filters = 0;
    uint32_t blocks = 0;
    print_slot_titles(ctx, usid);
    for (int i = 0; i < g_fp_scaling.num_filters; i++) {
        if (!is_shown(g_fp_filter[i]))
            continue;
        print_slot(ctx, usid, i);
        filters++;
        blocks += g_fp_filter[i].num_hw_mem_blocks;
    }
    cli_print(ctx, usid, "Number of filters: %d/%d\n", filters, g_fp_scaling.num_filters);
    cli_print(ctx, usid, "Number of blocks used: %d/%d\n", shown(blocks), g_fp_scaling.num_filter_blocks);
    cli_print(ctx, usid, "\n");
}

// A slot that an earlier run left may name any block; only the first block of a run in use can be read as a
// program.
static bool begins_program(uint32_t block)
{
    return block < static_cast<uint32_t>(g_fp_scaling.num_filter_blocks) && tarn_mem[block].is_allocated;
}

static void print_program(t_lconfd_context *ctx, int usid, int index)
{
    const t_tarn_filter &filter = g_fp_filter[index];
    cli_print(ctx, usid, "FILTER %5d Activity: %d\n", index, filter.activity);
    cli_print(ctx, usid, "====== %5s\n\n", "=====");
    if (begins_program(filter.hw_index))
        tarn_display_program(ctx, usid, &g_fp_filter_mem_block[filter.hw_index], ftm_oct_filter_action_dump);
}

void tarn_oct_filter_table_dump(t_lconfd_context *ctx, int usid, int)
{
    print_slot_titles(ctx, usid);
    for (int i = 0; i < g_fp_scaling.num_filters; i++)
        if (is_shown(g_fp_filter[i]))
            print_slot(ctx, usid, i);
    cli_print(ctx, usid, "\n\n");
    for (int i = 0; i < g_fp_scaling.num_filters; i++)
        if (is_shown(g_fp_filter[i]))
            print_program(ctx, usid, i);
    cli_print(ctx, usid, "\t%11s: %lu\n", "Clock Rate",
              static_cast<unsigned long>(cvmx_clock_get_rate(CVMX_CLOCK_CORE)));
}

static int print_used_run(t_lconfd_context *ctx, int usid, int start)
{
    const t_tarn_mem_node &node = tarn_mem[start];
    const t_tarn_filter &filter = g_fp_filter[node.filter_id];
    int end = start + shown(node.num_hw_blocks);
    cli_print(ctx, usid, "Used Block start index: %d/%u - end index %d (#%u/%u)\n", start, filter.hw_index,
              end, node.num_hw_blocks, filter.num_hw_mem_blocks);
    cli_print(ctx, usid, "\tFilterId: %u\n", node.filter_id);
    return end;
}

static int print_free_run(t_lconfd_context *ctx, int usid, int start)
{
    int end = start;
    while (end < g_fp_scaling.num_filter_blocks && !tarn_mem[end].is_allocated)
        end++;
    cli_print(ctx, usid, "Free Block start index: %d - end index %d\n", start, end);
    return end;
}

void tarn_oct_filter_memory_map_dump(t_lconfd_context *ctx, int usid, int)
{
    cli_print(ctx, usid, "Dumping the filter memory map");
    cli_print(ctx, usid, "\n\n");
    for (int i = 0; i < g_fp_scaling.num_filter_blocks;)
        i = tarn_mem[i].is_allocated ? print_used_run(ctx, usid, i) : print_free_run(ctx, usid, i);
    cli_print(ctx, usid, "\n");
}

static t_lconfd_context *context_of(const confd_user_info *uinfo)
{
    return static_cast<t_lconfd_context *>(uinfo->actx.dx->d_opaque);
}

int tarn_dump_memory_stats(confd_user_info *uinfo, char *, int, char **)
{
    tarn_oct_filter_stats_dump(context_of(uinfo), uinfo->usid, 0);
    return 0;
}

int tarn_dump_filter(confd_user_info *uinfo, char *, int, char **)
{
    tarn_oct_filter_table_dump(context_of(uinfo), uinfo->usid, 0);
    return 0;
}

int tarn_dump_memory_map(confd_user_info *uinfo, char *, int, char **)
{
    tarn_oct_filter_memory_map_dump(context_of(uinfo), uinfo->usid, 0);
    return 0;
}

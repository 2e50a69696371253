#include "fp_api/fp_scaling.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "fp_api/fp_scaling_private.h"
#include "libcvmx/sim/_cvmx-sysinfo.h"

static constexpr uint64_t RAM_SMALL_BELOW = 1610612736;
static constexpr uint64_t RAM_REGULAR_BELOW = 2684354560;
static constexpr uint64_t RAM_ABOVE_4GB = 0xffffffff;
static constexpr uint64_t RAM_SMALL_BASE = 0x40000000;  // what a small table's own huge pages count on
static constexpr uint64_t HUGEPAGE_SIZE = 4194304;
static constexpr uint32_t MAX_HUGEPAGES = 512;
static constexpr int CXP_RECORDS_PER_VRF = 64;
static constexpr int TUNNELS_PER_BLOCKCHAIN = 32;

t_fp_scaling_params g_fp_scaling;

using t_file = std::unique_ptr<FILE, int (*)(FILE *)>;

// ---- The machine's size ----

uint64_t fp_get_ram_size()
{
    struct sysinfo machine = {};
    sysinfo(&machine);
    return machine.totalram;
}

struct t_size_text {
    const char *text;
    e_fp_pylon_size size;
};

// In the order of the search.
static const t_size_text g_size_texts[] = {
    {"large", FP_PYLON_SIZE_LARGE},
    {"regular", FP_PYLON_SIZE_REGULAR},
    {"small", FP_PYLON_SIZE_SMALL},
};

// 0 if the file is missing or names no size.
static int size_from_file()
{
    t_file file(fopen("/etc/default/sim_size", "r"), fclose);
    if (file == nullptr)
        return 0;
    char text[64 + 1];
    text[fread(text, 1, sizeof(text) - 1, file.get())] = '\0';
    for (const t_size_text &row : g_size_texts)
        if (strstr(text, row.text) != nullptr)
            return row.size;
    return 0;
}

e_fp_pylon_size fp_get_pylon_size()
{
    int named = size_from_file();
    if (named != 0)
        return static_cast<e_fp_pylon_size>(named);
    uint64_t ram = fp_get_ram_size();
    if (ram < RAM_SMALL_BELOW)
        return FP_PYLON_SIZE_SMALL;
    if (ram < RAM_REGULAR_BELOW)
        return FP_PYLON_SIZE_REGULAR;
    return ram > RAM_ABOVE_4GB ? FP_PYLON_SIZE_ABOVE_4GB : FP_PYLON_SIZE_LARGE;
}

uint64_t fp_get_extra_hugepage_size(e_fp_pylon_size size)
{
    uint64_t ram = fp_get_ram_size();
    if (size == FP_PYLON_SIZE_SMALL && ram > RAM_SMALL_BASE)
        return (ram - RAM_SMALL_BASE) / HUGEPAGE_SIZE;
    if (size == FP_PYLON_SIZE_REGULAR && ram > RAM_SMALL_BELOW)
        return (ram - RAM_SMALL_BELOW) / HUGEPAGE_SIZE;
    return 0;
}

void fp_set_pylon_hugepage_reserve(uint32_t pages)
{
    t_file file(fopen("/boot/hugepage.conf", "w"), fclose);
    if (file != nullptr)
        fprintf(file.get(), "%u", pages);
}

// ---- Model and cores ----

void fp_scaling_take_cores(t_fp_scaling_params *p_params, int online)
{
    // Cores are numbered in 8 bits; what a machine has above that stays idle.
    uint8_t count = static_cast<uint8_t>(std::clamp(online, 1, 255));
    p_params->num_cores = count;
    p_params->max_fp_core_num = static_cast<uint8_t>(count - 1);
    p_params->num_per_core_data = count;
    uint8_t reserved = count < 2 ? 0 : count < 17 ? 1 : 2;  // cores kept from the forwarding plane
    p_params->num_ctl_cores = std::max<uint8_t>(reserved, 1);
    p_params->min_fp_core_num = reserved;
    p_params->num_fp_dpi_cores = static_cast<uint8_t>(count - reserved);
    if (reserved == 1)
        p_params->fp_rx_core_num = 0;
}

void fp_scaling_derive(t_fp_scaling_params *p_params)
{
    p_params->num_cxp_records = p_params->num_vrfs * CXP_RECORDS_PER_VRF;
    p_params->num_fec_blockchains = std::max(p_params->num_tundb_records / TUNNELS_PER_BLOCKCHAIN, 1);
    p_params->num_pkt_dup_rx_tables = p_params->num_fec_blockchains;
}

// The model of a board that has a table of its own, or null.
static const t_fp_scaling_params *fixed_model(int board_type)
{
    switch (board_type) {
    case CVMX_BOARD_TYPE_PYLON_A4:
        return &g_fp_scaling_Pylon_A4;
    case CVMX_BOARD_TYPE_MOCHA_B1:
    case CVMX_BOARD_TYPE_MOCHA_B2:
        return &g_fp_scaling_mocha_B1;
    case CVMX_BOARD_TYPE_MOCHA_B3:
        return &g_fp_scaling_mocha_B3;
    default:
        return nullptr;
    }
}

static const t_fp_scaling_params *model_of_size(e_fp_pylon_size size)
{
    switch (size) {
    case FP_PYLON_SIZE_ABOVE_4GB:
        return &g_fp_scaling_Pylon_A3;
    case FP_PYLON_SIZE_LARGE:
        return &g_fp_scaling_Pylon_A2;
    case FP_PYLON_SIZE_REGULAR:
        return &g_fp_scaling_Pylon_medium;
    case FP_PYLON_SIZE_SMALL:
        break;
    }
    return &g_fp_scaling_Pylon_small;
}

static void init_by_size()
{
    e_fp_pylon_size size = fp_get_pylon_size();
    g_fp_scaling = *model_of_size(size);
    uint64_t pages = g_fp_scaling.num_hugepages + fp_get_extra_hugepage_size(size);
    g_fp_scaling.num_hugepages = static_cast<uint32_t>(std::min<uint64_t>(pages, MAX_HUGEPAGES));
    fp_scaling_take_cores(&g_fp_scaling, static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
}

void fp_scaling_init(int board_type)
{
    if (g_fp_scaling.shmem_info_tbl_size != 0)
        return;
    if (const t_fp_scaling_params *p_model = fixed_model(board_type))
        g_fp_scaling = *p_model;
    else
        init_by_size();
    fp_set_pylon_hugepage_reserve(g_fp_scaling.num_hugepages);
    fp_scaling_derive(&g_fp_scaling);
}

#include "fp_api/fp_scaling.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <filesystem>

#include "fp_api/fp_scaling_private.h"
#include "fp_api/fp_shmem.h"
#include "fp_api/fp_tables.h"
#include "tests/fp_api/models.h"
#include "tests/libcvmx/fake_system.h"

static constexpr uint64_t GIB = 1ull << 30;

class Scaling : public testing::Test {
protected:
    void init(int board_type)
    {
        g_fp_scaling = {};
        fp_scaling_init(board_type);
    }

    FakeSystem fake;
};

// ---- Model tables ----

TEST_F(Scaling, EveryTableHasAPositiveSizeInEveryModel)
{
    for (const t_model &model : g_models) {
        g_fp_scaling = *model.p_params;
        for (const t_fp_shmem &row : g_shmem_tbl)
            EXPECT_GT(*row.p_num_tbl_entries, 0) << model.name << " " << row.p_block_name;
        EXPECT_EQ(model.p_params->num_dpi_proto_family_mapping_entries, 4096) << model.name;
        EXPECT_EQ(model.p_params->num_dpi_proto_hits, 4096) << model.name;
    }
}

TEST_F(Scaling, HashTablesAreMaskedAndTheirRecordsFitSixteenBits)
{
    for (const t_model &model : g_models) {
        const t_fp_scaling_params &params = *model.p_params;
        for (int count : {params.num_if_records, params.num_arp_records, params.num_cxp_records,
                          params.num_server_appids}) {
            EXPECT_TRUE(std::has_single_bit(static_cast<uint32_t>(count))) << model.name << " " << count;
            EXPECT_LT(count, 65535) << model.name;
        }
        for (int count : {params.num_zbf_pair_hash_records, params.num_vpn_zone_hash_records,
                          params.num_flow_hash_records, params.num_tundb_hash_buckets})
            EXPECT_TRUE(std::has_single_bit(static_cast<uint32_t>(count))) << model.name << " " << count;
        t_fp_scaling_params derived = params;
        fp_scaling_derive(&derived);
        EXPECT_EQ(memcmp(&derived, &params, sizeof(params)), 0) << model.name << ": derived counts differ";
    }
}

// Bytes of a laid-out block up to the end of its last table.
static uint64_t laid_out_size()
{
    uint64_t end = FP_SHMEM_TABLES_OFFSET;
    for (const t_fp_shmem &row : g_shmem_tbl) {
        uint64_t size = static_cast<uint64_t>(*row.p_num_tbl_entries) * row.record_size;
        uint64_t copies =
            row.alloc_shmem_per_core ? g_fp_scaling.max_fp_core_num - g_fp_scaling.min_fp_core_num + 1 : 1;
        end += copies * ((size + 127) / 128 * 128);
    }
    return end;
}

TEST_F(Scaling, AllTablesFitTheBlockWithAnyNumberOfCores)
{
    for (const t_model &model : g_models) {
        g_fp_scaling = *model.p_params;
        int most = model.cores_from_machine ? 300 : 1;
        for (int online = 1; online <= most; online++) {
            if (model.cores_from_machine)
                fp_scaling_take_cores(&g_fp_scaling, online);
            EXPECT_LT(laid_out_size(), g_fp_scaling.app_named_block_size) << model.name << " " << online;
        }
    }
}

// ---- Which model ----

TEST_F(Scaling, TheSizeFileWinsOverMemory)
{
    static const struct {
        const char *behaviour;
        std::string text;  // "-": no file
        uint64_t ram;
        int size;
    } cases[] = {
        {"large is searched first", "small regular large", GIB, 3},
        {"then regular", "small,regular", 8 * GIB, 2},
        {"then small", "size=small\n", 8 * GIB, 1},
        {"64 bytes are read", std::string(59, ' ') + "large", GIB, 3},
        {"and no more", std::string(60, ' ') + "large", GIB, 1},
        {"another text goes by memory", "LARGE", GIB, 1},
        {"so does an empty file", "", 3 * GIB, 3},
        {"no file, below 1.5 GiB", "-", 1610612735, 1},
        {"no file, at 1.5 GiB", "-", 1610612736, 2},
        {"no file, below 2.5 GiB", "-", 2684354559, 2},
        {"no file, at 2.5 GiB", "-", 2684354560, 3},
        {"no file, at 4 GiB less one", "-", 0xffffffff, 3},
        {"no file, at 4 GiB", "-", 0x100000000, 4},
    };
    for (const auto &c : cases) {
        fake.remove("/etc/default/sim_size");
        if (c.text != "-")
            fake.put("/etc/default/sim_size", c.text);
        fake.ram = c.ram;
        EXPECT_EQ(fp_get_pylon_size(), c.size) << c.behaviour;
    }
}

TEST_F(Scaling, BoardAndSizeChooseTheModelAndTheHugePages)
{
    static const struct {
        const char *behaviour;
        int board_type;
        uint64_t ram;
        const char *pages;  // what /boot/hugepage.conf gets
        int flows;          // these three tell the models apart
        int filter_blocks;
        int policers;
    } cases[] = {
        {"the large board keeps its own number", 40001, GIB, "4096", 131072, 1048576, 1024},
        {"B1", 60001, 64 * GIB, "64", 8192, 1048576, 256},
        {"B2 is B1", 60002, GIB, "64", 8192, 1048576, 256},
        {"B3", 60003, GIB, "256", 65536, 1048576, 1024},
        {"unknown, small, at 1 GiB", 20000, GIB, "64", 4096, 6144, 256},
        {"small, 1 MiB short of another page", 20000, GIB + (3 << 20), "64", 4096, 6144, 256},
        {"small, one more page", 20000, GIB + (4 << 20), "65", 4096, 6144, 256},
        {"small, most", 20000, 1610612735, "191", 4096, 6144, 256},
        {"middle, at 1.5 GiB", 20004, 1610612736, "128", 16384, 65536, 1024},
        {"middle, a part of a page is cut", 20004, 1610612736 + (7 << 20), "129", 16384, 65536, 1024},
        {"large", 20005, 3 * GIB, "256", 65536, 1048576, 1024},
        {"above 4 GiB", 20006, 64 * GIB, "512", 131072, 1048576, 1024},
    };
    for (const auto &c : cases) {
        fake.ram = c.ram;
        fake.put("/boot/hugepage.conf", "");
        init(c.board_type);
        EXPECT_EQ(fake.get("/boot/hugepage.conf"), c.pages) << c.behaviour;
        EXPECT_EQ(std::to_string(g_fp_scaling.num_hugepages), c.pages) << c.behaviour;
        EXPECT_EQ(g_fp_scaling.num_flow_records, c.flows) << c.behaviour;
        EXPECT_EQ(g_fp_scaling.num_filter_blocks, c.filter_blocks) << c.behaviour;
        EXPECT_EQ(g_fp_scaling.num_policers, c.policers) << c.behaviour;
    }
}

TEST_F(Scaling, HugePagesOfSizeBoardsStopAt512)
{
    fake.ram = 64 * GIB;
    for (const char *size : {"small", "regular", "large"}) {
        fake.put("/etc/default/sim_size", size);
        init(20000);
        EXPECT_EQ(g_fp_scaling.num_hugepages, strcmp(size, "large") == 0 ? 256u : 512u) << size;
    }
}

TEST_F(Scaling, IsDoneOnceAndAHugepageFileThatCantBeWrittenIsPassedOver)
{
    g_fp_scaling = {};
    std::filesystem::create_directory(fake.path_of("/boot/hugepage.conf"));
    fp_scaling_init(60003);
    EXPECT_EQ(g_fp_scaling.num_policers, 1024);
    fp_scaling_init(60001);
    EXPECT_EQ(g_fp_scaling.num_policers, 1024);
}

// ---- Cores ----

TEST_F(Scaling, SizeBoardsTakeTheCoresOfTheMachine)
{
    static const struct {
        int online;
        int cores;
        int ctl;
        int min;
        int max;
        int dpi;
        int rx;  // 9: as the table has it
    } cases[] = {
        {1, 1, 1, 0, 0, 1, 9},         {2, 2, 1, 1, 1, 1, 0},         {3, 3, 1, 1, 2, 2, 0},
        {16, 16, 1, 1, 15, 15, 0},     {17, 17, 2, 2, 16, 15, 9},     {64, 64, 2, 2, 63, 62, 9},
        {255, 255, 2, 2, 254, 253, 9}, {256, 255, 2, 2, 254, 253, 9}, {-1, 1, 1, 0, 0, 1, 9},
    };
    for (const auto &c : cases) {
        t_fp_scaling_params params = {};
        params.fp_rx_core_num = 9;
        fp_scaling_take_cores(&params, c.online);
        EXPECT_EQ(params.num_cores, c.cores) << c.online;
        EXPECT_EQ(params.num_ctl_cores, c.ctl) << c.online;
        EXPECT_EQ(params.min_fp_core_num, c.min) << c.online;
        EXPECT_EQ(params.max_fp_core_num, c.max) << c.online;
        EXPECT_EQ(params.num_fp_dpi_cores, c.dpi) << c.online;
        EXPECT_EQ(params.fp_rx_core_num, c.rx) << c.online;
        EXPECT_EQ(params.num_per_core_data, c.cores) << c.online;
    }
    fake.processors = 7;
    init(20000);
    EXPECT_EQ(g_fp_scaling.num_cores, 7);
    init(60003);
    EXPECT_EQ(g_fp_scaling.num_cores, 4) << "a fixed board keeps its own";
}

TEST_F(Scaling, CountsThatFollowFromOthersAreAtLeastOne)
{
    t_fp_scaling_params params = {};
    params.num_vrfs = 10;
    params.num_tundb_records = 31;
    fp_scaling_derive(&params);
    EXPECT_EQ(params.num_cxp_records, 640);
    EXPECT_EQ(params.num_fec_blockchains, 1);
    EXPECT_EQ(params.num_pkt_dup_rx_tables, 1);
    params.num_tundb_records = 95;
    fp_scaling_derive(&params);
    EXPECT_EQ(params.num_fec_blockchains, 2);
    EXPECT_EQ(params.num_pkt_dup_rx_tables, 2);
}

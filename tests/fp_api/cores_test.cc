#include "fp_api/fp_cores.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "fp_api/fp_scaling_private.h"
#include "tests/fp_api/laid_out.h"

// ---- Cores ----

TEST(Cores, ReadjustingGivesControlWhatIsThereAndForwardingWhatIsMissing)
{
    static const struct {
        const char *behaviour;
        int cores;
        int online;
        int valid;
        uint64_t mask;
        bool tcp_file;
        int result;
        int ctl;  // and min_fp_core_num; 1 and 1 before
        int dpi;  // 3 before
    } cases[] = {
        {"as many as the table counts on", 4, 4, 0, 0, false, 1, 1, 3},
        {"more", 4, 8, 0, 0, false, 1, 1, 3},
        {"one short", 4, 3, 0, 0, false, 0, 3, 1},
        {"two short", 4, 2, 0, 0, false, 0, 2, 2},
        {"TCP optimisation keeps three or more online as they are", 4, 3, 0, 0, true, 0, 1, 3},
        {"but not two", 4, 2, 0, 0, true, 0, 2, 2},
        {"nor does it change nothing to do with many online", 4, 8, 0, 0, true, 0, 1, 3},
        {"a mask takes its bits away", 4, 8, 1, 0x3, false, 0, 2, 2},
        {"an empty mask leaves all", 4, 1, 1, 0, false, 1, 1, 3},
        {"a mask of all cores", 4, 8, 1, 0xf, false, 1, 1, 3},
        {"a mask of more, even with the file", 4, 8, 1, 0xff00, true, 1, 1, 3},
        {"a mask without being valid", 4, 4, 0, 0x3, false, 1, 1, 3},
    };
    for (const auto &c : cases) {
        FakeSystem fake;
        if (c.tcp_file)
            fake.put("/etc/lumora/tcp-optimization-enabled", "");
        fake.processors = c.online;
        g_fp_scaling = g_fp_scaling_mocha_B3;
        g_fp_scaling.num_cores = static_cast<uint8_t>(c.cores);
        EXPECT_EQ(fp_readjust_num_cores(c.valid, c.mask), c.result) << c.behaviour;
        EXPECT_EQ(g_fp_scaling.num_ctl_cores, c.ctl) << c.behaviour;
        EXPECT_EQ(g_fp_scaling.min_fp_core_num, c.ctl) << c.behaviour;
        EXPECT_EQ(g_fp_scaling.num_fp_dpi_cores, c.dpi) << c.behaviour;
        EXPECT_EQ(fp_core_readjust_num_cores(c.mask), 0);
        EXPECT_EQ(fp_get_total_core_num(), c.cores);
    }
    g_fp_scaling = {};
}

TEST(Cores, AProgramsMaskGoesByTheLastPartOfItsPath)
{
    static const struct {
        const char *prog_name;
        int processors;
        uint64_t mask;
        int is_fp;
    } cases[] = {
        {"fp-um", 4, 0xe, 1},           {"/usr/sbin/fp-um", 4, 0xe, 1},
        {"/fp-um/tarnd", 4, 0x1, 0},    {"fp-um2", 4, 0x1, 0},
        {"/usr/sbin/", 4, 0x1, 0},      {"./fp-um", 1, 0x1, 1},
        {"fp-um", 17, 0x1fffc, 1},      {"tarnd", 17, 0x3, 0},
        {"fp-um", 64, ~uint64_t{3}, 1}, {"fp-um", 200, ~uint64_t{3}, 1},
    };
    for (const auto &c : cases) {
        FakeSystem fake;
        fake.processors = c.processors;
        g_fp_scaling = {};
        int is_fp = 7;
        EXPECT_EQ(fp_get_coremask(c.prog_name, &is_fp), c.mask) << c.prog_name << " of " << c.processors;
        EXPECT_EQ(is_fp, c.is_fp) << c.prog_name;
    }
    g_fp_scaling = {};
}

TEST(Cores, ForwardingCoresAreARange)
{
    g_fp_scaling = g_fp_scaling_mocha_B3;
    EXPECT_EQ((std::vector<bool>{fp_core_is_dpi(0), fp_core_is_dpi(1), fp_core_is_dpi(3), fp_core_is_dpi(4),
                                 fp_core_is_dpi(-1)}),
              (std::vector<bool>{false, true, true, false, false}));
    g_fp_scaling = {};
}

// ---- Work groups ----

class WorkGroups : public LaidOut {
protected:
    // Deals out groups over the cores of a machine and compares both maps and the masks with the law.
    void check(int processors, int base, int count)
    {
        fp_scaling_take_cores(&g_fp_scaling, processors);
        // The block was laid out for four cores' data.
        g_fp_scaling.num_per_core_data = std::min(processors, 4);
        g_fp_scaling.work_grp_per_core_base = static_cast<uint8_t>(base);
        g_fp_scaling.num_per_core_work_grps = static_cast<uint8_t>(count);
        fp_work_grps_init();
        int min = g_fp_scaling.min_fp_core_num;
        int cores = g_fp_scaling.max_fp_core_num - min + 1;
        std::vector<uint64_t> masks(256);
        for (int grp = 0; grp < 64; grp++) {
            bool dealt = grp >= base && grp < base + count;
            int core = dealt ? min + (grp - base) % cores : 0;
            EXPECT_EQ(fp_work_grp_to_core(grp), core) << grp;
            EXPECT_EQ(fp_grp_belongs_to_core(core, grp), dealt) << grp;
            EXPECT_FALSE(fp_grp_belongs_to_core(core + 1, grp)) << grp;
            if (dealt)
                masks[core] |= uint64_t{1} << grp;
        }
        for (int core = 0; core < 32; core++) {
            bool serves = core >= min && core < min + std::min(cores, count);
            EXPECT_EQ(fp_core_to_work_grp(core), serves ? base + core - min : 0) << core;
        }
        for (int core = 0; core < g_fp_scaling.num_per_core_data; core++)
            EXPECT_EQ(fp_get_core_grp_mask(core), masks[core]) << core;
    }
};

TEST_F(WorkGroups, AreDealtOutInTurn)
{
    for (int processors : {1, 2, 4, 17, 33, 64}) {
        SCOPED_TRACE(processors);
        check(processors, 16, 32);
        check(processors, 6, 8);
        check(processors, 32, 32);
    }
}

TEST_F(WorkGroups, NumbersOutOfRangeHaveNone)
{
    fp_work_grps_init();
    for (int number : {-1, 64, 1000}) {
        EXPECT_EQ(fp_core_to_work_grp(number), 0);
        EXPECT_EQ(fp_work_grp_to_core(number), 0);
        EXPECT_FALSE(fp_grp_belongs_to_core(0, number));
        EXPECT_EQ(fp_get_core_grp_mask(number), 0u);
    }
    EXPECT_EQ(fp_core_to_work_grp(32), 0);
}

TEST_F(WorkGroups, AMaskIsBuiltOnceAndKeptInTheCoresData)
{
    fp_work_grps_init();
    uint64_t mask = fp_get_core_grp_mask(1);
    EXPECT_EQ(g_fp_per_core_data[1].grp_mask, mask);
    g_fp_global_ctrl->work_grp_to_core[16] = 3;
    EXPECT_EQ(fp_get_core_grp_mask(1), mask) << "kept";
    EXPECT_NE(fp_get_core_grp_mask(3) & (1 << 16), 0u) << "built from the map as it is now";
    fp_work_grps_init();
    EXPECT_EQ(fp_get_core_grp_mask(3) & (1 << 16), 0u) << "dealt out anew";
}

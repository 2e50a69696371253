#include "fp_api/fp_shmem.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <set>
#include <sstream>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "fp_api/fp_scaling_private.h"
#include "fp_api/fp_tables.h"
#include "libcvmx/sim/sim_log.h"
#include "tests/fp_api/models.h"
#include "tests/libcvmx/fake_system.h"

// Each case runs in processes of its own, like the programs that share the block; this one only looks on.
class Shmem : public testing::Test {
protected:
    Shmem()
    {
        g_fp_scaling = {};
        fake.put("/etc/default/sim_size", "small");
        fake.processors = 4;
    }

    // Runs a process that changes its scaling, if asked to, and lays out or attaches.
    t_child_end start(int do_init, void (*change)(t_fp_scaling_params *) = nullptr, int do_locking = 1)
    {
        return run_in_child([=] {
            g_fp_sim_use_printf = 1;
            fp_scaling_init(20000);
            if (change != nullptr)
                change(&g_fp_scaling);
            printf("result %d\n", fp_global_shmem_init(do_init, do_locking));
        });
    }

    // The block as it lies there, from its first byte.
    std::vector<uint8_t> head_of_block(size_t size)
    {
        std::vector<uint8_t> bytes(size);
        std::ifstream(fake.block_path(FP_SHMEM_BLOCK_NAME), std::ios::binary)
            .read(reinterpret_cast<char *>(bytes.data()), static_cast<std::streamsize>(size));
        return bytes;
    }

    FakeSystem fake;
};

static bool ends_with(const std::string &text, const std::string &tail)
{
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// ---- The layout ----

// Tables of one model as a process finds them in the block.
static std::string layout_text(const t_model &model, int processors)
{
    g_fp_scaling = *model.p_params;
    if (model.cores_from_machine)
        fp_scaling_take_cores(&g_fp_scaling, processors);
    fp_scaling_derive(&g_fp_scaling);
    if (fp_global_shmem_init(1, 1) != 0)
        return "no block\n";
    const t_fp_scaling_params &p = g_fp_scaling;
    std::ostringstream text;
    text << "processors " << (model.cores_from_machine ? std::to_string(processors) : "any") << "\n"
         << "block " << p.app_named_block_size << " left " << g_fp_shmem_avail_mem << " hugepages "
         << p.num_hugepages << "\n"
         << "cores " << +p.num_cores << " fp " << +p.num_fp_dpi_cores << " ctl " << +p.num_ctl_cores
         << " from " << +p.min_fp_core_num << " to " << +p.max_fp_core_num << " rx " << +p.fp_rx_core_num
         << " groups " << +p.num_per_core_work_grps << " from " << +p.work_grp_per_core_base << "\n";
    for (int i = 0; i < p.shmem_info_tbl_size; i++) {
        const t_fp_shmem_info &info = g_fp_shmem_info[i];
        if (i < fp_global_shmem_size())
            text << i << " " << g_shmem_tbl[i].p_block_name << ": size " << info.size << " end "
                 << info.offset << "\n";
        else if (info.size != 0 || info.offset != 0)
            text << i << " behind the last table isn't empty\n";
    }
    return text.str();
}

class ShmemGolden : public Shmem {};

// A change of a record's size or of a model table changes these files; TARN_UPDATE_GOLDEN=1 writes them anew.
TEST_F(ShmemGolden, TheLayoutOfEveryModel)
{
    for (const t_model &model : g_models) {
        std::string text;
        for (int processors : {1, 2, 4, 17}) {
            if (!model.cores_from_machine && processors > 1)
                break;
            fake.remove_block(FP_SHMEM_BLOCK_NAME);
            text += run_in_child([&] { fputs(layout_text(model, processors).c_str(), stdout); }).text + "\n";
        }
        std::string path = std::string("tests/fp_api/golden/") + model.name + ".txt";
        if (getenv("TARN_UPDATE_GOLDEN") != nullptr)
            std::ofstream(path) << text;
        std::ostringstream golden;
        golden << std::ifstream(path).rdbuf();
        EXPECT_EQ(text, golden.str()) << path;
    }
}

TEST_F(Shmem, TheListHas92TablesOfWhichThreeNamesComeTwice)
{
    EXPECT_EQ(fp_global_shmem_size(), 92);
    EXPECT_STREQ(g_shmem_tbl[31].p_block_name, "fp_filters");
    std::multiset<std::string> names;
    std::set<std::string> per_core;
    std::set<void **> globals;
    for (const t_fp_shmem &row : g_shmem_tbl) {
        names.insert(row.p_block_name);
        globals.insert(row.pp_rec_tbl);
        if (row.alloc_shmem_per_core)
            per_core.insert(row.p_block_name);
    }
    EXPECT_EQ(globals.size(), 92u);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), 89u);
    for (const char *name : {"fp_sub_inbound_sa_hash_table", "fp_nat_filter_outbound_hash",
                             "VRID to App id mapping for Bitronku"})
        EXPECT_EQ(names.count(name), 2u) << name;
    EXPECT_EQ(per_core,
              (std::set<std::string>{"fp_ipfrag", "fp_ipfrag_hash", "fp_zbf_ipfrag", "fp_zbf_ipfrag_hash"}));
}

TEST_F(Shmem, EveryGlobalPointsToItsTable)
{
    t_child_end end = run_in_child([] {
        fp_scaling_init(20000);
        if (fp_global_shmem_init(1, 1) != 0)
            return;
        uint8_t *p_tables = reinterpret_cast<uint8_t *>(g_fp_shmem_info);
        uint32_t end_before = 0;
        for (int i = 0; i < fp_global_shmem_size(); i++) {
            const t_fp_shmem &row = g_shmem_tbl[i];
            int element = row.alloc_shmem_per_core ? 1 : 0;
            if (row.pp_rec_tbl[element] != p_tables + end_before)
                printf("table %d\n", i);
            end_before = g_fp_shmem_info[i].offset;
        }
        // Four processors: cores 1 to 3 forward and have a copy each, behind one another.
        ptrdiff_t copy = g_fp_scaling.num_ip_fragment_records_per_core;
        printf("%d %d %d %d %d\n", g_fp_ipfrag_record[0] == nullptr,
               g_fp_ipfrag_record[2] - g_fp_ipfrag_record[1] == copy,
               g_fp_ipfrag_record[3] - g_fp_ipfrag_record[2] == copy, g_fp_ipfrag_record[4] == nullptr,
               g_fp_shmem_alloc_ptr == p_tables + end_before);
    });
    EXPECT_EQ(end.text, "1 1 1 1 1\n");
}

TEST_F(Shmem, TheSizeFileSetsTheFilterMemory)
{
    static const struct {
        const char *size;
        int kib;
    } cases[] = {{"small", 768}, {"regular", 8 << 10}, {"large", 128 << 10}};
    for (const auto &c : cases) {
        fake.put("/etc/default/sim_size", c.size);
        fake.remove_block(FP_SHMEM_BLOCK_NAME);
        t_child_end end = run_in_child([] {
            if (fp_global_shmem_init(1, 1) == 0)
                printf("%u", g_fp_shmem_info[30].size >> 10);
        });
        EXPECT_EQ(end.text, std::to_string(c.kib)) << c.size;
    }
}

// ---- Several processes ----

TEST_F(Shmem, ASecondProcessOfTheSameImageGoesOnAndSeesTheFirstOnesData)
{
    t_child_end first = run_in_child([] {
        if (fp_global_shmem_init(1, 1) == 0)
            g_fp_filter[7].hw_index = 77;
    });
    EXPECT_EQ(first.signal, 0);
    t_child_end second = run_in_child([] {
        if (fp_global_shmem_init(0, 1) == 0)
            printf("%u", g_fp_filter[7].hw_index);
    });
    EXPECT_EQ(second.text, "77");
    EXPECT_EQ(head_of_block(4), std::vector<uint8_t>(4)) << "the lock is free";
}

TEST_F(Shmem, TheFirstProcessNeedsNoInitAndAnInitForgetsTheLayoutBefore)
{
    EXPECT_EQ(start(0).text, "result 0\n");
    EXPECT_EQ(start(1, [](t_fp_scaling_params *p) { p->num_filters = 100; }).text, "result 0\n");
    EXPECT_EQ(start(0, [](t_fp_scaling_params *p) { p->num_filters = 100; }).text, "result 0\n");
    EXPECT_EQ(start(0).signal, SIGILL);
}

TEST_F(Shmem, InitClearsThePortRecordsAndNoOtherTable)
{
    run_in_child([] {
        if (fp_global_shmem_init(1, 1) == 0) {
            g_fp_port_record[3].opaque[0] = 5;
            g_fp_port_stats[3].opaque[0] = 6;
        }
    });
    static constexpr auto look = [](int do_init) {
        return run_in_child([=] {
                   if (fp_global_shmem_init(do_init, 1) == 0)
                       printf("%lu %lu", g_fp_port_record[3].opaque[0], g_fp_port_stats[3].opaque[0]);
               })
            .text;
    };
    EXPECT_EQ(look(0), "5 6");
    EXPECT_EQ(look(1), "0 6");
}

// ---- What stops a process ----

class ShmemDeathTest : public Shmem {};

TEST_F(ShmemDeathTest, AForeignLayoutStopsAtTheFirstTableThatDiffers)
{
    static const struct {
        const char *behaviour;
        void (*change)(t_fp_scaling_params *);
        const char *message;
    } cases[] = {
        {"another number of filters", [](t_fp_scaling_params *p) { p->num_filters = 255; },
         "tbl-num 31 Expected size 3072 actual-size 3060 Expected offset "},
        {"an earlier table as well", [](t_fp_scaling_params *p) { p->num_filters = 255, p->num_vrfs = 63; },
         "tbl-num 3 Expected size 8192 actual-size 8064 Expected offset "},
        {"other cores change the copies", [](t_fp_scaling_params *p) { p->max_fp_core_num = 2; },
         "tbl-num 43 "},
    };
    ASSERT_EQ(start(1).text, "result 0\n");
    for (const auto &c : cases) {
        t_child_end end = start(0, c.change);
        EXPECT_EQ(end.signal, SIGILL) << c.behaviour;
        EXPECT_EQ(end.text.find("fp and ftmd images not compatible! "), 0u) << c.behaviour;
        EXPECT_NE(end.text.find(c.message), std::string::npos) << c.behaviour << ": " << end.text;
        EXPECT_TRUE(ends_with(end.text, "failed assertion `0'\n")) << end.text;
        EXPECT_EQ(head_of_block(4), std::vector<uint8_t>(4)) << "the lock is free";
    }
    EXPECT_EQ(start(0).text, "result 0\n") << "the layout stands as it was";
}

TEST_F(ShmemDeathTest, BadScalingStops)
{
    static const struct {
        const char *behaviour;
        void (*change)(t_fp_scaling_params *);
        const char *text;
        const char *assertion;
    } cases[] = {
        {"a table without a size", [](t_fp_scaling_params *p) { p->num_filters = 0; },
         "invalid fp_scaling table entry 31 fp_filters. size = 0\n", "tbl_size != 0"},
        {"too few places for what was laid out", [](t_fp_scaling_params *p) { p->shmem_info_tbl_size = 91; },
         "", "g_fp_scaling.shmem_info_tbl_size >= (int)NELEMENTS(g_shmem_tbl)"},
        {"a block that is too small", [](t_fp_scaling_params *p) { p->num_flow_records = 400000; }, "", "0"},
    };
    for (const auto &c : cases) {
        fake.remove_block(FP_SHMEM_BLOCK_NAME);
        t_child_end end = start(1, c.change);
        EXPECT_EQ(end.signal, SIGILL) << c.behaviour;
        EXPECT_EQ(end.text.find(c.text), 0u) << c.behaviour << ": " << end.text;
        EXPECT_TRUE(ends_with(end.text, std::string("failed assertion `") + c.assertion + "'\n")) << end.text;
    }
    EXPECT_EQ(head_of_block(4), std::vector<uint8_t>(4)) << "the lock is free after the last case";
}

TEST_F(Shmem, ABlockThatCantBeHadIsAnError)
{
    fake.shm_fails = true;
    EXPECT_EQ(start(1).text, "fp: named-block almushtarika size 104857600\nresult -1\n");
}

// ---- The lock ----

TEST_F(Shmem, TheLockMakesAProcessWaitUnlessItDoesWithout)
{
    ASSERT_EQ(start(1).text, "result 0\n");
    int fd = open(fake.block_path(FP_SHMEM_BLOCK_NAME).c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    auto *p_lock = static_cast<uint32_t *>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    close(fd);
    __atomic_store_n(p_lock, 1, __ATOMIC_SEQ_CST);
    EXPECT_EQ(start(0, nullptr, 0).text, "result 0\n");
    EXPECT_EQ(*p_lock, 1u) << "who didn't take it doesn't release it";

    pid_t waiting = fork();
    if (waiting == 0)
        _exit(fp_global_shmem_init(0, 1) == 0 ? 0 : 1);
    usleep(30000);
    int status = 0;
    EXPECT_EQ(waitpid(waiting, &status, WNOHANG), 0);
    __atomic_store_n(p_lock, 0, __ATOMIC_SEQ_CST);
    EXPECT_EQ(waitpid(waiting, &status, 0), waiting);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    munmap(p_lock, 4096);
}

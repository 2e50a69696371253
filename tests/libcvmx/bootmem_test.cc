#include "libcvmx/sim/_cvmx-bootmem.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "tests/libcvmx/fake_system.h"

static constexpr uint64_t PAGE = 4096;

static char *attach(uint64_t size)
{
    return static_cast<char *>(cvmx_bootmem_alloc_named(size, 128, "block"));
}

TEST(Bootmem, ANewBlockIsZeroAndWhatOneProcessWritesAnotherReads)
{
    FakeSystem fake;
    char *p_mine = attach(PAGE);
    ASSERT_NE(p_mine, nullptr);
    EXPECT_EQ(p_mine[0] | p_mine[PAGE - 1], 0);
    strcpy(p_mine, "ping");
    t_child_end end = run_in_child([] {
        char *p_block = attach(PAGE);
        fputs(p_block, stdout);
        strcpy(p_block, "pong");
    });
    EXPECT_EQ(end.text, "ping");
    EXPECT_STREQ(p_mine, "pong");
}

TEST(Bootmem, TheSizeOfTheLastCallHolds)
{
    FakeSystem fake;
    strcpy(attach(PAGE), "kept");
    char *p_bigger = attach(4 * PAGE);
    EXPECT_EQ(std::filesystem::file_size(fake.block_path("block")), 4 * PAGE);
    EXPECT_STREQ(p_bigger, "kept");
    p_bigger[4 * PAGE - 1] = 1;
    attach(2 * PAGE);
    EXPECT_EQ(std::filesystem::file_size(fake.block_path("block")), 2 * PAGE);
}

TEST(Bootmem, FailuresGiveNullAndOnlyTheMappingIsSilent)
{
    static const struct {
        const char *behaviour;
        bool shm_fails;
        uint64_t size;
        const char *report;
    } cases[] = {
        {"a block that can't be opened", true, PAGE, "shm_open: "},
        {"a size that the file can't take", false, UINT64_MAX, "shm_open: "},
        {"an empty mapping", false, 0, ""},
    };
    for (const auto &c : cases) {
        FakeSystem fake;
        fake.shm_fails = c.shm_fails;
        testing::internal::CaptureStderr();
        EXPECT_EQ(attach(c.size), nullptr) << c.behaviour;
        std::string report = testing::internal::GetCapturedStderr();
        EXPECT_EQ(report.substr(0, strlen(c.report)), c.report) << c.behaviour;
        EXPECT_EQ(report.empty(), *c.report == '\0') << c.behaviour;
    }
}

TEST(Bootmem, PrivateMemoryIsZeroAndItsFailureIsReported)
{
    char *p_memory = static_cast<char *>(cvmx_bootmem_alloc(2 * PAGE, 8));
    ASSERT_NE(p_memory, nullptr);
    EXPECT_EQ(p_memory[0] | p_memory[2 * PAGE - 1], 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(cvmx_bootmem_alloc(0, 8), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr().substr(0, 6), "mmap: ");
}

TEST(Bootmem, ANamedBlockIsNeverFoundOnlyOpenedAgain)
{
    FakeSystem fake;
    attach(PAGE);
    EXPECT_EQ(cvmx_bootmem_find_named_block("block"), nullptr);
}

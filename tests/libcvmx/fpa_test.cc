#include "libcvmx/sim/_cvmx-fpa.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <sys/mman.h>
#include <unistd.h>

#include "common/mempool.h"
#include "libcvmx/sim/cvmx-wqe.h"
#include "libcvmx/sim/sim_log.h"
#include "tests/libcvmx/packet_fixture.h"

static constexpr uint64_t SIZE = 128;
static constexpr uint64_t COUNT = 6;

TEST(Fpa, AnotherProcessSharesThePoolAtAnAddressOfItsOwn)
{
    packet_machine();
    int fd = memfd_create("buffers", 0);
    ASSERT_EQ(ftruncate(fd, SIZE * COUNT), 0);
    auto map = [fd] { return mmap(nullptr, SIZE * COUNT, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0); };
    ASSERT_EQ(cvmx_fpa_setup_pool(3, "packets", map(), SIZE, COUNT), 0);
    EXPECT_EQ(std::filesystem::file_size(packet_machine().block_path("fpa-3")),
              (mempool_size(COUNT) + 127) / 128 * 128);
    void *p_mine = cvmx_fpa_alloc(3);
    EXPECT_EQ(cvmx_fpa_addr2idx(3, p_mine), 5);
    t_child_end end = run_in_child([&] {
        ASSERT_EQ(__cvmx_fpa_setup_pool(3, "packets", map(), SIZE, COUNT, false), 0);
        void *p_block = cvmx_fpa_alloc(3);
        strcpy(static_cast<char *>(p_block) + 8, "from the child");
        printf("%d %d", cvmx_fpa_validate_addr(3, p_block), p_block != p_mine);
    });
    EXPECT_EQ(end.text, "4 1");
    EXPECT_STREQ(static_cast<char *>(cvmx_fpa_idx2addr(3, 4)) + 8, "from the child");
    EXPECT_EQ(cvmx_fpa_get_num_available_blocks(3), 4);
    close(fd);
}

TEST(Fpa, WhatIsNoPoolOfThisProcessAnswersMinusOneOrNull)
{
    packet_machine();
    g_fp_sim_use_printf = 1;
    uint64_t buffers[SIZE * COUNT / 8];
    for (uint32_t pool : {2u, 8u, 0x80000000u}) {
        EXPECT_EQ(cvmx_fpa_alloc(pool), nullptr);
        EXPECT_EQ(cvmx_fpa_async_alloc_finish(0, pool), nullptr);
        EXPECT_EQ(cvmx_fpa_idx2addr(pool, 0), nullptr);
        EXPECT_EQ(cvmx_fpa_free(buffers, pool, 0), -1);
        EXPECT_EQ(cvmx_fpa_get_block_size(pool), -1);
        EXPECT_EQ(cvmx_fpa_get_num_available_blocks(pool), -1);
        EXPECT_EQ(cvmx_fpa_record_use(pool, buffers, 1), -1);
    }
    EXPECT_EQ(cvmx_fpa_setup_pool(8, "none", buffers, SIZE, COUNT), -1);
    EXPECT_EQ(__cvmx_fpa_setup_pool(2, "absent", buffers, SIZE, COUNT, false), -1);
    ASSERT_EQ(cvmx_fpa_setup_pool(4, "there", buffers, SIZE, COUNT), 0);
    EXPECT_EQ(__cvmx_fpa_setup_pool(4, "other count", buffers, SIZE, COUNT + 1, false), -1);
    EXPECT_EQ(__cvmx_fpa_setup_pool(4, "other size", buffers, SIZE + 8, COUNT, false), -1);
    EXPECT_EQ(cvmx_fpa_idx2addr(4, COUNT), nullptr);
    EXPECT_EQ(cvmx_fpa_get_num_available_blocks(4), 6) << "attaching in vain changes nothing";
}

TEST(Fpa, FreeingToTwoPoolsIsSpecial)
{
    packet_machine();
    uint32_t unkept[3] = {1, 2, 3};
    EXPECT_EQ(cvmx_fpa_free(unkept, 7, 0), 0);
    EXPECT_EQ(unkept[0], 0u);
    EXPECT_EQ(unkept[1], 2u);

    uint64_t buffers[SIZE * COUNT / 8];
    ASSERT_EQ(cvmx_fpa_setup_pool(CVMX_FPA_WQE_POOL, "work", buffers, SIZE, COUNT), 0);
    auto *p_work = static_cast<cvmx_wqe_t *>(cvmx_fpa_alloc(CVMX_FPA_WQE_POOL));
    void *p_other = cvmx_fpa_alloc(CVMX_FPA_WQE_POOL);
    cvmx_wqe_set_current(p_work);
    cvmx_fpa_free(p_other, CVMX_FPA_WQE_POOL, 0);
    EXPECT_EQ(cvmx_wqe_current(), p_work);
    cvmx_fpa_free(p_work, CVMX_FPA_WQE_POOL, 0);
    EXPECT_EQ(cvmx_wqe_current(), nullptr);
}

TEST(FpaDeathTest, AForeignBufferEndsTheProcess)
{
    packet_machine();
    uint64_t buffers[SIZE * COUNT / 8];
    ASSERT_EQ(cvmx_fpa_setup_pool(4, "pool", buffers, SIZE, COUNT), 0);
    EXPECT_EXIT(cvmx_fpa_free(buffers + 1, 4, 0), testing::KilledBySignal(SIGSEGV), "");
}

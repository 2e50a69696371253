// A test whose process has laid out a fresh small block and may use the tables.
#pragma once

#include <gtest/gtest.h>

#include <sys/mman.h>

#include "fp_api/fp_shmem.h"
#include "fp_api/fp_tables.h"
#include "tests/libcvmx/fake_system.h"

class LaidOut : public testing::Test {
protected:
    void SetUp() override
    {
        fake.put("/etc/default/sim_size", "small");
        g_fp_scaling = {};
        ASSERT_EQ(fp_global_shmem_init(1, 1), 0);
    }

    void TearDown() override
    {
        munmap(reinterpret_cast<uint8_t *>(g_fp_shmem_info) - FP_SHMEM_TABLES_OFFSET,
               static_cast<size_t>(g_fp_scaling.app_named_block_size));
        g_fp_scaling = {};
    }

    FakeSystem fake;
};

#include "libcvmx/sim/_cvmx-tim.h"

#include <unistd.h>

#include "tests/common/own_clock.h"
#include "tests/libcvmx/packet_fixture.h"

static int g_sleeps;
static useconds_t g_slept;
static bool (*g_at_sleep)();  // lets what is full become empty

extern "C" int __wrap_usleep(useconds_t usecs);
extern "C" int __wrap_usleep(useconds_t usecs)
{
    g_sleeps++;
    g_slept = usecs;
    if (g_at_sleep != nullptr)
        g_at_sleep();
    return 0;
}

namespace {
class Tim : public PacketFixture {
protected:
    Tim()
    {
        EXPECT_EQ(cvmx_tim_setup(1000, 60'000), 0);
        cvmx_tim_start();
    }
    ~Tim() override
    {
        g_at_sleep = nullptr;
        cvmx_tim_shutdown();
    }
    static void pass(int64_t msecs)
    {
        for (; msecs > 0; msecs -= 100) {
            own_clock_advance(100 * OWN_CLOCK_MSEC);
            cvmx_tim_exec();
        }
    }
};
}  // namespace

TEST_F(Tim, AnEntryIsSubmittedWhenItsTimeHasCome)
{
    cvmx_tim_delete_t handle;
    ASSERT_EQ(cvmx_tim_add_entry(message(3, 9), 500, &handle), 0);
    pass(400);
    EXPECT_EQ(cvmx_pull_work_from_grp_ring(3), nullptr);
    pass(200);
    cvmx_wqe_t *p_work = cvmx_pull_work_from_grp_ring(3);
    ASSERT_NE(p_work, nullptr);
    EXPECT_EQ(p_work->tag, 9u);
    EXPECT_EQ(cvmx_tim_delete_entry(&handle), -1) << "it has fired";
    cvmx_wqe_free(p_work);
    expect_all_free();
}

TEST_F(Tim, DeletedEntriesAreTheCallersAgainAndShutdownFreesTheRest)
{
    cvmx_wqe_t *p_work = message(3);
    cvmx_tim_delete_t handle;
    EXPECT_EQ(cvmx_tim_add_entry(p_work, 60'001, nullptr), -1) << "longer than agreed";
    ASSERT_EQ(cvmx_tim_add_entry(p_work, 500, &handle), 0);
    ASSERT_EQ(cvmx_tim_add_entry(packet(1, "packet"), 500, nullptr), 0);
    EXPECT_EQ(cvmx_tim_delete_entry(&handle), 0);
    cvmx_wqe_free(p_work);
    cvmx_tim_shutdown();
    pass(600);
    expect_all_free();
    EXPECT_EQ(cvmx_tim_add_entry(nullptr, 1, nullptr), -1);
}

TEST_F(Tim, AFullRingIsTriedEightTimesAndThenTheDelayStartsAnew)
{
    for (int i = 0; i < CVMX_GRP_RING_SLOTS - 1; i++)
        ASSERT_EQ(cvmx_pow_work_submit(message(3)), 0);
    ASSERT_EQ(cvmx_tim_add_entry(message(3, 9), 500, nullptr), 0);
    g_sleeps = 0;
    testing::internal::CaptureStdout();
    pass(600);
    std::string text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(text.rfind("Unable to work resubmit.  Rescheduling timer 0x", 0), 0u) << text;
    EXPECT_NE(text.find(" tag 9 grp 3\n"), std::string::npos) << text;
    EXPECT_EQ(g_sleeps, 7);
    EXPECT_EQ(g_slept, 100u);
    EXPECT_EQ(ring(3).drops, 8u);

    // Next time there is room when it tries again.
    g_at_sleep = [] {
        cvmx_wqe_t work;
        return cvmx_work_pull(3, &work) == 0;
    };
    pass(600);
    EXPECT_EQ(g_sleeps, 8);
    EXPECT_EQ(ring(3).drops, 9u);
    EXPECT_EQ(ring(3).pushes, 512u);
}

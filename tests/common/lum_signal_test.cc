#include "common/lum_signal.h"

#include <gtest/gtest.h>

#include <unistd.h>

TEST(LumSignalDeathTest, TermLeavesQuietlyAndTheOthersDumpCore)
{
    auto raise_installed = [](int signal_number) {
        lum_signal_install_spurious_handler();
        lum_signal_install_term_handler();
        lum_signal_spurious_check();
        raise(signal_number);
        _exit(9);
    };
    EXPECT_EXIT(raise_installed(SIGTERM), testing::ExitedWithCode(0), "");
    for (int signal_number : {SIGHUP, SIGINT, SIGQUIT})
        EXPECT_EXIT(raise_installed(signal_number), testing::KilledBySignal(SIGSEGV), "") << signal_number;
}

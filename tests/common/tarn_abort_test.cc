// Linked with tarn_abort, as the programs are.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

// Sanitizer builds keep the C library's abort, which is silent.
#ifdef TARN_OWN_ABORT
static constexpr int abort_signal = SIGSEGV;
static constexpr bool abort_speaks = true;
#else
static constexpr int abort_signal = SIGABRT;
static constexpr bool abort_speaks = false;
#endif

static void abort_ourselves()
{
    abort();
}

// From within the C++ library, which is shared.
static void abort_in_a_library()
{
    std::terminate();
}

TEST(TarnAbortDeathTest, AbortLeavesALineAndACoreAtANullStoreForLibrariesToo)
{
    for (void (*give_up)() : {abort_ourselves, abort_in_a_library}) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        pid_t pid = fork();
        if (pid == 0) {
            dup2(ends[1], STDOUT_FILENO);
            dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
            give_up();
            _exit(0);
        }
        close(ends[1]);
        char buffer[512];
        ssize_t size = read(ends[0], buffer, sizeof(buffer));
        close(ends[0]);
        ASSERT_GE(size, 0);
        std::string text(buffer, static_cast<size_t>(size));
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status));
        EXPECT_EQ(WTERMSIG(status), abort_signal);
        EXPECT_EQ(text.find("common/tarn_abort.cc:") != std::string::npos, abort_speaks) << text;
        EXPECT_EQ(text.ends_with(": failed aborted \n"), abort_speaks) << text;
    }
}

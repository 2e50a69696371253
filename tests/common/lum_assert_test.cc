#include "common/lum_assert.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

struct t_death {
    int signal;        // 0 when the process was not stopped by one
    std::string text;  // what came through the pipe
};

// Runs fail in a child whose standard output is a pipe.
static t_death die_with_pipe(void (*fail)())
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(ends[1], STDOUT_FILENO);
        fail();
        _exit(0);
    }
    close(ends[1]);
    t_death death = {};
    char buffer[256];
    for (ssize_t count; (count = read(ends[0], buffer, sizeof(buffer))) > 0;)
        death.text.append(buffer, static_cast<size_t>(count));
    close(ends[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    death.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return death;
}

static std::string message(int line, const char *text)
{
    return std::string(__FILE__) + ":" + std::to_string(line) + ": failed assertion `" + text + "'\n";
}

TEST(LumAssertDeathTest, TheMessageArrivesThroughAPipeBeforeANullStore)
{
    t_death death = die_with_pipe([] { LUM_ASSERT(1 > 2, "TAILQ_EMPTY(list)"); });
    EXPECT_EQ(death.text, message(__LINE__ - 1, "TAILQ_EMPTY(list)"));
    EXPECT_EQ(death.signal, SIGSEGV);
}

TEST(LumAssertDeathTest, TheTrapVariantStopsByAnIllegalInstruction)
{
    t_death death = die_with_pipe([] { LUM_ASSERT_TRAP(1 > 2, "p != NULL"); });
    EXPECT_EQ(death.text, message(__LINE__ - 1, "p != NULL"));
    EXPECT_EQ(death.signal, SIGILL);
}

TEST(LumAssertDeathTest, AConditionThatHoldsDoesNothing)
{
    t_death death = die_with_pipe([] {
        LUM_ASSERT(2 > 1, "2 > 1");
        LUM_ASSERT_TRAP(2 > 1, "2 > 1");
    });
    EXPECT_EQ(death.text, "");
    EXPECT_EQ(death.signal, 0);
}

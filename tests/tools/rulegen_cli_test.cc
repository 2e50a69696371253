#include "tests/tools/run_command.h"

#include <gtest/gtest.h>

static const std::string rulegen = RULEGEN_PROGRAM;

TEST(RulegenCli, WritesTheSameSetToFileAndOutput)
{
    t_temp_folder folder;
    std::string arguments = " --family ipc --rules 100 --seed 3";
    t_command_result to_output = run_command(rulegen + arguments);
    t_command_result to_file = run_command(rulegen + arguments + " -o " + folder.path("set"));
    EXPECT_EQ(to_output.status, 0) << to_output.err;
    EXPECT_EQ(to_file.status, 0) << to_file.err;
    EXPECT_FALSE(to_output.out.empty());
    EXPECT_EQ(to_output.out, read_file(folder.path("set")));
}

TEST(RulegenCli, StatusTellsUsageFromErrors)
{
    struct t_case {
        const char *arguments;
        int status;
    };
    static const t_case cases[] = {
        {"--help", 0},
        {"", 2},
        {"--family acl", 2},
        {"--family web --rules 5", 2},
        {"--family acl --rules 0", 2},
        {"--family acl --rules 524281", 2},
        {"--family acl --rules x", 2},
        {"--family acl --rules 5 -o /nowhere/set", 1},
        {"--family acl --rules 500 > /dev/full", 1},
    };
    for (const t_case &c : cases)
        EXPECT_EQ(run_command(rulegen + ' ' + c.arguments).status, c.status) << c.arguments;
}

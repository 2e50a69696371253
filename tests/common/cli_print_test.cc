#include "common/cli_print.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

static std::string g_session_text;

__attribute__((format(printf, 3, 0))) static void print_to_session(t_lconfd_context *, int usid,
                                                                   const char *format, va_list args)
{
    char text[64];
    vsnprintf(text, sizeof(text), format, args);
    g_session_text += std::to_string(usid) + ":" + text;
}

TEST(CliPrint, AContextChoosesTheSession)
{
    int session = 0;
    t_lconfd_context *p_ctx = reinterpret_cast<t_lconfd_context *>(&session);
    testing::internal::CaptureStdout();
    cli_print(p_ctx, 4, "dropped, no road %d\n", 1);
    cli_print_register(print_to_session);
    cli_print(p_ctx, 5, "length = %d \n", 2);
    cli_print(nullptr, 5, "length = %d \n", 3);
    cli_print_register(nullptr);
    cli_print(p_ctx, 6, "dropped again %d\n", 4);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "length = 3 \n");
    EXPECT_EQ(g_session_text, "5:length = 2 \n");
}

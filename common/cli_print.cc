#include "common/cli_print.h"

#include <cstdio>

static f_cli_vprint g_cli_vprint;

void cli_print_register(f_cli_vprint print)
{
    g_cli_vprint = print;
}

void cli_print(t_lconfd_context *ctx, int usid, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    if (ctx == nullptr)
        vprintf(format, args);
    else if (g_cli_vprint != nullptr)
        g_cli_vprint(ctx, usid, format, args);
    va_end(args);
}

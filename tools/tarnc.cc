// tarnc: the policy compiler as an offline command. See docs/tarnc.md.

#include "tools/tarnc_common.h"

#include <new>

static int run(int argc, char **argv)
{
    CLI::App app("Compiles rule sets to classification programs, and looks into both", "tarnc");
    app.require_subcommand(1);
    int status = 0;
    tarnc_compile_register(&app, &status);
    tarnc_check_register(&app, &status);
    tarnc_dump_register(&app, &status);
    tarnc_run_register(&app, &status);
    tarnc_explain_register(&app, &status);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Error &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return tarnc_finish_output() ? status : 1;
}

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const std::bad_alloc &) {
        return tarnc_fail("no memory");
    } catch (const std::exception &error) {
        return tarnc_fail(error.what());
    }
}

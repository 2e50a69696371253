// tarnc dump: the text of a program.

#include "tarnd/compiler/tarn_program.h"
#include "tools/program_file.h"
#include "tools/tarnc_common.h"

#include <memory>

static int dump(const std::string &file)
{
    std::string bytes;
    t_open_program program;
    std::string reason;
    if (!program_load(file, &bytes, &program, &reason))
        return tarnc_fail(reason);
    tarn_display_program(nullptr, 0, bytes.data(), ftm_oct_filter_action_dump);
    return 0;
}

void tarnc_dump_register(CLI::App *p_app, int *p_status)
{
    auto file = std::make_shared<std::string>();
    CLI::App *p_command = p_app->add_subcommand("dump", "Print the tables and actions of a program");
    p_command->add_option("PROGRAM", *file, "Program file")->required();
    p_command->callback([file, p_status] { *p_status = dump(*file); });
}

// tarnc compile: from a rule file to a program file.

#include "tools/rule_fields.h"
#include "tools/tarnc_common.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

struct t_compile_options {
    std::string rules;
    std::string program;
    t_rules_options how;
    bool json = false;
};

static bool write_all(int fd, std::span<const std::byte> bytes)
{
    static constexpr size_t step = 1 << 26;
    while (!bytes.empty()) {
        ssize_t written = write(fd, bytes.data(), std::min(bytes.size(), step));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes = bytes.subspan(static_cast<size_t>(written));
    }
    return true;
}

// Writes aside and renames, so that the file is there whole or not at all.
static int write_file(const std::string &file, std::span<const std::byte> bytes)
{
    struct stat status = {};
    if (stat(file.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        return tarnc_fail(file + ": is there and is no regular file");
    std::string aside = file + ".tmp" + std::to_string(getpid());
    int fd = open(aside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0)
        return tarnc_fail(file + ": " + strerror(errno));
    bool written = write_all(fd, bytes);
    int error = errno;
    if (close(fd) != 0 && written) {
        written = false;
        error = errno;
    }
    if (written && rename(aside.c_str(), file.c_str()) == 0)
        return 0;
    if (written)
        error = errno;
    unlink(aside.c_str());
    return tarnc_fail(file + ": " + strerror(error));
}

static void print_text(const t_compile_options &options, const t_rule_set &set,
                       const t_compile_result &result)
{
    printf("%s: table %s, %zu rules\n", options.rules.c_str(), set.table.c_str(), set.rules.size());
    printf("%6s  %-16s %12s %10s %14s\n", "stage", "inputs", "entries", "classes", "table bytes");
    for (const t_stage_report &stage : result.stages) {
        std::string inputs = stage.left == 0
                                 ? rule_field_name(stage.field_type)
                                 : std::to_string(stage.left) + ", " + std::to_string(stage.right);
        printf("%6u  %-16s %12u %10u %14llu\n", stage.id, inputs.c_str(), stage.entries, stage.classes,
               static_cast<unsigned long long>(stage.table_bytes));
    }
    printf("records: %u of %u bytes, %llu bytes\n", result.records, result.record_size,
           static_cast<unsigned long long>(result.records) * result.record_size);
    printf("program: %llu bytes in %s\n", static_cast<unsigned long long>(result.program_size),
           options.program.c_str());
    printf("time:    fill %.3f ms, compile %.3f ms\n", result.fill_seconds * 1e3,
           result.compile_seconds * 1e3);
}

static void print_json(const t_compile_options &options, const t_rule_set &set,
                       const t_compile_result &result)
{
    nlohmann::json stages = nlohmann::json::array();
    for (const t_stage_report &stage : result.stages)
        stages.push_back(tarnc_stage_json(stage));
    tarnc_print_json({{"file", options.rules},
                      {"table", set.table},
                      {"rules", set.rules.size()},
                      {"stages", stages},
                      {"records", result.records},
                      {"record_bytes", result.record_size},
                      {"program", options.program},
                      {"program_bytes", result.program_size},
                      {"fill_seconds", result.fill_seconds},
                      {"compile_seconds", result.compile_seconds}});
}

static int compile(const t_compile_options &options)
{
    t_rule_set set;
    if (!tarnc_load_rules(options.rules, options.how, &set))
        return 1;
    t_compile_result result = rule_set_compile(set, tarnc_order(options.how), tarnc_limit(options.how), true);
    if (result.program == nullptr)
        return tarnc_fail(options.rules + ": " + result.reason);
    std::vector<t_stage_report> bad = stages_misclassifying(result.stages);
    if (!bad.empty())
        return tarnc_fail(options.rules + ": " + stage_misclassifies_print(bad.front()));
    if (write_file(options.program, compile_result_bytes(result)) != 0)
        return 1;
    if (options.json)
        print_json(options, set, result);
    else
        print_text(options, set, result);
    return 0;
}

void tarnc_compile_register(CLI::App *p_app, int *p_status)
{
    auto options = std::make_shared<t_compile_options>();
    CLI::App *p_command = p_app->add_subcommand("compile", "Compile a rule file to a program");
    p_command->add_option("RULES", options->rules, "Rule file")->required();
    p_command->add_option("-o,--output", options->program, "Program to write")->required();
    tarnc_add_format(p_command, &options->how);
    tarnc_add_order(p_command, &options->how);
    tarnc_add_limit(p_command, &options->how);
    p_command->add_flag("--json", options->json, "Report as JSON");
    p_command->callback([options, p_status] { *p_status = compile(*options); });
}

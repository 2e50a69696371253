// rulegen: writes a generated rule set. See rule_generator.h and docs/tarnc.md.

#include "tools/rule_generator.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

static int fail(const std::string &file)
{
    fprintf(stderr, "rulegen: %s: %s\n", file.c_str(), strerror(errno));
    return 1;
}

static int write_text(const std::string &file, const std::string &text)
{
    FILE *p_file = file.empty() ? stdout : fopen(file.c_str(), "wb");
    std::string name = file.empty() ? "standard output" : file;
    if (p_file == nullptr)
        return fail(name);
    bool written = fwrite(text.data(), 1, text.size(), p_file) == text.size() && fflush(p_file) == 0;
    int status = written ? 0 : fail(name);
    if (p_file != stdout)
        fclose(p_file);
    return status;
}

static int run(int argc, char **argv)
{
    std::string family_name;
    size_t count = 0;
    uint64_t seed = 1;
    std::string file;
    CLI::App app("Generates a rule set in ClassBench format", "rulegen");
    app.add_option("--family", family_name, "acl, fw or ipc")
        ->required()
        ->check(CLI::IsMember({"acl", "fw", "ipc"}));
    app.add_option("--rules", count, "Number of rules")
        ->required()
        ->check(CLI::Range(size_t{1}, GENERATOR_MAX_RULES));
    app.add_option("--seed", seed, "Seed; equal seeds give equal sets")->capture_default_str();
    app.add_option("-o,--output", file, "File to write; standard output without it");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Error &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    e_rule_family family = e_rule_family::acl;
    rule_family_read(family_name, &family);
    return write_text(file, generated_rules_print(rules_generate(family, count, seed)));
}

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        fprintf(stderr, "rulegen: %s\n", error.what());
        return 1;
    }
}

// tarnc run: headers through a program.

#include "tools/header_source.h"
#include "tools/linear_search.h"
#include "tools/program_file.h"
#include "tools/tarnc_common.h"

#include <algorithm>
#include <chrono>
#include <memory>

using t_clock = std::chrono::steady_clock;

static constexpr size_t block_size = 16384;  // headers
static constexpr uint64_t max_random = 1'000'000'000'000;

struct t_run_options {
    std::string program;
    std::string headers;
    uint64_t random = 0;
    uint64_t seed = 1;
    std::string rules;
    t_rules_options how;
    bool verdicts = false;
    bool linear = false;
    bool json = false;
};

namespace {

struct t_run {
    t_open_program program;
    t_rule_set set;              // empty without --rules
    t_linear_search search;      // empty without --linear
    std::vector<uint64_t> hits;  // by rule number, or by record when the program has no rule numbers
    uint64_t headers = 0;
    uint64_t default_hits = 0;
    uint64_t differing = 0;
    double walker_seconds = 0;
    double linear_seconds = 0;
};

}  // namespace

static void count_hit(t_run *p_run, const t_fp_verdict &verdict)
{
    p_run->headers++;
    bool is_default = verdict.record_offset == FP_NO_RECORD;
    uint32_t key = verdict.class_id;
    if (!is_default && p_run->program.has_rule_numbers) {
        key = p_run->program.rule_by_record[verdict.class_id];
        is_default = key == 0;
    }
    if (is_default)
        p_run->default_hits++;
    else
        p_run->hits[key]++;
}

static void classify_block(const t_run_options &options, t_run *p_run, std::span<const t_fp_header> headers)
{
    std::vector<t_fp_verdict> verdicts(headers.size());
    t_clock::time_point start = t_clock::now();
    fp_walker_classify_burst(p_run->program.walker.get(), headers, verdicts);
    p_run->walker_seconds += std::chrono::duration<double>(t_clock::now() - start).count();
    std::string text;
    for (const t_fp_verdict &verdict : verdicts) {
        count_hit(p_run, verdict);
        if (options.verdicts)
            text += std::to_string(program_verdict_rule(p_run->program, verdict)) + '\n';
    }
    fwrite(text.data(), 1, text.size(), stdout);
    if (!options.linear)
        return;
    std::vector<uint32_t> wanted(headers.size());
    start = t_clock::now();
    for (size_t i = 0; i < headers.size(); i++)
        wanted[i] = linear_search_find(p_run->search, headers[i]);
    p_run->linear_seconds += std::chrono::duration<double>(t_clock::now() - start).count();
    for (size_t i = 0; i < headers.size(); i++)
        p_run->differing += wanted[i] != program_verdict_rule(p_run->program, verdicts[i]);
}

static double rate(uint64_t count, double seconds)
{
    return seconds > 0 ? static_cast<double>(count) / seconds : 0;
}

static void print_linear(FILE *p_out, const t_run &run)
{
    fprintf(p_out, "linear: %.0f headers per second; %llu of %llu verdicts differ\n",
            rate(run.headers, run.linear_seconds), static_cast<unsigned long long>(run.differing),
            static_cast<unsigned long long>(run.headers));
}

static void print_text(const t_run_options &options, const t_run &run)
{
    const char *kind = run.program.has_rule_numbers ? "rule" : "record";
    for (size_t i = 0; i < run.hits.size(); i++) {
        if (run.hits[i] == 0)
            continue;
        std::string name = i > 0 && i <= run.set.rules.size() ? " (" + run.set.rules[i - 1].name + ')' : "";
        printf("%s %zu%s: %llu\n", kind, i, name.c_str(), static_cast<unsigned long long>(run.hits[i]));
    }
    printf("default: %llu\n", static_cast<unsigned long long>(run.default_hits));
    printf("program: %.0f headers per second over %llu headers\n", rate(run.headers, run.walker_seconds),
           static_cast<unsigned long long>(run.headers));
    if (options.linear)
        print_linear(stdout, run);
}

static void print_json(const t_run_options &options, const t_run &run)
{
    nlohmann::json hits = nlohmann::json::array();
    for (size_t i = 0; i < run.hits.size(); i++) {
        if (run.hits[i] == 0)
            continue;
        nlohmann::json row = {{run.program.has_rule_numbers ? "rule" : "record", i}, {"hits", run.hits[i]}};
        if (i > 0 && i <= run.set.rules.size())
            row["name"] = run.set.rules[i - 1].name;
        hits.push_back(row);
    }
    nlohmann::json json = {{"headers", run.headers},
                           {"hits", hits},
                           {"default", run.default_hits},
                           {"headers_per_second", rate(run.headers, run.walker_seconds)}};
    if (options.linear)
        json["linear"] = {{"differing", run.differing},
                          {"headers_per_second", rate(run.headers, run.linear_seconds)}};
    tarnc_print_json(json);
}

static bool prepare(const t_run_options &options, std::string *p_bytes, t_run *p_run,
                    t_header_source *p_source)
{
    std::string reason;
    if (!program_load(options.program, p_bytes, &p_run->program, &reason)) {
        tarnc_fail(reason);
        return false;
    }
    const t_open_program &program = p_run->program;
    if (!program.has_rule_numbers && (options.verdicts || !options.rules.empty())) {
        tarnc_fail(options.program + ": tells no rule numbers; it was not made by tarnc");
        return false;
    }
    if (!options.rules.empty() && !tarnc_load_rules(options.rules, options.how, &p_run->set))
        return false;
    if (!options.rules.empty() && program.highest_rule > p_run->set.rules.size()) {
        tarnc_fail(options.program + ": was not made from " + options.rules);
        return false;
    }
    if (options.linear)
        p_run->search = linear_search_make(p_run->set);
    p_run->hits.assign(program.has_rule_numbers ? program.highest_rule + 1 : program.rule_by_record.size(),
                       0);

    if (options.headers.empty())
        header_source_random(options.random, options.seed, program.field_types,
                             options.rules.empty() ? nullptr : &p_run->set, p_source);
    else if (!header_source_open(options.headers, p_source, &reason)) {
        tarnc_fail(reason);
        return false;
    }
    return true;
}

static int run(const t_run_options &options)
{
    std::string bytes;
    t_run state;
    t_header_source source;
    if (!prepare(options, &bytes, &state, &source))
        return 1;
    std::vector<t_fp_header> block(block_size);
    size_t count = 0;
    do {
        std::string reason;
        if (!header_source_next(&source, block, &count, &reason))
            return tarnc_fail(reason);
        classify_block(options, &state, std::span(block).first(count));
    } while (count > 0);

    if (options.json)
        print_json(options, state);
    else if (!options.verdicts)
        print_text(options, state);
    else if (options.linear)
        print_linear(stderr, state);
    return state.differing == 0 ? 0 : 1;
}

void tarnc_run_register(CLI::App *p_app, int *p_status)
{
    auto options = std::make_shared<t_run_options>();
    CLI::App *p_command = p_app->add_subcommand("run", "Classify headers with a program");
    p_command->add_option("PROGRAM", options->program, "Program file")->required();
    CLI::Option *p_headers = p_command->add_option(
        "HEADERS", options->headers, "Lines of 'src dst sport dport proto' in decimal; - for standard input");
    CLI::Option *p_random =
        p_command->add_option("--random", options->random, "This many random headers instead")
            ->check(CLI::Range(uint64_t{1}, max_random))
            ->excludes(p_headers);
    p_command->add_option("--seed", options->seed, "Seed of the random headers")->capture_default_str();
    CLI::Option *p_rules = p_command->add_option(
        "--rules", options->rules,
        "The program's rule file: for names, and random headers are drawn inside rules");
    tarnc_add_format(p_command, &options->how);
    CLI::Option *p_verdicts = p_command->add_flag("--verdicts", options->verdicts,
                                                  "Print each header's rule number, 0 for the default");
    p_command->add_flag("--linear", options->linear, "Compare every verdict with a linear search")
        ->needs(p_rules);
    p_command->add_flag("--json", options->json, "Report as JSON")->excludes(p_verdicts);
    p_command->callback([options, p_headers, p_random, p_status] {
        if (p_headers->count() == 0 && p_random->count() == 0)
            throw CLI::RequiredError("HEADERS or --random");
        *p_status = run(*options);
    });
}

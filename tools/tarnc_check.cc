// tarnc check: what is wrong with a rule file before any packet sees it.

#include "tools/rule_check.h"
#include "tools/tarnc_common.h"

#include <memory>

struct t_check_options {
    std::string rules;
    t_rules_options how;
    bool strict = false;
    bool json = false;
};

struct t_check_report {
    t_rule_check rules;
    std::vector<t_stage_report> stages;
    std::vector<std::string> errors;
    std::vector<std::string> notes;  // on the table as a whole
};

// Looks at the stages without making a program; a table beyond 4 GiB has none.
static void check_stages(const t_check_options &options, const t_rule_set &set, t_check_report *p_report)
{
    t_compile_result result =
        rule_set_compile(set, tarnc_order(options.how), tarnc_limit(options.how), false);
    p_report->stages = result.stages;
    for (const t_stage_report &stage : stages_misclassifying(result.stages))
        p_report->errors.push_back(stage_misclassifies_print(stage));
    if (result.is_over_limit)
        p_report->notes.push_back(result.reason + "; not all stages are known");
    else if (!result.reason.empty())
        p_report->errors.push_back(result.reason);
}

static nlohmann::json rule_json(const t_rule_set &set, uint32_t number)
{
    const t_set_rule &rule = set.rules[number - 1];
    return {{"rule", number}, {"name", rule.name}, {"line", rule.line}};
}

static nlohmann::json rules_json(const t_rule_set &set, const std::vector<uint32_t> &numbers)
{
    nlohmann::json rows = nlohmann::json::array();
    for (uint32_t number : numbers)
        rows.push_back(rule_json(set, number));
    return rows;
}

static nlohmann::json dead_json(const t_rule_set &set, const t_dead_rule &dead)
{
    nlohmann::json row = rule_json(set, dead.rule);
    row["cover"] = nlohmann::json::array();
    for (uint32_t number : dead.cover) {
        nlohmann::json by = rule_json(set, number);
        by["action_differs"] = !rule_actions_equal(set.rules[number - 1], set.rules[dead.rule - 1]);
        row["cover"].push_back(by);
    }
    row["action_differs"] = dead.action_differs;
    row["natural_only"] = dead.natural_only;
    return row;
}

static void print_json(const t_check_options &options, const t_rule_set &set, const t_check_report &report,
                       bool clean)
{
    nlohmann::json dead = nlohmann::json::array();
    for (const t_dead_rule &rule : report.rules.dead)
        dead.push_back(dead_json(set, rule));
    nlohmann::json stages = nlohmann::json::array();
    for (const t_stage_report &stage : report.stages)
        if (stage.is_complete)
            stages.push_back(tarnc_stage_json(stage));
    tarnc_print_json({{"file", options.rules},
                      {"rules", set.rules.size()},
                      {"dead", dead},
                      {"match_nothing", rules_json(set, report.rules.match_nothing)},
                      {"undecided", rules_json(set, report.rules.undecided)},
                      {"stages", stages},
                      {"errors", report.errors},
                      {"notes", report.notes},
                      {"clean", clean}});
}

static void print_finding(const t_check_options &options, const t_rule_set &set, uint32_t number,
                          const std::string &finding)
{
    const t_set_rule &rule = set.rules[number - 1];
    printf("%s:%u: warning: rule %u (%s) %s\n", options.rules.c_str(), rule.line, number, rule.name.c_str(),
           finding.c_str());
}

static std::string dead_print(const t_rule_set &set, const t_dead_rule &dead)
{
    std::string text = dead.natural_only ? "can never win on a packet: all of it is taken by"
                                         : "can never win: all of it is taken by";
    for (uint32_t number : dead.cover)
        text += (number == dead.cover.front() ? " " : ", ") + std::to_string(number) + " (" +
                set.rules[number - 1].name + ')';
    return text + (dead.action_differs ? "; the action differs" : "; the action is the same");
}

static void print_text(const t_check_options &options, const t_rule_set &set, const t_check_report &report,
                       bool clean)
{
    for (const t_dead_rule &dead : report.rules.dead)
        print_finding(options, set, dead.rule, dead_print(set, dead));
    for (uint32_t number : report.rules.match_nothing)
        print_finding(options, set, number, "matches nothing");
    for (uint32_t number : report.rules.undecided)
        print_finding(options, set, number, "may or may not win: too much work to tell");
    for (const std::string &note : report.notes)
        printf("%s: warning: %s\n", options.rules.c_str(), note.c_str());
    for (const std::string &error : report.errors)
        printf("%s: error: %s\n", options.rules.c_str(), error.c_str());
    printf("%s: %zu rules, %zu can never win, %zu match nothing%s\n", options.rules.c_str(), set.rules.size(),
           report.rules.dead.size(), report.rules.match_nothing.size(), clean ? ": clean" : "");
}

static int check(const t_check_options &options)
{
    t_rule_set set;
    if (!tarnc_load_rules(options.rules, options.how, &set))
        return 1;
    t_check_report report;
    report.rules = rule_set_check(set);
    check_stages(options, set, &report);
    bool has_warnings = !report.rules.dead.empty() || !report.rules.match_nothing.empty() ||
                        !report.rules.undecided.empty() || !report.notes.empty();
    bool clean = !has_warnings && report.errors.empty();
    if (options.json)
        print_json(options, set, report, clean);
    else
        print_text(options, set, report, clean);
    if (!report.errors.empty())
        return tarnc_fail(options.rules + ": " + report.errors.front());
    return options.strict && has_warnings ? 1 : 0;
}

void tarnc_check_register(CLI::App *p_app, int *p_status)
{
    auto options = std::make_shared<t_check_options>();
    CLI::App *p_command =
        p_app->add_subcommand("check", "Find rules that can never win and tables that cannot work");
    p_command->add_option("RULES", options->rules, "Rule file")->required();
    tarnc_add_format(p_command, &options->how);
    tarnc_add_order(p_command, &options->how);
    tarnc_add_limit(p_command, &options->how);
    p_command->add_flag("--strict", options->strict, "Exit with 1 on warnings too");
    p_command->add_flag("--json", options->json, "Report as JSON");
    p_command->callback([options, p_status] { *p_status = check(*options); });
}

// tarnc explain: why a packet meets the rule that it meets.

#include "tools/linear_search.h"
#include "tools/program_file.h"
#include "tools/rule_fields.h"
#include "tools/rule_symbols.h"
#include "tools/tarnc_common.h"

#include <algorithm>
#include <memory>

struct t_explain_options {
    std::string file;
    std::vector<std::string> header;
    std::string rules;
    std::string rule;
    t_rules_options how;
    bool json = false;
};

// Everything that is found out before anything is printed.
struct t_explanation {
    std::string bytes;        // of a program file
    t_compile_result result;  // of a rule file
    t_open_program program;
    t_rule_set set;  // empty when a program came without rules
    t_fp_header header;
    std::vector<t_fp_step> steps;
    t_fp_verdict verdict;
    uint32_t winner;    // rule number, 0 for the default
    std::string asked;  // what became of the rule that was asked for; empty without one
    nlohmann::json asked_json;
};

static bool set_value(uint32_t type, std::string_view text, t_fp_header *p_header)
{
    const t_rule_field *p_field = rule_field_by_type(type);
    return rule_symbol_value(p_field->kind, text, &p_header->values[type]) ||
           rule_field_value_read(type, text, &p_header->values[type]);
}

static bool read_pair(std::string_view word, t_fp_header *p_header)
{
    size_t equals = word.find('=');
    const t_rule_field *p_field = rule_field_by_name(word.substr(0, equals));
    return equals != std::string_view::npos && p_field != nullptr &&
           set_value(p_field->type, word.substr(equals + 1), p_header);
}

// Five words src dst sport dport proto, or name=value pairs.
static bool read_header(const std::vector<std::string> &arguments, t_fp_header *p_header)
{
    static constexpr uint32_t types[] = {tarn_ip_src_addr, tarn_ip_dst_addr, tarn_ip_src_port,
                                         tarn_ip_dst_port, tarn_ip_protocol};
    std::vector<std::string_view> words;
    for (const std::string &argument : arguments) {
        std::string_view rest = argument;
        std::string_view word;
        while (text_next_word(&rest, &word))
            words.push_back(word);
    }
    *p_header = fp_header_blank();
    if (!words.empty() && words.front().find('=') != std::string_view::npos)
        return std::all_of(words.begin(), words.end(),
                           [p_header](std::string_view word) { return read_pair(word, p_header); });
    if (words.size() != std::size(types))
        return false;
    for (size_t i = 0; i < words.size(); i++)
        if (!set_value(types[i], words[i], p_header))
            return false;
    return true;
}

static bool open_rules(const t_explain_options &options, t_explanation *p_explanation)
{
    if (!tarnc_load_rules(options.file, options.how, &p_explanation->set))
        return false;
    p_explanation->result =
        rule_set_compile(p_explanation->set, tarnc_order(options.how), tarnc_limit(options.how), true);
    std::string reason = p_explanation->result.reason;
    if (std::vector<t_stage_report> bad = stages_misclassifying(p_explanation->result.stages); !bad.empty())
        reason = stage_misclassifies_print(bad.front());
    bool opened = reason.empty() &&
                  program_open(compile_result_bytes(p_explanation->result), &p_explanation->program, &reason);
    if (!opened)
        tarnc_fail(options.file + ": " + reason);
    return opened;
}

static bool open_program(const t_explain_options &options, t_explanation *p_explanation)
{
    std::string reason;
    if (!program_load(options.file, &p_explanation->bytes, &p_explanation->program, &reason)) {
        tarnc_fail(reason);
        return false;
    }
    if (!options.rules.empty() && !tarnc_load_rules(options.rules, options.how, &p_explanation->set))
        return false;
    if (!options.rules.empty() && (!p_explanation->program.has_rule_numbers ||
                                   p_explanation->program.highest_rule > p_explanation->set.rules.size())) {
        tarnc_fail(options.file + ": was not made from " + options.rules);
        return false;
    }
    return true;
}

// The first condition of the rule that the header fails, or null.
static const t_rule_condition *first_failing(const t_set_rule &rule, const t_fp_header &header)
{
    auto failing =
        std::find_if(rule.conditions.begin(), rule.conditions.end(), [&](const t_rule_condition &condition) {
            return !ranges_hold(condition.ranges, header.values[condition.field_type]);
        });
    return failing != rule.conditions.end() ? &*failing : nullptr;
}

static void explain_asked(const t_set_rule &rule, uint32_t number, t_explanation *p_explanation)
{
    nlohmann::json *p_json = &p_explanation->asked_json;
    *p_json = {{"rule", number}, {"name", rule.name}, {"won", number == p_explanation->winner}};
    std::string text = "rule " + std::to_string(number) + " (" + rule.name + ") ";
    if (number == p_explanation->winner) {
        p_explanation->asked = text + "wins";
        return;
    }
    if (const t_rule_condition *p_failing = first_failing(rule, p_explanation->header)) {
        uint32_t type = p_failing->field_type;
        std::string value = rule_field_value_print(type, p_explanation->header.values[type]);
        std::string wanted = rule_field_ranges_print(type, p_failing->ranges);
        (*p_json)["fails_on"] = {{"field", rule_field_name(type)}, {"value", value}, {"wanted", wanted}};
        p_explanation->asked =
            text + "does not match: " + rule_field_name(type) + " is " + value + ", the rule wants " + wanted;
    } else if (p_explanation->winner != 0 && p_explanation->winner < number) {
        const std::string &name = p_explanation->set.rules[p_explanation->winner - 1].name;
        (*p_json)["taken_by"] = {{"rule", p_explanation->winner}, {"name", name}};
        p_explanation->asked = text + "matches, but rule " + std::to_string(p_explanation->winner) + " (" +
                               name + ") took the packet";
    } else {
        (*p_json)["no_entry"] = true;
        p_explanation->asked =
            text + "does not win: the packet has the value 4294967295, which no table holds";
    }
}

static bool find_asked(const t_explain_options &options, t_explanation *p_explanation)
{
    if (options.rule.empty())
        return true;
    const std::vector<t_set_rule> &rules = p_explanation->set.rules;
    auto found = std::find_if(rules.begin(), rules.end(),
                              [&options](const t_set_rule &rule) { return rule.name == options.rule; });
    if (found == rules.end()) {
        tarnc_fail(p_explanation->set.file + ": no rule " + text_quote(options.rule));
        return false;
    }
    explain_asked(*found, static_cast<uint32_t>(found - rules.begin() + 1), p_explanation);
    return true;
}

static bool is_leaf_lookup(const t_fp_step &step)
{
    return tarn_get_opcode(step.instruction) == tarn_op_lookup &&
           tarn_get_src_type(step.instruction) == tarn_header;
}

static bool is_combined_lookup(const t_fp_step &step)
{
    return tarn_get_opcode(step.instruction) == tarn_op_lookup && !is_leaf_lookup(step);
}

static uint32_t leaf_type(const t_explanation &explanation, const t_fp_step &step)
{
    return fp_walker_field_type(explanation.program.walker.get(), tarn_get_src_index(step.instruction));
}

static std::vector<std::string> winner_actions(const t_explanation &explanation)
{
    if (explanation.verdict.record_offset == FP_NO_RECORD)
        return tarnc_actions(explanation.set.default_actions);
    return tarnc_actions(program_record_slots(explanation.program, explanation.verdict.record_offset));
}

static std::string winner_name(const t_explanation &explanation)
{
    bool known = explanation.winner > 0 && explanation.winner <= explanation.set.rules.size();
    return known ? explanation.set.rules[explanation.winner - 1].name : "";
}

static void print_steps(const t_explanation &explanation)
{
    printf("leaves:\n");
    for (const t_fp_step &step : explanation.steps) {
        if (!is_leaf_lookup(step))
            continue;
        uint32_t type = leaf_type(explanation, step);
        printf("  stage %-2u %-14s %-15s -> ", tarn_get_table_id(step.instruction),
               rule_field_name(type).c_str(), rule_field_value_print(type, step.input).c_str());
        printf(step.found ? "class %u\n" : "no entry\n", step.output);
    }
    printf("path:\n");
    for (const t_fp_step &step : explanation.steps) {
        if (!is_combined_lookup(step))
            continue;
        printf("  stage %-2u key %-10u -> ", tarn_get_table_id(step.instruction), step.input);
        printf(step.found ? "class %u\n" : "no entry\n", step.output);
    }
}

static void print_text(const t_explanation &explanation)
{
    print_steps(explanation);
    std::string name = winner_name(explanation);
    if (explanation.winner != 0)
        printf("winner: rule %u%s\n", explanation.winner, name.empty() ? "" : (" (" + name + ')').c_str());
    else if (explanation.program.has_rule_numbers || explanation.verdict.record_offset == FP_NO_RECORD)
        printf("winner: default\n");
    else
        printf("winner: record %u; the program tells no rule numbers\n", explanation.verdict.class_id);
    std::string actions;
    for (const std::string &action : winner_actions(explanation))
        actions += (actions.empty() ? "" : ", ") + action;
    printf("actions: %s\n", actions.empty() ? "none" : actions.c_str());
    if (!explanation.asked.empty())
        printf("%s\n", explanation.asked.c_str());
}

static void print_json(const t_explanation &explanation)
{
    nlohmann::json leaves = nlohmann::json::array();
    nlohmann::json path = nlohmann::json::array();
    for (const t_fp_step &step : explanation.steps) {
        nlohmann::json row = {{"stage", tarn_get_table_id(step.instruction)}, {"found", step.found}};
        if (step.found)
            row["class"] = step.output;
        if (is_leaf_lookup(step)) {
            row["field"] = rule_field_name(leaf_type(explanation, step));
            row["value"] = step.input;
            leaves.push_back(row);
        } else if (is_combined_lookup(step)) {
            row["key"] = step.input;
            path.push_back(row);
        }
    }
    nlohmann::json json = {{"leaves", leaves}, {"path", path}, {"actions", winner_actions(explanation)}};
    if (explanation.verdict.record_offset != FP_NO_RECORD)
        json["record"] = explanation.verdict.class_id;
    if (explanation.program.has_rule_numbers || explanation.verdict.record_offset == FP_NO_RECORD)
        json["rule"] = explanation.winner;
    if (std::string name = winner_name(explanation); !name.empty())
        json["name"] = name;
    if (!explanation.asked_json.is_null())
        json["asked"] = explanation.asked_json;
    tarnc_print_json(json);
}

static int explain(const t_explain_options &options, const t_fp_header &header)
{
    t_explanation explanation = {};
    bool opened = file_is_program(options.file) ? open_program(options, &explanation)
                                                : open_rules(options, &explanation);
    if (!opened)
        return 1;
    explanation.header = header;
    explanation.verdict = fp_walker_trace(explanation.program.walker.get(), header, &explanation.steps);
    explanation.winner = program_verdict_rule(explanation.program, explanation.verdict);
    if (!options.rule.empty() && explanation.set.rules.empty())
        return tarnc_fail("--rule needs the rules: give --rules with a program");
    if (!find_asked(options, &explanation))
        return 1;
    if (options.json)
        print_json(explanation);
    else
        print_text(explanation);
    return 0;
}

void tarnc_explain_register(CLI::App *p_app, int *p_status)
{
    auto options = std::make_shared<t_explain_options>();
    CLI::App *p_command =
        p_app->add_subcommand("explain", "Show how a program comes to its verdict on one header");
    p_command->add_option("FILE", options->file, "Program, or rule file that is compiled in memory")
        ->required();
    p_command
        ->add_option("HEADER", options->header,
                     "src dst sport dport proto, or name=value pairs of any fields; others are 0")
        ->required();
    p_command->add_option("--rules", options->rules, "The program's rule file, for names");
    p_command->add_option("--rule", options->rule, "Also tell what became of this rule");
    tarnc_add_format(p_command, &options->how);
    tarnc_add_order(p_command, &options->how);
    tarnc_add_limit(p_command, &options->how);
    p_command->add_flag("--json", options->json, "Report as JSON");
    p_command->callback([options, p_status] {
        t_fp_header header;
        if (!read_header(options->header, &header))
            throw CLI::ValidationError("HEADER", "src dst sport dport proto, or name=value pairs");
        *p_status = explain(*options, header);
    });
}

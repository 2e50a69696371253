// What the subcommands of tarnc share.
//
// Each subcommand registers itself with the command line and leaves its exit status behind: 0 fine, 1 an
// error that it has printed. Usage errors are thrown as CLI::Error and become status 2 in main.
#pragma once

#include "tools/rule_compile.h"
#include "tools/rule_loader.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

void tarnc_compile_register(CLI::App *p_app, int *p_status);
void tarnc_dump_register(CLI::App *p_app, int *p_status);
void tarnc_run_register(CLI::App *p_app, int *p_status);
void tarnc_explain_register(CLI::App *p_app, int *p_status);
void tarnc_check_register(CLI::App *p_app, int *p_status);

// Prints "tarnc: message" to standard error and returns 1.
int tarnc_fail(const std::string &message);

// Options on how a rule file is read and compiled.
struct t_rules_options {
    std::string format = "auto";
    std::string order;
    std::string limit;
};

void tarnc_add_format(CLI::App *p_command, t_rules_options *p_options);
void tarnc_add_order(CLI::App *p_command, t_rules_options *p_options);
void tarnc_add_limit(CLI::App *p_command, t_rules_options *p_options);

// The checked options' values.
std::vector<uint32_t> tarnc_order(const t_rules_options &options);
uint64_t tarnc_limit(const t_rules_options &options);  // bytes, 0 for none

// Loads a rule set, or prints the error.
bool tarnc_load_rules(const std::string &file, const t_rules_options &options, t_rule_set *p_set);

// A stage as JSON; sizes only when they are known.
nlohmann::json tarnc_stage_json(const t_stage_report &stage);

// Actions in the words of rule files, without the slot that tells the rule number.
std::vector<std::string> tarnc_actions(std::span<const t_tarn_filter_action> slots);

// Prints the value, indented.
void tarnc_print_json(const nlohmann::json &value);

// Flushes standard output and tells whether all of it was written; prints an error if not.
bool tarnc_finish_output();

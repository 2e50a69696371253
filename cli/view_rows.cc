// Where the rows of views come from, and what is made of them.

#include "cli/commands.h"
#include "cli/path_words.h"
#include "cli/view.h"

#include <algorithm>
#include <cmath>
#include <set>

static std::string text_of(const t_cli_json &row, const char *name)
{
    auto member = row.find(name);
    return member != row.end() && member->is_string() ? member->get<std::string>() : "";
}

// The row of a kind that has these members, made if need be.
static t_cli_json *row_with(t_cli_json *p_rows, const t_cli_json &members)
{
    for (t_cli_json &row : *p_rows) {
        bool fits = std::ranges::all_of(members.items(), [&](const auto &member) {
            return row.contains(member.key()) && row[member.key()] == member.value();
        });
        if (fits)
            return &row;
    }
    p_rows->push_back(members);
    return &p_rows->back();
}

// ---- Sources ----

static bool is_digits(const std::string &text)
{
    return !text.empty() && text.size() <= 20 && text.find_first_not_of("0123456789") == std::string::npos;
}

// The daemon gives numbers of 64 bits as texts. What a column counts and the daemon does not say is null.
static void counts_read(std::span<const t_cli_column> columns, t_cli_json *p_row)
{
    for (const t_cli_column &column : columns) {
        if (column.kind != CLI_COLUMN_COUNT)
            continue;
        t_cli_json &value = (*p_row)[column.member];
        if (value.is_string() && is_digits(value.get<std::string>()))
            value = t_cli_json::parse(value.get<std::string>(), nullptr, false);
        else if (!value.is_number())
            value = nullptr;
    }
}

// Adds the rows at the end of the levels. row has what stands around.
static void entries_flatten(const t_cli_json &entries, std::span<const t_cli_level> levels,
                            const t_cli_json &row, t_cli_json *p_rows)
{
    for (const t_cli_json &entry : entries) {
        t_cli_json inner = row;
        const t_cli_level &level = levels.front();
        if (level.key != nullptr)
            inner[level.member] = entry.value(level.key, t_cli_json(""));
        if (levels.size() > 1) {
            entries_flatten(entry.value(levels[1].list, t_cli_json::array()), levels.subspan(1), inner,
                            p_rows);
            continue;
        }
        for (const auto &[name, value] : entry.items()) {
            if (!value.is_structured() && (level.key == nullptr || name != level.key))
                inner[name] = value;
        }
        p_rows->push_back(std::move(inner));
    }
}

static void source_flatten(const t_cli_source &source, const t_cli_json &result, t_cli_json *p_rows)
{
    if (source.path == nullptr) {
        p_rows->push_back({{"data", result}});
        return;
    }
    const t_cli_json &data = result.empty() ? result : result.front();
    t_cli_json row = t_cli_json::object();
    if (source.kind != nullptr)
        row["kind"] = source.kind;
    if (source.levels.empty())
        p_rows->push_back({{"data", data}});
    else if (data.is_array())
        entries_flatten(data, source.levels, row, p_rows);
}

static t_cli_json source_head(const t_cli_source &source, const std::string &name)
{
    if (source.path == nullptr)
        return cli_head("status");
    std::string path = source.path + (name.empty() ? "" : cli_path_keys({name}));
    return {{"op", "show"}, {"path", path}, {"from", source.from}};
}

t_cli_answer cli_view_ask(t_cli *p_cli, const t_cli_view &view, const std::string &name)
{
    t_cli_json rows = t_cli_json::array();
    std::map<std::string, t_cli_answer> answers;  // by path; sources may share one
    std::vector<std::string> warnings;
    const t_cli_answer *p_refused = nullptr;
    bool has_answer = false;
    for (const t_cli_source &source : view.sources) {
        std::string path = source.path != nullptr ? source.path : "";
        auto [place, is_new] = answers.try_emplace(path);
        t_cli_answer &answer = place->second;
        if (is_new)
            answer = cli_ask(p_cli, source_head(source, name));
        if (answer.outcome == CLI_ANSWER_REFUSED && !name.empty()) {
            p_refused = &answer;  // another kind may have the name
            continue;
        }
        if (answer.outcome != CLI_ANSWER_DONE)
            return answer;
        has_answer = true;
        if (is_new)
            warnings.insert(warnings.end(), answer.warnings.begin(), answer.warnings.end());
        source_flatten(source, answer.result, &rows);
    }
    if (!has_answer && p_refused != nullptr)
        return *p_refused;
    rows = view.shape != nullptr ? view.shape(rows) : rows;
    for (t_cli_json &row : rows)
        counts_read(view.columns, &row);
    return {.outcome = CLI_ANSWER_DONE,
            .result = std::move(rows),
            .warnings = std::move(warnings),
            .path = "",
            .reason = ""};
}

// ---- Shapes ----

// What a row says about its program: the daemon leaves counts out where it is not loaded.
static const char *program_state(const t_cli_json &row)
{
    return row.contains("packets") || row.contains("oob-packets") ? "loaded" : "not loaded";
}

static void program_add(const t_cli_json &row, t_cli_json *p_program)
{
    static constexpr std::pair<const char *, const char *> parts[] = {
        {"counter", "counters"}, {"policer", "policers"}, {"interface", "interfaces"}};
    for (auto [part, total] : parts) {
        size_t count = p_program->value(total, size_t{0});
        (*p_program)[total] = count + (row.contains(part) ? 1 : 0);
    }
    bool tells = row.contains("counter") || row.contains("policer");
    std::string state = tells ? program_state(row) : text_of(*p_program, "program");
    (*p_program)["program"] = state;
}

// name is the member that tells what a program belongs to.
static t_cli_json programs_make(const t_cli_json &rows, const char *name)
{
    t_cli_json programs = t_cli_json::array();
    for (const t_cli_json &row : rows) {
        bool is_acl = row.contains("access-list");
        t_cli_json key = {{"kind", row.value("kind", "")},
                          {name, text_of(row, is_acl ? "access-list" : "policy")}};
        if (row.contains("vpn-list"))
            key["vpn-list"] = row["vpn-list"];
        program_add(row, row_with(&programs, key));
    }
    for (t_cli_json &program : programs) {
        if (text_of(program, "program").empty())
            program["program"] = nullptr;  // nothing tells
    }
    return programs;
}

t_cli_json cli_rows_of_programs(const t_cli_json &rows)
{
    return programs_make(rows, "policy");
}

t_cli_json cli_rows_of_access_lists(const t_cli_json &rows)
{
    return programs_make(rows, "access-list");
}

t_cli_json cli_rows_of_summary(const t_cli_json &rows)
{
    t_cli_json kinds = t_cli_json::array();
    std::set<std::string> policies;
    for (const char *p_kind : {"data", "app-route", "zone", "acl", "acl6"})
        kinds.push_back({{"kind", p_kind},
                         {"policies", 0},
                         {"programs", 0},
                         {"counters", 0},
                         {"policers", 0},
                         {"interfaces", 0},
                         {"not-loaded", 0}});
    for (const t_cli_json &program : cli_rows_of_programs(rows)) {
        t_cli_json &kind = *row_with(&kinds, {{"kind", program["kind"]}});
        bool is_new = policies.insert(text_of(program, "kind") + '\n' + text_of(program, "policy")).second;
        auto add = [&kind](const char *name, size_t count) { kind[name] = kind[name].get<size_t>() + count; };
        add("policies", is_new ? 1 : 0);
        add("programs", 1);
        for (const char *p_name : {"counters", "policers", "interfaces"})
            add(p_name, program[p_name].get<size_t>());
        add("not-loaded", program["program"] == "not loaded" ? 1 : 0);
    }
    return kinds;
}

static t_cli_json memory_row(const t_cli_json &usage, const char *what, const std::string &name)
{
    t_cli_json in_use = usage.value(name + "-in-use", t_cli_json());
    t_cli_json total = usage.value(name + "-total", t_cli_json());
    t_cli_json percent;
    if (in_use.is_number() && total.is_number() && total.get<double>() > 0)
        percent = std::round(in_use.get<double>() * 1000 / total.get<double>()) / 10;
    return {{"what", what}, {"in-use", in_use}, {"total", total}, {"percent", percent}};
}

t_cli_json cli_rows_of_memory(const t_cli_json &rows)
{
    t_cli_json uses = t_cli_json::array();
    for (const t_cli_json &usage : rows) {
        uses.push_back(memory_row(usage, "programs", "filters"));
        uses.push_back(memory_row(usage, "blocks of 128 bytes", "blocks"));
    }
    return uses;
}

t_cli_json cli_rows_of_debugs(const t_cli_json &rows)
{
    t_cli_json debugs = t_cli_json::array();
    for (const t_cli_json &row : rows) {
        for (const auto &[daemon, words] : row["data"].items()) {
            for (const auto &[word, value] : words.items())
                debugs.push_back({{"daemon", daemon}, {"debug", word}});
        }
    }
    return debugs;
}

t_cli_json cli_rows_of_daemons(const t_cli_json &status)
{
    t_cli_json daemons = t_cli_json::array();
    for (const t_cli_json &row : status) {
        for (const t_cli_json &daemon : row["data"].value("daemons", t_cli_json::array()))
            daemons.push_back(daemon);
    }
    return daemons;
}

t_cli_json cli_rows_of_zones(const t_cli_json &rows)
{
    t_cli_json zones = t_cli_json::array();
    for (const t_cli_json &row : rows) {
        t_cli_json &zone = *row_with(&zones, {{"zone", row["zone"]}});
        if (!zone.contains("vpns"))
            zone["vpns"] = t_cli_json::array();
        if (row.contains("vpn"))
            zone["vpns"].push_back(row["vpn"]);
    }
    return zones;
}

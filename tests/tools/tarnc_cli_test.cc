// tarnc on rule files and programs that are in order.

#include "tests/tools/run_command.h"
#include "tools/classbench_reader.h"
#include "tools/linear_search.h"
#include "tools/rule_generator.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <random>
#include <sstream>

namespace {

const std::string tarnc = TARNC_PROGRAM;

constexpr const char *small_rules = "table small\n"
                                    "default reject count rest\n"
                                    "rule ssh  src 10.0.0.0/8 proto tcp dport 22 accept count ssh\n"
                                    "rule ten  src 10.0.0.0/8 reject\n"
                                    "rule dead src 10.1.0.0/16 dport 80 accept\n"
                                    "rule last src 255.255.255.255 accept\n";

nlohmann::json json_of(const std::string &command)
{
    t_command_result result = run_command(command);
    EXPECT_EQ(result.status, 0) << command << '\n' << result.err;
    nlohmann::json json = nlohmann::json::parse(result.out, nullptr, false);
    EXPECT_FALSE(json.is_discarded()) << result.out;
    return json;
}

// Headers as lines, half of them at a border of a rule, and their verdicts by linear search.
void make_headers(const t_rule_set &set, uint32_t seed, std::string *p_lines, std::string *p_verdicts)
{
    static constexpr uint32_t columns[] = {tarn_ip_src_addr, tarn_ip_dst_addr, tarn_ip_src_port,
                                           tarn_ip_dst_port, tarn_ip_protocol};
    std::mt19937 random(seed);
    t_linear_search search = linear_search_make(set);
    for (int i = 0; i < 4000; i++) {
        const t_set_rule &rule = set.rules[random() % set.rules.size()];
        t_fp_header header = fp_header_blank();
        for (uint32_t type : columns) {
            const t_rule_condition *p_condition = set_rule_condition(rule, type);
            uint32_t value =
                static_cast<uint32_t>(random()) & (type < tarn_ip_src_addr ? 0xffff : 0xffffffff);
            if (p_condition != nullptr)
                value = (random() % 2 == 0 ? p_condition->ranges[0].low : p_condition->ranges[0].high) +
                        (i % 2 == 0 ? 0 : static_cast<uint32_t>(random()) % 3 - 1);
            header.values[type] = value;
            *p_lines += std::to_string(value) + (random() % 2 == 0 ? "\t" : "  ");
        }
        *p_lines += "77 further columns\n";
        *p_verdicts += std::to_string(linear_search_find(search, header)) + '\n';
    }
}

}  // namespace

TEST(TarncCli, VerdictsAreThoseOfTheLinearSearchForEveryFamily)
{
    t_temp_folder folder;
    uint32_t seed = 1;
    for (e_rule_family family : {e_rule_family::acl, e_rule_family::fw, e_rule_family::ipc}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        t_rule_set set;
        t_text_error error;
        std::string text = generated_rules_print(rules_generate(family, 150, seed));
        ASSERT_TRUE(classbench_read(text, "set", &set, &error));
        std::string lines;
        std::string verdicts;
        make_headers(set, seed++, &lines, &verdicts);
        folder.write("set", text);
        folder.write("headers", lines);

        t_command_result compile = run_command(tarnc + " compile --format classbench " + folder.path("set") +
                                               " -o " + folder.path("program"));
        ASSERT_EQ(compile.status, 0) << compile.err;
        t_command_result run = run_command(tarnc + " run " + folder.path("program") + ' ' +
                                           folder.path("headers") + " --verdicts");
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_TRUE(run.out == verdicts);
        t_command_result piped = run_command(tarnc + " run " + folder.path("program") + " - --verdicts < " +
                                             folder.path("headers"));
        EXPECT_TRUE(piped.out == verdicts);

        nlohmann::json json =
            json_of(tarnc + " run " + folder.path("program") + " --random 20000 --seed 9 --rules " +
                    folder.path("set") + " --linear --json");
        EXPECT_EQ(json["linear"]["differing"], 0);
        EXPECT_EQ(json["headers"], 20000);
        uint64_t hits = json["default"];
        for (const nlohmann::json &row : json["hits"])
            hits += row["hits"].get<uint64_t>();
        EXPECT_EQ(hits, 20000u);
    }
}

TEST(TarncCli, CompileReportsStagesAndWritesWhatItSays)
{
    t_temp_folder folder;
    std::string rules = folder.write("small.rules", small_rules);
    nlohmann::json json = json_of(tarnc + " compile " + rules + " -o " + folder.path("p") + " --json");
    EXPECT_EQ(json["table"], "small");
    EXPECT_EQ(json["rules"], 4);
    ASSERT_EQ(json["stages"].size(), 7u);
    EXPECT_EQ(json["stages"][0]["field"], "match-any");
    EXPECT_EQ(json["stages"][1]["field"], "dport");
    EXPECT_EQ(json["stages"][2]["field"], "src");
    EXPECT_EQ(json["stages"][6]["inputs"], nlohmann::json({5, 6}));
    uint64_t sum = 472 + 24 * 8 + 4 * (4 + 3 * 3 + 1) + 8 + 3080 * json["records"].get<uint64_t>();
    for (const nlohmann::json &stage : json["stages"])
        sum += stage["table_bytes"].get<uint64_t>();
    EXPECT_EQ(json["program_bytes"], sum);
    EXPECT_EQ(read_file(folder.path("p")).size(), sum);
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"p", "small.rules"}));

    nlohmann::json again =
        json_of(tarnc + " compile " + rules + " -o " + folder.path("p") + " --json --order proto,src");
    EXPECT_EQ(again["stages"][1]["field"], "proto");
    EXPECT_EQ(read_file(folder.path("p")).size(), again["program_bytes"]) << "an older file is replaced";
}

TEST(TarncCli, DumpShowsTablesAndActions)
{
    t_temp_folder folder;
    std::string rules = folder.write("small.rules", small_rules);
    ASSERT_EQ(run_command(tarnc + " compile " + rules + " -o " + folder.path("p")).status, 0);
    t_command_result dump = run_command(tarnc + " dump " + folder.path("p"));
    EXPECT_EQ(dump.status, 0) << dump.err;
    for (const char *part :
         {"(field type, ec) map size = 4", "Lookup Table:", "Action Table:", "accept", "ssh"})
        EXPECT_NE(dump.out.find(part), std::string::npos) << part;
}

TEST(TarncCli, RunCountsHitsAndTakesHeadersAsTheyCome)
{
    t_temp_folder folder;
    std::string rules = folder.write("small.rules", small_rules);
    ASSERT_EQ(run_command(tarnc + " compile " + rules + " -o " + folder.path("p")).status, 0);
    // ssh, ten, ten with columns left out, default, and the value that no table holds.
    std::string headers =
        folder.write("headers", "167772161 0 5 22 6\n\n167772161\t0 5 23 6 9 9\r\n167772161\n1 2 3\n"
                                "4294967295 0 0 0 0");
    t_command_result verdicts =
        run_command(tarnc + " run " + folder.path("p") + ' ' + headers + " --verdicts");
    EXPECT_EQ(verdicts.out, "1\n2\n2\n0\n0\n") << verdicts.err;
    t_command_result counts =
        run_command(tarnc + " run " + folder.path("p") + ' ' + headers + " --rules " + rules + " --linear");
    EXPECT_EQ(counts.status, 0) << counts.err;
    for (const char *part :
         {"rule 1 (ssh): 1\n", "rule 2 (ten): 2\n", "default: 2\n", "0 of 5 verdicts differ"})
        EXPECT_NE(counts.out.find(part), std::string::npos) << counts.out;

    std::string other =
        folder.write("other.rules", "rule a src 10.0.0.0/8 accept\nrule b accept\nrule c accept\n"
                                    "rule d accept\n");
    t_command_result differs =
        run_command(tarnc + " run " + folder.path("p") + ' ' + headers + " --rules " + other + " --linear");
    EXPECT_EQ(differs.status, 1);
    EXPECT_NE(differs.out.find("3 of 5 verdicts differ"), std::string::npos) << differs.out;
}

TEST(TarncCli, ExplainTellsWinnerPathAndWhyAnotherRuleLost)
{
    t_temp_folder folder;
    std::string rules = folder.write("small.rules", small_rules);
    ASSERT_EQ(run_command(tarnc + " compile " + rules + " -o " + folder.path("p")).status, 0);
    std::string program = tarnc + " explain " + folder.path("p");
    std::string source = tarnc + " explain " + rules;

    nlohmann::json won = json_of(program + " 10.0.0.1 1.2.3.4 5 22 6 --json");
    EXPECT_EQ(won["rule"], 1);
    EXPECT_EQ(won["actions"], nlohmann::json({"accept", "count ssh"}));
    EXPECT_EQ(won["leaves"].size(), 4u);
    EXPECT_EQ(won["path"].size(), 3u);
    nlohmann::json same = json_of(source + " src=10.0.0.1 dport=ssh proto=tcp --json");
    EXPECT_EQ(same["rule"], 1);
    EXPECT_EQ(same["name"], "ssh");
    EXPECT_EQ(same["path"], won["path"]);

    nlohmann::json fails = json_of(source + " src=10.0.0.1 dport=23 proto=tcp --rule ssh --json");
    EXPECT_EQ(fails["rule"], 2);
    EXPECT_EQ(fails["asked"]["fails_on"],
              nlohmann::json({{"field", "dport"}, {"value", "23"}, {"wanted", "22"}}));
    nlohmann::json taken =
        json_of(program + " '167837953 0 0 80 6' --rules " + rules + " --rule dead --json");
    EXPECT_EQ(taken["asked"]["taken_by"], nlohmann::json({{"rule", 2}, {"name", "ten"}}));
    nlohmann::json nothing = json_of(source + " 255.255.255.255 0 0 0 0 --rule last --json");
    EXPECT_EQ(nothing["rule"], 0);
    EXPECT_EQ(nothing["asked"]["no_entry"], true);
    EXPECT_EQ(nothing["actions"], nlohmann::json({"reject", "count rest"}));

    t_command_result text = run_command(source + " 9.9.9.9 0 0 0 0");
    EXPECT_NE(text.out.find("winner: default\nactions: reject, count rest\n"), std::string::npos) << text.out;
}

TEST(TarncCli, CheckNamesDeadRulesWithTheirCover)
{
    t_temp_folder folder;
    std::string rules = folder.write("small.rules", small_rules);
    nlohmann::json json = json_of(tarnc + " check " + rules + " --json");
    ASSERT_EQ(json["dead"].size(), 1u);
    EXPECT_EQ(json["dead"][0]["name"], "dead");
    EXPECT_EQ(json["dead"][0]["line"], 5);
    EXPECT_EQ(json["dead"][0]["cover"][0]["name"], "ten");
    EXPECT_EQ(json["dead"][0]["action_differs"], true);
    EXPECT_EQ(json["match_nothing"][0]["name"], "last");
    EXPECT_EQ(json["clean"], false);
    EXPECT_EQ(run_command(tarnc + " check " + rules + " --strict").status, 1);

    std::string clean = folder.write("clean.rules", "rule a src 10.0.0.0/8 accept\nrule b accept\n");
    EXPECT_EQ(json_of(tarnc + " check --strict --json " + clean)["clean"], true);
}

TEST(TarncCli, TheExampleIsCleanAndSmall)
{
    t_temp_folder folder;
    EXPECT_EQ(json_of(tarnc + " check --strict --json examples/edge.rules")["clean"], true);
    nlohmann::json json = json_of(tarnc + " compile --json examples/edge.rules -o " + folder.path("p"));
    EXPECT_LT(json["program_bytes"], 3 << 20);
}

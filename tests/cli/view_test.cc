// Views and what stands beside them: tables from a scripted daemon, and what the tables' rows name in the
// model.

#include "cli/commands.h"
#include "cli/model_walk.h"
#include "cli/phrase.h"
#include "cli/view.h"
#include "tests/cli/live_daemon.h"
#include "tests/cli/scripted_daemon.h"

#include <gtest/gtest.h>

static t_scripted_answer done(const std::string &result = "{}")
{
    return {{{R"({"id":ID,"ok":true})", result}}};
}

static constexpr char refused[] =
    R"({"id":ID,"ok":false,"error":{"code":1,"path":"/p","reason":"no such node"}})";

static constexpr char data_rows[] = R"({"lumora-policy:data-policy-filter":[
    {"name":"branch","data-policy-vpnlist":[{"name":"service","data-policy-counter":[
        {"counter-name":"web","packets":"1234567","bytes":"987654321"},{"counter-name":"dns","packets":"0","bytes":"0"}],
      "data-policy-policer":[{"policer-name":"10.slow","oob-packets":"3","oob-bytes":"4500"}]}]},
    {"name":"a-policy-with-a-name-that-is-longer-than-a-column","data-policy-vpnlist":[
      {"name":"all-of-the-service-vpns-of-it","data-policy-counter":[
        {"counter-name":"caf\u00e9\u001b"},{"counter-name":"x"}]}]}]})";
static constexpr char app_rows[] =
    R"({"lumora-policy:app-route-policy-filter":[{"name":"voice","app-route-policy-vpnlist":[{"name":"v"}]}]})";
static constexpr char zone_rows[] =
    R"({"lumora-policy:zbfw-filter-statistics":[{"name":"z","zbfw-policy-counter":[
    {"counter-name":"drops","packets":"18446744073709551615","bytes":"18446744073709551615"}]}]})";
static constexpr char names[] = R"({"lumora-policy:access-list-names":[{"name":"in"},{"name":"idle"}]})";
static constexpr char acl_counters[] = R"({"lumora-policy:access-list-counters":[{"name":"in","counter-list":[
    {"counter-name":"c","packets":"5","bytes":"500"}]},{"name":"idle"}]})";
static constexpr char acl_policers[] =
    R"({"lumora-policy:access-list-policers":[{"name":"in"},{"name":"idle"}]})";
static constexpr char bound[] = R"({"lumora-policy:access-list-associations":[{"name":"in","interface-list":[
    {"interface-name":"ge0/0","interface-direction":"in"},{"interface-name":"ge0/1","interface-direction":"out"}]}]})";
static constexpr char memory[] =
    R"({"lumora-policy:filter-memory-usage":[{"filters-in-use":3,"blocks-in-use":1250,"filters-total":1024,"blocks-total":65536}]})";

static t_command_result run(t_scripted_daemon *p_daemon, const std::string &arguments,
                            const std::string &before = "")
{
    return run_command(before + LUMORA_CLI + " --socket " + p_daemon->path + ' ' + arguments);
}

TEST(CliViewTables, TextGolden)
{
    static const struct {
        const char *arguments;
        std::vector<t_scripted_answer> script;
        const char *out;
    } cases[] = {
        {"show policy counters",
         {done(data_rows), done(app_rows), done(zone_rows)},
         "kind  policy               vpn-list              counter   packets         bytes\n"
         "data  branch               service               web         1.23M          988M\n"
         "data  branch               service               dns             0             0\n"
         "data  a-policy-~-a-column  all-of-the~pns-of-it  caf\xc3\xa9\\x1b        -  (not loaded)\n"
         "data  a-policy-~-a-column  all-of-the~pns-of-it  x               -  (not loaded)\n"
         "zone  z                                          drops       18.4E         18.4E\n"},
        {"show policy policers branch",
         {done(data_rows)},
         "policy  vpn-list  policer  oob-packets  oob-bytes\n"
         "branch  service   10.slow            3      4,500\n"},
        {"show access-list",
         {done(names), done(acl_counters), done(acl_policers), done(bound)},
         "access-list  counters  policers  interfaces  program\n"
         "in                  1         0           2  loaded\n"
         "idle                0         0           0  -\n"},
        {"show ipv6 access-list interfaces",
         {done(bound)},
         "access-list  interface  direction\n"
         "in           ge0/0      in\n"
         "in           ge0/1      out\n"},
        {"show policy summary",
         {done(data_rows), done(app_rows), done(zone_rows), done(names), done(acl_counters),
          done(acl_policers), done(bound)},
         "kind       policies  programs  counters  policers  interfaces  not loaded\n"
         "data              2         2         4         1           0           1\n"
         "app-route         1         1         0         0           0           0\n"
         "zone              1         1         1         0           0           0\n"
         "acl               2         2         1         0           2           0\n"
         "acl6              0         0         0         0           0           0\n"},
        {"show filter memory",
         {done(memory)},
         "what                 in use   total   used\n"
         "programs                  3   1,024  0.3 %\n"
         "blocks of 128 bytes   1,250  65,536  1.9 %\n"},
        {"show debugs",
         {done(R"({"lumora-debugs:debugs":{"tarn":{"config":[null],"policy":[null]}}})")},
         "daemon  debug\ntarn    config\ntarn    policy\n"},
        {"show daemons",
         {done(R"({"phase":2,"daemons":[{"name":"tarnd","state":"ready","points":59,"subscriptions":12}]})")},
         "daemon  state  points  subscriptions\ntarnd   ready      59             12\n"},
    };
    for (const auto &row : cases) {
        t_temp_folder folder;
        t_scripted_daemon daemon(folder.path("socket"), row.script);
        t_command_result result = run(&daemon, row.arguments);
        EXPECT_EQ(result.out, row.out) << row.arguments << result.err;
        for (size_t at = 0, end; (end = result.out.find('\n', at)) != std::string::npos; at = end + 1)
            EXPECT_LE(end - at, 81u) << "a page, and a byte for the accent: "
                                     << result.out.substr(at, end - at);
    }
}

TEST(CliViewTables, JsonGolden)
{
    t_temp_folder folder;
    t_scripted_daemon daemon(folder.path("socket"),
                             {{{{refused, ""}}}, done(app_rows), done(zone_rows), {{{refused, ""}}}});
    // One kind has the name, which is enough.
    EXPECT_EQ(run(&daemon, "show policy counters z --json").out, R"({
  "policy-counters": [
    {
      "kind": "zone",
      "policy": "z",
      "counter": "drops",
      "packets": 18446744073709551615,
      "bytes": 18446744073709551615
    }
  ]
}
)");
    EXPECT_EQ(daemon.requests().at(0),
              R"({"op":"show","path":"/policy/data-policy-filter{z}","from":"state"})");
    t_command_result result = run(&daemon, "show policy counters zone nobody");
    EXPECT_EQ(result.status, CLI_REFUSED);
    EXPECT_EQ(result.err, "lumora-cli: /p: no such node\n");
}

static std::string counters_of(const char *first, const char *second)
{
    return std::string(R"({"lumora-policy:access-list-counters":[{"name":"in","counter-list":[)") +
           R"({"counter-name":"a","packets":")" + first +
           R"(","bytes":"900"},{"counter-name":"b","packets":")" + second +
           R"(","bytes":"70"},{"counter-name":"off"}]}]})";
}

TEST(CliViewTables, WatchingTellsRatesGolden)
{
    t_temp_folder folder;
    std::vector<t_scripted_answer> script = {done(counters_of("100", "7")), done(counters_of("40", "7"))};
    t_scripted_daemon daemon(folder.path("socket"), script);
    // The first counter was cleared meanwhile.
    t_command_result result = run(&daemon, "show access-list counters --watch 1 --count 2");
    EXPECT_EQ(result.status, CLI_DONE) << result.err;
    EXPECT_EQ(result.out, "access-list  counter  packets  bytes  packets/s        bits/s\n"
                          "in           a            100    900          -             -\n"
                          "in           b              7     70          -             -\n"
                          "in           off            -      -          -  (not loaded)\n"
                          "\n"
                          "access-list  counter  packets  bytes  packets/s        bits/s\n"
                          "in           a             40    900          0             0\n"
                          "in           b              7     70          0             0\n"
                          "in           off            -      -          -  (not loaded)\n");

    std::string name;
    std::vector<std::string> words = {"access-list", "counters"};
    const t_cli_view &view = *cli_phrase_find(g_cli_show_phrases, words, &name)->p_view;
    auto rows = [](uint64_t packets, uint64_t bytes) {
        return t_cli_json::array(
            {{{"access-list", "in"}, {"counter", "a"}, {"packets", packets}, {"bytes", bytes}}});
    };
    t_cli_json now = rows(4321, 1'000'000);
    cli_view_rates(view, rows(1321, 0), 2'000'000, &now);
    EXPECT_EQ(now[0]["packets-per-second"], 1500.0);
    EXPECT_EQ(now[0]["bits-per-second"], 4'000'000.0);
    static constexpr std::pair<double, const char *> numbers[] = {
        {0, "0"},         {999, "999"},     {0.04, "0.04"},  {12.34, "12.3"},
        {999.6, "1.00k"}, {99'960, "100k"}, {1.5e9, "1.50G"}};
    for (auto [value, text] : numbers)
        EXPECT_EQ(cli_short_number(value), text);
}

TEST(CliPhrases, RunActions)
{
    static const struct {
        const char *arguments;
        std::vector<std::string> actions;
        const char *err = "";
    } cases[] = {
        {"clear policy counters",
         {"tarn-clear-data-policy", "tarn-clear-app-route-policy", "tarn-clear-zonepair-policy"}},
        {"clear ipv6 access-list counters", {"tarn-clear-policy-acl6"}},
        {"clear application hits", {"tarn-dpi-clear-protocol-hits"}},
        {"debug policy", {"tarn-debug-policy"}},
        {"no debug", {"tarn-debug-disable-all"}},
        {"undebug all", {"tarn-debug-disable-all"}},
        {"show dump sla-class", {"tarn-dump-sla-class"}},
        {"clear policy", {}, "lumora-cli: one of these is missing: counters\n"},
        {"debug policy x", {}, "lumora-cli: what is \"x\"?\n"},
        {"show tech --watch", {}, "lumora-cli: tech can't be watched\n"},
    };
    for (const auto &row : cases) {
        t_temp_folder folder;
        t_scripted_daemon daemon(folder.path("socket"), {});
        t_command_result result = run(&daemon, row.arguments);
        EXPECT_EQ(result.err, row.err) << row.arguments;
        std::vector<std::string> want;
        for (const std::string &action : row.actions)
            want.push_back(R"({"op":"action","action":")" + action + R"(","input":{},"words":[]})");
        EXPECT_EQ(daemon.requests(), want) << row.arguments;
    }
    t_temp_folder folder;
    t_scripted_daemon daemon(folder.path("socket"),
                             {done(R"({"values":["in2"]})"),
                              {{{R"({"id":ID,"more":true})", "x\n"}, {R"({"id":ID,"ok":true})", ""}}}});
    t_command_result result = run(&daemon, "clear access-list counters in -j");
    EXPECT_EQ(result.err, "lumora-cli: warning: nothing here is named \"in\"\n");
    EXPECT_EQ(result.out, "{\n  \"output\": \"x\\n\"\n}\n");
    EXPECT_EQ(daemon.requests().at(1),
              R"({"op":"action","action":"tarn-clear-policy-acl","input":{"name":"in"},"words":[]})");
}

// ---- With the real daemon ----

static void source_check(t_cli *p_cli, const t_cli_source &source)
{
    std::string path = source.path;
    for (const t_cli_level &level : source.levels) {
        path += level.list != nullptr ? std::string("/") + level.list : "";
        std::string reason;
        e_cli_status status;
        const t_cli_json *p_list = cli_model_node(p_cli, path, &reason, &status);
        ASSERT_NE(p_list, nullptr) << reason;
        EXPECT_EQ(cli_model_text(*p_list, "kind"), "list") << path;
        EXPECT_TRUE(level.key == nullptr || cli_model_child(*p_list, level.key) != nullptr) << path;
    }
}

TEST(CliViews, NameWhatTheModelHasAndEndWell)
{
    t_live_daemon daemon;
    t_cli cli;
    cli.socket = daemon.socket;
    for (std::span<const t_cli_phrase> phrases :
         {g_cli_show_phrases, g_cli_clear_phrases, g_cli_debug_phrases, g_cli_undebug_phrases,
          g_cli_no_phrases}) {
        for (const t_cli_phrase &phrase : phrases) {
            std::vector<std::string> paths(phrase.names.begin(), phrase.names.end());
            for (const char *p_action : phrase.actions)
                paths.push_back(p_action != nullptr ? std::string("/") + p_action : "");
            for (const std::string &path : paths) {
                std::string reason;
                e_cli_status status;
                EXPECT_NE(cli_model_node(&cli, path, &reason, &status), nullptr)
                    << phrase.words << ": " << reason;
            }
            for (const t_cli_source &source :
                 phrase.p_view != nullptr ? phrase.p_view->sources : std::span<const t_cli_source>()) {
                if (source.path != nullptr)
                    source_check(&cli, source);
            }
        }
    }

    EXPECT_EQ(daemon.script("configure\nset policy zone a vpn 1\nset policy zone a vpn 20\ncommit\n").err,
              "");
    t_command_result stopped = run_command(
        "timeout --preserve-status -s INT 3 " LUMORA_CLI " show zones --watch 1 -s " + daemon.socket);
    EXPECT_EQ(stopped.status, CLI_DONE) << stopped.err;
    EXPECT_TRUE(stopped.out.starts_with("zone  vpns\na     1 20\n\nzone  vpns\na     1 20\n")) << stopped.out;
    EXPECT_TRUE(stopped.out.ends_with("a     1 20\n")) << stopped.out;

    t_live_terminal terminal(daemon);
    terminal.until("> ");
    terminal.type("show watch 1 zones\r");
    for (int i = 0; i < 2; i++)
        terminal.until("\x1b[H\x1b[Jzone  vpns\r\na     1 20\r\n");
    terminal.type("\x03");
    terminal.until("> ");
    terminal.type("quit\r");
    EXPECT_EQ(terminal.end(), CLI_DONE);
}

// The built command against a scripted daemon: what it asks, what it prints, how it ends.

#include "cli/command.h"
#include "tests/cli/scripted_daemon.h"
#include "tests/tools/run_command.h"

#include <gtest/gtest.h>

static t_scripted_answer done(const std::string &result = "", const std::string &warnings = "")
{
    return {{{R"({"id":ID,"ok":true)" + warnings + '}', result}}};
}

static t_scripted_answer refused(const std::string &path, const std::string &reason)
{
    return {
        {{R"({"id":ID,"ok":false,"error":{"code":5,"path":")" + path + R"(","reason":")" + reason + "\"}}",
          ""}}};
}

namespace {

struct t_outcome {
    t_command_result result;
    std::vector<std::string> requests;
};

}  // namespace

static t_outcome run_cli(const std::string &arguments, std::vector<t_scripted_answer> script,
                         const std::string &before = "")
{
    t_temp_folder folder;
    t_scripted_daemon daemon(folder.path("socket"), std::move(script));
    std::string options = " --socket " + daemon.path + ' ';
    t_command_result result = run_command(before + LUMORA_CLI + options + arguments);
    return {result, daemon.requests()};
}

TEST(LumoraCli, ChangesAreOneEdit)
{
    t_temp_folder folder;
    std::string base = folder.write("base.json", R"({"lumora-policy:policy": {"log-frequency": 5}})");
    t_outcome outcome = run_cli("configure --delete '/policy/zone{a}' -f - -f " + base +
                                    " --replace --set /policy/log-frequency 10 --add '/policy/zone{\"b c\"}'",
                                {}, "echo '{\"x\":\n1}' | ");
    EXPECT_EQ(outcome.result.status, CLI_DONE) << outcome.result.err;
    EXPECT_EQ(outcome.result.out + outcome.result.err, "");
    const std::vector<std::string> want = {
        R"({"op":"edit"} [{"op":"delete","path":"/policy/zone{a}"},{"op":"replace","path":"/","value":{"x":)"
        "\n1}\n"
        R"(},{"op":"merge","path":"/","value":{"lumora-policy:policy": {"log-frequency": 5}}},)"
        R"({"op":"merge","path":"/policy/log-frequency","value":"10"},{"op":"merge","path":"/policy/zone{\"b c\"}"}])"};
    EXPECT_EQ(outcome.requests, want);
}

TEST(LumoraCli, ACommitAtOnceIsLocked)
{
    t_outcome outcome = run_cli(
        "configure --set /a 1 --commit 'why \"so\"'",
        {done(), done(), done(R"({"changed":true,"commit":12})", R"(,"warnings":["tarnd was lost"])")});
    EXPECT_EQ(outcome.result.status, CLI_DONE);
    EXPECT_EQ(outcome.result.out, "commit 12 is running\n");
    EXPECT_EQ(outcome.result.err, "lumora-cli: warning: tarnd was lost\n");
    const std::vector<std::string> want = {R"({"op":"lock"})",
                                           R"({"op":"edit"} [{"op":"merge","path":"/a","value":"1"}])",
                                           R"({"op":"commit","comment":"why \"so\""})"};
    EXPECT_EQ(outcome.requests, want);

    outcome = run_cli("rollback 2 -c back", {done(), done(), done(R"({"changed":false})")});
    EXPECT_EQ(outcome.result.out, "nothing to commit\n");
    EXPECT_EQ(outcome.requests.at(1), R"({"op":"rollback","number":2})");

    outcome = run_cli("commit comment c --confirmed 2h persist p --persist-id=q",
                      {done(R"({"changed":true,"commit":3})")});
    EXPECT_EQ(outcome.result.out, "commit 3 is running\n");
    EXPECT_EQ(outcome.requests.at(0),
              R"({"op":"commit","comment":"c","confirm":7200,"persist":"p","persist-id":"q"})");
    EXPECT_EQ(run_cli("cancel-commit persist-id p", {}).requests.at(0),
              R"({"op":"cancel-commit","persist-id":"p"})");

    outcome = run_cli("configure --set /a 1 --commit x", {done(), refused("/a", "no number")});
    EXPECT_EQ(outcome.result.status, CLI_REFUSED);
    EXPECT_EQ(outcome.result.err, "lumora-cli: /a: no number\n");
    EXPECT_EQ(outcome.requests.size(), 2u);
}

TEST(LumoraCli, ExitStatusTellsWhatWentWrong)
{
    t_temp_folder folder;
    std::string bad = folder.write("bad.json", "{\"a\": 1,\n}");
    static const struct {
        std::string arguments;
        int status;
        const char *err;  // begins so
    } cases[] = {
        {"check", CLI_REFUSED, "lumora-cli: /a{b}: too many\n"},
        {"check --json", CLI_REFUSED, "{\n  \"path\": \"/a{b}\",\n  \"reason\": \"too many\"\n}\n"},
        {"configure", CLI_USAGE, "lumora-cli: configure needs something to change\n"},
        {"configure --set /a", CLI_USAGE,
         "lumora-cli: --set needs VALUE\nUsage: lumora-cli configure [OPTION]...\n"},
        {"configure --replace --set /a 1", CLI_USAGE, "lumora-cli: --replace needs a file\n"},
        {"configure --json=1", CLI_USAGE, "lumora-cli: --json takes no value\n"},
        {"rollback x", CLI_USAGE, "lumora-cli: \"x\" is no number of a commit\n"},
        {"rollback", CLI_USAGE, "lumora-cli: N is missing\nUsage: lumora-cli rollback N [OPTION]...\n"},
        {"history x", CLI_USAGE, "lumora-cli: what is \"x\"?\n"},
        {"commit --confirmed 0", CLI_USAGE, "lumora-cli: \"0\" is no time of up to a week"},
        {"commit confirmed 10", CLI_USAGE, "lumora-cli: a confirmed commit needs --persist"},
        {"commit check persist x", CLI_USAGE, "lumora-cli: \"commit check\" takes nothing else\n"},
        {"-f /nonexistent/script", CLI_LOCAL, "lumora-cli: /nonexistent/script: "},
        {"frobnicate", CLI_USAGE, "lumora-cli: there is no command frobnicate\n"},
        {"check --socket /nonexistent/socket", CLI_NO_CONNECTION,
         "lumora-cli: /nonexistent/socket: No such file or directory\n"},
        {"configure -f /nonexistent/file", CLI_LOCAL,
         "lumora-cli: /nonexistent/file: No such file or directory\n"},
        {"configure -f " + bad, CLI_LOCAL, "lumora-cli: "},
    };
    for (const auto &row : cases) {
        t_outcome outcome = run_cli(row.arguments, {refused("/a{b}", "too many")});
        EXPECT_EQ(outcome.result.status, row.status) << row.arguments;
        EXPECT_TRUE(outcome.result.err.starts_with(row.err)) << row.arguments << ": " << outcome.result.err;
    }
    EXPECT_NE(run_cli("configure -f " + bad, {}).result.err.find("parse error at line 2"), std::string::npos);
    EXPECT_EQ(run_cli("show / > /dev/full", {done(R"({"a":1})")}).result.status, CLI_LOCAL);
    EXPECT_EQ(run_cli("check", {{{{"", ""}}}}).result.status, CLI_NO_CONNECTION);
    EXPECT_EQ(run_cli("check", {{{{"[]", ""}}}}).result.status, CLI_NO_CONNECTION);
}

TEST(LumoraCli, ShowLaysOutDataGolden)
{
    static constexpr char data[] = R"({"lumora-policy:policy":{
        "log-frequency":5,"app-visibility":true,
        "class-map":{"class":[{"name":"voice","queue":2},{"name":"bulk data"},{"name":"x","queue":10}]},
        "zone":[{"name":"a","vpn":[{"vpn-id":1},{"vpn-id":20}]},{"name":"b c","direction":["in","out"],"on":[null],"note":""}],
        "data-policy-counter":[{"counter-name":"c\u001b[1m","packets":"18446744073709551615","bytes":"7"}],
        "wide":[{"name":"n1","a":"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa","b":"bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb"}],
        "lists":{}}})";
    static constexpr char want[] = R"(policy
  log-frequency   5
  app-visibility  true
  class-map
    class
      name       queue
      voice          2
      bulk data
      x             10
  zone a
    vpn
      vpn-id
           1
          20
  zone "b c"
    direction  in out
    on
    note       ""
  data-policy-counter
    counter-name               packets  bytes
    c\x1b[1m      18446744073709551615      7
  wide n1
    a  aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa
    b  bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb
  lists
)";
    t_outcome outcome = run_cli("show /policy --state", {done(data)});
    EXPECT_EQ(outcome.result.out, want);
    EXPECT_EQ(outcome.requests.at(0), R"({"op":"show","path":"/policy","from":"state"})");
    outcome = run_cli("show / -j", {done(R"({"b":[1],"a":"x"})")});
    EXPECT_EQ(outcome.result.out, "{\n  \"b\": [\n    1\n  ],\n  \"a\": \"x\"\n}\n");
}

TEST(LumoraCli, HistoryAndCompareGolden)
{
    t_outcome outcome = run_cli("history", {done(R"({"commits":[
        {"rollback":0,"commit":12,"user":"root","time":"2024-01-15T10:00:00Z","comment":"second, longer"},
        {"rollback":1,"commit":9,"user":"eve","time":"2024-01-14T10:00:00Z","comment":""}]})")});
    EXPECT_EQ(outcome.result.out, "rollback  commit  time                  user  comment\n"
                                  "       0      12  2024-01-15T10:00:00Z  root  second, longer\n"
                                  "       1       9  2024-01-14T10:00:00Z  eve\n");
    outcome = run_cli("compare 1", {done(R"({"changes":["+ /a 1","- /b"]})")});
    EXPECT_EQ(outcome.result.out, "+ /a 1\n- /b\n");
    EXPECT_EQ(outcome.requests.at(0), R"({"op":"compare","number":1})");
}

TEST(LumoraCli, AnActionsOutputComesBeforeItsAnswer)
{
    std::vector<t_scripted_answer> script = {{{{R"({"id":ID,"more":true})", "line 1\nli"},
                                               {R"({"id":ID,"more":true})", "ne 2\n"},
                                               {R"({"id":ID,"ok":true})", R"({"text":"ok"})"}}}};
    t_outcome outcome = run_cli("request tarn-clear-policy-acl name=a=b word", script);
    EXPECT_EQ(outcome.result.out, "line 1\nline 2\ntext  ok\n");
    EXPECT_EQ(outcome.requests.at(0),
              R"({"op":"action","action":"tarn-clear-policy-acl","input":{"name":"a=b"},"words":["word"]})");
    script[0].frames[2] = {R"({"id":ID,"ok":false,"error":{"code":19,"path":"/x","reason":"failed"}})", ""};
    outcome = run_cli("request x", script);
    EXPECT_EQ(outcome.result.out, "line 1\nline 2\n");
    EXPECT_EQ(outcome.result.status, CLI_REFUSED);
}

TEST(LumoraCli, NotificationsComeUntilTheCount)
{
    static constexpr char notification[] =
        R"({"time":"2024-01-15T10:00:00.000000Z","name":"up","data":{"lumora-x:up":{"peer":"a\u001b"}}})";
    t_scripted_answer many = {
        {{R"({"id":ID,"more":true})", notification}, {R"({"id":ID,"more":true})", notification}}};
    t_outcome outcome = run_cli("monitor --count 1 --from 2024-01-15T00:00:00Z", {many});
    EXPECT_EQ(outcome.result.status, CLI_DONE) << outcome.result.err;
    EXPECT_EQ(outcome.result.out, "2024-01-15T10:00:00.000000Z up\n  peer  a\\x1b\n");
    EXPECT_EQ(outcome.requests.at(0), R"({"op":"monitor","start":1705276800000000})");
    EXPECT_EQ(run_cli("monitor -j count 1", {many}).result.out, std::string(notification) + '\n');
}

TEST(LumoraCli, HelpComesFromTheTableGolden)
{
    EXPECT_EQ(run_command(std::string(LUMORA_CLI) + " rollback --help").out,
              R"(Usage: lumora-cli rollback N [OPTION]...

Gives the candidate the configuration of a commit: 0 is running, 1 the one
before; "history" lists them. With --commit it is committed, all or nothing.

Options:
  -c, --commit COMMENT  commit, all or nothing
  -j, --json            print JSON instead of text
  -s, --socket PATH     mgmtd's control socket; default /var/run/mgmtd.sock
  -h, --help            this text

Exit status: 0 done, 1 refused by the daemon, 2 usage, 3 no connection, 4 a file
can't be read or written.
)");
    std::string help = run_command(std::string(LUMORA_CLI) + " --help").out;
    std::string man = run_command(std::string(LUMORA_CLI) + " --print-man").out;
    for (const t_cli_command &command : g_cli_commands) {
        bool is_told = help.find(std::string("\n  ") + command.name + ' ') != std::string::npos;
        EXPECT_TRUE(is_told || (command.modes & CLI_MODE_SHELL) == 0) << command.name;
    }
    for (const char *text :
         {"\n.SS rename PATH [OPTION]... ", "\n\\fB\\-\\-confirmed\\fR \\fITIME\\fR\n", "fB| match"})
        EXPECT_NE(man.find(text), std::string::npos) << text;
    for (size_t at = 0, end; (end = help.find('\n', at)) != std::string::npos; at = end + 1)
        EXPECT_LE(end - at, 80u) << help.substr(at, end - at);
}

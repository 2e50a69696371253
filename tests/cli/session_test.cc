// Sessions of the command line with the real daemon: scripts, completion, and a person at a terminal.

#include "cli/completion.h"
#include "cli/line_words.h"
#include "cli/path_words.h"
#include "cli/text_escape.h"
#include "tests/cli/live_daemon.h"

#include <gtest/gtest.h>

// ---- Lines ----

TEST(CliLine, IsReadAsWords)
{
    static const struct {
        const char *line;
        std::vector<std::string> words;  // a bar as "|", a quoted word with a ' in front
        e_cli_line result = CLI_LINE_WHOLE;
    } cases[] = {
        {"  show\tpolicy  zone ", {"show", "policy", "zone"}},
        {R"(commit comment "a \"b\" \\ c|d")", {"commit", "comment", R"('a "b" \ c|d)"}},
        {R"(set /policy/zone{"a } b" 2}/vpn{1} x)", {"set", R"(/policy/zone{"a } b" 2}/vpn{1})", "x"}},
        {R"(show|match a\.b|count)", {"show", "|", "match", R"(a\.b)", "|", "count"}},
        {R"(request a name="x y" "")", {"request", "a", "'name=x y", "'"}},
        {"# a comment", {}},
        {"show # none", {"show", "#", "none"}},
        {"show \"x", {"show", "'x"}, CLI_LINE_OPEN_QUOTE},
        {"show zone{x", {"show", "zone{x"}, CLI_LINE_OPEN_BRACE},
    };
    for (const auto &row : cases) {
        std::vector<t_cli_token> tokens;
        EXPECT_EQ(cli_line_split(row.line, &tokens), row.result) << row.line;
        std::vector<std::string> words;
        for (const t_cli_token &token : tokens) {
            EXPECT_EQ(token.is_pipe, token.text == "|");
            words.push_back((token.is_quoted ? "'" : "") + token.text);
        }
        EXPECT_EQ(words, row.words) << row.line;
    }
    for (const char *word : {"", "plain", "a b", "a\"b\\", "|", "-x", "{", "#"}) {
        std::vector<t_cli_token> tokens;
        EXPECT_EQ(cli_line_split(cli_line_quote(word), &tokens), CLI_LINE_WHOLE);
        ASSERT_EQ(tokens.size(), 1u) << word;
        EXPECT_EQ(tokens[0].text, word);
        std::vector<t_cli_step> steps;
        std::string path = cli_path_text({{.name = "zone", .keys = {word, "2"}}});
        ASSERT_TRUE(cli_path_split(path, &steps)) << path;
        EXPECT_EQ(steps[0].keys, (std::vector<std::string>{word, "2"}));
    }
}

TEST(CliText, NothingMovesTheTerminal)
{
    EXPECT_EQ(cli_text_printable("a\x1b[2J\r\n\tb\x7f \xc3\xa4 \xc2\x9b \x9b \xff", true),
              "a\\x1b[2J\\x0d\n\tb\\x7f \xc3\xa4 \\xc2\\x9b \\x9b \\xff");
    EXPECT_EQ(cli_json_printable("\"\x7f\xc2\x9b\xc3\xa4\""), "\"\\u007f\\u009b\xc3\xa4\"");
}

// ---- With the daemon ----

class CliSession : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        p_daemon = new t_live_daemon;
    }

    static void TearDownTestSuite()
    {
        delete std::exchange(p_daemon, nullptr);
    }

    void TearDown() override
    {
        p_daemon->script("configure\nload replace terminal\n{}\n.\ncommit\n");
    }

    static t_live_daemon *p_daemon;
};

t_live_daemon *CliSession::p_daemon = nullptr;

static constexpr char example[] = R"(configure
set policy zone guest vpn 10
set policy zone "a b"
edit policy zone guest
set vpn 20
up
set log-frequency 7 app-visibility true
top
set /policy/policer{p} rate 1000 burst 1500 exceed drop
)";

TEST_F(CliSession, WordsBecomeConfigurationAndComeBackAsWords)
{
    static constexpr char set_commands[] = R"(set policy app-visibility true
set policy log-frequency 7
set policy policer p rate 1000
set policy policer p burst 1500
set policy policer p exceed drop
set policy zone "a b"
set policy zone guest vpn 10
set policy zone guest vpn 20
)";
    t_command_result shown = p_daemon->script(std::string(example) + "commit check\nshow | display set\n");
    EXPECT_EQ(shown.err, "");
    EXPECT_EQ(shown.out, set_commands);
    // What is shown makes the same again.
    shown = p_daemon->script("configure\ndiscard\n" + std::string(set_commands) + "show | display set\n");
    EXPECT_EQ(shown.out, set_commands);
    shown = p_daemon->script(
        "configure\nrename policy zone guest to \"x y\"\ndelete policy zone \"a b\"\n"
        "delete policy policer\nshow policy zone | display set\nshow policy zone | compare\n"
        "commit comment first\nrollback 0\nrename policy zone \"x y\" to guest\nshow | compare\n");
    EXPECT_EQ(shown.err, "");
    EXPECT_TRUE(shown.out.starts_with("set policy zone \"x y\" vpn 10\nset policy zone \"x y\" vpn 20\n"
                                      "+ /policy/zone{\"x y\"}"))
        << shown.out;
    EXPECT_NE(shown.out.find("- /policy/zone{\"x y\"}"), std::string::npos) << shown.out;
}

TEST_F(CliSession, OutputGoesThroughPipes)
{
    ASSERT_EQ(p_daemon->script(std::string(example) + "commit\n").status, CLI_DONE);
    static const struct {
        const char *line;
        const char *out;
    } cases[] = {
        {"show policy zone | display set | match guest",
         "set policy zone guest vpn 10\nset policy zone guest vpn 20\n"},
        {"show config policy zone | display set | except \"vpn [12]0\" | no-more",
         "set policy zone \"a b\"\n"},
        {"show policy | display set | match ^set | count", "Count: 8 lines\n"},
        {"show config policy log-frequency | json", "{\n  \"lumora-policy:log-frequency\": 7\n}\n"},
        {"hist | match nothing", ""},
    };
    for (const auto &row : cases)
        EXPECT_EQ(p_daemon->script(row.line).out, row.out) << row.line;
}

TEST_F(CliSession, AScriptStopsAtItsFirstError)
{
    static const struct {
        const char *lines;
        int status;
        const char *err;
    } cases[] = {
        {"status\nfrobnicate\nhistory\n", CLI_USAGE, "lumora-cli: line 2: there is no command frobnicate\n"},
        {"configure\n\nset policy zon x\n", CLI_USAGE,
         "lumora-cli: line 3: /policy: there is no \"zon\" here\n"},
        {"configure\nset policy log-frequency\n", CLI_USAGE,
         "lumora-cli: line 2: /policy/log-frequency: the value is missing\n"},
        {"configure\nrename policy zone x to y\n", CLI_REFUSED, "lumora-cli: line 2: /policy/zone{x}: "},
        {"configure\nload merge /nonexistent\n", CLI_LOCAL, "lumora-cli: line 2: /nonexistent: "},
        {"configure\nload merge terminal\n{\n.\nx\n", CLI_LOCAL, "lumora-cli: line 4: terminal: "},
        {"show | match [\n", CLI_USAGE, "lumora-cli: line 1: \"[\": "},
        {"show | match\n", CLI_USAGE, "lumora-cli: line 1: match needs REGEX\n"},
        {"history | compare\n", CLI_USAGE, "lumora-cli: line 1: \"compare\" goes with show\n"},
        {"co\n", CLI_USAGE, "lumora-cli: line 1: \"co\" could be configure, compare, commit\n"},
        {"show \"x\n", CLI_USAGE, "lumora-cli: line 1: a quote is not closed\n"},
    };
    for (const auto &row : cases) {
        t_command_result result = p_daemon->script(row.lines);
        EXPECT_EQ(result.status, row.status) << row.lines;
        EXPECT_TRUE(result.err.starts_with(row.err)) << result.err;
    }
}

TEST_F(CliSession, CompletionKnowsTableModelAndData)
{
    ASSERT_EQ(
        p_daemon->script(std::string(example) + "set policy zone-based-policy zbp default-action accept\n")
            .status,
        CLI_DONE);
    static const struct {
        e_cli_mode mode;
        const char *line;
        const char *candidates;  // all of them, hints too
    } cases[] = {
        {CLI_MODE_OPERATION, "c", "configure compare check commit cancel-commit clear"},
        {CLI_MODE_CONFIGURATION, "commit c", "check comment confirmed"},
        {CLI_MODE_CONFIGURATION, "commit comment x --pers", "--persist --persist-id"},
        {CLI_MODE_CONFIGURATION, "set policy zo", "zone-to-nozone-internet zone zone-pair zone-based-policy"},
        {CLI_MODE_CONFIGURATION, "set policy zone g", "<string> guest"},
        {CLI_MODE_CONFIGURATION, "set policy zone ", "<string> a b guest"},
        {CLI_MODE_CONFIGURATION, "set policy zone guest vpn ", "<uint32> 10 20"},
        {CLI_MODE_CONFIGURATION, "set policy policer p exceed d", "<enumeration> drop"},
        {CLI_MODE_CONFIGURATION, "set policy policer p rate 1 bu", "burst"},
        {CLI_MODE_CONFIGURATION, "set policy zone-pair zp source-zone gu", "<string> guest"},
        {CLI_MODE_CONFIGURATION, "set /policy/zone-b", "/policy/zone-based-policy"},
        {CLI_MODE_CONFIGURATION, "rename policy zone guest ", "to vpn"},
        {CLI_MODE_CONFIGURATION, "show policy zone guest | co", "compare count"},
        {CLI_MODE_OPERATION, "request tarn-clear-policy-acl6", "tarn-clear-policy-acl6"},
        {CLI_MODE_OPERATION, "request tarn-clear-policy-acl n", "name="},
        {CLI_MODE_OPERATION, "show policy frobnicate ", ""},
        {CLI_MODE_OPERATION, "show --watch policy co", "counters"},
        {CLI_MODE_OPERATION, "show policy counters z", "zone <name> zbp"},
        {CLI_MODE_OPERATION, "show policy counters zone z", "<name> zbp"},
        {CLI_MODE_OPERATION, "clear ", "policy access-list ipv6 application"},
        {CLI_MODE_CONFIGURATION, "show policy co", ""},
    };
    t_cli cli;
    cli.socket = p_daemon->socket;
    for (const auto &row : cases) {
        cli.mode = row.mode;
        std::string texts;
        for (const t_cli_candidate &candidate : cli_complete(&cli, row.line).candidates)
            texts += (texts.empty() ? "" : " ") + candidate.text;
        EXPECT_EQ(texts, row.candidates) << row.line;
    }
    p_daemon->script("discard\n");
}

// ---- At a terminal ----

TEST_F(CliSession, ATerminalCompletesHelpsAndAsks)
{
    t_live_terminal terminal(*p_daemon);
    terminal.until("> ");
    terminal.type("conf\t\r");
    terminal.until("[edit]\r\n");
    terminal.until("# ");
    terminal.type("set pol\t zone ?");
    terminal.until("<string");
    terminal.until("Name.");
    terminal.type("guest vpn 5\r");
    terminal.until("*# ");  // the prompt tells of the change
    terminal.type("edit policy zone g\t\r");
    terminal.until("[edit policy zone guest]\r\n");
    terminal.until("*# ");
    terminal.type("set frob\r");
    terminal.until("error: /policy/zone{guest}: there is no \"frob\" here\r\n");
    terminal.until("*# ");
    terminal.type("show | display set\r");
    terminal.until("set policy zone guest vpn 5\r\n");
    terminal.until("*# ");
    terminal.type("quit\r");
    terminal.until("uncommitted changes");
    terminal.type("no\r");
    terminal.until("*# ");
    terminal.type("\x04");
    terminal.until("uncommitted changes");
    terminal.type("yes\r");
    EXPECT_EQ(terminal.end(), CLI_DONE);
    std::string history = read_file(p_daemon->folder.path(".lumora_cli_history"));
    EXPECT_NE(history.find("set\\040policy\\040zone\\040guest\\040vpn\\0405\n"), std::string::npos)
        << history;
}

static size_t rows_of(const std::string &page)
{
    size_t count = 0;
    for (size_t at = 0; (at = page.find("set policy zone z", at)) != std::string::npos; at++)
        count++;
    return count;
}

TEST_F(CliSession, ATerminalPagesAndIsInterrupted)
{
    std::string zones = R"({"lumora-policy:policy":{"zone":[)";
    for (int i = 0; i < 10000; i++)
        zones += (i == 0 ? "" : ",") + std::string(R"({"name":"z)") + std::to_string(i) + "\"}";
    std::string file = p_daemon->folder.write("zones.json", zones + "]}}");
    ASSERT_EQ(p_daemon->script("configure\nload replace " + file + "\ncommit\n").status, CLI_DONE);
    t_command_result all = p_daemon->script("show config policy zone | display set | count\n");
    EXPECT_EQ(all.out, "Count: 10000 lines\n");  // not a terminal: no pages

    t_live_terminal terminal(*p_daemon);
    terminal.until("> ");
    terminal.type("show config policy zone | display set\r");
    std::string page = terminal.until("--More--");
    EXPECT_EQ(rows_of(page), 23u);  // a screen but one
    terminal.type("\r");
    EXPECT_EQ(rows_of(terminal.until("--More--")), 1u);
    terminal.type(" ");
    EXPECT_EQ(rows_of(terminal.until("--More--")), 23u);
    terminal.type("q");
    terminal.until("> ");
    terminal.type("show config policy zone | display set\r");
    terminal.until("--More--");
    terminal.type("\x03");
    terminal.until("> ");
    terminal.type("show config policy zone | display set | no-more\r");
    terminal.until("set policy zone z9999\r\n");
    terminal.until("> ");
    terminal.type("monitor\r");
    terminal.until("\r\n");
    terminal.type("\x03");
    terminal.until("> ");
    terminal.type("half a line\x03");
    terminal.until("^C\r\n");
    terminal.until("> ");
    terminal.type("status\r");  // the session lives
    terminal.until("last-commit");
    terminal.until("> ");
    terminal.type("exit\r");
    EXPECT_EQ(terminal.end(), CLI_DONE);
}

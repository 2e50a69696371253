// tarnc on wrong arguments, broken files and tables that cannot work.

#include "tests/tools/run_command.h"
#include "tools/rule_compile.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

const std::string tarnc = TARNC_PROGRAM;

constexpr const char *rules_text = "rule a src 10.0.0.0/8 dport 80 accept\nrule b proto udp accept\n";

// A folder with a rule file and its program.
struct t_hostile_folder : t_temp_folder {
    t_hostile_folder()
    {
        write("r", rules_text);
        EXPECT_EQ(run_command(tarnc + " compile " + path("r") + " -o " + path("p")).status, 0);
        program = read_file(path("p"));
    }

    std::string program;
};

void store(std::string *p_bytes, size_t offset, uint32_t value)
{
    memcpy(p_bytes->data() + offset, &value, sizeof(value));
}

uint32_t load(const std::string &bytes, size_t offset)
{
    uint32_t value = 0;
    memcpy(&value, bytes.data() + offset, sizeof(value));
    return value;
}

// Every command that opens a program refuses this one.
void expect_refused(const t_temp_folder &folder, const std::string &bytes, const std::string &what)
{
    std::string bad = folder.write("bad", bytes);
    for (const std::string &command :
         {" dump " + bad, " run --random 10 " + bad, " run --random 10 --verdicts " + bad}) {
        t_command_result result = run_command(tarnc + command);
        EXPECT_EQ(result.status, 1) << what << command;
        EXPECT_EQ(result.err.find("tarnc: " + bad + ": "), 0u) << what << ": " << result.err;
        EXPECT_EQ(result.out, "") << what;
    }
    bool looks_like_program = !bytes.empty() && bytes[0] == '\0';
    t_command_result explain = run_command(tarnc + " explain " + bad + " 1 2 3 4 5");
    EXPECT_EQ(explain.status, 1) << what;
    EXPECT_EQ(explain.err.find("not a sound program") != std::string::npos, looks_like_program)
        << what << explain.err;
}

}  // namespace

TEST(TarncHostileCli, UsageErrorsAreStatusTwo)
{
    t_hostile_folder folder;
    std::string p = folder.path("p");
    std::string r = folder.path("r");
    struct t_case {
        std::string arguments;
        int status;
    };
    const t_case cases[] = {
        {"--help", 0},
        {"compile --help", 0},
        {"", 2},
        {"compyle", 2},
        {"compile", 2},
        {"compile " + r, 2},
        {"compile " + r + " -o x --format yaml", 2},
        {"compile " + r + " -o x --order src,sorce", 2},
        {"compile " + r + " -o x --limit 5X", 2},
        {"compile " + r + " -o x --limit 0", 2},
        {"compile " + r + " -o x --limit 99999999999999999999G", 2},
        {"run " + p, 2},
        {"run " + p + " - --random 5", 2},
        {"run " + p + " --random 0", 2},
        {"run " + p + " --random -1", 2},
        {"run " + p + " --random 5 --linear", 2},
        {"run " + p + " --random 5 --verdicts --json", 2},
        {"explain " + p, 2},
        {"explain " + p + " 1 2 3", 2},
        {"explain " + p + " colour=1", 2},
        {"explain " + p + " src=1.2.3.4.5", 2},
        {"explain " + p + " 1 2 3 4 4294967296", 2},
    };
    for (const t_case &c : cases)
        EXPECT_EQ(run_command(tarnc + ' ' + c.arguments).status, c.status) << c.arguments;
}

TEST(TarncHostileCli, BadRuleFilesAreErrorsAndNothingIsWritten)
{
    t_temp_folder folder;
    std::string too_wide = "rule a accept";
    for (const char *column : {"src 1.1.1.1", "dst 1.1.1.1", "sport 1", "dport 1", "proto 1", "dscp 1",
                               "class 1", "tcp-flags 1", "len 1", "app 1", "app-family 1", "traffic-class 1",
                               "next-header 1", "plp 1", "dns-app 1", "dns-app-family 1"})
        too_wide += ' ' + std::string(column);
    struct t_case {
        std::string text;
        const char *reason;
    };
    const t_case cases[] = {
        {"@1.2.3.4/33 0.0.0.0/0 0:1 0:1 0/0", ":1: source: prefix length 33 above 32"},
        {"rule a src 1.2.3.4/40 accept", ":1: prefix length 40 above 32"},
        {"rule a dport 99999 accept", ":1: dport 99999 above 65535"},
        {"rule a accept\n\nrule b dport 9-8 accept", ":3: range '9-8' is reversed"},
        {"", ": no rules"},
        {std::string(3000, '\0'), ":1: unknown word '" /* and what was there, as question marks */},
        {too_wide, ": more than 16 field types"},
        {"rule a src 1.2.3.4 accept", ": the program is too large: at least "},
    };
    for (const t_case &c : cases) {
        std::string file = folder.write("r", c.text);
        std::string limit = c.text == cases[7].text ? " --limit 1K" : "";
        t_command_result result = run_command(tarnc + " compile " + file + " -o " + folder.path("p") + limit);
        EXPECT_EQ(result.status, 1) << c.reason;
        EXPECT_EQ(result.err.find("tarnc: " + file + c.reason), 0u) << result.err;
        EXPECT_EQ(folder.names(), (std::vector<std::string>{"r"})) << c.reason;
        if (limit.empty()) {
            EXPECT_EQ(run_command(tarnc + " check " + file).status, 1) << c.reason;
            EXPECT_EQ(run_command(tarnc + " explain " + file + " 1 2 3 4 5").status, 1) << c.reason;
        }
    }
}

TEST(TarncHostileCli, FilesThatCannotBeReadOrWritten)
{
    t_hostile_folder folder;
    std::string p = folder.path("p");
    std::string r = folder.path("r");
    folder.write("small", "1 2 3 4 5\n1 x 3 4 5\n");
    struct t_case {
        std::string arguments;
        std::string message;
    };
    const t_case cases[] = {
        {"compile /nowhere -o " + folder.path("x"), "/nowhere: No such file or directory"},
        {"compile " + folder.folder + " -o " + folder.path("x"), folder.folder + ": is a folder"},
        {"compile " + r + " -o /nowhere/x", "/nowhere/x: No such file or directory"},
        {"compile " + r + " -o " + folder.folder, folder.folder + ": is there and is no regular file"},
        {"compile " + r + " -o /dev/null", "/dev/null: is there and is no regular file"},
        {"dump /nowhere", "/nowhere: No such file or directory"},
        {"dump " + folder.folder, folder.folder + ": is a folder"},
        {"run " + p + " /nowhere", "/nowhere: No such file or directory"},
        {"run " + p + ' ' + folder.folder, folder.folder + ": is a folder"},
        {"run " + p + ' ' + folder.path("small"), folder.path("small") + ":2: dst is no 32-bit number: 'x'"},
        {"run " + p + " --random 5 --rules /nowhere", "/nowhere: No such file or directory"},
        {"explain " + p + " 1 2 3 4 5 --rule a", "--rule needs the rules: give --rules with a program"},
        {"explain " + r + " 1 2 3 4 5 --rule z", r + ": no rule 'z'"},
        {"check /nowhere", "/nowhere: No such file or directory"},
    };
    for (const t_case &c : cases) {
        t_command_result result = run_command(tarnc + ' ' + c.arguments);
        EXPECT_EQ(result.status, 1) << c.arguments;
        EXPECT_EQ(result.err, "tarnc: " + c.message + '\n') << c.arguments;
    }
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"p", "r", "small"}));
    EXPECT_EQ(run_command(tarnc + " dump " + p + " > /dev/full").status, 1);
    t_command_result huge = run_command("truncate -s 257M " + folder.path("huge") + " && " + tarnc +
                                        " check " + folder.path("huge"));
    EXPECT_EQ(huge.status, 1);
    EXPECT_EQ(huge.err, "tarnc: " + folder.path("huge") + ": is larger than 256 MiB\n");
}

TEST(TarncHostileCli, AFullDiskLeavesNothingBehind)
{
    t_hostile_folder folder;
    // A file size limit of one block stands for the full disk.
    t_command_result result = run_command("ulimit -f 1; trap '' XFSZ; " + tarnc + " compile " +
                                          folder.path("r") + " -o " + folder.path("x"));
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find(folder.path("x") + ": File too large"), std::string::npos) << result.err;
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"p", "r"}));
}

TEST(TarncHostileCli, ProgramsThatLieAreRefused)
{
    t_hostile_folder folder;
    const std::string &program = folder.program;
    expect_refused(folder, "", "empty");
    expect_refused(folder, "rule a accept x", "a rule file");
    for (size_t size :
         {size_t{1}, size_t{471}, size_t{472}, size_t{600}, program.size() / 2, program.size() - 8})
        expect_refused(folder, program.substr(0, size), "cut to " + std::to_string(size));

    struct t_case {
        const char *what;
        size_t offset;
        uint32_t value;
    };
    uint32_t tables = load(program, offsetof(t_tarn_program_hdr, p_table_dir_len));
    size_t last_entry = sizeof(t_tarn_program_hdr) + (tables - 1) * sizeof(t_table_dir_entry);
    const t_case cases[] = {
        {"directory length", offsetof(t_tarn_program_hdr, p_table_dir_len), 0x10000000},
        {"instruction count", offsetof(t_tarn_program_hdr, p_num_instructions), 0xffffffff},
        {"record offset", offsetof(t_tarn_program_hdr, p_action_table_offset), 0x3fffffff},
        {"map size", offsetof(t_tarn_program_hdr, p_pe_map_size), 33},
        {"table offset", sizeof(t_tarn_program_hdr), 0xfffffff0},
        {"entry count", sizeof(t_tarn_program_hdr) + 4, 0x40000000},
        {"record count", last_entry + 4, 0x00ffffff},
        {"record size", last_entry + 8, 16},
        {"child link", load(program, sizeof(t_tarn_program_hdr)) + 4 + 12, 0x7fffffff},
    };
    for (const t_case &c : cases) {
        std::string bytes = program;
        store(&bytes, c.offset, c.value);
        expect_refused(folder, bytes, c.what);
    }
}

TEST(TarncHostileCli, AProgramWithoutRuleNumbersCountsByRecord)
{
    t_hostile_folder folder;
    std::string bytes = folder.program;
    for (size_t at = bytes.find("#1"); at != std::string::npos; at = bytes.find("#1"))
        bytes[at] = 'x';
    std::string other = folder.write("other", bytes);
    t_command_result verdicts = run_command(tarnc + " run --random 10 --verdicts " + other);
    EXPECT_EQ(verdicts.status, 1);
    EXPECT_EQ(verdicts.err, "tarnc: " + other + ": tells no rule numbers; it was not made by tarnc\n");
    t_command_result counts = run_command(tarnc + " run --random 1000 " + other);
    EXPECT_EQ(counts.status, 0) << counts.err;
    EXPECT_NE(counts.out.find("record "), std::string::npos) << counts.out;
}

TEST(TarncHostileCli, ARightInputOfTooManyClassesIsAnError)
{
    t_temp_folder folder;
    std::string text;
    for (uint32_t i = 0; i < RIGHT_INPUT_CLASS_LIMIT; i++)
        text += "@10." + std::to_string(i >> 16) + '.' + std::to_string(i >> 8 & 255) + '.' +
                std::to_string(i & 255) + "/32 0.0.0.0/0 0 : 65535 0 : 65535 0/0\n";
    std::string large = folder.write("large", text);
    std::string reason = "tarnc: " + large + ": stage 2 (src) has 65537 classes and is a right input";

    t_command_result check = run_command(tarnc + " check " + large);
    EXPECT_EQ(check.status, 1);
    EXPECT_EQ(check.err.find(reason), 0u) << check.err;
    t_command_result compile = run_command(tarnc + " compile " + large + " -o " + folder.path("p"));
    EXPECT_EQ(compile.status, 1);
    EXPECT_EQ(compile.err.find(reason), 0u) << compile.err;
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"large"}));
}

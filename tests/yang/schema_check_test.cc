// Small modules that each break one rule.

#include "yang/schema_check.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>

static std::string module_text(const std::string &name, const std::string &statements)
{
    return "module " + name + " { yang-version 1.1; namespace 'urn:" + name + "'; prefix " + name +
           "; import lumora-annotations { prefix tarn; } " + statements + " }";
}

static std::string faults_of(const std::vector<std::string> &modules)
{
    ly_log_options(LY_LOSTORE_LAST);
    ly_ctx *p_ctx = nullptr;
    EXPECT_EQ(ly_ctx_new(YANG_MODULE_FOLDER, 0, &p_ctx), LY_SUCCESS);
    schema_context_ptr context(p_ctx);
    for (const std::string &text : modules)
        EXPECT_EQ(lys_parse_mem(p_ctx, text.c_str(), LYS_IN_YANG, nullptr), LY_SUCCESS) << ly_errmsg(p_ctx);
    std::vector<std::string> errors;
    std::unique_ptr<const t_schema_index> index = schema_index_new(p_ctx, &errors);
    if (index != nullptr)
        errors = schema_check(*index);
    return std::accumulate(errors.begin(), errors.end(), std::string());
}

TEST(SchemaCheckTest, names_the_node_and_the_rule_that_it_breaks)
{
    static const std::string d = "description 'x'; ";
    static const std::string leaf_a = "leaf a { type string; " + d + "} ";
    static const std::string list_l =
        "list l { key n; " + d + "leaf n { type string; " + d + "} leaf v { type string; " + d + "} } ";
    static const struct {
        std::string statements;
        std::string node;
        std::string reason;
    } rows[] = {
        {leaf_a, "", ""},
        {"list l { key k; " + d + "leaf k { type string; " + d + "} }", "/l", "top of a module"},
        {"container c { presence 'x'; " + d + "}", "/c", "presence"},
        {"leaf a { type string; default 'x'; " + d + "}", "/a", "default"},
        {"leaf a { type string; }", "/a", "no description"},
        {"container c { " + d + list_l + "} leaf a { type leafref { path '/m:c/m:l/m:n'; } " + d + "}", "",
         ""},
        {"container c { " + d + list_l + "} leaf a { type leafref { path '/m:c/m:l/m:v'; } " + d + "}", "/a",
         "no key"},
        {"container c { " + d + "list l { key n; " + d + "leaf n { type uint32; " + d +
             "} } } leaf a { type leafref { path '/m:c/m:l/m:n'; } " + d + "}",
         "/a", "no string"},
        {"container c { " + d + list_l + "} leaf a { type string; must '/m:c/m:l[m:n=current()]'; " + d + "}",
         "", ""},
        {"container c { " + d + list_l + "} leaf a { type string; must '/m:c/m:l[m:v=current()]'; " + d + "}",
         "/a", "something else than a key"},
        {"container c { " + d + list_l + "} leaf a { type string; must '/m:c/m:l[m:n=current() and m:v]'; " +
             d + "}",
         "/a", "something else than a key"},
        {"container c { " + d + list_l +
             "} leaf a { type string; must \"/m:c/m:l[starts-with(m:n, ']')]\"; " + d + "}",
         "/a", "something else than a key"},
        {"container c { " + d + list_l + "} leaf a { type string; when '/m:c/m:l[1]'; " + d + "}", "/a",
         "something else than a key"},
        {"leaf a { tarn:tag '0x11'; type string; " + d + "} leaf b { tarn:tag '0x11'; type string; " + d +
             "}",
         "/b", "is that of a"},
        {"leaf a { tarn:tag '0x11'; type string; " + d + "} container c { " + d +
             "leaf a { tarn:tag '0x12'; type string; " + d + "} }",
         "/c/a", "differs from 0x00000011"},
        {"leaf a { tarn:tag '0x80000000'; type string; " + d + "}", "/a", "is no tag"},
        {"leaf a { tarn:tag '0x0'; type string; " + d + "}", "/a", "is no tag"},
        {"leaf a { tarn:tag '17'; type string; " + d + "}", "/a", "is no tag"},
        {"leaf a { tarn:tag '0x7'; type string; " + d + "} leaf b { type string; " + d + "}", "/a",
         "is that of m"},
        {"leaf a { type decimal64 { fraction-digits 2; } " + d + "}", "/a", "no value of this type"},
        {"anydata a { " + d + "}", "/a", "no value of this type"},
    };
    for (const auto &row : rows) {
        std::string faults = faults_of({module_text("m", "tarn:namespace '0x7'; " + row.statements)});
        EXPECT_EQ(faults.empty(), row.reason.empty()) << row.statements << " " << faults;
        EXPECT_NE(faults.find(row.node), faults.npos) << row.statements << " " << faults;
        EXPECT_NE(faults.find(row.reason), faults.npos) << row.statements << " " << faults;
    }
}

TEST(SchemaCheckTest, compares_names_and_hashes_over_all_modules)
{
    static const std::string leaf_a = "leaf a { description 'x'; type string; } ";
    static const struct {
        std::string one, other;
        std::string reason;
    } rows[] = {
        {"tarn:namespace '0x7'; " + leaf_a, "tarn:namespace '0x8'; leaf b { description 'x'; type string; }",
         ""},
        {"tarn:namespace '0x7'; " + leaf_a, "tarn:namespace '0x8'; " + leaf_a, "/a: two nodes of this name"},
        {"tarn:namespace '0x7'; " + leaf_a, "tarn:namespace '0x7'; leaf b { description 'x'; type string; }",
         "is that of"},
        {"tarn:namespace '0x7'; " + leaf_a, "leaf b { description 'x'; type string; }",
         "other: the module has no namespace hash"},
        {"tarn:namespace 'derived'; " + leaf_a, "tarn:namespace '0'; ", "is 0"},
    };
    for (const auto &row : rows) {
        std::string faults = faults_of({module_text("one", row.one), module_text("other", row.other)});
        EXPECT_EQ(faults.empty(), row.reason.empty()) << row.other << " " << faults;
        EXPECT_NE(faults.find(row.reason), faults.npos) << row.other << " " << faults;
    }
}

TEST(SchemaCheckTest, traps_and_their_fields_have_names_and_numbers_of_their_own)
{
    static const std::string d = "description 'x'; ";
    static const std::string head = "leaf severity-level { type string; " + d +
                                    "} leaf host-name { type string; " + d +
                                    "} leaf system-ip { type string; " + d + "} ";
    auto leaf = [](const std::string &name, const std::string &mib_name, const std::string &number,
                   const std::string &type = "string") {
        return "leaf " + name + " { tarn:mib-name '" + mib_name + "'; tarn:mib-number '" + number +
               "'; type " + type + "; " + d + "} ";
    };
    auto trap = [](const std::string &name, const std::string &mib_name, const std::string &index,
                   const std::string &leaves) {
        return "notification " + name + " { " +
               (mib_name.empty() ? "" : "tarn:mib-name '" + mib_name + "'; ") +
               (index.empty() ? "" : "tarn:trap '" + index + "'; ") + d + leaves + "} ";
    };
    static const std::string first =
        trap("n", "mN", "1", head + leaf("a", "mA", "100") + leaf("b", "mB", "101"));
    const struct {
        std::string statements;
        std::string fault;  // its beginning
    } rows[] = {
        {first + trap("o", "mO", "110", head + leaf("a", "mA", "100")) + trap("p", "", "", head), ""},
        {trap("n", "mN", "1", leaf("a", "mA", "100") + head), "/n: a notification does not begin"},
        {trap("n", "mN", "111", head), "/n: '111' is no number of a trap"},
        {trap("n", "mN", "", head), "/n: '' is no number of a trap"},
        {trap("n", "", "1", head), "/n: '' is no name for the MIB"},
        {trap("n", "m-n", "1", head), "/n: 'm-n' is no name for the MIB"},
        {trap("n", "m" + std::string(63, 'n'), "1", head), "/n: 'mnnn"},
        {first + trap("o", "mO", "1", head), "/o: the trap 1 is /n"},
        {first + trap("o", "mN", "2", head), "/o: mN is the name of /n"},
        {first + trap("o", "mO", "2", head + leaf("c", "mA", "102")), "/o/c: mA is the name of /n/a"},
        {first + trap("o", "mO", "2", head + leaf("c", "mN", "102")), "/o/c: mN is the name of /n"},
        {first + trap("o", "mO", "2", head + leaf("c", "mC", "101")), "/o/c: the number 101 is that of /n/b"},
        {first + trap("o", "mO", "2", head + leaf("a", "mC", "100")), "/o/a: name, number or type differ"},
        {first + trap("o", "mO", "2", head + leaf("a", "mA", "102")), "/o/a: name, number or type differ"},
        {first + trap("o", "mO", "2", head + leaf("a", "mA", "100", "uint8")),
         "/o/a: name, number or type differ"},
        {trap("n", "mN", "1", head + leaf("a", "mA", "99")), "/n/a: a field has no number"},
        {trap("n", "mN", "1", head + "leaf a { type string; " + d + "}"), "/n/a: a field has no number"},
    };
    for (const auto &row : rows) {
        std::string faults = faults_of({module_text("m", "tarn:namespace '0x7'; " + row.statements)});
        EXPECT_TRUE(row.fault.empty() ? faults.empty() : faults.starts_with(row.fault))
            << row.statements << " " << faults;
    }
}

TEST(SchemaConstantsCliTest, ends_the_build_with_node_and_reason)
{
    namespace fs = std::filesystem;
    char folder[] = "/tmp/schema_constants.XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    fs::path path(folder);
    fs::copy(fs::path(YANG_MODULE_FOLDER) / "lumora-annotations.yang", path);
    std::ofstream(path / "m.yang") << module_text(
        "m", "tarn:namespace '0x7'; container c { presence 'x'; description 'x'; }");
    std::ofstream(path / "good.yang")
        << module_text("good", "tarn:namespace '0x7'; leaf a-b { description 'x'; type empty; }");
    auto run = [&](const std::string &module) {
        std::string command = std::string(SCHEMA_CONSTANTS) + " " + folder + " " + folder + "/out.h " +
                              module + " 2> " + folder + "/errors";
        return WEXITSTATUS(system(command.c_str()));
    };
    auto content = [&](const char *name) {
        std::ifstream file(path / name);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    EXPECT_EQ(run("m"), 1);
    EXPECT_NE(content("errors").find("/c: a container has a presence statement"), std::string::npos)
        << content("errors");
    EXPECT_FALSE(fs::exists(path / "out.h"));
    EXPECT_EQ(run("absent"), 1);
    EXPECT_EQ(run("good"), 0) << content("errors");
    EXPECT_NE(content("out.h").find("LUMORA_TAG_A_B = 0x"), std::string::npos) << content("out.h");
    fs::remove_all(path);
}

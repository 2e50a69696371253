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

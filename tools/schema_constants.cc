// Used by the build: writes the data model's tags, namespace hashes and enumerations as C++ constants.
//
// Usage: schema_constants FOLDER OUTPUT [MODULE...]. Without modules the whole model is taken. Every fault of
// the model is named on standard error, with the node's path, and ends the build.

#include "yang/schema_check.h"
#include "yang/schema_index.h"

#include <libyang/libyang.h>

#include <cctype>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

// The constants in the order of their names; the header must not depend on the walk through the model.
struct t_constants {
    std::map<std::string, std::string> origin;  // what each constant was made from
    std::vector<std::string> errors;
};

static std::string constant_name(std::string_view prefix, std::string_view name)
{
    std::string result(prefix);
    for (char c : name)
        result += isalnum(static_cast<unsigned char>(c)) != 0
                      ? static_cast<char>(toupper(static_cast<unsigned char>(c)))
                      : '_';
    return result;
}

static std::string claim(t_constants *p_constants, std::string_view prefix, std::string_view name)
{
    std::string constant = constant_name(prefix, name);
    std::string origin = std::string(prefix) + std::string(name);
    auto [entry, added] = p_constants->origin.emplace(constant, origin);
    if (!added && entry->second != origin)
        p_constants->errors.push_back(std::string(name) + ": the constant " + constant +
                                      " is taken by another name");
    return constant;
}

static void write_hashes(std::ostream &out, t_constants *p_constants, std::string_view prefix,
                         const std::map<std::string, uint32_t> &hashes)
{
    for (const auto &[name, hash] : hashes) {
        char text[16];
        snprintf(text, sizeof(text), "0x%08x", hash);
        out << "inline constexpr uint32_t " << claim(p_constants, prefix, name) << " = " << text << ";\n";
    }
}

static std::string without_company(const std::string &module)
{
    static constexpr std::string_view company = "lumora-";
    return module.starts_with(company) ? module.substr(company.size()) : module;
}

static void write_typedefs(std::ostream &out, t_constants *p_constants, const t_schema_index &index)
{
    std::map<std::string, const t_schema_typedef *> sorted;
    for (const t_schema_typedef &type : index.typedefs) {
        if (type.generated)
            continue;
        if (!sorted.emplace(type.name, &type).second)
            p_constants->errors.push_back(type.name + ": two modules have an enumeration of this name");
    }
    for (const auto &[name, p_type] : sorted) {
        out << "\n// " << name << "\n";
        for (const t_schema_enum &value : p_type->enums)
            out << "inline constexpr int32_t "
                << claim(p_constants, constant_name("LUMORA_", name) + "_", value.name) << " = "
                << value.value << ";\n";
    }
}

static std::string header_text(const t_schema_index &index, t_constants *p_constants)
{
    std::ostringstream out;
    out << "// Made by the build from the data model.\n#pragma once\n\n#include <cstdint>\n\n"
           "// Namespace hashes of the modules.\n";
    std::map<std::string, uint32_t> modules;
    for (const t_schema_module &module : index.modules)
        modules.emplace(without_company(module.name), module.ns);
    write_hashes(out, p_constants, "LUMORA_NS_", modules);
    out << "\n// Tags: hashes of node names, the same in every module.\n";
    write_hashes(out, p_constants, "LUMORA_TAG_", {index.tag_by_name.begin(), index.tag_by_name.end()});
    out << "\n// Values of the enumerations.\n";
    write_typedefs(out, p_constants, index);
    return out.str();
}

static bool complain(const std::vector<std::string> &errors)
{
    for (const std::string &error : errors)
        fprintf(stderr, "schema_constants: %s\n", error.c_str());
    return errors.empty();
}

static schema_context_ptr load(const std::string &folder, char **modules)
{
    std::string error;
    if (*modules == nullptr) {
        schema_context_ptr context = schema_context_new(folder, &error);
        if (context == nullptr)
            complain({error});
        return context;
    }
    ly_ctx *p_ctx = nullptr;
    if (ly_ctx_new(folder.c_str(), LY_CTX_DISABLE_SEARCHDIR_CWD, &p_ctx) != LY_SUCCESS)
        return nullptr;
    schema_context_ptr context(p_ctx);
    for (; *modules != nullptr; modules++)
        if (ly_ctx_load_module(p_ctx, *modules, nullptr, nullptr) == nullptr)
            return nullptr;
    return context;
}

static bool write_header(const char *path, const std::string &text)
{
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    return !file.fail() || complain({std::string(path) + ": can't be written"});
}

static bool run(const std::string &folder, const char *output, char **modules)
{
    schema_context_ptr context = load(folder, modules);
    if (context == nullptr)
        return false;
    std::vector<std::string> errors;
    std::unique_ptr<const t_schema_index> index = schema_index_new(context.get(), &errors);
    if (!complain(errors) || !complain(schema_check(*index)))
        return false;
    t_constants constants;
    std::string text = header_text(*index, &constants);
    return complain(constants.errors) && write_header(output, text);
}

int main(int argc, char **argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: schema_constants FOLDER OUTPUT [MODULE...]\n");
        return 2;
    }
    return run(argv[1], argv[2], argv + 3) ? 0 : 1;
}

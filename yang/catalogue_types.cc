// Used by the build: writes the catalogue's applications and families as enumerations of the data model.
//
// Usage: catalogue_types INPUT OUTPUT. An application's value is its id; a family's is its place in the
// catalogue, from 0.

#include "classification/bundle_text.h"

#include <cstdio>
#include <fstream>
#include <iterator>

static std::string quoted(const std::string &text)
{
    std::string result = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\')
            result += '\\';
        result += c;
    }
    return result + '"';
}

static void write_enum(std::ofstream *p_file, const std::string &name, long value,
                       const std::string &description)
{
    *p_file << "      enum " << quoted(name) << " {\n        value " << value << ";\n        description "
            << quoted(description) << ";\n      }\n";
}

static bool write_submodule(const char *path, const t_bundle_content &content)
{
    std::ofstream file(path);
    file << "submodule lumora-policy-catalogue {\n  yang-version 1.1;\n  belongs-to lumora-policy {\n"
            "    prefix lumora-policy;\n  }\n\n  organization \"Lumora\";\n"
            "  description \"What the catalogue of applications knows. Made by the build from the "
            "catalogue.\";\n\n"
            "  revision 2024-01-15 {\n    description \"First version.\";\n  }\n\n"
            "  typedef app-enum {\n    type enumeration {\n";
    for (const qmdpi_signature &signature : content.signatures)
        write_enum(&file, signature.name, signature.id, signature.longname);
    file << "    }\n    description \"Applications.\";\n  }\n\n  typedef app-family-enum {\n    type "
            "enumeration {\n";
    for (size_t i = 0; i < content.families.size(); i++)
        write_enum(&file, content.families[i].config_name, static_cast<long>(i), content.families[i].name);
    file << "    }\n    description \"Families of applications.\";\n  }\n}\n";
    file.close();
    return !file.fail();
}

int main(int argc, char **argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: catalogue_types INPUT OUTPUT\n");
        return 2;
    }
    std::ifstream input(argv[1], std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(input), {}};
    t_bundle_content content;
    t_bundle_text_error error;
    if (bundle_text_read(text, &content, &error) != BUNDLE_TEXT_OK) {
        fprintf(stderr, "%s:%u: %s\n", argv[1], error.line, error.reason);
        return 1;
    }
    if (!write_submodule(argv[2], content)) {
        fprintf(stderr, "%s: can't be written\n", argv[2]);
        return 1;
    }
    return 0;
}

// Used by the build: checks the catalogue's data file and writes it as a source that defines
// g_builtin_bundle.
//
// Usage: embed_catalogue INPUT OUTPUT. Beyond what the format asks for, the catalogue has 31 families, an
// application at least in each, no fewer than 400 applications, and two or three attributes for each.

#include "classification/bundle_text.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

static constexpr size_t num_families = 31;
static constexpr size_t min_applications = 400;
static constexpr size_t min_attributes = 2;
static constexpr size_t max_attributes = 3;

static bool complain(const char *what, const std::string &name)
{
    fprintf(stderr, "catalogue: %s%s%s\n", what, name.empty() ? "" : ": ", name.c_str());
    return false;
}

static bool check(const t_bundle_content &content)
{
    if (content.families.size() != num_families)
        return complain("31 families are wanted, not", std::to_string(content.families.size()));
    if (content.signatures.size() < min_applications)
        return complain("too few applications", std::to_string(content.signatures.size()));
    for (const qmdpi_signature &signature : content.signatures)
        if (signature.attrs.size() < min_attributes || signature.attrs.size() > max_attributes)
            return complain("two or three attributes are wanted", signature.name);
    for (const t_bundle_family &family : content.families)
        if (!std::ranges::any_of(content.signatures, [&](const qmdpi_signature &signature) {
                return signature.family == family.name;
            }))
            return complain("family without an application", family.name);
    return true;
}

static void write_quoted_line(std::ofstream *p_file, std::string_view line)
{
    *p_file << "    \"";
    for (char c : line) {
        if (c == '"' || c == '\\')
            *p_file << '\\';
        *p_file << c;
    }
    *p_file << "\\n\"\n";
}

static bool write_source(const char *path, std::string_view text)
{
    std::ofstream file(path);
    file << "// Made by the build from classification/applications.txt.\n"
            "#include \"classification/builtin_bundle.h\"\n\n"
            "const std::string_view g_builtin_bundle =\n";
    while (!text.empty()) {
        size_t end = std::min(text.find('\n'), text.size());
        write_quoted_line(&file, text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    file << "    ;\n";
    file.close();
    return !file.fail() || complain("can't write", path);
}

int main(int argc, char **argv)
{
    if (argc != 3) {
        complain("usage: embed_catalogue INPUT OUTPUT", "");
        return 2;
    }
    std::ifstream file(argv[1]);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    t_bundle_content content;
    t_bundle_text_error error = {};
    if (bundle_text_read(text, &content, &error) != BUNDLE_TEXT_OK) {
        fprintf(stderr, "%s:%u: %s\n", argv[1], error.line, error.reason);
        return 1;
    }
    return check(content) && write_source(argv[2], text) ? 0 : 1;
}

#include "classification/bundle_text.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <utility>

struct t_bundle_reader {
    t_bundle_content content;
    const char *reason;  // of the refusal
    bool has_version;
    std::set<int> ids;
    std::set<std::string, std::less<>> names;
};

using t_columns = std::vector<std::string_view>;

static bool refuse(t_bundle_reader *p_reader, const char *reason)
{
    p_reader->reason = reason;
    return false;
}

static std::string_view trimmed(std::string_view text)
{
    size_t start = text.find_first_not_of(' ');
    if (start == std::string_view::npos)
        return {};
    return text.substr(start, text.find_last_not_of(' ') - start + 1);
}

static t_columns split(std::string_view text, char separator)
{
    t_columns parts;
    for (;;) {
        size_t end = text.find(separator);
        parts.push_back(trimmed(text.substr(0, end)));
        if (end == std::string_view::npos)
            return parts;
        text.remove_prefix(end + 1);
    }
}

static bool is_printable(std::string_view text)
{
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

// What configuration can spell: lower case, digits, '_', '-' and '.'.
static bool is_plain_name(std::string_view text)
{
    return !text.empty() && text.size() <= BUNDLE_TEXT_MAX_NAME && std::ranges::all_of(text, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
    });
}

static bool is_title(std::string_view text)
{
    return !text.empty() && text.size() <= BUNDLE_TEXT_MAX_NAME;
}

// The whole text as a decimal number.
static bool read_number(std::string_view text, int *p_number)
{
    const char *p_end = text.data() + text.size();
    std::from_chars_result result = std::from_chars(text.data(), p_end, *p_number);
    return !text.empty() && result.ec == std::errc() && result.ptr == p_end;
}

static bool has_family(const t_bundle_reader &reader, std::string_view name)
{
    return std::ranges::any_of(reader.content.families,
                               [=](const t_bundle_family &family) { return family.name == name; });
}

static bool read_version(t_bundle_reader *p_reader, const t_columns &columns)
{
    int format = 0;
    if (columns.size() != 3 || columns[0] != "bundle")
        return refuse(p_reader, "no bundle line at the head");
    if (!read_number(columns[1], &format) || format != BUNDLE_TEXT_FORMAT)
        return refuse(p_reader, "unknown format of bundle");
    if (!is_title(columns[2]))
        return refuse(p_reader, "version text empty or too long");
    p_reader->content.version = columns[2];
    p_reader->has_version = true;
    return true;
}

static bool read_family(t_bundle_reader *p_reader, const t_columns &columns)
{
    if (columns.size() != 3)
        return refuse(p_reader, "a family has two names");
    if (!is_plain_name(columns[1]) || !is_title(columns[2]))
        return refuse(p_reader, "name of family empty, too long or with a wrong character");
    for (const t_bundle_family &family : p_reader->content.families)
        if (family.config_name == columns[1] || family.name == columns[2])
            return refuse(p_reader, "family is there already");
    p_reader->content.families.push_back({std::string(columns[1]), std::string(columns[2])});
    return true;
}

static bool read_attributes(t_bundle_reader *p_reader, std::string_view list,
                            std::vector<qmdpi_attr> *p_attrs)
{
    for (std::string_view name : split(list, ',')) {
        if (!is_plain_name(name))
            return refuse(p_reader, "name of attribute empty, too long or with a wrong character");
        if (p_attrs->size() == BUNDLE_TEXT_MAX_ATTRS)
            return refuse(p_reader, "too many attributes");
        p_attrs->push_back({std::string(name)});
    }
    return true;
}

static bool read_application(t_bundle_reader *p_reader, const t_columns &columns)
{
    qmdpi_signature signature = {};
    if (columns.size() != 5)
        return refuse(p_reader, "an application has five columns");
    if (!read_number(columns[0], &signature.id) || signature.id < BUNDLE_TEXT_MIN_ID ||
        signature.id > BUNDLE_TEXT_MAX_ID)
        return refuse(p_reader, "id is no number or out of range");
    if (!is_plain_name(columns[1]) || !is_title(columns[2]))
        return refuse(p_reader, "name of application empty, too long or with a wrong character");
    if (!has_family(*p_reader, columns[3]))
        return refuse(p_reader, "unknown family");
    if (!p_reader->ids.insert(signature.id).second)
        return refuse(p_reader, "id is there already");
    if (!p_reader->names.insert(std::string(columns[1])).second)
        return refuse(p_reader, "name of application is there already");
    if (!read_attributes(p_reader, columns[4], &signature.attrs))
        return false;
    signature.name = columns[1];
    signature.longname = columns[2];
    signature.family = columns[3];
    p_reader->content.signatures.push_back(std::move(signature));
    return true;
}

static bool read_line(t_bundle_reader *p_reader, std::string_view line)
{
    if (line.size() > BUNDLE_TEXT_MAX_LINE || !is_printable(line))
        return refuse(p_reader, "line too long or with an unprintable byte");
    std::string_view text = trimmed(line);
    if (text.empty() || text.starts_with('#'))
        return true;
    t_columns columns = split(text, '|');
    if (!p_reader->has_version)
        return read_version(p_reader, columns);
    return columns[0] == "family" ? read_family(p_reader, columns) : read_application(p_reader, columns);
}

e_bundle_text_result bundle_text_read(std::string_view text, t_bundle_content *p_content,
                                      t_bundle_text_error *p_error)
{
    if (text.size() > BUNDLE_TEXT_MAX_SIZE) {
        *p_error = {0, "text too large"};
        return BUNDLE_TEXT_TOO_LARGE;
    }
    t_bundle_reader reader = {};
    for (uint32_t number = 1; !text.empty(); number++) {
        size_t end = std::min(text.find('\n'), text.size());
        if (!read_line(&reader, text.substr(0, end))) {
            *p_error = {number, reader.reason};
            return reader.has_version ? BUNDLE_TEXT_BAD_LINE : BUNDLE_TEXT_BAD_VERSION;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    if (!reader.has_version) {
        *p_error = {0, "no bundle line at the head"};
        return BUNDLE_TEXT_BAD_VERSION;
    }
    *p_content = std::move(reader.content);
    return BUNDLE_TEXT_OK;
}

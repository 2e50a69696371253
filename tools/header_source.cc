#include "tools/header_source.h"

#include "tools/rule_fields.h"
#include "tools/text_scan.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

static constexpr uint32_t column_types[] = {tarn_ip_src_addr, tarn_ip_dst_addr, tarn_ip_src_port,
                                            tarn_ip_dst_port, tarn_ip_protocol};
static constexpr size_t longest_line = 4096;  // bytes, with its end

static int keep_open(FILE *)
{
    return 0;
}

bool header_source_open(const std::string &file, t_header_source *p_source, std::string *p_reason)
{
    if (file == "-") {
        p_source->text = {stdin, keep_open};
        p_source->name = "standard input";
        return true;
    }
    p_source->text = {fopen(file.c_str(), "rb"), fclose};
    p_source->name = file;
    struct stat status = {};
    if (p_source->text == nullptr)
        *p_reason = file + ": " + strerror(errno);
    else if (fstat(fileno(p_source->text.get()), &status) == 0 && S_ISDIR(status.st_mode))
        *p_reason = file + ": is a folder";
    else
        return true;
    return false;
}

void header_source_random(uint64_t count, uint64_t seed, std::span<const uint32_t> field_types,
                          const t_rule_set *p_set, t_header_source *p_source)
{
    p_source->random.seed(seed);
    p_source->remaining = count;
    for (uint32_t type : field_types)
        if (type != tarn_ip_match_any)
            p_source->field_types.push_back(type);
    if (p_set == nullptr)
        return;
    for (const t_set_rule &rule : p_set->rules) {
        p_source->rules.push_back(rule.conditions);
        for (t_rule_condition &condition : p_source->rules.back())
            ranges_normalise(&condition.ranges);
    }
}

static t_fp_header random_header(t_header_source *p_source)
{
    t_fp_header header = fp_header_blank();
    for (uint32_t type : p_source->field_types) {
        const t_rule_field *p_field = rule_field_by_type(type);
        uint64_t count = p_field != nullptr ? uint64_t{p_field->max_value} + 1 : uint64_t{1} << 32;
        header.values[type] = static_cast<uint32_t>(p_source->random() % count);
    }
    if (p_source->rules.empty())
        return header;
    const std::vector<t_rule_condition> &rule = p_source->rules[p_source->random() % p_source->rules.size()];
    for (const t_rule_condition &condition : rule)
        header.values[condition.field_type] =
            ranges_value_at(condition.ranges, p_source->random() % ranges_count(condition.ranges));
    return header;
}

static bool parse_header(std::string_view line, t_fp_header *p_header, std::string *p_reason)
{
    *p_header = fp_header_blank();
    std::string_view word;
    for (uint32_t type : column_types) {
        if (!text_next_word(&line, &word))
            return true;
        uint64_t value = 0;
        if (!text_number(word, &value) || value > 0xffffffff) {
            *p_reason = rule_field_name(type) + " is no 32-bit number: " + text_quote(word);
            return false;
        }
        p_header->values[type] = static_cast<uint32_t>(value);
    }
    return true;
}

static bool refuse_line(const t_header_source &source, std::string reason, std::string *p_reason)
{
    *p_reason = text_error_print({source.name, source.line, std::move(reason)});
    return false;
}

static bool next_lines(t_header_source *p_source, std::span<t_fp_header> block, size_t *p_count,
                       std::string *p_reason)
{
    char buffer[longest_line];
    while (*p_count < block.size() && fgets(buffer, sizeof(buffer), p_source->text.get()) != nullptr) {
        p_source->line++;
        std::string_view rest = buffer;
        std::string_view line;
        std::string reason;
        if (!rest.ends_with('\n') && !feof(p_source->text.get()))
            return refuse_line(*p_source, "line is too long or has a zero byte", p_reason);
        text_next_line(&rest, &line);
        if (line.find_first_not_of(" \t") == std::string_view::npos)
            continue;
        if (!parse_header(line, &block[*p_count], &reason))
            return refuse_line(*p_source, reason, p_reason);
        ++*p_count;
    }
    if (ferror(p_source->text.get()))
        return refuse_line(*p_source, strerror(errno), p_reason);
    return true;
}

bool header_source_next(t_header_source *p_source, std::span<t_fp_header> block, size_t *p_count,
                        std::string *p_reason)
{
    *p_count = 0;
    if (p_source->text != nullptr)
        return next_lines(p_source, block, p_count, p_reason);
    for (; *p_count < block.size() && p_source->remaining > 0; p_source->remaining--)
        block[(*p_count)++] = random_header(p_source);
    return true;
}

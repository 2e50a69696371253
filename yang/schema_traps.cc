#include "yang/schema_traps.h"

#include "yang/schema_index_private.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <map>

namespace {

struct t_reader {
    std::vector<std::string> *p_errors;
    std::map<std::string_view, const t_schema_node *> names;  // of the MIB
    std::map<uint32_t, t_schema_trap> traps;
    std::map<uint32_t, t_schema_trap_field> fields;
    std::map<std::pair<uint32_t, uint32_t>, t_schema_trap_field> leaves;  // by namespace and tag
};

}  // namespace

static void complain(t_reader *p_reader, const t_schema_node &node, const std::string &reason)
{
    p_reader->p_errors->push_back(node.path + ": " + reason);
}

static std::string_view statement(const t_schema_node &node, std::string_view name)
{
    return schema_annotation(node.yang->exts, name);
}

// 0 for a text that is no number of the range.
static uint32_t number_parse(std::string_view text, uint32_t first, uint32_t last)
{
    uint32_t value = 0;
    auto [p_end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    bool valid =
        error == std::errc() && p_end == text.data() + text.size() && value >= first && value <= last;
    return valid ? value : 0;
}

static bool is_mib_name(std::string_view name)
{
    return !name.empty() && name.size() <= SCHEMA_TRAP_NAME_SIZE_MAX &&
           islower(static_cast<unsigned char>(name[0])) != 0 &&
           std::ranges::all_of(name, [](unsigned char c) { return isalnum(c) != 0; });
}

static bool name_claim(t_reader *p_reader, const t_schema_node &node, std::string_view name)
{
    if (!is_mib_name(name)) {
        complain(p_reader, node, "'" + std::string(name) + "' is no name for the MIB");
        return false;
    }
    auto [entry, added] = p_reader->names.emplace(name, &node);
    if (!added)
        complain(p_reader, node,
                 std::string(name) + " is the name of " + entry->second->path + " in the MIB");
    return added;
}

// The number is claimed by the first leaf; 0 when something is wrong.
static uint32_t field_add(t_reader *p_reader, const t_schema_trap_field &field)
{
    auto [entry, added] = p_reader->fields.try_emplace(field.number, field);
    if (!added)
        complain(p_reader, *field.node,
                 "the number " + std::to_string(field.number) + " is that of " + entry->second.node->path);
    return added && name_claim(p_reader, *field.node, field.mib_name) ? field.number : 0;
}

// The field's number; 0 when something is wrong.
static uint32_t field_read(t_reader *p_reader, const t_schema_node &node)
{
    t_schema_trap_field field = {
        .node = &node,
        .mib_name = statement(node, "mib-name"),
        .number = number_parse(statement(node, "mib-number"), SCHEMA_TRAP_FIELD_FIRST, UINT32_MAX)};
    if (field.number == 0) {
        complain(p_reader, node, "a field has no number in the MIB from 100 on");
        return 0;
    }
    auto [entry, added] = p_reader->leaves.try_emplace({node.ns, node.tag}, field);
    if (added)
        return field_add(p_reader, field);
    const t_schema_trap_field &first = entry->second;
    if (first.mib_name == field.mib_name && first.number == field.number && first.node->value == node.value)
        return field.number;
    complain(p_reader, node, "name, number or type differ from those of " + first.node->path);
    return 0;
}

static bool has_head(const t_schema_node &node)
{
    static constexpr std::string_view head[] = {"severity-level", "host-name", "system-ip"};
    static_assert(std::size(head) == SCHEMA_TRAP_HEAD_LEAVES);
    return node.children.size() >= std::size(head) &&
           std::ranges::equal(head, std::span(node.children).first(std::size(head)), {}, {},
                              [](const t_schema_node *p_leaf) { return p_leaf->name; });
}

static std::vector<uint32_t> fields_read(t_reader *p_reader, const t_schema_node &node)
{
    std::vector<uint32_t> fields;
    for (const t_schema_node *p_leaf : std::span(node.children).subspan(SCHEMA_TRAP_HEAD_LEAVES))
        if (uint32_t number = field_read(p_reader, *p_leaf); number != 0)
            fields.push_back(number);
    return fields;
}

static void notification_read(t_reader *p_reader, const t_schema_node &node)
{
    if (!has_head(node)) {
        complain(p_reader, node, "a notification does not begin with severity-level, host-name, system-ip");
        return;
    }
    std::vector<uint32_t> fields = fields_read(p_reader, node);
    std::string_view name = statement(node, "mib-name");
    std::string_view trap = statement(node, "trap");
    if (trap.empty() && name.empty())
        return;
    uint32_t index = number_parse(trap, 1, SCHEMA_TRAP_LAST);
    if (index == 0)
        complain(p_reader, node, "'" + std::string(trap) + "' is no number of a trap");
    if (!name_claim(p_reader, node, name) || index == 0)
        return;
    auto [entry, added] =
        p_reader->traps.try_emplace(index, t_schema_trap{&node, name, index, std::move(fields)});
    if (!added)
        complain(p_reader, node, "the trap " + std::to_string(index) + " is " + entry->second.node->path);
}

t_schema_traps schema_traps_read(const t_schema_index &index, std::vector<std::string> *p_errors)
{
    t_reader reader = {.p_errors = p_errors, .names = {}, .traps = {}, .fields = {}, .leaves = {}};
    for (const auto &p_node : index.nodes)
        if (p_node->kind == SCHEMA_KIND_NOTIFICATION)
            notification_read(&reader, *p_node);
    t_schema_traps result;
    for (auto &[trap, read] : reader.traps)
        result.traps.push_back(std::move(read));
    for (const auto &[number, field] : reader.fields)
        result.fields.push_back(field);
    return result;
}

const t_schema_trap_field &schema_trap_field(const t_schema_traps &traps, uint32_t number)
{
    return *std::ranges::lower_bound(traps.fields, number, {}, &t_schema_trap_field::number);
}

// Used by the build: writes what the data model says of SNMP traps, for the adapter of the daemons, for mgmtd
// and for receivers.
//
// Usage: trap_tables FOLDER ROWS NAMES MIB. ROWS and NAMES are C++ headers: tags and names for the adapter;
// names and object identifiers, sorted by name, for mgmtd. MIB is the MIB's text.

#include "tools/mib_text.h"

#include <libyang/libyang.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

static constexpr std::string_view opening = "// Made by the build from the data model.\n#pragma once\n\n";

static bool complain(const std::vector<std::string> &errors)
{
    for (const std::string &error : errors)
        fprintf(stderr, "trap_tables: %s\n", error.c_str());
    return errors.empty();
}

static void row_write(std::ostream &out, const t_schema_node &node, std::string_view mib_name, uint32_t index)
{
    char text[64];
    snprintf(text, sizeof(text), "    {0x%08x, 0x%08x, ", node.tag, node.ns);
    out << text << '"' << mib_name << "\", " << index << "},\n";
}

static std::string rows_text(const t_schema_traps &traps)
{
    std::ostringstream out;
    out << opening
        << "#include \"lconfd/lconfd_trap_row.h\"\n\n"
           "inline constexpr t_lconfd_trap_row lconfd_trap_rows[] = {\n";
    for (const t_schema_trap &trap : traps.traps)
        row_write(out, *trap.node, trap.mib_name, trap.index);
    for (const t_schema_trap_field &field : traps.fields)
        row_write(out, *field.node, field.mib_name, 0);
    out << "};\n";
    return out.str();
}

static std::string names_text(const t_schema_traps &traps)
{
    std::map<std::string_view, std::pair<uint32_t, uint32_t>> numbers;
    for (const auto &field : mib_head_fields)
        numbers[field.name] = {mib_branch_fields, field.number};
    for (const t_schema_trap &trap : traps.traps)
        numbers[trap.mib_name] = {mib_branch_traps, trap.index};
    for (const t_schema_trap_field &field : traps.fields)
        numbers[field.mib_name] = {mib_branch_fields, field.number};
    std::ostringstream out;
    out << opening
        << "#include \"mgmtd/snmp/mgmt_snmp_names.h\"\n\ninline constexpr uint32_t mgmt_mib_root[] = {";
    for (size_t i = 0; i < mib_root.size(); i++)
        out << (i == 0 ? "" : ", ") << mib_root[i];
    out << "};\n\ninline constexpr t_mgmt_mib_name mgmt_mib_names[] = {\n";
    for (const auto &[name, number] : numbers)
        out << "    {\"" << name << "\", " << number.first << ", " << number.second << "},\n";
    out << "};\n";
    return out.str();
}

static bool file_write(const char *path, const std::string &text)
{
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    return !file.fail() || complain({std::string(path) + ": can't be written"});
}

static bool run(char **arguments)
{
    std::string error;
    schema_context_ptr context = schema_context_new(arguments[0], &error);
    if (context == nullptr)
        return complain({error});
    std::vector<std::string> errors;
    std::unique_ptr<const t_schema_index> index = schema_index_new(context.get(), &errors);
    if (!complain(errors))
        return false;
    t_schema_traps traps = schema_traps_read(*index, &errors);
    std::string mib = mib_text(*index, traps, &errors);
    return complain(errors) && file_write(arguments[1], rows_text(traps)) &&
           file_write(arguments[2], names_text(traps)) && file_write(arguments[3], mib);
}

int main(int argc, char **argv)
{
    if (argc != 5) {
        fprintf(stderr, "usage: trap_tables FOLDER ROWS NAMES MIB\n");
        return 2;
    }
    return run(argv + 1) ? 0 : 1;
}

#include "tools/mib_text.h"

#include <libyang/libyang.h>

#include <cctype>
#include <sstream>

static constexpr std::string_view opening = R"(LUMORA-MIB DEFINITIONS ::= BEGIN

-- Made by the build from the data model.

IMPORTS
    MODULE-IDENTITY, OBJECT-TYPE, NOTIFICATION-TYPE, enterprises,
    Integer32, Unsigned32, Counter64
        FROM SNMPv2-SMI
    DisplayString, DateAndTime, TruthValue
        FROM SNMPv2-TC
    MODULE-COMPLIANCE, OBJECT-GROUP, NOTIFICATION-GROUP
        FROM SNMPv2-CONF;

)";

static constexpr std::string_view identity = R"(
    LAST-UPDATED "202401150000Z"
    ORGANIZATION "Lumora"
    CONTACT-INFO "Lumora"
    DESCRIPTION "The traps of a router."
    REVISION "202401150000Z"
    DESCRIPTION "First version."
    ::= { enterprises )";

static constexpr std::string_view closing = R"(
lumoraCompliance MODULE-COMPLIANCE
    STATUS current
    DESCRIPTION "What a router sends."
    MODULE
        MANDATORY-GROUPS { lumoraTrapFieldGroup, lumoraTrapGroup }
    ::= { lumoraConformance 3 }

END
)";

// ---- Words ----

// Labels of the MIB have letters and digits only and begin with a small letter.
static std::string label_of(std::string_view name)
{
    std::string result = isdigit(static_cast<unsigned char>(name[0])) != 0 ? "n" : "";
    bool upper = false;
    for (char c : name) {
        if (isalnum(static_cast<unsigned char>(c)) == 0) {
            upper = true;
            continue;
        }
        result += static_cast<char>(upper ? toupper(c) : c);
        upper = false;
    }
    result[0] = static_cast<char>(tolower(result[0]));
    return result;
}

// Texts of the MIB have no way to write a quotation mark.
static std::string quoted(std::string text)
{
    for (char &c : text)
        c = c == '"' ? '\'' : c;
    return '"' + text + '"';
}

static void names_write(std::ostream &out, const std::vector<std::string_view> &names)
{
    for (size_t i = 0; i < names.size(); i++)
        out << (i == 0 ? "{\n" : ",\n") << "        " << names[i];
    out << " }\n";
}

// ---- Types ----

static std::string enumeration(const std::vector<t_schema_enum> &enums)
{
    std::string result;
    for (const t_schema_enum &value : enums)
        result += (result.empty() ? "INTEGER { " : ", ") + label_of(value.name) + "(" +
                  std::to_string(value.value) + ")";
    return result + " }";
}

static std::string enumeration_of(const t_schema_node &node)
{
    const lysc_type *p_type = reinterpret_cast<const lysc_node_leaf *>(node.yang)->type;
    const lysc_type_bitenum_item *p_items = reinterpret_cast<const lysc_type_enum *>(p_type)->enums;
    std::vector<t_schema_enum> enums;
    for (size_t i = 0; i < LY_ARRAY_COUNT(p_items); i++)
        enums.push_back({p_items[i].name, p_items[i].value});
    return enumeration(enums);
}

// As mgmtd sends the value; addresses come from the daemons as text. Empty for a type that is not sent.
static std::string syntax_of(const t_schema_node &node)
{
    switch (node.value) {
    case SCHEMA_VALUE_INT8:
    case SCHEMA_VALUE_INT16:
    case SCHEMA_VALUE_INT32:
        return "Integer32";
    case SCHEMA_VALUE_UINT8:
    case SCHEMA_VALUE_UINT16:
    case SCHEMA_VALUE_UINT32:
        return "Unsigned32";
    case SCHEMA_VALUE_UINT64:
        return "Counter64";
    case SCHEMA_VALUE_BOOL:
        return "TruthValue";
    case SCHEMA_VALUE_ENUM:
        return enumeration_of(node);
    case SCHEMA_VALUE_DATETIME:
        return "DateAndTime";
    case SCHEMA_VALUE_STRING:
    case SCHEMA_VALUE_IPV4:
    case SCHEMA_VALUE_IPV6:
    case SCHEMA_VALUE_UNION:
        return "DisplayString";
    default:
        return "";
    }
}

// ---- Parts of the module ----

static void object_write(std::ostream &out, std::string_view name, uint32_t number, const std::string &syntax,
                         const std::string &description)
{
    out << "\n"
        << name << " OBJECT-TYPE\n    SYNTAX " << syntax
        << "\n    MAX-ACCESS accessible-for-notify\n    STATUS current\n    DESCRIPTION "
        << quoted(description) << "\n    ::= { lumoraTrapFields " << number << " }\n";
}

static void head_objects_write(std::ostream &out, const t_schema_index &index)
{
    const t_schema_typedef *p_severity =
        schema_typedef_find(index, schema_module_ns(index, "lumora-types"), "severity");
    object_write(out, mib_head_fields[0].name, mib_head_fields[0].number, "DateAndTime", "When it happened.");
    object_write(out, mib_head_fields[1].name, mib_head_fields[1].number,
                 p_severity != nullptr ? enumeration(p_severity->enums) : "Integer32", "Severity.");
}

static void trap_write(std::ostream &out, const t_schema_traps &traps, const t_schema_trap &trap)
{
    std::vector<std::string_view> objects;
    for (const auto &field : mib_head_fields)
        objects.push_back(field.name);
    for (uint32_t number : trap.fields)
        objects.push_back(schema_trap_field(traps, number).mib_name);
    out << "\n" << trap.mib_name << " NOTIFICATION-TYPE\n    OBJECTS ";
    names_write(out, objects);
    out << "    STATUS current\n    DESCRIPTION " << quoted(trap.node->yang->dsc)
        << "\n    ::= { lumoraTraps " << trap.index << " }\n";
}

static void group_write(std::ostream &out, std::string_view head, const std::vector<std::string_view> &names,
                        std::string_view tail)
{
    out << "\n" << head << " ";
    names_write(out, names);
    out << "    STATUS current\n    " << tail << "\n";
}

static void groups_write(std::ostream &out, const t_schema_traps &traps)
{
    std::vector<std::string_view> objects, notifications;
    for (const auto &field : mib_head_fields)
        objects.push_back(field.name);
    for (const t_schema_trap_field &field : traps.fields)
        objects.push_back(field.mib_name);
    for (const t_schema_trap &trap : traps.traps)
        notifications.push_back(trap.mib_name);
    group_write(out, "lumoraTrapFieldGroup OBJECT-GROUP\n    OBJECTS", objects,
                "DESCRIPTION \"Fields.\"\n    ::= { lumoraConformance 1 }");
    group_write(out, "lumoraTrapGroup NOTIFICATION-GROUP\n    NOTIFICATIONS", notifications,
                "DESCRIPTION \"Traps.\"\n    ::= { lumoraConformance 2 }");
}

static void roots_write(std::ostream &out)
{
    constexpr size_t enterprises_size = 6;
    out << "lumoraMIB MODULE-IDENTITY" << identity;
    for (size_t i = enterprises_size; i < mib_root.size(); i++)
        out << mib_root[i] << " ";
    out << "}\n\nlumoraTraps OBJECT IDENTIFIER ::= { lumoraMIB " << mib_branch_traps
        << " }\nlumoraTrapFields OBJECT IDENTIFIER ::= { lumoraMIB " << mib_branch_fields
        << " }\nlumoraConformance OBJECT IDENTIFIER ::= { lumoraMIB 2 }\n";
}

std::string mib_text(const t_schema_index &index, const t_schema_traps &traps,
                     std::vector<std::string> *p_errors)
{
    std::ostringstream out;
    out << opening;
    roots_write(out);
    head_objects_write(out, index);
    for (const t_schema_trap_field &field : traps.fields) {
        std::string syntax = syntax_of(*field.node);
        if (syntax.empty())
            p_errors->push_back(field.node->path + ": SNMP has no value of this type");
        object_write(out, field.mib_name, field.number, syntax, field.node->yang->dsc);
    }
    for (const t_schema_trap &trap : traps.traps)
        trap_write(out, traps, trap);
    groups_write(out, traps);
    out << closing;
    return out.str();
}

// Value types and hashes: what of a node follows from its type or name alone.

#include "yang/schema_index_private.h"

#include "common/crc32.h"
#include "yang/schema_index.h"

#include <libyang/plugins_types.h>

#include <algorithm>

static constexpr uint32_t hash_mask = 0x7fffffff;

std::string_view schema_annotation(const lysc_ext_instance *p_instances, std::string_view name)
{
    std::string_view result;
    for (size_t i = 0; i < LY_ARRAY_COUNT(p_instances); i++) {
        const lysc_ext *p_def = p_instances[i].def;
        if (name == p_def->name && std::string_view(p_def->module->name) == "lumora-annotations")
            result = p_instances[i].argument;
    }
    return result;
}

uint32_t schema_derived_hash(std::string_view name)
{
    return crc32c(name.data(), name.size()) & hash_mask;
}

// Addresses, prefixes and times are strings to YANG; what tells them apart is the code that canonises them.
static e_schema_value value_of_string(const lysc_type *p_type)
{
    static constexpr struct {
        std::string_view text;
        e_schema_value value;
    } rows[] = {
        {"ipv4-address", SCHEMA_VALUE_IPV4},      {"ipv6-address", SCHEMA_VALUE_IPV6},
        {"ipv4-prefix", SCHEMA_VALUE_IPV4PREFIX}, {"ipv6-prefix", SCHEMA_VALUE_IPV6PREFIX},
        {"date-and-time", SCHEMA_VALUE_DATETIME},
    };
    std::string_view plugin = p_type->plugin->id;
    for (const auto &row : rows)
        if (plugin.find(row.text) != plugin.npos)
            return row.value;
    return SCHEMA_VALUE_STRING;
}

static e_schema_value value_of_bits(const lysc_type_bits *p_type)
{
    uint32_t highest = 0;
    for (size_t i = 0; i < LY_ARRAY_COUNT(p_type->bits); i++)
        highest = std::max(highest, p_type->bits[i].position);
    if (highest < 32)
        return SCHEMA_VALUE_BIT32;
    return highest < 64 ? SCHEMA_VALUE_BIT64 : SCHEMA_VALUE_NONE;
}

static e_schema_value value_of_union(const lysc_type_union *p_type)
{
    for (size_t i = 0; i < LY_ARRAY_COUNT(p_type->types); i++)
        if (schema_value_of_type(p_type->types[i]) == SCHEMA_VALUE_NONE)
            return SCHEMA_VALUE_NONE;
    return SCHEMA_VALUE_UNION;
}

e_schema_value schema_value_of_type(const lysc_type *p_type)
{
    switch (p_type->basetype) {
    case LY_TYPE_EMPTY:
        return SCHEMA_VALUE_EMPTY;
    case LY_TYPE_STRING:
        return value_of_string(p_type);
    case LY_TYPE_INT8:
        return SCHEMA_VALUE_INT8;
    case LY_TYPE_INT16:
        return SCHEMA_VALUE_INT16;
    case LY_TYPE_INT32:
        return SCHEMA_VALUE_INT32;
    case LY_TYPE_INT64:
        return SCHEMA_VALUE_INT64;
    case LY_TYPE_UINT8:
        return SCHEMA_VALUE_UINT8;
    case LY_TYPE_UINT16:
        return SCHEMA_VALUE_UINT16;
    case LY_TYPE_UINT32:
        return SCHEMA_VALUE_UINT32;
    case LY_TYPE_UINT64:
        return SCHEMA_VALUE_UINT64;
    case LY_TYPE_BOOL:
        return SCHEMA_VALUE_BOOL;
    case LY_TYPE_ENUM:
        return SCHEMA_VALUE_ENUM;
    case LY_TYPE_BITS:
        return value_of_bits(reinterpret_cast<const lysc_type_bits *>(p_type));
    case LY_TYPE_UNION:
        return value_of_union(reinterpret_cast<const lysc_type_union *>(p_type));
    case LY_TYPE_LEAFREF:
        return schema_value_of_type(reinterpret_cast<const lysc_type_leafref *>(p_type)->realtype);
    default:
        return SCHEMA_VALUE_NONE;
    }
}

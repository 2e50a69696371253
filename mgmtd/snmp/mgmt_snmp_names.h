// Object identifiers of the MIB by name. The build makes the names with the MIB itself (LUMORA-MIB), from the
// data model, so that receivers who have the MIB read what is sent.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// One name. Its object identifier is that of the MIB followed by both numbers.
struct t_mgmt_mib_name {
    std::string_view name;
    uint32_t branch;  // 0 for traps, 1 for their fields
    uint32_t number;
};

// For t_mgmt_snmp_options::oid_of: finds traps, fields, and the two fields that all traps have. False for
// other names, and *p_oid is untouched.
bool mgmt_snmp_name_find(const std::string &name, std::vector<uint32_t> *p_oid);

// The MIB of the traps as text (SMIv2): an object for each field, a notification for each trap.
//
// All identifiers stand below mib_root: traps below 0 with their index, fields below 1 with their number in
// the model, so they stay what they are when the model grows. The root is below the enterprise number that is
// set apart for examples; who delivers routers puts their own here, before the first receiver knows the MIB.
#pragma once

#include "yang/schema_traps.h"

#include <array>

inline constexpr std::array<uint32_t, 8> mib_root = {1, 3, 6, 1, 4, 1, 32473, 1};
inline constexpr uint32_t mib_branch_traps = 0;
inline constexpr uint32_t mib_branch_fields = 1;

// Fields that every trap begins with and no module has.
inline constexpr struct {
    std::string_view name;
    uint32_t number;
} mib_head_fields[] = {{"eventTime", 1}, {"netconfNotificationSeverity", 2}};

// The module LUMORA-MIB. A field whose type SNMP has no syntax for goes to *p_errors.
std::string mib_text(const t_schema_index &index, const t_schema_traps &traps,
                     std::vector<std::string> *p_errors);

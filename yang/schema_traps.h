// SNMP traps as the model tells them: which notifications are traps, and the names of their fields in the
// MIB.
//
// The model says it with statements on notifications and leaves (tarn:trap, tarn:mib-name, tarn:mib-number).
// Readers are the build, which makes the daemons' table, the MIB and the look-up of mgmtd from them, and the
// check of the model. Names are views into the libyang context behind the index.
#pragma once

#include "yang/schema_index.h"

static constexpr uint32_t SCHEMA_TRAP_LAST = 110;  // traps are numbered from 1
static constexpr uint32_t SCHEMA_TRAP_FIELD_FIRST =
    100;  // lower numbers belong to fields that are in no module
static constexpr size_t SCHEMA_TRAP_NAME_SIZE_MAX = 63;  // characters of a name
static constexpr size_t SCHEMA_TRAP_HEAD_LEAVES = 3;     // severity, host, address: not among the fields

// A field as its module has it; the same leaf may stand in several notifications.
struct t_schema_trap_field {
    const t_schema_node *node;  // the first leaf
    std::string_view mib_name;
    uint32_t number;
};

struct t_schema_trap {
    const t_schema_node *node;
    std::string_view mib_name;
    uint32_t index;
    std::vector<uint32_t> fields;  // their numbers, in the order of the notification
};

struct t_schema_traps {
    std::vector<t_schema_trap> traps;         // by index
    std::vector<t_schema_trap_field> fields;  // by number
};

// What is wrong goes to *p_errors, one text for each fault with the node's path, and is left out.
t_schema_traps schema_traps_read(const t_schema_index &index, std::vector<std::string> *p_errors);

// The field of a number that stands in a trap's list.
const t_schema_trap_field &schema_trap_field(const t_schema_traps &traps, uint32_t number);

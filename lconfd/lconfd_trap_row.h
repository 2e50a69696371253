// One row of the table that ties the data model's notifications to the MIB's names.
//
// The rows are generated from the data model (generated/lconfd_trap_rows.h): those of notifications carry the
// index of their trap, an e_lconfd_trap_index of lconfd/lconfd_trap.h, those of their fields 0.
#pragma once

#include <cstdint>

struct t_lconfd_trap_row {
    uint32_t tag;          // hash of the node's name
    uint32_t ns;           // hash of its module
    const char *mib_name;  // up to 63 characters
    uint8_t trap_index;
};

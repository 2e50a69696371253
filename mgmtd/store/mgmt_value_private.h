// Inside of the values: canonical texts, and the order of keys.
#pragma once

#include "mgmtd/store/mgmt_value.h"

#include <libyang/libyang.h>

// The value of a canonical text; C_BUF points into it. False if it does not fit.
bool mgmt_value_from_canonical(e_schema_value kind, const lysc_type *p_type, std::string_view text,
                               confd_value_t *p_value);

// Below 0, 0 or above 0: the order of keys. Values of other types come by the type's number.
int mgmt_value_compare(const confd_value_t &left, const confd_value_t &right);

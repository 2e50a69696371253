// What the model cannot say about a configuration: checks of the server's own.
//
// They run after YANG validation, on the tree that would become running. The first fault is told. The checks
// know the model's nodes by path and do nothing for nodes that the index does not have.
#pragma once

#include "mgmtd/store/mgmt_diff.h"

// diff leads from running to the tree in question. Entries that did not change are not looked at again.
[[nodiscard]] bool mgmt_checks_run(const t_mgmt_diff &diff, t_mgmt_error *p_error);

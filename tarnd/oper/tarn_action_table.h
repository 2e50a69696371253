// The actions and commands that the daemon serves, for the adapter to register.
//
// A row's action point has the name of the function that serves it. Commands print to the operator's session,
// actions change something. They run one at a time, on the main thread.
#pragma once

#include "platform/confd/confd_dp.h"

inline constexpr int TARN_NUM_ACTION_COMMANDS = 36;  // with the row of zeros at the end

// The adapter sets `init` in each row.
extern confd_action_cbs tarn_action_commands[TARN_NUM_ACTION_COMMANDS];

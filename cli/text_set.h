// Configuration as "set" commands, which make it anew: `show | display set`.
#pragma once

#include "cli/command.h"

// Appends the commands for what "show" gave for a path. What the model says is asked of the daemon. False,
// with the failure told, if it does not say.
[[nodiscard]] e_cli_status cli_text_set(t_cli *p_cli, const std::string &path, const t_cli_json &data,
                                        std::string *p_text);

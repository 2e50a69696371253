// Edits and configurations as requests carry them.
#pragma once

#include "cli/command.h"

std::string cli_json_text(const std::string &text);

// One edit of the array that a request carries; value is JSON, or empty for none.
std::string cli_edit_text(const std::string &op, const std::string &path, const std::string &value);

// The whole text of a file, which must be one JSON object. "-" is standard input. A failure is told.
[[nodiscard]] e_cli_status cli_file_read(const t_cli &cli, const std::string &name, std::string *p_text);

// The same of what follows in a session, up to a line with a single dot or the end.
[[nodiscard]] e_cli_status cli_lines_read(t_cli *p_cli, std::string *p_text);

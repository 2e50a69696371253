// Paths as texts: "/lumora-policy:policy/zone-pair{a}/pair-id", "zone-pair[3]". The form is told in
// ipc_protocol.h.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct t_ipc_path_step {
    std::string prefix;  // empty without one
    std::string name;
    std::vector<std::string> keys;  // without quotes; none when the step has no braces
    std::optional<uint32_t> index;  // of "[n]"
};

struct t_ipc_parsed_path {
    bool is_absolute;
    std::vector<t_ipc_path_step> steps;  // none for "/" and ""
};

// False if the text is no path. A step has at most MAXKEYLEN - 1 keys, a path at most MAXDEPTH steps.
[[nodiscard]] bool ipc_path_parse(std::string_view text, t_ipc_parsed_path *p_path);

// A key's text as it stands in a path: quoted where it needs to be.
std::string ipc_path_quote_key(std::string_view key);

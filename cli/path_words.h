// Paths in the framework's form (/policy/zone{"a b"}/vpn{1}) taken apart and put together. What they mean is
// the daemon's affair.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct t_cli_step {
    std::string name;
    std::vector<std::string> keys;  // without quotes
};

// False where quotes or braces do not fit.
[[nodiscard]] bool cli_path_split(std::string_view path, std::vector<t_cli_step> *p_steps);

// "" for no steps.
std::string cli_path_text(const std::vector<t_cli_step> &steps);

// The names alone: the node of the model.
std::string cli_path_schema(const std::vector<t_cli_step> &steps);

// "{a \"b c\"}"; "" without keys.
std::string cli_path_keys(const std::vector<std::string> &keys);

// The path as the words of a command line, quoted where needed: "policy zone \"a b\" vpn 1".
std::string cli_path_words(const std::vector<t_cli_step> &steps);

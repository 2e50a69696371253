#include "mgmtd/rights/mgmt_users.h"

#include <crypt.h>
#include <cstdlib>
#include <cstring>
#include <libyang/libyang.h>

// ---- Looking up ----

// A leaf's text; empty if there is none.
static std::string text_of(const lyd_node *p_parent, std::string_view name)
{
    for (const lyd_node *p_node = lyd_child(p_parent); p_node != nullptr; p_node = p_node->next)
        if (name == p_node->schema->name)
            return lyd_get_value(p_node);
    return "";
}

bool mgmt_user_find(const t_mgmt_tree &config, const std::string &name, t_mgmt_login *p_login)
{
    const t_schema_node *p_users = schema_find(*config.p_schema, "/users");
    const t_schema_node *p_user = schema_find(*config.p_schema, "/users/user");
    const t_schema_node *p_key = schema_find(*config.p_schema, "/users/user/authorized-key");
    if (p_users == nullptr || p_user == nullptr || p_key == nullptr)
        return false;
    const lyd_node *p_parent = mgmt_tree_child(config, nullptr, p_users);
    const std::string keys[] = {name};
    const lyd_node *p_entry = p_parent != nullptr ? mgmt_tree_entry(config, p_parent, p_user, keys) : nullptr;
    if (p_entry == nullptr)
        return false;
    *p_login = {.name = name, .password_hash = text_of(p_entry, "password"), .keys = {}};
    for (const lyd_node *p_node : mgmt_tree_entries(config, p_entry, p_key))
        p_login->keys.emplace_back(text_of(p_node, "algorithm"), text_of(p_node, "key-data"));
    return true;
}

// ---- Passwords ----

// What a password is hashed with when there is no hash to compare with: as costly as a real one.
static constexpr const char *nobodys_salt = "$y$j9T$F5Jx5fExrKuPp53xLKQ..1";

// The hash of a password with the salt and method of another hash; empty on failure.
static std::string hash_like(const std::string &password, const char *p_setting)
{
    // crypt takes the text up to its first zero byte, which would make passwords equal that are not.
    if (password.find('\0') != std::string::npos)
        return "";
    void *p_data = nullptr;
    int size = 0;
    const char *p_made = crypt_ra(password.c_str(), p_setting, &p_data, &size);
    std::string made = p_made != nullptr && *p_made != '*' ? p_made : "";
    if (p_data != nullptr)
        explicit_bzero(p_data, static_cast<size_t>(size));
    free(p_data);
    return made;
}

// In a time that does not tell how much of the texts is alike.
static bool is_equal(const std::string &left, const std::string &right)
{
    if (left.size() != right.size())
        return false;
    unsigned char differing = 0;
    for (size_t i = 0; i < left.size(); i++)
        differing |= static_cast<unsigned char>(left[i] ^ right[i]);
    return differing == 0;
}

bool mgmt_password_fits(const std::string &hash, const std::string &password)
{
    // Without a method in front crypt would take the text for the oldest one's salt.
    std::string made = hash.starts_with('$') ? hash_like(password, hash.c_str()) : "";
    if (!made.empty())
        return is_equal(made, hash);
    hash_like(password, nobodys_salt);
    return false;
}

std::string mgmt_password_hash(const std::string &password)
{
    // The library's own random bytes; "$y$" is yescrypt at the library's present cost.
    char *p_salt = crypt_gensalt_ra("$y$", 0, nullptr, 0);
    if (p_salt == nullptr)
        return "";
    std::string hash = hash_like(password, p_salt);
    free(p_salt);
    return hash;
}

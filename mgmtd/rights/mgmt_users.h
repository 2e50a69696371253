// Logins: users as the configuration has them.
//
// /users/user holds name, group, password hash (crypt(3)) and public keys (as in authorized_keys: type,
// base64). A user without a hash can't log in by password. Looking up is for the owner's thread; comparing a
// password takes milliseconds by design and is for any thread.
#pragma once

#include "mgmtd/store/mgmt_tree.h"

struct t_mgmt_login {
    std::string name;
    std::string password_hash;                              // empty: no login by password
    std::vector<std::pair<std::string, std::string>> keys;  // type ("ssh-ed25519"), base64 of the key
};

// The user's login. False if there is no such user.
[[nodiscard]] bool mgmt_user_find(const t_mgmt_tree &config, const std::string &name, t_mgmt_login *p_login);

// Whether the password has the hash. An empty or malformed hash fits nothing, but takes as long.
[[nodiscard]] bool mgmt_password_fits(const std::string &hash, const std::string &password);

// Makes a hash (yescrypt or SHA-512) of a password with a fresh salt. Empty on failure.
std::string mgmt_password_hash(const std::string &password);

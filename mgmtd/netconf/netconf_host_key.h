// The SSH server's key: a private file that is made at the first start.
#pragma once

#include <libssh/libssh.h>
#include <memory>
#include <string>

struct t_ssh_key_deleter {
    void operator()(ssh_key p_key) const;
};
using ssh_key_ptr = std::unique_ptr<ssh_key_struct, t_ssh_key_deleter>;

// Reads the file, in any form that libssh knows. If there is none, an Ed25519 key is made there (0600).
// Null with path and reason, also when others than the owner may read the file.
[[nodiscard]] ssh_key_ptr netconf_host_key_open(const std::string &path, std::string *p_error);

// The access file: whoever can read it may connect as a daemon.
#pragma once

#include <string>

// Reads the secret of an access file. If there is no such file it is made, mode 0600, with a fresh secret,
// and so is its folder. False with the reason in *p_error.
[[nodiscard]] bool ipc_access_open(const std::string &path, std::string *p_secret, std::string *p_error);

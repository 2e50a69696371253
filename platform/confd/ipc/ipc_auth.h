// The proof that a client can read the access file, without sending the file's content; see ipc_protocol.h.
#pragma once

#include <string>

// The secret in an access file: its first line, at most 256 bytes. False when there is none to be read; errno
// tells why, 0 for an empty one.
[[nodiscard]] bool ipc_auth_read_secret(const char *p_path, std::string *p_secret);

// A fresh challenge from the system's random numbers; empty if there are none to be had.
std::string ipc_auth_challenge();

// What proves the knowledge of the secret for one challenge; empty if the challenge isn't of the agreed form.
std::string ipc_auth_proof(const std::string &secret, const std::string &challenge);

// For the server. In a time that doesn't depend on where the texts differ; an empty proof is never right.
bool ipc_auth_is_proven(const std::string &secret, const std::string &challenge, const std::string &proof);

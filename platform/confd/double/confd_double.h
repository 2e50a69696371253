// A recording double of the management framework's client library.
//
// It stands behind the public names while there is no management daemon: every call is recorded, readings
// come from a script, and a test can make any function fail. What is printed to a session is kept by session.
// One process, one thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct t_confd_call {
    std::string function;
    int sock;
    std::string text;  // path, address and port, printed text or name; empty when the call has none
};

// Forgets calls, texts and script.
void confd_double_reset();

const std::vector<t_confd_call> &confd_double_calls();

// All that was printed to a user's session.
std::string confd_double_cli_text(int usess);

// What a reading of that path gives; a path without a value gives CONFD_ERR.
void confd_double_set_int16(const std::string &path, int16_t value);
void confd_double_set_text(const std::string &path, const std::string &value);

// The next `count` calls of a function fail. maapi_cli_vprintf counts, and is recorded, as maapi_cli_printf.
void confd_double_fail(const std::string &function, int count);

// Makes a type known, with the text of each of its enumeration values from 0.
void confd_double_add_type(uint32_t nshash, const std::string &name, const std::vector<std::string> &texts);

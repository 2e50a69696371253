// Loads a description of configured objects, in JSON, into the object store.
//
// A description is an array of operations, carried out in order; after the last one the pass runs once, as
// after a notification of the management framework. An operation is an object: "op" is create, change or
// delete, one member names the object by its kind ("prefix-list": "branch"), the others describe it. The
// kinds and their members are told in README.md.
//
// What the store takes for granted is checked before it is called, so a bad description is refused with the
// number of the operation, the object and the reason; what came before it stays done.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

struct t_tarn;

// Creates the stores of mirrors and policers, which the daemon's start leaves to the interfaces' part. Called
// after the start, before anything is loaded.
void loader_init(t_tarn *p_tarn);

// Carries out the operations and one pass. Empty, or why an operation was refused.
std::string loader_apply(t_tarn *p_tarn, const nlohmann::json &operations);

// The same from a file.
std::string loader_apply_file(t_tarn *p_tarn, const std::string &path);

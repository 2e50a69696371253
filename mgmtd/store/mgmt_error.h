// Why an operation on the datastores failed.
//
// The numbers are those of the framework's error codes, so that they cross the wire as they are. path names
// the node in the form of the framework ("/policy/zone-pair{a}/pair-id"), reason is a sentence without a full
// stop for the operator. Both are set whenever code is not MGMT_OK.
#pragma once

#include <string>

enum e_mgmt_error {
    MGMT_OK = 0,
    MGMT_ERR_NOEXISTS = 1,
    MGMT_ERR_ALREADY_EXISTS = 2,
    MGMT_ERR_NOT_WRITABLE = 4,
    MGMT_ERR_BADTYPE = 5,
    MGMT_ERR_NOTCREATABLE = 6,
    MGMT_ERR_NOTDELETABLE = 7,
    MGMT_ERR_BADPATH = 8,
    MGMT_ERR_BADSTATE = 17,  // also: the tree is not valid
    MGMT_ERR_INTERNAL = 18,
    MGMT_ERR_EXTERNAL = 19,  // a provider refused or did not answer
    MGMT_ERR_OS = 24,        // a file could not be written or read
};

struct t_mgmt_error {
    e_mgmt_error code = MGMT_OK;
    std::string path;
    std::string reason;
};

// "path: reason", as an operator reads it; the path is left out when there is none.
std::string mgmt_error_text(const t_mgmt_error &error);

// Fills *p_error and gives false, for `return mgmt_fail(...)`.
bool mgmt_fail(t_mgmt_error *p_error, e_mgmt_error code, std::string path, std::string reason);

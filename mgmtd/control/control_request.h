// Requests of the control socket: what a frame's head may ask.
//
// Each has an "id" (a whole number of at least 1, repeated in the answer) and an "op"; a member that the
// operation does not take is an error.
//
// | op             | members                | body          | result                       |
// | -------------- | ---------------------- | ------------- | ---------------------------- |
// | edit           |                        | edits         |                              |
// | load           | mode: merge or replace | configuration |                              |
// | lock, unlock   |                        |               |                              |
// | commit         | as told below          |               | changed, commit, confirmed   |
// | cancel-commit  | persist-id             |               |                              |
// | check, discard |                        |               |                              |
// | rollback       | number                 |               |                              |
// | compare        | number                 |               | changes: lines               |
// | commits        |                        |               | commits, newest first        |
// | show           | path, from             |               | data as in NETCONF's JSON    |
// | action         | action, input, words   |               | values by name               |
// | status         |                        |               | as told below                |
// | schema         | path                   |               | the node, its children       |
// | values         | path, words, prefix    |               | values: texts; more          |
// | monitor        | start                  |               | no end                       |
//
// A commit takes "comment", "confirm" (seconds: it is undone after that time unless another commit confirms
// it), "persist" (a name that lets other sessions confirm it) and "persist-id" (that name, to confirm).
//
// "from" is all (running and state), running, candidate or state; "input" an object of names and values,
// "words" an array of texts. What an action prints comes before its answer. The status has phase, sessions,
// the asking session and its user, the candidate's state, the commit that waits for its confirmation, the
// last commit, daemons and alarms.
//
// "values" are those that could stand at a path, for completion: of a list the keys of its entries in the
// candidate and in the state that daemons have written, or the next key behind "words"; of a leaf what its
// type has to offer, a leafref the keys that it can name. Only those with the prefix, CONTROL_MAX_VALUES at
// most; "more" is true where some are left out.
//
// "monitor" tells notifications, as output frames with one object each (time, name, data), until the
// connection ends or the client is too far behind; "start" (microseconds since 1970) brings the stored ones
// since then first.
//
// Edits and configurations have the form of mgmt_edit.h, and so have paths. "comment", "from" (all) and
// "path" (/) may be missing. "number" counts commits back, 0 is running; without one "compare" is about the
// candidate.
//
// Edits change the candidate that all sessions share. A lock keeps others from it; it ends with the
// connection and takes uncommitted edits with it.
#pragma once

#include "mgmtd/control/control_frame.h"

#include <utility>
#include <vector>

enum e_control_op {
    CONTROL_EDIT,
    CONTROL_LOAD,
    CONTROL_LOCK,
    CONTROL_UNLOCK,
    CONTROL_COMMIT,
    CONTROL_CHECK,
    CONTROL_DISCARD,
    CONTROL_ROLLBACK,
    CONTROL_COMPARE,
    CONTROL_COMMITS,
    CONTROL_SHOW,
    CONTROL_ACTION,
    CONTROL_STATUS,
    CONTROL_SCHEMA,
    CONTROL_CANCEL_COMMIT,
    CONTROL_VALUES,
    CONTROL_MONITOR,
};

enum e_control_from { CONTROL_FROM_ALL, CONTROL_FROM_RUNNING, CONTROL_FROM_CANDIDATE, CONTROL_FROM_STATE };

struct t_control_request {
    int64_t id = 0;  // also set on failure, if it could be read
    e_control_op op = CONTROL_STATUS;
    bool replaces = false;  // load: what the configuration does not name goes
    std::string comment;
    int64_t confirm_s = 0;  // 0 for none
    std::string persist;
    std::string persist_id;
    int64_t start_us = -1;  // since 1970; -1 for none
    int64_t number = -1;    // -1 for none
    std::string path = "/";
    e_control_from from = CONTROL_FROM_ALL;
    std::string action;
    std::vector<std::pair<std::string, std::string>> input;  // names and texts
    std::vector<std::string> words;
    std::string prefix;
    std::string body;
};

inline constexpr int64_t CONTROL_MAX_NUMBER = 1'000'000;  // of "number"
inline constexpr size_t CONTROL_MAX_WORDS = 1024;         // of "words" and of "input"
inline constexpr size_t CONTROL_MAX_VALUES = 1000;        // of an answer to "values"
inline constexpr int64_t CONTROL_MAX_CONFIRM = 604'800;   // seconds

// Reads a request. False with the reason, a sentence without a full stop.
[[nodiscard]] bool control_request_read(t_control_frame frame, t_control_request *p_request,
                                        std::string *p_reason);

// Running configuration on disk: one file per commit in a folder of its own.
//
// A commit writes "commit-N.json.tmp", synchronises it, renames it to "commit-N.json" and synchronises the
// folder; N counts up. The rename is the moment of the commit: the file with the highest N is running, the
// one below it the previous good one, and the last 50 besides running serve rollback. Nothing is written
// twice and no file is changed once it has its name. A failed step leaves the folder as it was.
//
// At start the highest file that can be read and validates is taken. A bad one above it is renamed to
// "commit-N.json.bad" and told in an alarm line with path and reason; when no good one is left, the
// configuration is empty. Files that end in .tmp are leftovers of a crash and are removed.
//
// A commit that is to be confirmed is "commit-N.unconfirmed-B.json": B is the commit (0: the empty
// configuration) that comes back if it is not. While the newest file has such a name, a start takes B and
// stores it as a new commit. A confirmation renames the file to "commit-N.json", or is any newer commit;
// further unconfirmed commits keep the first one's B.
//
// A file is one JSON object: {"commit": N, "user": "...", "time": "2024-01-15T10:00:00Z", "comment": "...",
// "config": {...}}. Folder 0700, files 0600.
#pragma once

#include "mgmtd/store/mgmt_tree.h"

#include <cstdint>
#include <optional>

inline constexpr size_t MGMT_FILES_ROLLBACKS = 50;
inline constexpr size_t MGMT_FILES_MAX_SIZE = 1u << 30;  // bytes of a file that is read
inline constexpr size_t MGMT_FILES_MAX_TEXT = 4096;

struct t_mgmt_commit_info {
    uint64_t number;
    std::string user;
    std::string time;  // UTC, "2024-01-15T10:00:00Z"
    std::string comment;
    std::optional<uint64_t> fallback = std::nullopt;  // set: stored as unconfirmed, and this is its B
};

struct t_mgmt_files {
    std::string folder;
    const t_schema_index *p_schema;
    const ly_ctx *p_context;
    std::vector<t_mgmt_commit_info> commits;  // newest first; the first is running
    uint64_t next_number;
    std::vector<std::string> alarms;  // lines since the start that the operator must see
};

// Opens the folder, made if missing, and loads running. *p_tree gets an empty tree on a first start. False
// only if the folder itself can't be used.
[[nodiscard]] bool mgmt_files_open(t_mgmt_files *p_files, mgmt_work_tree_ptr *p_tree, t_mgmt_error *p_error);

// Writes one commit. info's number is filled in; user and comment are cut to MGMT_FILES_MAX_TEXT bytes. On
// failure (full disk...) the files are as before.
[[nodiscard]] bool mgmt_files_write(t_mgmt_files *p_files, const t_mgmt_tree &tree, t_mgmt_commit_info info,
                                    t_mgmt_error *p_error);

// Confirms the newest commit, which is an unconfirmed one. On failure it is as before.
[[nodiscard]] bool mgmt_files_confirm(t_mgmt_files *p_files, t_mgmt_error *p_error);

// Stores the configuration that comes back in place of the newest commit, which is an unconfirmed one. Where
// it can't be stored, the unconfirmed files are removed, and an alarm tells.
void mgmt_files_undo(t_mgmt_files *p_files, const t_mgmt_tree &tree, const std::string &user,
                     const std::string &reason);

// Reads the configuration of a commit for rollback: 0 is running, 1 the one before...
[[nodiscard]] bool mgmt_files_rollback(const t_mgmt_files &files, size_t back, mgmt_work_tree_ptr *p_tree,
                                       t_mgmt_error *p_error);

// Reads and validates any file: one of these, or a bare configuration object. For `mgmtd --check FILE` p_tree
// may be null. The error's path is that of the fault in the data, if there is one.
[[nodiscard]] bool mgmt_file_check(const t_schema_index *p_schema, const ly_ctx *p_context,
                                   const std::string &file, mgmt_work_tree_ptr *p_tree,
                                   t_mgmt_error *p_error);

// The present time as info.time has it.
std::string mgmt_time_text();

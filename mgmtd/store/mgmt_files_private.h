// Inside of the files: content and head of one.
#pragma once

#include "mgmtd/store/mgmt_files.h"

inline constexpr size_t MGMT_FILE_HEAD_SIZE = 32768;  // bytes that hold any head

// The content of a file, up to limit bytes.
bool mgmt_file_content(const std::string &file, size_t limit, std::string *p_text, t_mgmt_error *p_error);

// The head of a commit's file; *p_config is the configuration's object in text
// (cut off, if text is). False if text has no such head.
bool mgmt_file_head_read(std::string_view text, t_mgmt_commit_info *p_info, std::string_view *p_config);

// Appends a head; the configuration's object and "}\n" follow.
void mgmt_file_head_write(const t_mgmt_commit_info &info, std::string *p_text);

// What the double's files share.
#pragma once

#include <cstdarg>
#include <string>

// Records a call; true when it is to fail.
bool confd_double_record(const char *function, int sock, const std::string &text);

// The text that confd_double_set_text gave to that path; false without one.
bool confd_double_text(const std::string &path, std::string *p_text);

std::string confd_double_formatted(const char *fmt, va_list args);

// The catalogue that is linked into the program, as text in the format of bundle_text.h. The build makes it
// from applications.txt, after it has checked that file.
#pragma once

#include <string_view>

extern const std::string_view g_builtin_bundle;

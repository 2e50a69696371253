// The two steps of every deliberate stop, shared by the assertions and the library's own abort. Neither
// allocates nor takes a lock of stdio: the heap or a stream may be what is broken.
#pragma once

#include <string_view>

// Writes the text to standard output with write(2); gives up silently when that fails.
void lum_stop_print(std::string_view text);

// Stores through a null pointer. The exit that stands behind it is never reached.
[[noreturn]] void lum_stop();

// Output a screen at a time: space for the next one, enter for a line, q or Ctrl-C to leave.
#pragma once

#include <cstddef>
#include <string_view>

// Sees that a line has room on the screen, and asks where the screen is full. rows_used counts from 0 and is
// the caller's to keep. False when the rest is not wanted.
[[nodiscard]] bool cli_pager_room(std::string_view line, size_t *p_rows_used);

// Lines of the screen.
size_t cli_screen_rows();

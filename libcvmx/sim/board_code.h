// The code by which a board names its own model.
#pragma once

// The board's code; -1 when the machine doesn't say, as no general-purpose machine does. The argument is for
// boards that can be asked in two ways and isn't used.
int lum_util_get_board_type(int);

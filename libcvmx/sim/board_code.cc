#include "libcvmx/sim/board_code.h"

// Codes are burnt into the maker's boards; on every other machine /etc/default/chassis_type tells the model.
int lum_util_get_board_type(int)
{
    return -1;
}

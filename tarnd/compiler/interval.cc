#include "tarnd/compiler/interval.h"

bool value_is_within_interval(const t_interval *p_interval, uint32_t value)
{
    return p_interval->i_min <= value && value <= p_interval->i_max;
}

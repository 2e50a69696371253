// What the files of zones share.
#pragma once

#include "tarnd/zone/tarn_zbf.h"

t_tarn_zone *tarn_zone_find(const t_tarn *p_tarn, const char *zone_name);  // or null

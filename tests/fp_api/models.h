// All model tables, by name.
#pragma once

#include "fp_api/fp_scaling.h"

struct t_model {
    const char *name;
    const t_fp_scaling_params *p_params;
    bool cores_from_machine;  // chosen by the machine's size, so its cores are the machine's
};

inline const t_model g_models[] = {
    {"Pylon_A4", &g_fp_scaling_Pylon_A4, false},         {"Pylon_A3", &g_fp_scaling_Pylon_A3, true},
    {"Pylon_A2", &g_fp_scaling_Pylon_A2, true},          {"Pylon_medium", &g_fp_scaling_Pylon_medium, true},
    {"Pylon_small", &g_fp_scaling_Pylon_small, true},    {"Pylon_A1", &g_fp_scaling_Pylon_A1, false},
    {"Pylon_A1_1GB", &g_fp_scaling_Pylon_A1_1GB, false}, {"mocha_B3", &g_fp_scaling_mocha_B3, false},
    {"mocha_B1", &g_fp_scaling_mocha_B1, false},
};

// The steps of fp_scaling_init, for its own unit and for tests that lay out a model no board selects.
#pragma once

#include "fp_api/fp_scaling.h"

// Sets the core fields for a machine of so many online processors.
void fp_scaling_take_cores(t_fp_scaling_params *p_params, int online);

// Sets the counts that follow from other counts.
void fp_scaling_derive(t_fp_scaling_params *p_params);

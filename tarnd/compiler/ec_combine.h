// Combining two stages, the step that a compilation's time goes into.
#pragma once

#include "tarnd/compiler/eclass.h"

// Fills the table and the classes of p_ec from its two complete inputs. Row by row over ec1's classes in numeric
// order, and within a row over ec2's, each pair's rule set gets a class; equal sets share one, numbered in the
// order of their first appearance. Of the last stage's classes (those that cost an action record each in the context's
// budget) only the lowest rule is kept. False, with the stage incomplete, when the budget is passed; the bytes found
// so far are counted in it. Throws std::bad_alloc.
[[nodiscard]] bool ec_combine_fill(t_tarn_context *p_context, t_ec *p_ec, const t_ec *p_ec1, const t_ec *p_ec2);

// The peer that compilations and look-ups are measured against: the access-list classifier of Debian's
// libdpdk-dev, a library of the same purpose (rules over five packet fields, first match by priority). Built
// only for `make bench`; otherwise peer_available tells false and the figures are left out.
#pragma once

#include "lab/fp/walker.h"
#include "tools/rule_set.h"

#include <cstdint>
#include <span>
#include <vector>

struct t_peer_result {
    double build_ms;                 // from rules added to a classifier ready for look-ups
    double lookups_per_second;       // scalar, one header at a time
    std::vector<uint32_t> verdicts;  // by header: number of the winning rule from 1, or 0
};

bool peer_available();

// Builds the classifier of the rule set's five-tuple conditions and classifies the headers with it. The
// median of `rounds` builds and of as many passes over the headers. False when the set has conditions that
// the peer cannot express (several ranges of a field) or the build fails.
bool peer_measure(const t_rule_set &set, std::span<const t_fp_header> headers, int rounds,
                  t_peer_result *p_result);

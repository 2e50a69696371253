// Fingerprints of rule sets.
//
// Each rule of a compilation has a 128-bit key, drawn from the system's random source; the fingerprint of a
// set is the XOR of its rules' keys (A. Zobrist, "A new hashing method with application for game playing",
// 1970). So a set that differs by a few rules costs a few XORs, and two sets are compared in one step. Two
// given sets that differ have equal fingerprints with probability 2^-128; with the 2^26 classes that fit into
// the largest program, a compilation is wrong with a probability below 2^-75. The keys are new in each
// compilation and never leave the process, so a table cannot be made to collide.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

struct t_fingerprint {
    uint64_t lo;
    uint64_t hi;

    t_fingerprint &operator^=(const t_fingerprint &other)
    {
        lo ^= other.lo;
        hi ^= other.hi;
        return *this;
    }
    friend t_fingerprint operator^(t_fingerprint a, const t_fingerprint &b)
    {
        return a ^= b;
    }
    friend bool operator==(const t_fingerprint &, const t_fingerprint &) = default;
};

// The fingerprint of the empty set.
inline constexpr t_fingerprint EMPTY_FINGERPRINT = {0, 0};

struct t_rule_keys {
    std::vector<t_fingerprint> keys;  // by rule index
};

// Fresh keys for num_rules rules. Throws std::bad_alloc.
std::unique_ptr<t_rule_keys> rule_keys_create(uint32_t num_rules);

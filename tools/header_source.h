// Packet headers to classify, block by block: out of a text, or drawn at random.
//
// A text has one header a line, `src dst sport dport proto` in decimal with blanks or tabs between; further
// columns are ignored, missing ones are 0, empty lines are skipped. Random headers are drawn from a seed:
// uniformly over the natural ranges of the program's fields or, with a rule set, uniformly inside a rule that
// is drawn uniformly.
#pragma once

#include "lab/fp/walker.h"
#include "tools/rule_set.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

struct t_header_source {
    // A text; null for random headers.
    std::unique_ptr<FILE, int (*)(FILE *)> text{nullptr, nullptr};
    std::string name;  // for messages
    uint32_t line = 0;

    // Random headers.
    std::mt19937_64 random;
    uint64_t remaining = 0;
    std::vector<uint32_t> field_types;
    std::vector<std::vector<t_rule_condition>> rules;  // normal ranges; empty for uniform headers
};

// file is a path, or "-" for standard input.
bool header_source_open(const std::string &file, t_header_source *p_source, std::string *p_reason);

// count headers; p_set may be null. field_types are those that the program reads.
void header_source_random(uint64_t count, uint64_t seed, std::span<const uint32_t> field_types,
                          const t_rule_set *p_set, t_header_source *p_source);

// Fills a block; *p_count is 0 at the end. On false *p_reason has file, line and what is wrong.
bool header_source_next(t_header_source *p_source, std::span<t_fp_header> block, size_t *p_count,
                        std::string *p_reason);

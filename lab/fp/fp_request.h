// Requests of the control socket, one a line, in words or as a JSON object.
//
//   load
//   classify FILTER [SRC DST SPORT DPORT PROTO] [NAME=VALUE]...     fields of fp_fields.h
//   replay FILTER FILE [FILES]
//   forward VPN INTERFACE in|out [PLACE=VALUE]... [SRC DST SPORT DPORT PROTO] [NAME=VALUE]...
//   replay --vpn VPN --interface INTERFACE --direction in|out [--PLACE VALUE]... FILE [FILES]
//   bindings
//   zones
//   flows
//   live
//   stats
//
// PLACE is one of the optional names of fp_place.h: from, out-vpn, out-interface, for forward also family,
// src6 and dst6.
//
// Words are separated by blanks; a word in double quotes may hold blanks, and a backslash in it takes the
// next character as it is. The word --json asks for an answer in JSON. As an object:
//
//   {"request": "classify", "filter": 3, "fields": {"src": "10.0.0.1", "dport": 53}}
//   {"request": "replay", "filter": 3, "file": "a.pcap", "sidecar": true, "verdicts": "a.verdicts"}
//   {"request": "forward", "vpn": 10, "interface": "ge0/1", "direction": "in", "from": "tunnel", "fields":
//   {}}
//   {"request": "bindings", "vpns": [...], "interfaces": [...]}     replaces the table; see fp_bindings.h
//
// FILTER is a filter id; -1 and ids from the number of slots up have no program. A packet comes from the
// service side and is of IPv4 when nothing is said; a replay takes the family from each packet. FILES are
// --sidecar, and in any order --applications FILE, --mirror FILE and --verdicts FILE.
#pragma once

#include "lab/fp/fp_bindings.h"
#include "lab/fp/walker.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

enum e_fp_request {
    FP_REQUEST_LOAD,
    FP_REQUEST_CLASSIFY,
    FP_REQUEST_REPLAY,
    FP_REQUEST_FORWARD,
    FP_REQUEST_BINDINGS,
    FP_REQUEST_STATS,
    FP_REQUEST_ZONES,
    FP_REQUEST_FLOWS,
    FP_REQUEST_LIVE,
};

struct t_fp_request {
    e_fp_request kind;
    bool json;  // the form of the answer
    uint32_t filter_id;
    bool by_place;  // filters are those bound at the place; filter_id says nothing
    t_fp_place place;
    t_fp_header header;
    std::string file;
    bool sidecar;
    std::string applications;  // a table for this replay, or empty
    std::string mirror;        // where copies go, or empty
    std::string verdicts;      // file that gets a line for each frame, or empty
    bool has_bindings;         // a new table
    t_fp_bindings bindings;
};

// False with the reason; json is right then, too.
bool fp_request_parse(std::string_view line, t_fp_request *p_request, std::string *p_error);

// Splits a line into words by the rules above; false when a quote is open.
bool fp_words_split(std::string_view line, std::vector<std::string> *p_words);

// A word as fp_words_split reads it back.
std::string fp_word_quote(std::string_view word);

// The records of the TLOC table manager as ttmd reads and writes them: registrations come in, locators go
// out.
//
// All integers are big-endian. A record opens with 8 bytes: version 1, type, address family, 0, the client's
// module (2 bytes), the whole record's size (2 bytes). A registration has 4 bytes more. A locator has 132
// bytes and 24 for each path; ttm_record.cc has the fields in their order. What is reserved is 0.
//
// This is written apart from the daemons' own codec. Pure functions.
#pragma once

#include "lab/peers/peer_frame.h"

#include <array>
#include <compare>

enum e_ttm_record_type : uint8_t {
    TTM_RECORD_REGISTER = 1,
    TTM_RECORD_TLOC_ADD = 5,
    TTM_RECORD_TLOC_DELETE = 6,
};

enum e_ttm_record_family : uint8_t {
    TTM_RECORD_IPV4 = 0,
    TTM_RECORD_IPV6 = 1,
};

inline constexpr size_t TTM_RECORD_HEADER = 8;
inline constexpr size_t TTM_RECORD_REGISTER_SIZE = 12;
inline constexpr size_t TTM_RECORD_TLOC_SIZE = 140;  // without paths
inline constexpr size_t TTM_RECORD_PATH_SIZE = 24;
inline constexpr size_t TTM_RECORD_MAX_PATHS = 8;
inline constexpr size_t TTM_RECORD_MAX_GROUPS = 4;
inline constexpr size_t TTM_RECORD_MAX_LABELS = 2;

// What tells locators apart.
struct t_ttm_name {
    uint8_t ip_version;               // 4 or 6
    std::array<uint8_t, 16> address;  // network order; an IPv4 address and twelve 0
    uint8_t color;                    // e_vpn_tloc_color_type
    uint8_t encap;                    // e_lum_tloc_encap_type
    auto operator<=>(const t_ttm_name &) const = default;
};

struct t_ttm_path {
    int32_t local_index;
    int32_t border_index;
    uint16_t mtu;
    uint8_t label_count;
    std::array<uint32_t, TTM_RECORD_MAX_LABELS> labels;
    uint32_t sla_bitmap;
};

struct t_ttm_attributes {
    uint64_t flags;
    uint32_t preference;
    uint32_t weight;
    uint32_t site;
    uint32_t version;
    uint32_t generation;
    uint8_t carrier;
    uint8_t restricted;
    uint8_t border;
    uint8_t stale;
    uint16_t group_count;
    uint8_t installed;
    uint8_t last_resort;
    std::array<uint32_t, TTM_RECORD_MAX_GROUPS> groups;
    uint32_t loss;
    uint32_t latency;
    uint32_t jitter;
    uint32_t last_resort_hold;
};

struct t_ttm_locator {
    uint32_t epoch;
    t_ttm_name name;
    uint8_t origin;  // 1 local, 2 remote, 3 far remote
    uint8_t status;  // 1 up, 2 down
    uint8_t path_count;
    uint8_t bfd;
    int32_t index;
    uint32_t label;
    t_ttm_attributes attributes;
    uint8_t last_resort;
    uint32_t last_resort_hold;
    std::array<t_ttm_path, TTM_RECORD_MAX_PATHS> paths;
};

struct t_ttm_record {
    e_ttm_record_type type;
    e_ttm_record_family family;
    uint16_t client;        // e_lum_module
    uint8_t announce;       // of a registration
    uint8_t originate;      // of a registration
    t_ttm_locator locator;  // of the other types
};

// Decodes bytes that must be one record and nothing else. False with the reason.
[[nodiscard]] bool ttm_record_decode(t_peer_bytes bytes, t_ttm_record *p_record, std::string *p_reason);

// The record's bytes. Counts must be in their ranges.
std::vector<uint8_t> ttm_record_encode(const t_ttm_record &record);

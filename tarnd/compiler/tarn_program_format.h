// The program: the compiled form of a rule table, as it lies in memory.
//
// One contiguous block that a forwarding plane reads on every packet. Compiler, inspection and forwarding
// plane include this header; nobody keeps a second declaration. Integers are in native order, since writer
// and reader share the processor. Offsets are bytes from the program's first byte unless a comment names
// another base or unit. In memory order:
//
//   header             472 bytes
//   table directory    24 bytes for each lookup table, then one for the action table
//   instructions       4 bytes each
//   lookup tables      4 bytes, then 20 for each entry; one table a stage, in the order of the directory
//   action table       4 bytes, 4 more if the records would not be 8-byte aligned, then the records
//
// Execution. Instructions run in order, without jumps, on 32 registers.
//   lookup     takes a packet field (the one that the (field type, ec) map names for the source index) or a
//              register, finds the entry that holds the value and puts its class into the destination.
//   mul        multiplies the destination register by the multiplier; source and destination are the same.
//   or         ADDS the source register to the destination register. The name is older than the rule: the
//              next table is keyed by class1 * n + class2, and a bitwise OR of the two would yield that only
//              when their bits happen not to overlap. The compiler does not round n up to a power of two.
//   terminate  the class in the source register is the index of the action record.
// A value that lies in no entry ends the program with the verdict "default", which needs no record: a leaf
// covers 0 to 0xfffffffe, so the value 0xffffffff always ends so.
#pragma once

#include "fp_api/fp_filter_action.h"
#include "fp_api/fp_ipaddr.h"
#include "fp_api/fp_policer.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

inline constexpr uint32_t TARN_MAX_REGISTERS = 32;
inline constexpr uint32_t TARN_MAX_ECS = 32;  // stage numbers are 1 to 31
inline constexpr size_t TARN_PROGRAM_NAME_SIZE = 128;
inline constexpr uint32_t TARN_TABLE_HEADER_SIZE = 4;
inline constexpr uint32_t TARN_ENTRY_WORDS = 5;
inline constexpr uint32_t TARN_ENTRY_SIZE = 4 * TARN_ENTRY_WORDS;

// Compiler field types: which packet field a leaf reads.
enum e_tarn_ip_field_type : uint32_t {
    tarn_ip_field_type_min = 0,
    tarn_ip_protocol = 1,
    tarn_ip_src_port = 2,
    tarn_ip_dst_port = 3,
    tarn_ip_src_addr = 4,
    tarn_ip_dst_addr = 5,
    tarn_ip_dscp = 6,
    tarn_ip_fc = 7,
    tarn_ip_tcp = 8,
    tarn_ip_pkt_len = 9,
    tarn_ip_dpi_app = 10,
    tarn_ip_dpi_app_family = 11,
    tarn_ip_match_any = 12,
    tarn_ip_traffic_class = 13,
    tarn_ip_next_header = 14,
    tarn_ip_plp = 15,
    tarn_ip_dpi_dns_app = 16,
    tarn_ip_dpi_dns_app_family = 17,
    tarn_ip_dns = 18,
    tarn_ip_field_type_max = 19,
};

// One item of the (field type, ec) map.
struct prot_ecid_entry {
    uint8_t p_prot_field_type;  // e_tarn_ip_field_type
    uint8_t p_ec_id;
};
static_assert(sizeof(prot_ecid_entry) == 2);
static_assert(offsetof(prot_ecid_entry, p_ec_id) == 1);

struct t_tarn_program_hdr {
    uint8_t p_version;  // 0
    uint8_t reserved0[3];
    uint32_t p_length;  // bytes; 4 more than the block holds when the records needed no alignment step
    char p_name[TARN_PROGRAM_NAME_SIZE];  // not terminated when full
    uint32_t p_table_dir_len;             // entries
    uint32_t p_num_instructions;
    uint32_t p_action_table_offset;                 // first action record, in 32-bit words
    uint32_t p_ecid_table_map[TARN_MAX_ECS];        // by stage: its first entry, in 32-bit words
    uint32_t p_pe_map_size;                         // used items of p_prot_ecid_map
    prot_ecid_entry p_prot_ecid_map[TARN_MAX_ECS];  // ascending field type
    uint32_t p_id_to_field_type[TARN_MAX_ECS];      // by stage: field type of a leaf, else 0
};
static_assert(sizeof(t_tarn_program_hdr) == 472);
static_assert(offsetof(t_tarn_program_hdr, p_length) == 4);
static_assert(offsetof(t_tarn_program_hdr, p_name) == 8);
static_assert(offsetof(t_tarn_program_hdr, p_table_dir_len) == 136);
static_assert(offsetof(t_tarn_program_hdr, p_num_instructions) == 140);
static_assert(offsetof(t_tarn_program_hdr, p_action_table_offset) == 144);
static_assert(offsetof(t_tarn_program_hdr, p_ecid_table_map) == 148);
static_assert(offsetof(t_tarn_program_hdr, p_pe_map_size) == 276);
static_assert(offsetof(t_tarn_program_hdr, p_prot_ecid_map) == 280);
static_assert(offsetof(t_tarn_program_hdr, p_id_to_field_type) == 344);
static_assert(std::is_standard_layout_v<t_tarn_program_hdr>);

struct t_table_dir_entry {
    uint32_t t_table_offset;       // the table's header word
    uint32_t t_num_table_entries;  // entries, or records of the action table
    uint32_t t_table_entry_size;   // bytes: 20, or the length of an action record
    uint32_t reserved0;            // 0
    uint64_t t_table_ptr;          // 0; a reader's own use
};
static_assert(sizeof(t_table_dir_entry) == 24);
static_assert(offsetof(t_table_dir_entry, t_num_table_entries) == 4);
static_assert(offsetof(t_table_dir_entry, t_table_entry_size) == 8);
static_assert(offsetof(t_table_dir_entry, t_table_ptr) == 16);
static_assert(std::is_standard_layout_v<t_table_dir_entry>);

// A table's header word: type in bits 7..0, stage number from bit 8 (0 in the action table).
enum e_tarn_table_type : uint32_t {
    tarn_interval_ecid = 1,
    tarn_index_action = 2,
};

inline uint32_t tarn_get_table_type(uint32_t word)
{
    return word & 0xff;
}
inline uint32_t tarn_get_table_ecid(uint32_t word)
{
    return word >> 8;
}
inline void tarn_set_table_type(uint32_t type, uint32_t *p_word)
{
    *p_word |= type & 0xff;
}
inline void tarn_set_table_ecid(uint32_t id, uint32_t *p_word)
{
    *p_word |= id << 8;
}

// One entry of a lookup table; entry 0 is the root of a search tree over disjoint intervals. A child is named
// by its offset from the first entry in 32-bit words; 0 means none, since the root is nobody's child.
struct t_tarn_table_entry {
    uint32_t low;    // inclusive
    uint32_t high;   // exclusive
    uint32_t value;  // class
    uint32_t left;
    uint32_t right;
};
static_assert(sizeof(t_tarn_table_entry) == TARN_ENTRY_SIZE);

// Instruction word. Bits: opcode 31..29, source type 28..27, source index 26..22, destination index 21..17,
// table id 16..12 (lookup) or multiplier 16..1 (mul), bit 0 unused.
using tarn_instruction = uint32_t;
static_assert(sizeof(tarn_instruction) == 4);

enum e_tarn_opcode : uint32_t {
    tarn_op_lookup = 1,
    tarn_op_or = 2,
    tarn_op_mul = 3,
    tarn_op_terminate = 4,
    tarn_op_max = 5,
};

enum e_tarn_src_type : uint32_t {
    tarn_header = 1,        // packet field of the leaf that the source index names
    tarn_intermediate = 2,  // register
    tarn_src_type_max = 3,
};

// The setters mask silently to the width of their bits.
inline void tarn_set_opcode(tarn_instruction *p_word, uint32_t opcode)
{
    *p_word |= (opcode & 7) << 29;
}
inline void tarn_set_src_type(tarn_instruction *p_word, uint32_t type)
{
    *p_word |= (type & 3) << 27;
}
inline void tarn_set_src_index(tarn_instruction *p_word, uint32_t index)
{
    *p_word |= (index & 31) << 22;
}
inline void tarn_set_dst_index(tarn_instruction *p_word, uint32_t index)
{
    *p_word |= (index & 31) << 17;
}
inline void tarn_set_table_id(tarn_instruction *p_word, uint32_t id)
{
    *p_word |= (id & 31) << 12;
}
inline void tarn_set_mul(tarn_instruction *p_word, uint32_t multiplier)
{
    *p_word |= (multiplier & 0xffff) << 1;
}
inline uint32_t tarn_get_opcode(tarn_instruction word)
{
    return word >> 29;
}
inline uint32_t tarn_get_src_type(tarn_instruction word)
{
    return word >> 27 & 3;
}
inline uint32_t tarn_get_src_index(tarn_instruction word)
{
    return word >> 22 & 31;
}
inline uint32_t tarn_get_dst_index(tarn_instruction word)
{
    return word >> 17 & 31;
}
inline uint32_t tarn_get_table_id(tarn_instruction word)
{
    return word >> 12 & 31;
}
inline uint32_t tarn_get_mul(tarn_instruction word)
{
    return word >> 1 & 0xffff;
}

// Members of an action slot's union.

struct t_tarn_hw_tloc {
    int32_t tloc_index;
    uint32_t vpn_label;
    uint8_t resolved;
    uint16_t vpn_id;
};
static_assert(sizeof(t_tarn_hw_tloc) == 12);
static_assert(offsetof(t_tarn_hw_tloc, vpn_label) == 4);
static_assert(offsetof(t_tarn_hw_tloc, resolved) == 8);
static_assert(offsetof(t_tarn_hw_tloc, vpn_id) == 10);

struct t_tarn_hw_tloc_color_encap {
    uint32_t color;
    uint32_t encap;
};
static_assert(sizeof(t_tarn_hw_tloc_color_encap) == 8);
static_assert(offsetof(t_tarn_hw_tloc_color_encap, encap) == 4);

struct t_tarn_hw_local_tloc_list {
    uint32_t color_mask;
    uint32_t encap_mask;
    uint8_t restrict1;
};
static_assert(sizeof(t_tarn_hw_local_tloc_list) == 12);
static_assert(offsetof(t_tarn_hw_local_tloc_list, encap_mask) == 4);
static_assert(offsetof(t_tarn_hw_local_tloc_list, restrict1) == 8);

struct t_tarn_sla_class_info {
    uint8_t _primary;
    uint8_t _backup;
    uint32_t preferred_color;
};
static_assert(sizeof(t_tarn_sla_class_info) == 8);
static_assert(offsetof(t_tarn_sla_class_info, _backup) == 1);
static_assert(offsetof(t_tarn_sla_class_info, preferred_color) == 4);

inline constexpr size_t TARN_COUNTER_NAME_SIZE = 64;

// A counter. The forwarding plane counts into element `version` only and reads the selector at each update.
struct t_tarn_counter {
    uint8_t version;  // 0 or 1
    uint8_t reserved0[7];
    int64_t pkts[2];
    int64_t bytes[2];
    char name[TARN_COUNTER_NAME_SIZE];  // not terminated when full
};
static_assert(sizeof(t_tarn_counter) == 104);
static_assert(offsetof(t_tarn_counter, pkts) == 8);
static_assert(offsetof(t_tarn_counter, bytes) == 24);
static_assert(offsetof(t_tarn_counter, name) == 40);

enum e_tarn_mirror_type : uint32_t {
    TARN_MIRROR_INTF = 1,
    TARN_MIRROR_TUNNEL = 2,
    TARN_MIRROR_BOTH = 3,
};

// Where a mirrored packet goes. The tunnel's two addresses lie unaligned, and their IPv4 word is in NETWORK
// order, unlike that of every other t_fp_ipaddr.
struct t_tarn_mirror_info {
    e_tarn_mirror_type mirror_type;
    char intf_name[33];
    struct [[gnu::packed]] {
        t_fp_ipaddr src_ip;
        t_fp_ipaddr dst_ip;
    } tunnel;
};
static_assert(sizeof(t_tarn_mirror_info) == 80);
static_assert(offsetof(t_tarn_mirror_info, intf_name) == 4);
static_assert(offsetof(t_tarn_mirror_info, tunnel) == 37);
static_assert(offsetof(t_tarn_mirror_info, tunnel.dst_ip) == 57);

inline constexpr size_t TARN_TLOCS_IN_ACTION = 16;

// One of the twelve slots of an action record.
struct t_tarn_filter_action {
    uint32_t action;         // plain action (e_tarn_filter_action) or 0
    uint32_t fwding_action;  // the action that the union describes, or 0
    uint8_t reserved0[56];
    union {
        t_tarn_hw_tloc tloc[TARN_TLOCS_IN_ACTION];  // TLOC (element 0), TLOC_LIST
        t_tarn_hw_tloc_color_encap tloc_color_encap;
        t_tarn_mirror_info mirror_info;
        t_fp_policer policer;
        t_tarn_counter counter;
        int32_t _class;
        t_fp_ipaddr nh_ip_addr;
        uint16_t nat_vrid;
        t_tarn_sla_class_info sla_class;
        uint8_t dscp;
        uint8_t svc_type;
        uint32_t nat_pool_id;
        uint32_t backup_preferred_color;
        uint8_t traffic_class;
        t_tarn_hw_local_tloc_list local_tloc_list;
        t_fp_ipaddr redirect_dns_nh_addr;
    };
};
static_assert(sizeof(t_tarn_filter_action) == 256);
static_assert(offsetof(t_tarn_filter_action, fwding_action) == 4);
static_assert(offsetof(t_tarn_filter_action, tloc) == 64);
static_assert(sizeof(t_tarn_filter_action::tloc) == 192);
static_assert(std::is_standard_layout_v<t_tarn_filter_action>);

inline constexpr uint32_t MAX_ACTIONS_IN_RULE = 12;
inline constexpr uint32_t TARN_ACTION_DATA_SIZE = MAX_ACTIONS_IN_RULE * sizeof(t_tarn_filter_action);
inline constexpr uint32_t TARN_ACTION_FLAG_DEFAULT = 1;  // a_flags: the class matched no rule

// Header of an action record, in rule tables and in programs. a_len counts these 8 bytes too.
struct t_tarn_action {
    uint32_t a_flags;
    uint32_t a_len;
    uint32_t a_data[];  // opaque to the compiler; in programs 12 t_tarn_filter_action
};
static_assert(sizeof(t_tarn_action) == 8);
static_assert(offsetof(t_tarn_action, a_len) == 4);
static_assert(offsetof(t_tarn_action, a_data) == 8);
static_assert(sizeof(t_tarn_action) + TARN_ACTION_DATA_SIZE == 3080);

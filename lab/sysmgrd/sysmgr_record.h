// The records between daemons and the system manager, as sysmgrd reads and writes them.
//
// 32 bytes in host byte order: 0 version 1, 1 type, 2 the whole record's size (2 bytes), 4 four bytes 0, 8
// the sender's pid (4), 24 a VPN (8); a connect reply has a VPN at 8 and the mask of modules at 16. What a
// type doesn't use is 0. The reason of a reboot or shutdown follows as text with its terminator.
//
// This is written apart from the daemons' own client. Pure functions.
#pragma once

#include "lab/peers/peer_frame.h"

enum e_sysmgr_record_type : uint8_t {
    SYSMGR_RECORD_HELLO = 1,
    SYSMGR_RECORD_REBOOT = 2,
    SYSMGR_RECORD_SHUTDOWN = 3,
    SYSMGR_RECORD_CONNECT_REPLY = 4,
    SYSMGR_RECORD_VPN_START = 5,
    SYSMGR_RECORD_VPN_STOP = 6,
    SYSMGR_RECORD_CONFIG_DONE = 7,
};

inline constexpr size_t SYSMGR_RECORD_SIZE = 32;  // without a reason

struct t_sysmgr_record {
    e_sysmgr_record_type type;
    uint32_t pid;
    uint64_t vpn;        // of the two VPN requests
    std::string reason;  // of reboot and shutdown
};

// Decodes what a daemon sends; the bytes must be one record and nothing else. False with the reason.
[[nodiscard]] bool sysmgr_record_decode(t_peer_bytes bytes, t_sysmgr_record *p_record, std::string *p_reason);

// A connect reply. modules_up has bit N for module N, of those below 64.
std::vector<uint8_t> sysmgr_reply_encode(uint64_t vpn, uint64_t modules_up);

// The type's name in words, "-" if it has none.
const char *sysmgr_record_name(uint8_t type);

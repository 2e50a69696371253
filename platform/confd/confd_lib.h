// The management framework's client interface: results, values, types.
//
// The names, signatures and numbers are the framework's public ones, so that a build for a router can link
// the vendor's library instead. This file holds the common part; confd_cdb.h reads the datastore,
// confd_maapi.h talks to management sessions. It grows with the daemon's uses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <netinet/in.h>

// Results.
inline constexpr int CONFD_OK = 0;
inline constexpr int CONFD_ERR = -1;
inline constexpr int CONFD_EOF = -2;

enum confd_vtype {
    C_NOEXISTS = 1,  // end marker, and value of a node that is not there
    C_XMLTAG = 2,
    C_SYMBOL = 3,
    C_STR = 4,
    C_BUF = 5,
    C_INT8 = 6,
    C_INT16 = 7,
    C_INT32 = 8,
    C_INT64 = 9,
    C_UINT8 = 10,
    C_UINT16 = 11,
    C_UINT32 = 12,
    C_UINT64 = 13,
    C_DOUBLE = 14,
    C_BOOL = 17,
    C_ENUM_VALUE = 28,
};

// A text that is not terminated; owned by whoever made the value.
struct confd_buf_t {
    unsigned int size;
    unsigned char *ptr;
};

// An IPv4 prefix; the address in network order, len in bits.
struct confd_ipv4_prefix {
    struct in_addr ip;
    uint8_t len;
};

struct confd_value_t {
    confd_vtype type;
    union {
        confd_buf_t buf;
        const char *c_s;
        int8_t i8;
        int16_t i16;
        int32_t i32;
        int64_t i64;
        uint8_t u8;
        uint16_t u16;
        uint32_t u32;
        uint64_t u64;
        double d;
        int boolean;
        int32_t enumvalue;
    } val;
};

// What callbacks get. A daemon context is one daemon's connection; d_opaque is the daemon's.
struct confd_daemon_ctx {
    char *name;
    void *d_opaque;
};

struct confd_action_ctx {
    confd_daemon_ctx *dx;
};

// The user behind an action or a command.
struct confd_user_info {
    int usid;  // session id
    confd_action_ctx actx;
};

struct confd_type;  // a type of the data model; the library owns it

// The type of that name in the namespace with that hash, or null.
confd_type *confd_find_ns_type(uint32_t nshash, const char *name);

// Writes the text of a value into buf (size in bytes, always terminated). The text's length, or CONFD_ERR.
int confd_val2str(confd_type *type, const confd_value_t *val, char *buf, size_t bufsiz);

// The management framework's client interface: results, values, types, the schema.
//
// The names, signatures and numbers are the framework's public ones, so that a build for a router can link
// the vendor's library instead. This file holds the common part; confd_cdb.h reads and subscribes to the
// datastore, confd_dp.h provides data and actions, confd_maapi.h talks to management sessions.
//
// Every call gives CONFD_OK or a count, CONFD_ERR, or CONFD_EOF when the other end of its socket is gone.
// After the last two, confd_errno and confd_lasterr() tell why; both belong to the calling thread. Sockets
// are the caller's: it makes them before a connect call and closes them with close(2). A connect call forgets
// all that was known of that descriptor. A socket serves one call at a time, further ones wait, but sending
// without an answer (notifications, printing to sessions) is possible from any thread at any time. No call
// raises SIGPIPE.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <netinet/in.h>

// ---- Start of the library ----

inline constexpr int CONFD_PORT = 4565;
inline constexpr int CONFD_LIB_VSN = 0x6070500;
inline constexpr int MAXDEPTH = 32;  // elements of a keypath
inline constexpr int MAXKEYLEN = 9;  // values of a list's key, with the end marker

enum confd_debug_level { CONFD_SILENT = 0, CONFD_DEBUG = 1, CONFD_TRACE = 2, CONFD_PROTO_TRACE = 3 };

// name is what this process calls itself towards the framework. Fails with CONFD_ERR_PROTOUSAGE for another
// version or other sizes than the ones above. Debug output goes to estream; CONFD_SILENT writes nothing.
int confd_init_vsn_sz(const char *name, FILE *estream, confd_debug_level debug, int vsn, int maxdepth,
                      int maxkeylen);

// ---- Results ----

inline constexpr int CONFD_OK = 0;
inline constexpr int CONFD_ERR = -1;
inline constexpr int CONFD_EOF = -2;

enum confd_errcode {
    CONFD_ERR_NOEXISTS = 1,
    CONFD_ERR_ALREADY_EXISTS = 2,
    CONFD_ERR_ACCESS_DENIED = 3,
    CONFD_ERR_NOT_WRITABLE = 4,
    CONFD_ERR_BADTYPE = 5,
    CONFD_ERR_NOTCREATABLE = 6,
    CONFD_ERR_NOTDELETABLE = 7,
    CONFD_ERR_BADPATH = 8,
    CONFD_ERR_NOSTACK = 9,
    CONFD_ERR_LOCKED = 10,
    CONFD_ERR_INUSE = 11,
    CONFD_ERR_NOTSET = 12,
    CONFD_ERR_NON_UNIQUE = 13,
    CONFD_ERR_BAD_KEYREF = 14,
    CONFD_ERR_TOO_FEW_ELEMS = 15,
    CONFD_ERR_TOO_MANY_ELEMS = 16,
    CONFD_ERR_BADSTATE = 17,
    CONFD_ERR_INTERNAL = 18,
    CONFD_ERR_EXTERNAL = 19,  // a callback failed
    CONFD_ERR_MALLOC = 20,
    CONFD_ERR_PROTOUSAGE = 21,
    CONFD_ERR_NOSESSION = 22,
    CONFD_ERR_TOOMANYTRANS = 23,
    CONFD_ERR_OS = 24,
};

// What the last call of this thread that failed met: its number, the number's text, and the call's own words.
int *confd_errno_location();
#define confd_errno (*confd_errno_location())
const char *confd_strerror(int code);
const char *confd_lasterr();

// ---- Values ----

enum confd_vtype {
    C_NOEXISTS = 1,  // end marker, and value of a node that is not there
    C_XMLTAG = 2,    // also the value of a leaf of type empty
    C_SYMBOL = 3,
    C_STR = 4,  // terminated text that somebody else owns; no call of the library gives one
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
    C_IPV4 = 15,
    C_IPV6 = 16,
    C_BOOL = 17,
    C_QNAME = 18,
    C_DATETIME = 19,
    C_ENUM_VALUE = 28,
    C_BIT32 = 29,
    C_BIT64 = 30,
    C_LIST = 31,      // of a leaf-list
    C_XMLBEGIN = 32,  // start and end of a container or list entry in a tag-value array
    C_XMLEND = 33,
    C_OBJECTREF = 34,
    C_OID = 38,
    C_BINARY = 39,
    C_IPV4PREFIX = 40,
    C_IPV6PREFIX = 41,
};

// A node's name and module, each as a hash.
struct xml_tag {
    uint32_t tag;
    uint32_t ns;
};

// A text that is not terminated; owned by whoever made the value.
struct confd_buf_t {
    unsigned int size;
    unsigned char *ptr;
};

struct confd_qname {
    confd_buf_t prefix;
    confd_buf_t name;
};

// An IPv4 prefix; the address in network order, len in bits.
struct confd_ipv4_prefix {
    struct in_addr ip;
    uint8_t len;
};

struct confd_ipv6_prefix {
    struct in6_addr ip6;
    uint8_t len;
};

inline constexpr int CONFD_TIMEZONE_UNDEF = -111;

struct confd_datetime {
    int16_t year;
    uint8_t month;
    uint8_t day;
    uint8_t hour;
    uint8_t min;
    uint8_t sec;
    uint32_t micro;
    int8_t timezone;  // hours east, or CONFD_TIMEZONE_UNDEF
    int8_t timezone_minutes;
};

struct confd_snmp_oid {
    uint32_t oid[128];
    int len;
};

struct confd_value_t;
struct confd_hkeypath_t;

struct confd_list {
    unsigned int size;  // values
    confd_value_t *ptr;
};

struct confd_value_t {
    confd_vtype type;
    union {
        xml_tag xmltag;
        uint32_t symbol;
        confd_buf_t buf;
        char *s;
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
        struct in_addr ip;  // network order
        struct in6_addr ip6;
        int boolean;
        confd_qname qname;
        confd_datetime datetime;
        int32_t enumvalue;
        uint32_t b32;
        uint64_t b64;
        confd_list list;
        confd_hkeypath_t *hkp;
        confd_snmp_oid *oidp;
        confd_ipv4_prefix ipv4prefix;
        confd_ipv6_prefix ipv6prefix;
    } val;
};

// The path of a node: v[0] is the innermost element. An element is one C_XMLTAG, or the values of a list's
// key; C_NOEXISTS follows them.
struct confd_hkeypath_t {
    confd_value_t v[MAXDEPTH][MAXKEYLEN];
    int len;
};

struct confd_tag_value_t {
    xml_tag tag;
    confd_value_t v;
};

// Frees what a value of type 5, 18, 31, 34, 38 or 39 points to and makes it C_NOEXISTS; leaves others alone.
void confd_free_value(confd_value_t *v);

// Texts of values and paths in buf (bufsiz bytes, always terminated, cut if need be). The whole text's
// length.
int confd_pp_value(char *buf, int bufsiz, const confd_value_t *v);
int confd_pp_kpath(char *buf, int bufsiz, const confd_hkeypath_t *hkeypath);

// ---- What callbacks get; see confd_dp.h ----

inline constexpr size_t MAXUSERNAMELEN = 128;

struct t_confd_daemon;  // what the library knows of a daemon

// One daemon's connection; d_opaque is the daemon's.
struct confd_daemon_ctx {
    char *name;
    void *d_opaque;
    int flags = 0;
    t_confd_daemon *p_daemon = nullptr;
};

struct confd_action_ctx {
    confd_daemon_ctx *dx;
    void *t_opaque = nullptr;
};

// The user behind a transaction, an action or a command.
struct confd_user_info {
    int usid;  // session id
    confd_action_ctx actx;
    char username[MAXUSERNAMELEN] = {};
    char context[32] = {};  // "cli", "netconf", "system"
    void *u_opaque = nullptr;
};

// ---- The schema ----
//
// Loaded once in the life of the process and never replaced, so pointers into it stay good and every thread
// may look. Before it is loaded everything is unknown.

// Connects a socket of its own to the framework. Loading again does nothing.
int confd_load_schemas(const struct sockaddr *srv, int srv_sz);

struct confd_type;  // a type of the data model; the library owns it

inline constexpr int CS_NODE_IS_LIST = 1 << 0;
inline constexpr int CS_NODE_IS_WRITE = 1 << 1;  // configuration
inline constexpr int CS_NODE_IS_CDB = 1 << 2;
inline constexpr int CS_NODE_IS_ACTION = 1 << 3;
inline constexpr int CS_NODE_IS_PARAM = 1 << 4;
inline constexpr int CS_NODE_IS_RESULT = 1 << 5;
inline constexpr int CS_NODE_IS_NOTIF = 1 << 6;
inline constexpr int CS_NODE_IS_CASE = 1 << 7;
inline constexpr int CS_NODE_IS_CONTAINER = 1 << 8;
inline constexpr int CS_NODE_IS_LEAF = 1 << 9;
inline constexpr int CS_NODE_IS_LEAF_LIST = 1 << 10;

struct confd_cs_node_info {
    const uint32_t *keys;  // tags of a list's key leaves, ended by 0; else null
    confd_vtype shallow_type;
    confd_type *type;  // of leaves and leaf-lists, else null
    int flags;         // CS_NODE_IS_...
};

struct confd_cs_node {
    uint32_t tag;
    uint32_t ns;
    confd_cs_node_info info;
    confd_cs_node *parent;  // null at the top
    confd_cs_node *children;
    confd_cs_node *next;
};

// The first of the top-level nodes of a namespace (the others follow by `next`), or null.
confd_cs_node *confd_find_cs_root(int ns);

// The node at a path from start, or from the top when start is null or the path begins with a slash; keys in
// the path are passed over. Null if there is none. See confd_cdb.h for the format's conversions.
confd_cs_node *confd_cs_node_cd(const confd_cs_node *start, const char *fmt, ...);

// A tag's node name, or null; a node name's tag, or 0.
const char *confd_hash2str(uint32_t hash);
uint32_t confd_str2hash(const char *str);

// The type of that name in the namespace with that hash, or null.
confd_type *confd_find_ns_type(uint32_t nshash, const char *name);

// Writes the text of a value into buf (size in bytes, always terminated). The text's length, or CONFD_ERR.
// Enumeration values and bits get their names from the type.
int confd_val2str(confd_type *type, const confd_value_t *val, char *buf, size_t bufsiz);

// The name of an enumeration value; the library owns the text. Its length, or CONFD_ERR.
int confd_val2str_ptr(confd_type *type, const confd_value_t *val, const char **strp);

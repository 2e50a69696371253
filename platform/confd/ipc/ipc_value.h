// Values, keypaths and tag values: as records that own their memory, and as bytes.
//
// The records hold the framework's own types, with every text, list and path inside from malloc, so that a
// value taken out of them (release) can go to a caller who frees it by confd_free_value.
//
// Bytes of a value: u8 type (confd_vtype), then by type
//   C_NOEXISTS nothing; C_XMLTAG, C_XMLBEGIN, C_XMLEND u32 tag, u32 ns; C_SYMBOL u32;
//   C_STR is sent as C_BUF; C_BUF, C_BINARY u32 size and the bytes;
//   the integers in their width; C_DOUBLE u64, the bits; C_BOOL u8, 0 or 1; C_ENUM_VALUE i32;
//   C_BIT32 u32; C_BIT64 u64; C_IPV4 4 bytes and C_IPV6 16 bytes in network order;
//   C_IPV4PREFIX, C_IPV6PREFIX the address and u8 length; C_QNAME two texts, prefix and name;
//   C_DATETIME i16 year, u8 month, day, hour, min, sec, u32 micro, i8 timezone, i8 timezone_minutes;
//   C_LIST u32 count and the values, none of them C_NOEXISTS or C_LIST; C_OBJECTREF a keypath;
//   C_OID u8 length and u32 each.
// A keypath: u8 elements, then each from the innermost: u8 values, the values. At most MAXDEPTH elements of
// at most MAXKEYLEN - 1 values. A tag value: u32 tag, u32 ns, the value.
#pragma once

#include "platform/confd/confd_lib.h"
#include "platform/confd/ipc/ipc_bytes.h"

#include <string_view>
#include <vector>

// Frees what a value owns and makes it C_NOEXISTS.
void ipc_value_free(confd_value_t *p_value);

// A copy with memory of its own; a C_STR becomes a C_BUF.
confd_value_t ipc_value_copy(const confd_value_t &value);

// Values are equal by type and content; a C_STR equals the C_BUF of the same bytes.
bool ipc_value_equal(const confd_value_t &left, const confd_value_t &right);

struct IpcValue {
    confd_value_t v = {C_NOEXISTS, {}};

    IpcValue() = default;
    explicit IpcValue(const confd_value_t &value) : v(ipc_value_copy(value)) {}
    IpcValue(const IpcValue &other) : v(ipc_value_copy(other.v)) {}
    IpcValue(IpcValue &&other) noexcept : v(other.release()) {}
    IpcValue &operator=(IpcValue other) noexcept;
    ~IpcValue()
    {
        ipc_value_free(&v);
    }

    static IpcValue text(std::string_view text);                       // C_BUF
    static IpcValue tag(confd_vtype type, uint32_t tag, uint32_t ns);  // C_XMLTAG, C_XMLBEGIN, C_XMLEND

    confd_value_t release() noexcept;  // the caller owns it; this becomes C_NOEXISTS
    bool operator==(const IpcValue &other) const
    {
        return ipc_value_equal(v, other.v);
    }
};

struct IpcTagValue {
    xml_tag tag = {};
    IpcValue value;

    bool operator==(const IpcTagValue &other) const;
};

// steps[0] is the innermost element.
struct IpcKeypath {
    std::vector<std::vector<IpcValue>> steps;

    bool operator==(const IpcKeypath &other) const
    {
        return steps == other.steps;
    }
};

// The keypath in the framework's form; its values point into keypath. False if it is out of bounds.
[[nodiscard]] bool ipc_keypath_view(const IpcKeypath &keypath, confd_hkeypath_t *p_view);
IpcKeypath ipc_keypath_copy(const confd_hkeypath_t &keypath);

// Reading fails the reader on what is out of bounds.
void ipc_value_write(IpcWriter *p_writer, const confd_value_t &value);
IpcValue ipc_value_read(IpcReader *p_reader);
void ipc_keypath_write(IpcWriter *p_writer, const IpcKeypath &keypath);
IpcKeypath ipc_keypath_read(IpcReader *p_reader);

// Arrays for callers, from malloc and never null, with count elements and the ownership of all values.
confd_tag_value_t *ipc_tag_values_release(std::vector<IpcTagValue> *p_values);
std::vector<IpcTagValue> ipc_tag_values_copy(const confd_tag_value_t *p_values, size_t count);

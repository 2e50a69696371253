#include "lab/sysmgrd/sysmgr_record.h"

#include <algorithm>
#include <cstring>
#include <iterator>

static constexpr uint8_t record_version = 1;
static constexpr size_t at_type = 1;
static constexpr size_t at_size = 2;
static constexpr size_t at_reserved = 4;
static constexpr size_t at_pid = 8;
static constexpr size_t at_reply_vpn = 8;
static constexpr size_t at_unused = 12;  // in what daemons send
static constexpr size_t at_modules_up = 16;
static constexpr size_t at_vpn = 24;

static uint64_t integer_get(t_peer_bytes bytes, size_t offset, size_t size)
{
    uint64_t value = 0;
    memcpy(&value, bytes.data() + offset, size);
    return value;
}

static bool is_zero(t_peer_bytes bytes, size_t begin, size_t end)
{
    return std::all_of(bytes.begin() + static_cast<ptrdiff_t>(begin),
                       bytes.begin() + static_cast<ptrdiff_t>(end), [](uint8_t byte) { return byte == 0; });
}

static bool has_reason(uint8_t type)
{
    return type == SYSMGR_RECORD_REBOOT || type == SYSMGR_RECORD_SHUTDOWN;
}

static bool has_vpn(uint8_t type)
{
    return type == SYSMGR_RECORD_VPN_START || type == SYSMGR_RECORD_VPN_STOP;
}

static bool is_for_manager(uint8_t type)
{
    return type >= SYSMGR_RECORD_HELLO && type <= SYSMGR_RECORD_CONFIG_DONE &&
           type != SYSMGR_RECORD_CONNECT_REPLY;
}

// Null, or what is wrong. bytes has the fixed size at least.
static const char *fixed_fault(t_peer_bytes bytes)
{
    uint8_t type = bytes[at_type];
    if (bytes[0] != record_version)
        return "the version is not 1";
    if (!is_for_manager(type))
        return "the type is none for the manager";
    if (integer_get(bytes, at_size, 2) != bytes.size())
        return "the size in the record is not the record's";
    if (!is_zero(bytes, at_reserved, at_pid) || !is_zero(bytes, at_unused, at_vpn))
        return "reserved bytes are not 0";
    return has_vpn(type) || is_zero(bytes, at_vpn, SYSMGR_RECORD_SIZE) ? nullptr : "a VPN where none belongs";
}

static const char *reason_fault(t_peer_bytes bytes)
{
    if (!has_reason(bytes[at_type]))
        return bytes.size() != SYSMGR_RECORD_SIZE ? "bytes behind the record" : nullptr;
    t_peer_bytes text = bytes.subspan(SYSMGR_RECORD_SIZE);
    auto end = std::find(text.begin(), text.end(), 0);
    if (end == text.end())
        return "the reason has no end";
    return end + 1 != text.end() ? "bytes behind the reason" : nullptr;
}

bool sysmgr_record_decode(t_peer_bytes bytes, t_sysmgr_record *p_record, std::string *p_reason)
{
    const char *fault = bytes.size() < SYSMGR_RECORD_SIZE ? "the record is cut" : fixed_fault(bytes);
    if (fault == nullptr)
        fault = reason_fault(bytes);
    if (fault != nullptr) {
        *p_reason = fault;
        return false;
    }
    p_record->type = static_cast<e_sysmgr_record_type>(bytes[at_type]);
    p_record->pid = static_cast<uint32_t>(integer_get(bytes, at_pid, 4));
    p_record->vpn = integer_get(bytes, at_vpn, 8);
    p_record->reason.clear();
    if (has_reason(p_record->type))
        p_record->reason.assign(bytes.begin() + SYSMGR_RECORD_SIZE, bytes.end() - 1);
    return true;
}

std::vector<uint8_t> sysmgr_reply_encode(uint64_t vpn, uint64_t modules_up)
{
    static constexpr uint16_t size = SYSMGR_RECORD_SIZE;
    std::vector<uint8_t> bytes(size, 0);
    bytes[0] = record_version;
    bytes[at_type] = SYSMGR_RECORD_CONNECT_REPLY;
    memcpy(bytes.data() + at_size, &size, sizeof(size));
    memcpy(bytes.data() + at_reply_vpn, &vpn, sizeof(vpn));
    memcpy(bytes.data() + at_modules_up, &modules_up, sizeof(modules_up));
    return bytes;
}

const char *sysmgr_record_name(uint8_t type)
{
    static constexpr const char *names[] = {"-",
                                            "hello",
                                            "reboot",
                                            "shutdown",
                                            "connect reply",
                                            "VPN daemons start",
                                            "VPN daemons stop",
                                            "configuration is loaded"};
    return type < std::size(names) ? names[type] : "-";
}

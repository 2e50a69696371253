#include "mgmtd/netconf/netconf_ident.h"

static constexpr std::string_view ident_start = "SSH-2.0-";

static bool is_printable(char byte)
{
    return byte >= ' ' && byte <= '~';
}

e_netconf_ident netconf_ident_read(std::string_view bytes)
{
    bytes = bytes.substr(0, NETCONF_IDENT_MAX);
    size_t common = bytes.size() < ident_start.size() ? bytes.size() : ident_start.size();
    if (bytes.substr(0, common) != ident_start.substr(0, common))
        return NETCONF_IDENT_BAD;
    for (size_t at = common; at < bytes.size(); at++) {
        if (bytes[at] == '\n')
            return NETCONF_IDENT_GOOD;
        bool is_return = bytes[at] == '\r' && (at + 1 == bytes.size() || bytes[at + 1] == '\n');
        if (!is_return && !is_printable(bytes[at]))
            return NETCONF_IDENT_BAD;
    }
    return bytes.size() < NETCONF_IDENT_MAX ? NETCONF_IDENT_MORE : NETCONF_IDENT_BAD;
}

// Addresses and prefixes from texts, for tests.
#pragma once

#include "common/ip_util.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

// An address whose unused bytes are dirty, so that a comparison of whole records is noticed. An empty text
// gives the unknown family.
inline t_ipaddr test_addr(const std::string &text)
{
    t_ipaddr parsed = {};
    if (!text.empty()) {
        EXPECT_EQ(str_to_ip(text.c_str(), &parsed), 1) << text;
    }
    t_ipaddr addr;
    static unsigned char dirt = 0x51;
    memset(&addr, ++dirt, sizeof(addr));
    IPADDR_COPY(&addr, &parsed);
    return addr;
}

// "address/length"
inline t_ipprefix test_prefix(const std::string &text)
{
    size_t slash = text.find('/');
    return {test_addr(text.substr(0, slash)), static_cast<uint8_t>(atoi(text.c_str() + slash + 1))};
}

inline std::string test_text(const t_ipaddr &addr)
{
    char buf[IP_ADDR_TEXT_SIZE];
    return ipaddr_print(&addr, buf, sizeof(buf));
}

inline std::string test_text(const t_ipprefix &prefix)
{
    return test_text(prefix.addr) + "/" + std::to_string(prefix.prefixlen);
}

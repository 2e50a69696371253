#include "tools/rule_symbols.h"

#include <algorithm>
#include <span>

struct t_symbol {
    std::string_view name;
    uint32_t value;
};

static const t_symbol protocols[] = {
    {"icmp", 1},   {"igmp", 2},  {"ipip", 4},  {"tcp", 6},    {"egp", 8},    {"igp", 9},
    {"udp", 17},   {"rsvp", 46}, {"gre", 47},  {"esp", 50},   {"ah", 51},    {"icmp6", 58},
    {"eigrp", 88}, {"ospf", 89}, {"pim", 103}, {"vrrp", 112}, {"l2tp", 115}, {"sctp", 132},
};

static const t_symbol services[] = {
    {"ftp-data", 20}, {"ftp", 21},           {"ssh", 22},           {"telnet", 23},       {"smtp", 25},
    {"domain", 53},   {"dns", 53},           {"bootps", 67},        {"bootpc", 68},       {"tftp", 69},
    {"http", 80},     {"kerberos", 88},      {"pop3", 110},         {"sunrpc", 111},      {"ntp", 123},
    {"msrpc", 135},   {"imap", 143},         {"snmp", 161},         {"snmptrap", 162},    {"bgp", 179},
    {"ldap", 389},    {"https", 443},        {"smb", 445},          {"submissions", 465}, {"isakmp", 500},
    {"syslog", 514},  {"submission", 587},   {"ldaps", 636},        {"netconf", 830},     {"imaps", 993},
    {"pop3s", 995},   {"radius", 1812},      {"radius-acct", 1813}, {"nfs", 2049},        {"bfd", 3784},
    {"rdp", 3389},    {"ipsec-nat-t", 4500}, {"sip", 5060},
};

static const t_symbol code_points[] = {
    {"be", 0},    {"cs0", 0},   {"cs1", 8},   {"af11", 10}, {"af12", 12}, {"af13", 14},
    {"cs2", 16},  {"af21", 18}, {"af22", 20}, {"af23", 22}, {"cs3", 24},  {"af31", 26},
    {"af32", 28}, {"af33", 30}, {"cs4", 32},  {"af41", 34}, {"af42", 36}, {"af43", 38},
    {"cs5", 40},  {"va", 44},   {"ef", 46},   {"cs6", 48},  {"cs7", 56},
};

static std::span<const t_symbol> symbols_of(e_rule_field_kind kind)
{
    switch (kind) {
    case e_rule_field_kind::protocol:
        return protocols;
    case e_rule_field_kind::port:
        return services;
    case e_rule_field_kind::dscp:
        return code_points;
    default:
        return {};
    }
}

bool rule_symbol_value(e_rule_field_kind kind, std::string_view name, uint32_t *p_value)
{
    std::span<const t_symbol> symbols = symbols_of(kind);
    auto found = std::find_if(symbols.begin(), symbols.end(),
                              [name](const t_symbol &symbol) { return symbol.name == name; });
    if (found == symbols.end())
        return false;
    *p_value = found->value;
    return true;
}

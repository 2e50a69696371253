// Values of the framework as SNMP has them.
#pragma once

#include "platform/confd/confd_lib.h"

#include <string>

// Type and bytes of a variable as Net-SNMP takes them: integers in its `long` and `u_long`, object
// identifiers as array of `oid`, everything else as it goes out.
struct t_snmp_value {
    unsigned char type;  // ASN_...
    std::string bytes;
};

// Integers: Integer32, Unsigned32, Counter64 for unsigned 64 bits; enumerations by number; booleans and empty
// leaves as TruthValue; IPv4 addresses as IpAddress, IPv6 as 16 octets; times as DateAndTime; bits as BITS;
// the rest as text. False for what has no form: lists, instances, nothing.
[[nodiscard]] bool snmp_value_make(const confd_value_t &value, t_snmp_value *p_result);

#include "tests/tarnd/config/confd_change.h"

#include <arpa/inet.h>
#include <cstring>
#include <deque>
#include <utility>

#include "fp_api/fp_tables.h"

static confd_value_t value_of(confd_vtype type)
{
    confd_value_t value = {};
    value.type = type;
    return value;
}

confd_value_t none()
{
    return value_of(C_NOEXISTS);
}

confd_value_t empty()
{
    return value_of(C_XMLTAG);
}

confd_value_t text(const std::string &value)
{
    static std::deque<std::string> kept;
    kept.push_back(value);
    confd_value_t result = value_of(C_BUF);
    result.val.buf = {static_cast<unsigned>(value.size()),
                      reinterpret_cast<unsigned char *>(kept.back().data())};
    return result;
}

#define PLAIN_VALUE(name, vtype, member, type)                                                               \
    confd_value_t name(type value)                                                                           \
    {                                                                                                        \
        confd_value_t result = value_of(vtype);                                                              \
        result.val.member = value;                                                                           \
        return result;                                                                                       \
    }

PLAIN_VALUE(u8, C_UINT8, u8, uint8_t)
PLAIN_VALUE(u16, C_UINT16, u16, uint16_t)
PLAIN_VALUE(u32, C_UINT32, u32, uint32_t)
PLAIN_VALUE(i32, C_INT32, i32, int32_t)
PLAIN_VALUE(boolean, C_BOOL, boolean, bool)
PLAIN_VALUE(enumerator, C_ENUM_VALUE, enumvalue, int32_t)
PLAIN_VALUE(bits, C_BIT32, b32, uint32_t)

confd_value_t ipv4(const char *value)
{
    confd_value_t result = value_of(C_IPV4);
    inet_pton(AF_INET, value, &result.val.ip);
    return result;
}

confd_value_t ipv6(const char *value)
{
    confd_value_t result = value_of(C_IPV6);
    inet_pton(AF_INET6, value, &result.val.ip6);
    return result;
}

confd_value_t prefix(const char *value)
{
    confd_value_t result = value_of(C_IPV4PREFIX);
    result.val.ipv4prefix = test_prefix(value);
    return result;
}

confd_value_t list(std::initializer_list<confd_value_t> values)
{
    static std::deque<std::vector<confd_value_t>> kept;
    kept.emplace_back(values);
    confd_value_t result = value_of(C_LIST);
    result.val.list = {static_cast<unsigned>(values.size()), kept.back().data()};
    return result;
}

confd_tag_value_t leaf(uint32_t tag, const confd_value_t &value)
{
    return {{tag, 0}, value};
}

t_change operator+(t_change first, const t_change &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

t_change inside(const std::vector<uint32_t> &containers, const t_change &values)
{
    t_change change = values;
    for (auto tag = containers.rbegin(); tag != containers.rend(); ++tag) {
        change.insert(change.begin(), leaf(*tag, value_of(C_XMLBEGIN)));
        change.push_back(leaf(*tag, value_of(C_XMLEND)));
    }
    return change;
}

static t_fp_global_ctrl g_control;

ConfdWorld::ConfdWorld()
{
    g_control = {};
    g_fp_global_ctrl = &g_control;
    context_record.module_data.opaque_p = &tarn;
    entry.lconfd_ctx_p = &context_record;
}

int ConfdWorld::run(f_tarn_config_cb *callback, confd_iter_op oper, const std::vector<confd_value_t> &keys,
                    const t_change &values)
{
    return callback(&entry, oper, static_cast<int>(keys.size()), keys.data(), static_cast<int>(values.size()),
                    values.data());
}

int ConfdWorld::generations()
{
    return std::exchange(g_control.fp_cft_policy_gen_num, uint16_t{0});
}

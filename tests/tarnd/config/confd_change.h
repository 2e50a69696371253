// Changes as the adapter hands them to the callbacks.
#pragma once

#include "generated/lumora_schema.h"
#include "tarnd/config/tarn_confd.h"
#include "tests/tarnd/config/pass_world.h"

#include <initializer_list>
#include <string>
#include <vector>

using t_change = std::vector<confd_tag_value_t>;

// Values; what they point to lives as long as the process.
confd_value_t none();   // a leaf that is deleted
confd_value_t empty();  // of a leaf without a value
confd_value_t text(const std::string &value);
confd_value_t u8(uint8_t value);
confd_value_t u16(uint16_t value);
confd_value_t u32(uint32_t value);
confd_value_t i32(int32_t value);
confd_value_t boolean(bool value);
confd_value_t enumerator(int32_t value);
confd_value_t bits(uint32_t value);
confd_value_t ipv4(const char *value);
confd_value_t ipv6(const char *value);
confd_value_t prefix(const char *value);
confd_value_t list(std::initializer_list<confd_value_t> values);

// The values, inside containers, the outermost first.
t_change inside(const std::vector<uint32_t> &containers, const t_change &values);
confd_tag_value_t leaf(uint32_t tag, const confd_value_t &value);
t_change operator+(t_change first, const t_change &second);

// A store, an entry of the table, and the shared words that parsers write.
class ConfdWorld : public PassWorld {
public:
    ConfdWorld();

    int run(f_tarn_config_cb *callback, confd_iter_op oper, const std::vector<confd_value_t> &keys,
            const t_change &values = {});
    int generations();  // of policy, counted since the last call

    t_lconfd_context context_record = {};
    t_lconfd_sub_entry entry = {};
};

#include "tests/tarnd/config/rule_text.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>

#include "common/cli_print.h"
#include "lconfd/lconfd_api.h"
#include "platform/ttm/ttm.h"
#include "tarnd/compiler/tarn_program.h"
#include "tarnd/config/tarn_tloc_list.h"
#include "tarnd/peers/tarn_ttm.h"

ruletable_ptr table_of(PassWorld *p_world, const t_tarn_config_rule *p_rule)
{
    ruletable_ptr table(tarn_ruletable_create("table", "", 0, nullptr));
    EXPECT_EQ(tarn_process_rule(&p_world->tarn, tarn_rule_create(table.get(), "rule"), p_rule), 0);
    EXPECT_EQ(table->rules->r_action->a_len, 3080u);
    tarn_reinit_context(p_world->tarn.p_context);
    return table;
}

const t_tarn_filter_action *slots_of(const ruletable_ptr &table)
{
    return reinterpret_cast<const t_tarn_filter_action *>(table->rules->r_action->a_data);
}

std::string slot_text(const t_tarn_filter_action &slot)
{
    const auto *p_bytes = reinterpret_cast<const uint8_t *>(&slot);
    std::string text;
    for (size_t i = 0; i < sizeof(slot); i++) {
        if (p_bytes[i] == 0)
            continue;
        char hex[3];
        snprintf(hex, sizeof(hex), "%02x", p_bytes[i]);
        if (i == 0 || p_bytes[i - 1] == 0)
            text += (text.empty() ? "" : " ") + std::to_string(i) + ":";
        text += hex;
    }
    return text;
}

std::string fields_text(const ruletable_ptr &table)
{
    std::string text;
    for (const t_tarn_field *p_field = table->rules->r_fields; p_field != nullptr;
         p_field = p_field->f_next) {
        if (p_field->f_type == tarn_ip_match_any)
            continue;
        text += (text.empty() ? "" : " ") + std::to_string(p_field->f_type);
        for (const t_interval *p = p_field->f_intervals; p != nullptr; p = p->i_next) {
            char interval[24];
            snprintf(interval, sizeof(interval), "%x-%x", p->i_min, p->i_max);
            text += (p == p_field->f_intervals ? ":" : ",") + std::string(interval);
        }
    }
    return text;
}

static std::string g_printed;

__attribute__((format(printf, 3, 0))) static void print_to_text(t_lconfd_context *, int, const char *format,
                                                                va_list args)
{
    char line[512];
    vsnprintf(line, sizeof(line), format, args);
    g_printed += line;
}

std::string display_text(const ruletable_ptr &table)
{
    t_lconfd_context session = {};
    g_printed.clear();
    cli_print_register(print_to_text);
    ftm_oct_filter_action_dump(&session, 1, slots_of(table));
    cli_print_register(nullptr);
    return g_printed;
}

t_tloc_id test_tloc(uint8_t number)
{
    t_tloc_id tloc = {};
    IPADDR_SET_V4(&tloc.addr, htonl(0x0a000000u + number));
    tloc.color = 1;
    tloc.encap = 2;
    return tloc;
}

static t_ttm_tloc_msg announcement(uint8_t number)
{
    t_ttm_tloc_msg message = {};
    message.tloc = test_tloc(number);
    IPADDR_SET_V4(&message.tloc.addr, 0x0a000000u + number);
    message.tloc_index = number;
    return message;
}

void announce_tloc(PassWorld *p_world, uint8_t number, uint32_t weight, bool up)
{
    t_ttm_tloc_msg message = announcement(number);
    message.attr.weight = weight;
    message.tloc_status = up ? TTM_TLOC_STATUS_UP : TTM_TLOC_STATUS_DOWN;
    EXPECT_EQ(tarn_tloc_add(&p_world->tarn, &message), 0);
}

void withdraw_tlocs(PassWorld *p_world)
{
    for (uint8_t number = 0; number < 32; number++) {
        t_ttm_tloc_msg message = announcement(number);
        EXPECT_EQ(tarn_tloc_delete(&p_world->tarn, &message), 0);
    }
}

void add_tloc_element(PassWorld *p_world, const t_tarn_config_rule *p_rule, uint32_t list_num,
                      uint8_t tloc_number, uint32_t preference, uint32_t label)
{
    t_tarn_vpn_list_key2 key = {};
    strcpy(key.name, p_rule->vpn_list->key.name);
    strcpy(key.pol_name, p_rule->policy->key.name);
    key.pol_type = p_rule->policy->key.type;
    t_tarn_tloc_list *p_list =
        tarn_tloc_list_find_or_make(&p_world->tarn, &key, static_cast<uint16_t>(p_rule->key.id));
    t_tarn_tloc_elem element = {list_num, test_tloc(tloc_number), label, preference, {}};
    EXPECT_EQ(tarn_tloc_list_elem_add(p_list, &element), 0);
}

t_tarn_policer_config policer_config(const char *name, uint64_t bandwidth, uint32_t burst, uint8_t action)
{
    t_tarn_policer_config config = {};
    strcpy(config.key.name, name);
    config.key.type = TARN_POLICY_POLICER_TYPE_KEELSON;
    config.key.sequence_id = -1;
    config.bandwidth = bandwidth;
    config.burst = burst;
    config.oob_action = action;
    return config;
}

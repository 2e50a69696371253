#include "tests/support/tarn_store.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "common/msgq_util.h"
#include "fp_api/fp_tables.h"
#include "tarnd/acl/tarn_intf_config.h"
#include "tarnd/config/tarn_class.h"
#include "tarnd/peers/tarn_ftm.h"
#include "tarnd/peers/tarn_ttm.h"
#include "tests/tarnd/oper/notification_record.h"

static TarnStore *g_store;

// The store's channel: an address that is no handle of the queue's.
static msgq_handle_t *channel()
{
    return reinterpret_cast<msgq_handle_t *>(&g_store);
}

TarnStore::TarnStore()
    : global_ctrl(new t_fp_global_ctrl()), real_flow_knob(g_fp_filter_flow_enable_knob),
      real_global_ctrl(g_fp_global_ctrl)
{
    EXPECT_EQ(g_store, nullptr);
    g_store = this;
    g_fp_filter_flow_enable_knob = &flow_knob;
    g_fp_global_ctrl = global_ctrl.get();
    tarn.p_ftm_msgq = channel();
    notification_record_take();
    EXPECT_EQ(tarn_class_init(&tarn), 0);
    EXPECT_EQ(tarn_sla_class_init(&tarn), 0);
    EXPECT_EQ(tarn_config_init(&tarn), 0);
    EXPECT_EQ(tarn_intf_config_init(&tarn), 0);
    avl_create(&tarn.tloc_db, tarn_tloc_key_cmp, sizeof(t_tarn_tloc), offsetof(t_tarn_tloc, avl_node));
}

TarnStore::~TarnStore()
{
    EXPECT_TRUE(buffers.empty()) << "message buffers neither sent nor given back";
    tarn.p_ftm_msgq = nullptr;
    g_fp_global_ctrl = global_ctrl.get();
    tarn_config_destroy(&tarn);
    tarn_class_destroy(&tarn);
    tarn_sla_class_destroy(&tarn);
    free(tarn.class_index);
    free(tarn.sla_class_index);
    for (const avl_tree_t *p_tree :
         {&tarn.policy_db, &tarn.vpn_list_db, &tarn.pfx_list_db, &tarn.tloc_db, &tarn.access_list_db,
          &tarn.access_list6_db, &tarn.mirror_db, &tarn.policer_db, &tarn.tloc_list_db, &tarn.dpi_app_list_db,
          &tarn.zone_db, &tarn.zone_pair_db})
        EXPECT_EQ(avl_numnodes(p_tree), 0u);
    g_fp_filter_flow_enable_knob = real_flow_knob;
    g_fp_global_ctrl = real_global_ctrl;
    g_store = nullptr;
}

std::vector<std::vector<uint8_t>> TarnStore::take_bytes()
{
    return std::exchange(sent, {});
}

// ---- Reading ----

static uint32_t read_32(const uint8_t *p_bytes)
{
    return uint32_t{p_bytes[0]} << 24 | uint32_t{p_bytes[1]} << 16 | uint32_t{p_bytes[2]} << 8 | p_bytes[3];
}

static void read_entries(t_ftm_words *p_words, const std::vector<uint8_t> &message)
{
    bool of_vpns = p_words->type == TARN_MSG_VPN_FILTER_ADD || p_words->type == TARN_MSG_VPN_FILTER_DELETE;
    size_t size = of_vpns ? 8 : 38;
    ASSERT_EQ(message.size(), 139 + read_32(&message[135]) * size);
    for (const uint8_t *p = message.data() + 139; p < message.data() + message.size(); p += size) {
        if (of_vpns)
            p_words->vpns.emplace_back(read_32(p), read_32(p + 4));
        else
            p_words->intfs.emplace_back(read_32(p),
                                        reinterpret_cast<const char *>(p + 5) + ('/' + std::to_string(p[4])));
    }
}

std::vector<t_ftm_words> TarnStore::take()
{
    std::vector<t_ftm_words> all;
    for (const std::vector<uint8_t> &message : take_bytes()) {
        t_ftm_words words = {};
        words.type = message.at(0);
        if (message.size() > 1) {
            words.kind = message.at(1);
            words.side = message.at(2);
            words.filter_id = static_cast<int32_t>(read_32(&message.at(3)));
            words.name = reinterpret_cast<const char *>(&message.at(7));
            read_entries(&words, message);
        }
        all.push_back(std::move(words));
    }
    return all;
}

std::ostream &operator<<(std::ostream &out, const t_ftm_words &words)
{
    out << "type " << words.type << " kind " << words.kind << " side " << words.side << " filter "
        << words.filter_id << " '" << words.name << "'";
    for (const auto &[min, max] : words.vpns)
        out << ' ' << min << '-' << max;
    for (const auto &[vpn, intf] : words.intfs)
        out << ' ' << vpn << ':' << intf;
    return out;
}

// ---- The queue ----

void *TarnStore::msg_malloc(size_t size)
{
    if (!ftm_memory)
        return nullptr;
    void *p_msg = calloc(1, size);
    buffers[p_msg] = size;
    return p_msg;
}

void TarnStore::msg_free(void *p_msg)
{
    EXPECT_EQ(buffers.erase(p_msg), 1u) << "no buffer of the queue's";
    free(p_msg);
}

bool TarnStore::write(void *p_msg, size_t size)
{
    if (!ftm_up)
        return false;
    EXPECT_LE(size, buffers.at(p_msg));
    const uint8_t *p_bytes = static_cast<const uint8_t *>(p_msg);
    sent.emplace_back(p_bytes, p_bytes + size);
    msg_free(p_msg);
    return true;
}

using f_msg_malloc = void *(msgq_handle_t *, uint16_t);
f_msg_malloc real_msg_malloc asm("__real__Z15msgq_msg_mallocP11msgq_handlet");
f_msg_malloc wrap_msg_malloc asm("__wrap__Z15msgq_msg_mallocP11msgq_handlet");
void *wrap_msg_malloc(msgq_handle_t *p_msgq, uint16_t size)
{
    return p_msgq == channel() ? g_store->msg_malloc(size) : real_msg_malloc(p_msgq, size);
}

using f_msg_free = void(msgq_handle_t *, void *);
f_msg_free real_msg_free asm("__real__Z13msgq_msg_freeP11msgq_handlePv");
f_msg_free wrap_msg_free asm("__wrap__Z13msgq_msg_freeP11msgq_handlePv");
void wrap_msg_free(msgq_handle_t *p_msgq, void *p_msg)
{
    p_msgq == channel() ? g_store->msg_free(p_msg) : real_msg_free(p_msgq, p_msg);
}

using f_write = e_err(msgq_handle_t *, void *, uint16_t);
f_write real_write asm("__real__Z10msgq_writeP11msgq_handlePvt");
f_write wrap_write asm("__wrap__Z10msgq_writeP11msgq_handlePvt");
e_err wrap_write(msgq_handle_t *p_msgq, void *p_msg, uint16_t size)
{
    if (p_msgq != channel())
        return real_write(p_msgq, p_msg, size);
    return g_store->write(p_msg, size) ? ERR_OK : ERR_AGAIN;
}

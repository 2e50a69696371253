#include "tests/tarnd/dpi/dpi_world.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include <unistd.h>

#include "classification/qmdpi.h"
#include "common/msgq_util.h"
#include "tarnd/dpi/tarn_dpi_private.h"
#include "tests/common/syslog_lines.h"

static DpiWorld *g_world;
static char channel;  // only its address counts

DpiWorld::DpiWorld() : mapping(dpi_world_entries), hits(dpi_world_entries)
{
    g_world = this;
    g_fp_scaling = {};
    g_fp_scaling.num_dpi_proto_hits = dpi_world_entries;
    g_fp_dpi_proto_family_mapping = mapping.data();
    g_fp_dpi_proto_hits = hits.data();
    g_fp_dpi_enable_knob = &knob;
    syslog_lines_take();
}

DpiWorld::~DpiWorld()
{
    tarn_dpi_destroy();
    p_engine = nullptr;
    p_bundle = nullptr;
    g_world = nullptr;
}

void DpiWorld::connect()
{
    void *p_channel = &channel;
    tarn.p_ftm_msgq = static_cast<msgq_handle_t *>(p_channel);
}

void DpiWorld::load(const char *file)
{
    p_engine = qmdpi_engine_create(nullptr);
    p_bundle = qmdpi_bundle_create_from_file(p_engine, (std::string("tests/tarnd/dpi/") + file).c_str());
    ASSERT_NE(p_bundle, nullptr);
    ASSERT_EQ(tarn_dpi_init_proto_family_mapping(), 0);
    tarn.dpi_p = &knob;
}

std::vector<std::string> dpi_world_log()
{
    std::vector<std::string> texts;
    for (const t_syslog_line &line : syslog_lines_take())
        texts.push_back(line.text);
    return texts;
}

static bool fails(const char *function)
{
    return g_world != nullptr && g_world->failing == function;
}

// ---- Wrapped: the engine and the sleep ----

extern "C" {
qmdpi_engine *__real_qmdpi_engine_create(const char *config);
qmdpi_bundle *__real_qmdpi_bundle_create_from_file(qmdpi_engine *engine, const char *path);
int __real_qmdpi_bundle_signature_enable_all(qmdpi_bundle *bundle);
int __real_qmdpi_bundle_activate(qmdpi_bundle *bundle);
int __real_qmdpi_bundle_signature_foreach(qmdpi_bundle *bundle, f_qmdpi_signature callback, void *arg);

qmdpi_engine *__wrap_qmdpi_engine_create(const char *config)
{
    return __real_qmdpi_engine_create(fails("engine_create") ? "bad" : config);
}

qmdpi_bundle *__wrap_qmdpi_bundle_create_from_file(qmdpi_engine *engine, const char *path)
{
    return __real_qmdpi_bundle_create_from_file(engine, fails("create_from_file") ? "/none/such" : path);
}

int __wrap_qmdpi_bundle_signature_enable_all(qmdpi_bundle *bundle)
{
    return fails("enable_all") ? -6 : __real_qmdpi_bundle_signature_enable_all(bundle);
}

int __wrap_qmdpi_bundle_activate(qmdpi_bundle *bundle)
{
    return fails("activate") ? -24 : __real_qmdpi_bundle_activate(bundle);
}

int __wrap_qmdpi_bundle_signature_foreach(qmdpi_bundle *bundle, f_qmdpi_signature callback, void *arg)
{
    return fails("foreach") ? -28 : __real_qmdpi_bundle_signature_foreach(bundle, callback, arg);
}

int __wrap_usleep(useconds_t usec)
{
    g_world->events.push_back("sleep " + std::to_string(usec));
    g_world->on_sleep();
    return 0;
}
}

// ---- Wrapped: the queue. Names as the linker sees them. ----

static size_t allocated;

void *wrap_malloc(msgq_handle_t *msgq_p, uint16_t size) asm("__wrap__Z15msgq_msg_mallocP11msgq_handlet");
void *wrap_malloc(msgq_handle_t *msgq_p, uint16_t size)
{
    EXPECT_EQ(msgq_p, g_world->tarn.p_ftm_msgq);
    if (g_world->no_memory)
        return nullptr;
    g_world->events.push_back("malloc " + std::to_string(size));
    allocated = size;
    uint8_t *p_msg = new uint8_t[size];
    std::fill_n(p_msg, size, static_cast<uint8_t>(0xa5));
    return p_msg;
}

void wrap_free(msgq_handle_t *msgq_p, void *p_msg) asm("__wrap__Z13msgq_msg_freeP11msgq_handlePv");
void wrap_free(msgq_handle_t *, void *p_msg)
{
    g_world->events.push_back("free");
    delete[] static_cast<uint8_t *>(p_msg);
}

e_err wrap_write(msgq_handle_t *msgq_p, void *p_msg,
                 uint16_t size) asm("__wrap__Z10msgq_writeP11msgq_handlePvt");
e_err wrap_write(msgq_handle_t *, void *p_msg, uint16_t size)
{
    uint8_t *p_bytes = static_cast<uint8_t *>(p_msg);
    bool is_zero_behind =
        std::all_of(p_bytes + 1, p_bytes + allocated, [](uint8_t byte) { return byte == 0; });
    g_world->events.push_back("write " + std::to_string(size) + " type " + std::to_string(p_bytes[0]) +
                              (is_zero_behind ? "" : " rest not zero"));
    if (g_world->write_result == ERR_OK)
        delete[] p_bytes;
    return g_world->write_result;
}

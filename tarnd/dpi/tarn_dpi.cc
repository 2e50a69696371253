// The engine, its start, and the table of families.
#include "tarnd/dpi/tarn_dpi.h"

#include "classification/qmdpi.h"
#include "common/lum_log.h"
#include "common/strlcpy.h"
#include "fp_api/fp_tables.h"
#include "tarnd/core/tarn.h"
#include "tarnd/dpi/tarn_dpi_private.h"

qmdpi_engine *p_engine;
qmdpi_bundle *p_bundle;

// The road that the start takes, from its first step to its second.
static struct {
    int inline_needed;  // the result of tarn_dpi_threaded_init
    pthread_t thread;
} start_road;

int tarn_dpi_exception_handler(uint32_t exception_type, void *, void *)
{
    TARN_LOG("Error: DPI ixEngine exception: %s",
             qmdpi_exception_get_string(static_cast<int>(exception_type)));
    return 0;
}

// ---- The engine ----

static int create_engine()
{
    // No packets, no workers; the engine wants one flow slot at least.
    p_engine = qmdpi_engine_create("injection_mode=packet;nb_workers=0;nb_flows=1");
    if (p_engine != nullptr)
        return 0;
    TARN_LOG("cannot create engine instance: %s", qmdpi_error_get_string(nullptr, qmdpi_error_get()));
    return -1;
}

static int create_bundle()
{
    p_bundle = qmdpi_bundle_create_from_file(p_engine, nullptr);
    if (p_bundle != nullptr)
        return 0;
    TARN_LOG("cannot create bundle instance: %s", qmdpi_error_get_string(nullptr, qmdpi_error_get()));
    return -1;
}

static int activate_bundle()
{
    int status = qmdpi_bundle_signature_enable_all(p_bundle);
    if (status < 0) {
        TARN_LOG("error enabling all protocols: %s", qmdpi_error_get_string(p_bundle, status));
        return -1;
    }
    status = qmdpi_bundle_activate(p_bundle);
    if (status < 0) {
        TARN_LOG("cannot activate bundle: %s", qmdpi_error_get_string(p_bundle, status));
        return -1;
    }
    return 0;
}

int tarn_classification_engine_init()
{
    qmdpi_exception_callback_set(tarn_dpi_exception_handler, nullptr);
    if (create_engine() != 0)
        return -1;
    if (create_bundle() != 0) {
        qmdpi_engine_destroy(p_engine);
        return -1;
    }
    if (activate_bundle() != 0) {
        tarn_classification_engine_exit();
        return -1;
    }
    return 0;
}

void tarn_classification_engine_exit()
{
    qmdpi_bundle_destroy(p_bundle);
    qmdpi_engine_destroy(p_engine);
}

// ---- The table of families ----

static int tarn_dpi_init_proto_family_mapping_callback(qmdpi_bundle *, qmdpi_signature *signature, void *)
{
    uint32_t id = static_cast<uint32_t>(qmdpi_signature_id_get(signature));
    if (id > g_fp_dpi_proto_family_mapping[0])
        g_fp_dpi_proto_family_mapping[0] = id;
    const char *family_name = qmdpi_signature_family_get(signature);
    e_tarn_dpi_qosmos_app_family family = tarn_dpi_get_qosmos_app_family(family_name);
    if (family != E_TARN_DPI_MAX)
        g_fp_dpi_proto_family_mapping[id] = family;
    else
        TARN_LOG("Error when getting the family for protocol [%d] %s - %s", static_cast<int>(id),
                 qmdpi_signature_name_get(signature), family_name);
    return 0;
}

int tarn_dpi_init_proto_family_mapping()
{
    int status =
        qmdpi_bundle_signature_foreach(p_bundle, tarn_dpi_init_proto_family_mapping_callback, nullptr);
    if (status < 0) {
        TARN_LOG("Error when getting the protocol list for protocol-family init - %s",
                 qmdpi_error_get_string(nullptr, status));
        return -1;
    }
    g_fp_dpi_proto_hits[0] = g_fp_dpi_proto_family_mapping[0];
    return 0;
}

// ---- Start and stop ----

int tarn_dpi_init(t_tarn *p_tarn)
{
    p_tarn->dpi_p = g_fp_dpi_enable_knob;
    int status = tarn_classification_engine_init();
    if (status != 0) {
        TARN_LOG("Error: Failed: dpi engine init; err: %d", status);
        return status;
    }
    status = tarn_dpi_init_proto_family_mapping();
    if (status != 0) {
        TARN_LOG("Error: Could not register for protocol families; err: %d", status);
        return status;
    }
    lum_strlcpy(p_tarn->dpi_version, qmdpi_bundle_version_get_string(p_bundle), sizeof(p_tarn->dpi_version));
    return 0;
}

void tarn_dpi_destroy()
{
    TARN_TRACE(TARN_DEBUG_DPI, "DPI Cleanup...");
    tarn_classification_engine_exit();
    TARN_TRACE(TARN_DEBUG_DPI, "DPI Cleaup done!");
}

int tarn_dpi_threaded_init(t_tarn *, pthread_t *)
{
    return 1;
}

void tarn_dpi_threaded_init_fn(t_tarn *p_tarn)
{
    tarn_dpi_init(p_tarn);
    pthread_detach(pthread_self());
    pthread_exit(nullptr);
}

static void start_inline(t_tarn *p_tarn)
{
    TARN_LOG("Inline initialization - DPI start");
    int status = tarn_dpi_init(p_tarn);
    if (status != 0)
        TARN_LOG("Inline DPI initialization failed: %d", status);
    TARN_LOG("Inline Initialization - DPI end");
}

int tarn_dpi_begin_start(t_tarn *p_tarn)
{
    start_road.inline_needed = tarn_dpi_threaded_init(p_tarn, &start_road.thread);
    return 0;
}

int tarn_dpi_finish_start(t_tarn *p_tarn)
{
    if (start_road.inline_needed != 0) {
        start_inline(p_tarn);
        return 0;
    }
    int status = pthread_join(start_road.thread, nullptr);
    if (status != 0)
        TARN_LOG("DPI initialization join failed: %d", status);
    return 0;
}

// The commands of operators: four dumps, and the clearing of the hit counters.
#include "classification/qmdpi.h"
#include "common/cli_print.h"
#include "common/lum_log.h"
#include "fp_api/fp_tables.h"
#include "lconfd/lconfd_api.h"
#include "platform/confd/confd_lib.h"
#include "tarnd/core/tarn.h"
#include "tarnd/dpi/tarn_dpi.h"
#include "tarnd/dpi/tarn_dpi_private.h"

#include <atomic>
#include <cstring>
#include <unistd.h>

// The session of the command that runs; null and 0 outside of one. The walks' callbacks find it here.
static t_lconfd_context *g_tarn_lconfd_ctx;
static int g_tarn_usid;

// Output without a session is dropped.
#define DPI_PRINT(...)                                                                                       \
    do {                                                                                                     \
        if (g_tarn_lconfd_ctx != nullptr && g_tarn_usid != 0)                                                \
            cli_print(g_tarn_lconfd_ctx, g_tarn_usid, __VA_ARGS__);                                          \
    } while (0)

// Makes a user's session that of the command that runs.
class CommandSession {
public:
    explicit CommandSession(const confd_user_info *uinfo)
    {
        g_tarn_lconfd_ctx = static_cast<t_lconfd_context *>(uinfo->actx.dx->d_opaque);
        g_tarn_usid = uinfo->usid;
    }
    ~CommandSession()
    {
        g_tarn_lconfd_ctx = nullptr;
        g_tarn_usid = 0;
    }
    CommandSession(const CommandSession &) = delete;
    CommandSession &operator=(const CommandSession &) = delete;
};

static int shown(uint32_t value)
{
    return static_cast<int>(value);
}

static qmdpi_signature *signature_of(uint32_t id)
{
    return qmdpi_bundle_signature_get_byid(p_bundle, shown(id));
}

// ---- The list of applications ----

static int print_attribute(qmdpi_bundle *, const char *, const qmdpi_attr *attr, void *)
{
    const char *name = qmdpi_attr_name_get(attr);
    TARN_TRACE(TARN_DEBUG_DPI, "      %s", name);
    DPI_PRINT("      %s\n", name);
    return 0;
}

static int print_application(qmdpi_bundle *bundle, qmdpi_signature *signature, void *)
{
    const char *name = qmdpi_signature_name_get(signature);
    DPI_PRINT("[%d] App: %s Family: %s\n", qmdpi_signature_id_get(signature), name,
              qmdpi_signature_family_get(signature));
    TARN_TRACE(TARN_DEBUG_DPI, "\troot for: ");
    int status = qmdpi_bundle_attr_foreach(bundle, name, print_attribute, nullptr);
    return status < 0 ? status : 0;
}

static int print_applications()
{
    int status = qmdpi_bundle_signature_foreach(p_bundle, print_application, nullptr);
    if (status >= 0)
        return 0;
    TARN_LOG("Error when getting the protocol list - %s", qmdpi_error_get_string(nullptr, status));
    return -1;
}

int tarn_dpi_dump_protocol_list(confd_user_info *uinfo, char *, int, char **)
{
    CommandSession session(uinfo);
    print_applications();
    return 0;
}

// ---- The shared tables ----

// A word that no family has, which only a fault can leave there, prints as the bound.
static const char *family_text(uint32_t family)
{
    return tarn_dpi_qosmos_app_family_str[family < E_TARN_DPI_MAX ? family : E_TARN_DPI_MAX];
}

int tarn_dpi_dump_protocol_family_mapping(confd_user_info *uinfo, char *, int, char **)
{
    CommandSession session(uinfo);
    uint32_t highest = g_fp_dpi_proto_family_mapping[0];
    DPI_PRINT("Dumping protocol to family mapping: %d entries\n", shown(highest));
    for (uint32_t id = 1; id <= highest; id++) {
        uint32_t family = g_fp_dpi_proto_family_mapping[id];
        qmdpi_signature *p_signature = family != 0 ? signature_of(id) : nullptr;
        if (p_signature == nullptr)
            continue;
        DPI_PRINT("Protocol: [%d] %s (%s) Family: [%d] [%d] Local: %s Qosmos: %s\n", shown(id),
                  qmdpi_signature_longname_get(p_signature), qmdpi_signature_name_get(p_signature),
                  shown(family), shown(family), family_text(family), qmdpi_signature_family_get(p_signature));
    }
    return 0;
}

static void print_hits(uint32_t id, uint32_t hits)
{
    if (id == TARN_DPI_UNCLASSIFIED) {
        DPI_PRINT("Protocol: [%d] unclassified (unclassified) Hits: %u\n", shown(id), hits);
        return;
    }
    qmdpi_signature *p_signature = signature_of(id);
    if (p_signature == nullptr)
        return;
    DPI_PRINT("Protocol: [%d] %s (%s) Hits: %u\n", shown(id), qmdpi_signature_longname_get(p_signature),
              qmdpi_signature_name_get(p_signature), hits);
    uint32_t family = g_fp_dpi_proto_family_mapping[id];
    if (family != 0)
        DPI_PRINT("    Family: [%d] [%d] Local: %s Qosmos: %s\n", shown(family), shown(family),
                  family_text(family), qmdpi_signature_family_get(p_signature));
}

int tarn_dpi_dump_protocol_hits(confd_user_info *uinfo, char *, int, char **)
{
    CommandSession session(uinfo);
    uint32_t highest = g_fp_dpi_proto_hits[0];
    DPI_PRINT("Dumping protocol hits: %d entries\n", shown(highest));
    for (uint32_t id = 1; id <= highest; id++) {
        uint32_t hits = g_fp_dpi_proto_hits[id];
        if (hits != 0)
            print_hits(id, hits);
    }
    return 0;
}

int tarn_dpi_clear_protocol_hits(confd_user_info *, xml_tag *, confd_hkeypath_t *, confd_tag_value_t *, int)
{
    static constexpr useconds_t longest_update_us = 1000;  // of a forwarding core that has seen word 0 set
    std::atomic_ref<uint32_t> gate(g_fp_dpi_proto_hits[0]);
    uint32_t highest = gate.load(std::memory_order_relaxed);
    gate.store(0, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    usleep(longest_update_us);
    memset(g_fp_dpi_proto_hits, 0,
           static_cast<size_t>(g_fp_scaling.num_dpi_proto_hits) * sizeof(*g_fp_dpi_proto_hits));
    gate.store(highest, std::memory_order_release);
    return 0;
}

// ---- Configuration ----

int tarn_dpi_dump_configuration(confd_user_info *uinfo, char *, int, char **)
{
    CommandSession session(uinfo);
    const t_tarn *p_tarn = g_tarn_lconfd_ctx != nullptr
                               ? static_cast<const t_tarn *>(g_tarn_lconfd_ctx->module_data.opaque_p)
                               : nullptr;
    if (p_tarn != nullptr) {
        DPI_PRINT("Protocol bundle Version   : %s\n", p_tarn->dpi_version);
        DPI_PRINT("App Visibility            : %d\n", p_tarn->dpi);
        DPI_PRINT("Policy DPI Reference      : %d\n", p_tarn->dpi_ref);
        DPI_PRINT("DPI state (Control)       : %u\n", *p_tarn->dpi_p);
    }
    DPI_PRINT("DPI state                 : %u\n", *g_fp_dpi_enable_knob);
    return 0;
}

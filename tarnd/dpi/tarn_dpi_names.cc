// Names and ids of applications and families.
#include "classification/qmdpi.h"
#include "common/lum_log.h"
#include "tarnd/dpi/tarn_dpi.h"
#include "tarnd/dpi/tarn_dpi_private.h"

#include <cstring>
#include <string_view>

const char *const tarn_dpi_qosmos_app_family_enum_str[E_TARN_DPI_MAX + 1] = {
    "min",
    "antivirus",
    "application_service",
    "audio_video",
    "authentication",
    "behavioral",
    "compression",
    "database",
    "encrypted",
    "erp",
    "file_server",
    "file_transfer",
    "forum",
    "game",
    "instant_messaging",
    "mail",
    "microsoft_office",
    "middleware",
    "network_management",
    "network_service",
    "peer_to_peer",
    "printer",
    "routing",
    "security_service",
    "standard",
    "telephony",
    "terminal",
    "thin_client",
    "tunneling",
    "wap",
    "web",
    "webmail",
    "max",
};

const char *const tarn_dpi_qosmos_app_family_str[E_TARN_DPI_MAX + 1] = {
    "Min",
    "Antivirus",
    "Application Service",
    "Audio/Video",
    "Authentication",
    "Behavioral",
    "Compression",
    "Database",
    "Encrypted",
    "ERP",
    "File Server",
    "File Transfer",
    "Forum",
    "Game",
    "Instant Messaging",
    "Mail",
    "Microsoft Office",
    "Middleware",
    "Network Management",
    "Network Service",
    "Peer to Peer",
    "Printer",
    "Routing",
    "Security Service",
    "Standard",
    "Telephony",
    "Terminal",
    "Thin Client",
    "Tunneling",
    "Wap",
    "Web",
    "Webmail",
    "Max",
};

static constexpr size_t longest_family = 128;  // characters that are compared

// The run of families whose names in the bundle begin with a letter.
struct t_family_run {
    uint32_t first;
    uint32_t last;
};

static constexpr t_family_run no_family = {1, 0};

// From A to W; the letters without a family are named.
static const t_family_run runs_by_letter['W' - 'A' + 1] = {
    {E_TARN_DPI_ANTIVIRUS, E_TARN_DPI_AUTHENTICATION},
    {E_TARN_DPI_BEHAVIORAL, E_TARN_DPI_BEHAVIORAL},
    {E_TARN_DPI_COMPRESSION, E_TARN_DPI_COMPRESSION},
    {E_TARN_DPI_DATABASE, E_TARN_DPI_DATABASE},
    {E_TARN_DPI_ENCRYPTED, E_TARN_DPI_ERP},
    {E_TARN_DPI_FILE_SERVER, E_TARN_DPI_FORUM},
    {E_TARN_DPI_GAME, E_TARN_DPI_GAME},
    no_family,  // H
    {E_TARN_DPI_INSTANT_MESSAGING, E_TARN_DPI_INSTANT_MESSAGING},
    no_family,  // J
    no_family,  // K
    no_family,  // L
    {E_TARN_DPI_MAIL, E_TARN_DPI_MIDDLEWARE},
    {E_TARN_DPI_NETWORK_MANAGEMENT, E_TARN_DPI_NETWORK_SERVICE},
    no_family,  // O
    {E_TARN_DPI_PEER_TO_PEER, E_TARN_DPI_PRINTER},
    no_family,  // Q
    {E_TARN_DPI_ROUTING, E_TARN_DPI_ROUTING},
    {E_TARN_DPI_SECURITY_SERVICE, E_TARN_DPI_STANDARD},
    {E_TARN_DPI_TELEPHONY, E_TARN_DPI_TUNNELING},
    no_family,  // U
    no_family,  // V
    {E_TARN_DPI_WAP, E_TARN_DPI_WEBMAIL},
};

// The first family of the run with that name, or `otherwise`.
static e_tarn_dpi_qosmos_app_family find_family(const char *const *names, t_family_run run, const char *name,
                                                e_tarn_dpi_qosmos_app_family otherwise)
{
    for (uint32_t family = run.first; family <= run.last; family++)
        if (strncmp(names[family], name, longest_family) == 0)
            return static_cast<e_tarn_dpi_qosmos_app_family>(family);
    return otherwise;
}

e_tarn_dpi_qosmos_app_family tarn_dpi_get_qosmos_app_family(const char *family)
{
    char letter = family[0];
    if (letter < 'A' || letter > 'W')
        return E_TARN_DPI_MAX;
    return find_family(tarn_dpi_qosmos_app_family_str, runs_by_letter[letter - 'A'], family, E_TARN_DPI_MAX);
}

e_tarn_dpi_qosmos_app_family tarn_dpi_get_qosmos_app_family_enum(const char *family)
{
    static constexpr t_family_run all = {E_TARN_DPI_ANTIVIRUS, E_TARN_DPI_WEBMAIL};
    return find_family(tarn_dpi_qosmos_app_family_enum_str, all, family, E_TARN_DPI_MIN);
}

uint32_t tarn_dpi_get_qosmos_id(const char *proto_str)
{
    if (std::string_view(proto_str) == "unclassified")
        return TARN_DPI_UNCLASSIFIED;
    qmdpi_signature *p_signature = qmdpi_bundle_signature_get_byname(p_bundle, proto_str);
    if (p_signature == nullptr) {
        TARN_LOG("Could not find signature for protocol string: %s, error: %s", proto_str,
                 qmdpi_error_get_string(nullptr, qmdpi_error_get()));
        return 0;
    }
    int id = qmdpi_signature_id_get(p_signature);
    if (id > 0)
        return static_cast<uint32_t>(id);
    TARN_LOG("Could not find protocol! : %s", proto_str);
    return 0;
}

const char *tarn_dpi_confd_to_qosmos(uint32_t app_id)
{
    qmdpi_signature *p_signature = qmdpi_bundle_signature_get_byid(p_bundle, static_cast<int>(app_id));
    return p_signature != nullptr ? qmdpi_signature_longname_get(p_signature) : "UNKNOWN";
}

// Application classification: the catalogue of applications, and the words in shared memory that follow from
// it.
//
// The daemon classifies nothing. It owns the one engine and the one bundle of the process and asks them which
// applications exist: names of configuration become the ids that rules match, and a table tells the
// forwarding plane the family of each application. An application's id is the bundle's own, everywhere: in
// rules, in both shared tables and in the hit counters. A family is an e_tarn_dpi_qosmos_app_family. The two
// numberings never mix.
//
// Shared words: g_fp_dpi_proto_family_mapping holds the highest id in word 0 and the family of application i
// in word i. g_fp_dpi_proto_hits holds the same highest id in word 0, 0 while a clear is going on, and in
// word i what the forwarding plane counted for application i. The word of an id is not checked against the
// tables' size: no bundle may hold an id beyond them. g_fp_dpi_enable_knob is the number of reasons to
// classify, and the forwarding plane classifies while it isn't 0; it is written at the end of a commit and
// stays as it is when the daemon stops.
//
// Without a catalogue (the start failed) every name is unknown and the daemon goes on. Main thread only.
#pragma once

#include "tarnd/dpi/tarn_dpi_app_list.h"

#include <cstdint>
#include <pthread.h>

struct confd_hkeypath_t;
struct confd_tag_value_t;
struct confd_user_info;
struct t_tarn;
struct xml_tag;

// Stands in rules and in shared memory.
enum e_tarn_dpi_qosmos_app_family : uint32_t {
    E_TARN_DPI_MIN = 0,
    E_TARN_DPI_ANTIVIRUS = 1,
    E_TARN_DPI_APPLICATION_SERVICE = 2,
    E_TARN_DPI_AUDIO_VIDEO = 3,
    E_TARN_DPI_AUTHENTICATION = 4,
    E_TARN_DPI_BEHAVIORAL = 5,
    E_TARN_DPI_COMPRESSION = 6,
    E_TARN_DPI_DATABASE = 7,
    E_TARN_DPI_ENCRYPTED = 8,
    E_TARN_DPI_ERP = 9,
    E_TARN_DPI_FILE_SERVER = 10,
    E_TARN_DPI_FILE_TRANSFER = 11,
    E_TARN_DPI_FORUM = 12,
    E_TARN_DPI_GAME = 13,
    E_TARN_DPI_INSTANT_MESSAGING = 14,
    E_TARN_DPI_MAIL = 15,
    E_TARN_DPI_MICROSOFT_OFFICE = 16,
    E_TARN_DPI_MIDDLEWARE = 17,
    E_TARN_DPI_NETWORK_MANAGEMENT = 18,
    E_TARN_DPI_NETWORK_SERVICE = 19,
    E_TARN_DPI_PEER_TO_PEER = 20,
    E_TARN_DPI_PRINTER = 21,
    E_TARN_DPI_ROUTING = 22,
    E_TARN_DPI_SECURITY_SERVICE = 23,
    E_TARN_DPI_STANDARD = 24,
    E_TARN_DPI_TELEPHONY = 25,
    E_TARN_DPI_TERMINAL = 26,
    E_TARN_DPI_THIN_CLIENT = 27,
    E_TARN_DPI_TUNNELING = 28,
    E_TARN_DPI_WAP = 29,
    E_TARN_DPI_WEB = 30,
    E_TARN_DPI_WEBMAIL = 31,
    E_TARN_DPI_MAX = 32,
};

// By the family's value: its name in configuration, and the name that the bundle reports.
extern const char *const tarn_dpi_qosmos_app_family_enum_str[E_TARN_DPI_MAX + 1];
extern const char *const tarn_dpi_qosmos_app_family_str[E_TARN_DPI_MAX + 1];

// The id of traffic that is not classified; "unclassified" in configuration, in no bundle.
inline constexpr uint32_t TARN_DPI_UNCLASSIFIED = 1;

// ---- Start and stop ----

// Would start a thread that runs tarn_dpi_threaded_init_fn and return 0. Returns 1 instead: nothing runs, and
// the caller has to start inline. The road by a thread stays open, to be taken by a change of this one alone.
int tarn_dpi_threaded_init(t_tarn *p_tarn, pthread_t *p_thread_tid);
void tarn_dpi_threaded_init_fn(t_tarn *p_tarn);

// Engine, family table, version text. Needs the shared tables. 0 or below; with a failure of the family table
// the engine stays up.
int tarn_dpi_init(t_tarn *p_tarn);
void tarn_dpi_destroy();

// Steps of the daemon's start: the early one asks for the thread, the one at the end of stage 1 waits for it
// or starts inline. A failure is logged and does not keep the daemon from starting: 0.
int tarn_dpi_begin_start(t_tarn *p_tarn);
int tarn_dpi_finish_start(t_tarn *p_tarn);

// Of tarn_dpi_init. 0 or -1; the first leaves nothing standing on failure.
int tarn_classification_engine_init();
void tarn_classification_engine_exit();
int tarn_dpi_init_proto_family_mapping();

// What the engine runs into, logged. Always 0.
int tarn_dpi_exception_handler(uint32_t exception_type, void *ctx, void *args);

// ---- Names and ids ----

// The application's id, 0 for a name that is in no bundle (logged).
uint32_t tarn_dpi_get_qosmos_id(const char *proto_str);

// The application's name for operators, "UNKNOWN" without one.
const char *tarn_dpi_confd_to_qosmos(uint32_t app_id);

// By the bundle's name of the family: E_TARN_DPI_MAX if there is none.
e_tarn_dpi_qosmos_app_family tarn_dpi_get_qosmos_app_family(const char *family);

// By the family's name in configuration: E_TARN_DPI_MIN if there is none.
e_tarn_dpi_qosmos_app_family tarn_dpi_get_qosmos_app_family_enum(const char *family);

// ---- Turning classification on and off ----

// The setting of application visibility, 0 or 1, has this value now; counts as one reason.
void tarn_dpi_config_change(t_tarn *p_tarn, int dpi_config_val);

// At the end of a commit: the knob takes the number of reasons, and with the last one gone the forwarding
// plane is told to drop what it knows of flows.
void tarn_dpi_update_knob(t_tarn *p_tarn);

// 0, also when the peer is down; 74 without a channel, 12 without memory.
int tarn_dpi_clear_fp_flows(t_tarn *p_tarn);

// ---- Commands of operators (the framework's callbacks; 0) ----
//
// They print to the session of the user who asked. path, argc and argv, and all but uinfo of the action, are
// not used.

int tarn_dpi_dump_protocol_list(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dpi_dump_protocol_family_mapping(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dpi_dump_protocol_hits(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dpi_dump_configuration(confd_user_info *uinfo, char *path, int argc, char **argv);

// Zeroes the hit counters. Word 0 is 0 for at least a millisecond, in which the forwarding plane counts
// nothing.
int tarn_dpi_clear_protocol_hits(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp,
                                 confd_tag_value_t *params, int nparams);

// The classification engine, as far as this system uses one: a catalogue of applications.
//
// The names and signatures are the public ones of the engine's interface. No packet passes through it here:
// an engine is made from a configuration string, a bundle (the catalogue) is loaded into it and activated,
// and then signatures are looked up by id or by name, or walked. A signature has an id, a short name (the one
// used in configuration), a long name for operators and a family; its attributes have names.
//
// The library owns all it hands out. Signatures, attributes and texts live as long as their bundle. It keeps
// a list of the engines, bundles and signatures that live, and takes any other pointer for a null one: a
// pointer that outlived its object, or never was one, is a bad argument and not a crash.
//
// Functions that return a number give 0 or more, or a negative e_qmdpi_error; those that return a pointer
// give null. Every failure also leaves its code for qmdpi_error_get, for each thread apart; success leaves
// that alone. Calls come from one thread at a time. Nothing here throws or ends the process.
#pragma once

#include <cstdint>

struct qmdpi_engine;
struct qmdpi_bundle;
struct qmdpi_signature;
struct qmdpi_attr;

enum e_qmdpi_error {
    QMDPI_SUCCESS = 0,
    QMDPI_EINVAL = -1,
    QMDPI_ENOSYS = -2,
    QMDPI_ENOMEM = -5,
    QMDPI_EBUSY = -6,
    QMDPI_EEXIST = -7,
    QMDPI_ENOENT = -8,  // also of a look-up that finds nothing
    QMDPI_EPERM = -15,
    QMDPI_ENODEFAULT = -17,
    QMDPI_EDEFAULTLOADED = -18,
    QMDPI_ELOAD = -19,
    QMDPI_ENOSYMBOL = -20,
    QMDPI_ECALL = -21,
    QMDPI_EUSED = -22,
    QMDPI_EINIT = -23,
    QMDPI_ENOSWAP = -24,
    QMDPI_EBADBUNDLE = -25,
    QMDPI_EOVERFLOW = -27,
    QMDPI_ENOTINIT = -28,
    QMDPI_EVERSION = -29,
    QMDPI_ENOFLOW = -30,
};

inline constexpr int QMDPI_MAX_ENGINES = 2048;

// What the engine runs into. exception_type is a number of qmdpi_exception_get_string, ctx is null here, args
// is what was registered. The result is not used.
using f_qmdpi_exception = int (*)(uint32_t exception_type, void *ctx, void *args);

using f_qmdpi_signature = int (*)(qmdpi_bundle *bundle, qmdpi_signature *signature, void *arg);
using f_qmdpi_attr = int (*)(qmdpi_bundle *bundle, const char *signature_name, const qmdpi_attr *attr,
                             void *arg);

extern "C" {

// ---- Set up and take down ----

// One callback for the process, null for none; may come before any engine. The library raises number 0 when
// it is out of memory, and no other. 0.
int qmdpi_exception_callback_set(f_qmdpi_exception callback, void *args);

// config is "key=value" pairs with semicolons between them; injection_mode, nb_workers and nb_flows are
// known, and their values, which a catalogue has no use for, are only checked. Null is the same as no pairs.
// QMDPI_EINVAL for a text that is none, QMDPI_EOVERFLOW beyond QMDPI_MAX_ENGINES.
qmdpi_engine *qmdpi_engine_create(const char *config);

// QMDPI_EBUSY, and nothing is done, while the engine has a bundle.
int qmdpi_engine_destroy(qmdpi_engine *engine);

// With a null path the catalogue that is linked in, else the file, in the format of bundle_text.h. For a file
// QMDPI_ENOENT or QMDPI_EPERM when it isn't there or must not be read, QMDPI_EOVERFLOW when it is too large,
// QMDPI_EVERSION for another format, QMDPI_ELOAD for any other fault; the place is logged.
qmdpi_bundle *qmdpi_bundle_create_from_file(qmdpi_engine *engine, const char *path);

// An active bundle stops being active first.
int qmdpi_bundle_destroy(qmdpi_bundle *bundle);

int qmdpi_bundle_signature_enable_all(qmdpi_bundle *bundle);

// Makes it the engine's active bundle, in the place of any other. QMDPI_EINVAL if it is that already.
int qmdpi_bundle_activate(qmdpi_bundle *bundle);

// Owned by the bundle.
const char *qmdpi_bundle_version_get_string(qmdpi_bundle *bundle);

// ---- Look up ----

qmdpi_signature *qmdpi_bundle_signature_get_byid(qmdpi_bundle *bundle, int id);
qmdpi_signature *qmdpi_bundle_signature_get_byname(qmdpi_bundle *bundle, const char *name);

int qmdpi_signature_id_get(qmdpi_signature *signature);  // 0 on failure: no id is 0
const char *qmdpi_signature_name_get(qmdpi_signature *signature);
const char *qmdpi_signature_longname_get(qmdpi_signature *signature);
const char *qmdpi_signature_family_get(qmdpi_signature *signature);
const char *qmdpi_attr_name_get(const qmdpi_attr *attr);

// ---- Walk ----
//
// All of them, in the order of the bundle's text; the callbacks' results don't end a walk. A callback may
// look up and walk, but not destroy the bundle.

int qmdpi_bundle_signature_foreach(qmdpi_bundle *bundle, f_qmdpi_signature callback, void *arg);

// The attributes of the signature with that name; QMDPI_ENOENT if there is none.
int qmdpi_bundle_attr_foreach(qmdpi_bundle *bundle, const char *signature_name, f_qmdpi_attr callback,
                              void *arg);

// ---- Errors ----

int qmdpi_error_get();

// "unknown" for a code that is none. A bundle may be given; bundles of this library have no codes of their
// own.
const char *qmdpi_error_get_string(qmdpi_bundle *bundle, int code);

const char *qmdpi_exception_get_string(int exception_type);

}  // extern "C"

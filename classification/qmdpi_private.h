// What the sources behind qmdpi.h share: the records of engines and bundles, and the list of those that live.
#pragma once

#include "classification/bundle_text.h"
#include "classification/qmdpi.h"

#include <map>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

struct qmdpi_bundle {
    t_bundle_content content;
    std::map<int, qmdpi_signature *> by_id;
    std::map<std::string_view, qmdpi_signature *> by_name;  // keys in content
};

struct qmdpi_engine {
    std::vector<std::unique_ptr<qmdpi_bundle>> bundles;
    qmdpi_bundle *p_active;  // one of bundles, or null
};

// All engines that live, and with them all bundles.
extern std::vector<std::unique_ptr<qmdpi_engine>> g_qmdpi_engines;

// Leaves the code for this thread and hands it back.
int qmdpi_fail(int code);

// The same for lack of memory, which is also raised as an exception.
int qmdpi_fail_memory();

// Whether the pointer is an engine, a signature that lives.
bool qmdpi_engine_lives(const qmdpi_engine *p_engine);
bool qmdpi_signature_lives(const qmdpi_signature *p_signature);

// The engine of a bundle that lives, null for any other pointer.
qmdpi_engine *qmdpi_bundle_engine(const qmdpi_bundle *p_bundle);

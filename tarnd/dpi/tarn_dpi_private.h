// What the sources of this folder share.
#pragma once

struct qmdpi_bundle;
struct qmdpi_engine;

// The one engine and the one bundle. After a failed start they may dangle; the engine's library then refuses
// them.
extern qmdpi_engine *p_engine;
extern qmdpi_bundle *p_bundle;

// An object store with nothing around it: a t_tarn whose trees stand, and an FTM that writes down what it is
// told.
//
// Link tarn_test_store: it puts itself between the code and the message queue for the store's own channel
// and leaves every other handle alone. Notifications to operators are kept, too (notification_record.h).
// Destruction takes the store down the way the daemon's stop does, and expects that every message buffer was
// sent or given back. What no destroy function reaches (TLOCs) must be gone by then. The control record of
// shared memory is the store's own, unless a test puts another in its place; all tables have size 0.
#pragma once

#include "fp_api/fp_global_ctrl.h"
#include "tarnd/config/tarn_policy.h"
#include "tarnd/core/tarn.h"

#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

// One message to FTM, taken apart by a second reading of the layout.
struct t_ftm_words {
    int type;  // e_tarn_msg_type
    int kind;  // filter type, or address family
    int side;  // direction, or 0
    int32_t filter_id;
    std::string name;
    std::vector<std::pair<uint32_t, uint32_t>> vpns;      // of a VPN filter
    std::vector<std::pair<uint32_t, std::string>> intfs;  // of an interface filter: VPN, "name/direction"

    bool operator==(const t_ftm_words &) const = default;
};
std::ostream &operator<<(std::ostream &out, const t_ftm_words &words);

class TarnStore {
public:
    TarnStore();
    ~TarnStore();
    TarnStore(const TarnStore &) = delete;
    TarnStore &operator=(const TarnStore &) = delete;

    // What FTM got since the last call.
    std::vector<std::vector<uint8_t>> take_bytes();
    std::vector<t_ftm_words> take();

    t_tarn tarn = {};
    bool ftm_up = true;       // false: writes give ERR_AGAIN
    bool ftm_memory = true;   // false: no buffer is to be had
    uint32_t flow_knob = 99;  // the word that flow_p points to
    std::unique_ptr<t_fp_global_ctrl> global_ctrl;

    // For the doubles of the queue.
    void *msg_malloc(size_t size);
    void msg_free(void *p_msg);
    bool write(void *p_msg, size_t size);

private:
    std::map<void *, size_t> buffers;  // not yet sent or given back
    std::vector<std::vector<uint8_t>> sent;
    uint32_t *real_flow_knob;
    t_fp_global_ctrl *real_global_ctrl;
};

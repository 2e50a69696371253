#include "tarnd/compiler/rule_keys.h"

#include "common/lum_assert.h"

#include <algorithm>
#include <cstddef>
#include <sys/random.h>

std::unique_ptr<t_rule_keys> rule_keys_create(uint32_t num_rules)
{
    auto p_keys = std::make_unique<t_rule_keys>();
    p_keys->keys.resize(num_rules);
    auto *p_bytes = reinterpret_cast<unsigned char *>(p_keys->keys.data());
    size_t left = num_rules * sizeof(t_fingerprint);
    while (left > 0) {
        // Reads of up to 256 bytes are never cut short by a signal.
        ssize_t got = getrandom(p_bytes, std::min<size_t>(left, 256), 0);
        LUM_ASSERT(got > 0, "getrandom");
        p_bytes += got;
        left -= static_cast<size_t>(got);
    }
    return p_keys;
}

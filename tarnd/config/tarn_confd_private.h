// How a callback of the subscription table takes a change apart.
//
// Each parser has the same shape: the t_tarn from the entry, the keys (their types asserted), a trace line,
// a branch on the operation, a walk over the values by tag, and the store's operation. What a change does not
// hold is C_NOEXISTS or missing; a leaf-list is one C_LIST with all of its values; C_XMLBEGIN and C_XMLEND
// stand around the leaves of a container. A value of the wrong type is an assertion: the data model and the
// parser have come apart.
//
//     t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
//     LUM_ASSERT(num_keys == 1, "num_keys == 1");
//     TARN_CONFD_TYPE(p_key, C_BUF);
//     t_tarn_confd_name name(p_key);
//     for (const confd_tag_value_t &value : tarn_confd_values(num_values, p_val))
//         if (value.tag.tag == LUMORA_TAG_QUEUE && value.v.type != C_NOEXISTS) {
//             TARN_CONFD_TYPE(&value.v, C_UINT8);
//             params.queue = value.v.val.u8;
//         }
//
// The store refuses nothing that the data model lets through, so TARN_CONFD_CHECK logs and asserts a status
// other than 0; where a parser gives the status back instead, its comment says so.
#pragma once

#include "common/ip_util.h"
#include "common/lum_assert.h"
#include "common/lum_log.h"
#include "generated/lumora_schema.h"
#include "lconfd/lconfd_api.h"
#include "platform/confd/confd_lib.h"
#include "tarnd/config/tarn_confd.h"
#include "tarnd/config/tarn_policy.h"

#include <cstddef>
#include <cstdint>
#include <span>

// A key or value must be of that type. p_value is a pointer to it, and stands in the message.
#define TARN_CONFD_TYPE(p_value, wanted)                                                                     \
    LUM_ASSERT((p_value)->type == (wanted), "(" #p_value ")->type == " #wanted)

// Logs a line (as printf would) and asserts, when a status of the store is not 0.
#define TARN_CONFD_CHECK(status, ...)                                                                        \
    do {                                                                                                     \
        if ((status) != 0) {                                                                                 \
            TARN_LOG(__VA_ARGS__);                                                                           \
            LUM_ASSERT(false, "0");                                                                          \
        }                                                                                                    \
    } while (0)

// The daemon's record, from the entry's context.
t_tarn *tarn_confd_tarn(const t_lconfd_sub_entry *p_lconfd_sub);

// A text that came as C_BUF, as the store takes it: terminated, cut to 127 characters. The type must have
// been looked at.
struct t_tarn_confd_name {
    explicit t_tarn_confd_name(const confd_value_t *p_value);
    operator const char *() const
    {
        return text;
    }

    char text[TARN_NAME_SIZE] = {};
};

std::span<const confd_tag_value_t> tarn_confd_values(int num_values, const confd_tag_value_t *p_val);

// The values of a leaf-list; anything but a C_LIST is an assertion.
std::span<const confd_value_t> tarn_confd_list(const confd_value_t *p_value);

// The containers that a walk is inside of.
class tarn_confd_scope {
public:
    // Takes a value's brackets in. True if it was one: it has no value then.
    bool step(const confd_tag_value_t &value);
    bool inside(uint32_t tag) const;

private:
    static constexpr size_t MAX_DEPTH = 8;
    uint32_t tags[MAX_DEPTH];
    size_t depth = 0;
};

// A C_IPV4 value in host order, as records hold addresses; TLOCs alone keep it in network order.
t_ipaddr tarn_confd_ipv4(const confd_value_t *p_value);
t_ipaddr tarn_confd_tloc_ipv4(const confd_value_t *p_value);

// The last act of the parsers that say so: the forwarding plane sees that policies have changed.
void tarn_confd_count_policy_change();

// Decodes arbitrary bytes as a message of the TLOC table manager. What is no message leaves the record zero;
// what decodes as a registration or a TLOC gives the same bytes when it is encoded, but for a TLOC's family,
// which the encoder takes from the address.
#include "platform/ttm/ttm.h"

#include <cstdlib>
#include <cstring>
#include <vector>

static void require(bool holds)
{
    if (!holds)
        abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    t_ttm_msg msg;
    if (ttm_msg_decode(&msg, p_data, size) != 0) {
        require(msg.msg_type == 0);
        return 0;
    }
    require(size >= TTM_WIRE_HEADER_SIZE && msg.msg_type < TTM_MSG_MAX && msg.af < TTM_AF_MAX);
    bool is_tloc = msg.msg_type == TTM_MSG_TLOC_ADD || msg.msg_type == TTM_MSG_TLOC_DELETE;
    if (!is_tloc && msg.msg_type != TTM_MSG_REGISTER)
        return 0;
    std::vector<uint8_t> again(TTM_WIRE_SIZE_MAX);
    uint16_t length = 0;
    require(ttm_msg_encode(&msg, again.data(), &length) == 0 && length == size);
    if (is_tloc)
        again[2] = p_data[2];
    require(memcmp(again.data(), p_data, size) == 0);
    return 0;
}

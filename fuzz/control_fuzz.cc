// Frames of the control socket from anywhere: headers, and the requests in their heads. What is taken keeps
// the limits; what is refused has a reason.

#include "mgmtd/control/control_request.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

static void require(bool holds)
{
    if (!holds)
        abort();
}

static void request_check(const t_control_frame &frame)
{
    t_control_request request;
    std::string reason;
    if (!control_request_read(frame, &request, &reason)) {
        require(!reason.empty());
        return;
    }
    require(request.id > 0 && request.number >= -1 && request.number <= CONTROL_MAX_NUMBER);
    require(request.words.size() <= CONTROL_MAX_WORDS && request.input.size() <= CONTROL_MAX_WORDS);
    require(request.body == frame.body);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    std::string_view rest(reinterpret_cast<const char *>(p_data), size);
    while (rest.size() >= CONTROL_HEADER_SIZE) {
        uint8_t bytes[CONTROL_HEADER_SIZE];
        t_control_header header;
        memcpy(bytes, rest.data(), sizeof(bytes));
        rest.remove_prefix(sizeof(bytes));
        if (!control_header_read(bytes, &header))
            return 0;
        t_control_frame frame;
        frame.head = rest.substr(0, header.head_size);
        rest.remove_prefix(frame.head.size());
        frame.body = rest.substr(0, header.body_size);
        rest.remove_prefix(frame.body.size());
        request_check(frame);
    }
    return 0;
}

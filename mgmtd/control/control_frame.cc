#include "mgmtd/control/control_frame.h"

static void size_append(std::string *p_bytes, size_t size)
{
    for (unsigned int shift = 32; shift > 0; shift -= 8)
        p_bytes->push_back(static_cast<char>(size >> (shift - 8) & 0xff));
}

static uint32_t size_at(const uint8_t *p_bytes)
{
    return uint32_t{p_bytes[0]} << 24 | uint32_t{p_bytes[1]} << 16 | uint32_t{p_bytes[2]} << 8 | p_bytes[3];
}

std::string control_frame_bytes(std::string_view head, std::string_view body)
{
    std::string bytes;
    bytes.reserve(CONTROL_HEADER_SIZE + head.size() + body.size());
    size_append(&bytes, head.size());
    size_append(&bytes, body.size());
    return bytes.append(head).append(body);
}

bool control_header_read(const uint8_t (&bytes)[CONTROL_HEADER_SIZE], t_control_header *p_header)
{
    t_control_header header = {.head_size = size_at(bytes), .body_size = size_at(bytes + 4)};
    if (header.head_size < 2 || header.head_size > CONTROL_MAX_HEAD || header.body_size > CONTROL_MAX_BODY)
        return false;
    *p_header = header;
    return true;
}

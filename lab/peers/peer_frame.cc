#include "lab/peers/peer_frame.h"

#include <cstring>

static constexpr uint16_t magic_word = 0xBEAF;
static constexpr uint8_t magic_byte = 0x0C;

static constexpr size_t at_size = 2;
static constexpr size_t at_source = 4;
static constexpr size_t at_target = 5;
static constexpr size_t at_type = 6;
static constexpr size_t at_magic_byte = 7;

static uint16_t word_get(t_peer_bytes bytes, size_t offset)
{
    uint16_t word;
    memcpy(&word, bytes.data() + offset, sizeof(word));
    return word;
}

static void word_put(uint8_t *p_bytes, uint16_t word)
{
    memcpy(p_bytes, &word, sizeof(word));
}

static e_peer_frame_state bad(std::string *p_reason, const std::string &reason)
{
    *p_reason = reason;
    return PEER_FRAME_BAD;
}

static e_peer_frame_state header_check(t_peer_bytes stream, std::string *p_reason)
{
    uint16_t size = word_get(stream, at_size);
    uint8_t type = stream[at_type];
    if (word_get(stream, 0) != magic_word || stream[at_magic_byte] != magic_byte)
        return bad(p_reason, "wrong marks in the frame's header");
    if (type != PEER_FRAME_REGISTER && type != PEER_FRAME_MESSAGE)
        return bad(p_reason, "frame of the unknown type " + std::to_string(type));
    if (type == PEER_FRAME_REGISTER && size != PEER_FRAME_HEADER)
        return bad(p_reason, "register frame of " + std::to_string(size) + " bytes");
    if (type == PEER_FRAME_MESSAGE && size <= PEER_FRAME_HEADER)
        return bad(p_reason, "message frame of " + std::to_string(size) + " bytes");
    return PEER_FRAME_WHOLE;
}

e_peer_frame_state peer_frame_peek(t_peer_bytes stream, t_peer_frame *p_frame, std::string *p_reason)
{
    if (stream.size() < PEER_FRAME_HEADER)
        return PEER_FRAME_PART;
    if (header_check(stream, p_reason) != PEER_FRAME_WHOLE)
        return PEER_FRAME_BAD;
    uint16_t size = word_get(stream, at_size);
    if (stream.size() < size)
        return PEER_FRAME_PART;
    *p_frame = {.type = static_cast<e_peer_frame_type>(stream[at_type]),
                .source = stream[at_source],
                .target = stream[at_target],
                .body = stream.subspan(PEER_FRAME_HEADER, size - PEER_FRAME_HEADER)};
    return PEER_FRAME_WHOLE;
}

bool peer_frame_decode(t_peer_bytes bytes, t_peer_frame *p_frame, std::string *p_reason)
{
    t_peer_frame frame = {};
    e_peer_frame_state state = peer_frame_peek(bytes, &frame, p_reason);
    if (state == PEER_FRAME_BAD)
        return false;
    if (state == PEER_FRAME_PART || bytes.size() != PEER_FRAME_HEADER + frame.body.size()) {
        *p_reason = state == PEER_FRAME_PART ? "the frame is cut" : "bytes behind the frame";
        return false;
    }
    *p_frame = frame;
    return true;
}

std::vector<uint8_t> peer_frame_encode(const t_peer_frame &frame)
{
    bool is_register = frame.type == PEER_FRAME_REGISTER;
    if (frame.body.size() > PEER_FRAME_MAX_BODY || frame.body.empty() != is_register)
        return {};
    std::vector<uint8_t> bytes(PEER_FRAME_HEADER + frame.body.size());
    word_put(bytes.data(), magic_word);
    word_put(bytes.data() + at_size, static_cast<uint16_t>(bytes.size()));
    bytes[at_source] = frame.source;
    bytes[at_target] = frame.target;
    bytes[at_type] = frame.type;
    bytes[at_magic_byte] = magic_byte;
    if (!is_register)
        memcpy(bytes.data() + PEER_FRAME_HEADER, frame.body.data(), frame.body.size());
    return bytes;
}

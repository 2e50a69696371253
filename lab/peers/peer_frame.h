// The frames in which the router's daemons talk to each other, as the lab's peers read and write them.
//
// A frame is an 8-byte header and a body of at most 65527 bytes. Offsets in the header: 0 the word 0xBEAF,
// 2 the size of the whole frame, 4 the sender's module, 5 the receiver's, 6 the type, 7 the byte 0x0C; the
// two words in host byte order, since both ends are on one machine. A client's first frame is a register
// frame without a body; all others are messages with one.
//
// This is written apart from the daemons' own library and is stricter than it: what this refuses, a daemon
// should not have sent. Pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

using t_peer_bytes = std::span<const uint8_t>;

inline constexpr size_t PEER_FRAME_HEADER = 8;
inline constexpr size_t PEER_FRAME_MAX_BODY = 65535 - PEER_FRAME_HEADER;

enum e_peer_frame_type : uint8_t {
    PEER_FRAME_REGISTER = 1,
    PEER_FRAME_MESSAGE = 2,
};

struct t_peer_frame {
    e_peer_frame_type type;
    uint8_t source;     // e_lum_module
    uint8_t target;     // e_lum_module
    t_peer_bytes body;  // in the bytes that were decoded; empty for a register frame
};

enum e_peer_frame_state {
    PEER_FRAME_WHOLE,
    PEER_FRAME_PART,  // more bytes are needed
    PEER_FRAME_BAD,   // no more bytes will mend it
};

// Looks at the head of a stream. PEER_FRAME_WHOLE fills the frame, which takes the stream's first
// PEER_FRAME_HEADER + body.size() bytes; PEER_FRAME_BAD tells the reason. Wrong bytes are told as soon as
// they are there.
e_peer_frame_state peer_frame_peek(t_peer_bytes stream, t_peer_frame *p_frame, std::string *p_reason);

// Decodes bytes that must be one frame and nothing else. False with the reason.
[[nodiscard]] bool peer_frame_decode(t_peer_bytes bytes, t_peer_frame *p_frame, std::string *p_reason);

// The frame's bytes; none when the body is longer than PEER_FRAME_MAX_BODY, or doesn't go with the type.
std::vector<uint8_t> peer_frame_encode(const t_peer_frame &frame);

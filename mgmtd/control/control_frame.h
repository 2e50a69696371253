// Frames on mgmtd's control socket, as the server and the command line both use them.
//
// A frame is a header of eight bytes, a head and a body. The head is one JSON object and says what the frame
// is about; the body is data that goes along as it is: edits, a configuration, the rows of an answer, what an
// action prints. So nobody parses a large configuration twice, and output needs no quoting.
//
// Requests:  {"id": 1, "op": "show", "path": "/policy"}, see control_request.h
// Output:    {"id": 1, "more": true}, with a piece of output as body; any number before the answer
// Progress:  {"id": 1, "more": true, "progress": "waiting for tarnd"}, without a body
// Answers:   {"id": 1, "ok": true, "warnings": ["..."]}, with a JSON object as body where there is a result;
//            {"id": 1, "ok": false, "error": {"code": 5, "path": "/policy/zone{a}", "reason": "..."}}
//
// "warnings" and the error's "path" may be missing. An answer with the id 0 is about the connection as a
// whole, which ends then.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

inline constexpr char CONTROL_SOCKET[] = "/var/run/mgmtd.sock";

inline constexpr size_t CONTROL_MAX_HEAD = 1024 * 1024;       // bytes
inline constexpr size_t CONTROL_MAX_BODY = 64 * 1024 * 1024;  // bytes

// The bytes before the head; both sizes are big-endian. Documents the offsets, is never read through.
struct t_control_header {
    uint32_t head_size;  // bytes, at least 2
    uint32_t body_size;  // bytes
};
static_assert(sizeof(t_control_header) == 8);
static_assert(offsetof(t_control_header, body_size) == 4);
static_assert(std::is_standard_layout_v<t_control_header>);

inline constexpr size_t CONTROL_HEADER_SIZE = sizeof(t_control_header);

struct t_control_frame {
    std::string head;
    std::string body;
};

// The frame in one piece. Head and body must keep the limits.
std::string control_frame_bytes(std::string_view head, std::string_view body);

// Reads a header. False for sizes outside the limits: the connection is of no use any more.
[[nodiscard]] bool control_header_read(const uint8_t (&bytes)[CONTROL_HEADER_SIZE],
                                       t_control_header *p_header);

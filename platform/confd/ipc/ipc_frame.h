// Frames on a connection; their bytes are told in ipc_protocol.h.
//
// Two ways to read: ipc_frame_read waits on a descriptor, for the client; IpcAssembler takes whatever bytes
// have come, for an event loop. No function raises SIGPIPE.
#pragma once

#include "platform/confd/ipc/ipc_protocol.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// The bytes of a frame before its body. Documents the offsets; the bytes are big-endian and are never read
// through this record.
struct t_ipc_frame_header {
    uint32_t length;
    uint16_t op;
    uint8_t kind;
    uint8_t reserved;
    uint32_t id;
    int32_t status;
};
static_assert(sizeof(t_ipc_frame_header) == 16);
static_assert(offsetof(t_ipc_frame_header, op) == 4);
static_assert(offsetof(t_ipc_frame_header, kind) == 6);
static_assert(offsetof(t_ipc_frame_header, id) == 8);
static_assert(offsetof(t_ipc_frame_header, status) == 12);

inline constexpr size_t IPC_HEADER_SIZE = sizeof(t_ipc_frame_header);
inline constexpr size_t IPC_MAX_BODY = IPC_MAX_FRAME - (IPC_HEADER_SIZE - 4);

struct t_ipc_frame {
    uint16_t op;
    uint8_t kind;
    uint32_t id;
    int32_t status;
    std::vector<uint8_t> body;
};

// Header and body in one piece. The body must not be longer than IPC_MAX_BODY.
std::vector<uint8_t> ipc_frame_bytes(const t_ipc_frame &frame);

enum e_ipc_frame {
    IPC_FRAME_OK = 0,
    IPC_FRAME_MORE = 1,   // not all of it is there yet
    IPC_FRAME_GONE = 2,   // end of file, or the connection is broken
    IPC_FRAME_BAD = 3,    // what came is no frame
    IPC_FRAME_ERROR = 4,  // the descriptor failed otherwise; errno
};

// Waits until one frame has come, or has been sent, whole; also on non-blocking descriptors. max_frame is the
// limit of the length field.
[[nodiscard]] e_ipc_frame ipc_frame_read(int fd, uint32_t max_frame, t_ipc_frame *p_frame);
[[nodiscard]] e_ipc_frame ipc_frame_write(int fd, std::span<const uint8_t> bytes);

// Puts frames together from pieces. After IPC_FRAME_BAD the connection is to be dropped.
class IpcAssembler {
public:
    void set_max_frame(uint32_t max_frame)
    {
        _max_frame = max_frame;
    }
    void feed(std::span<const uint8_t> bytes);
    [[nodiscard]] e_ipc_frame next(t_ipc_frame *p_frame);  // OK, MORE or BAD

private:
    uint32_t _max_frame = IPC_MAX_HANDSHAKE_FRAME;
    std::vector<uint8_t> _bytes;
    size_t _used = 0;  // bytes at the front that have been given out
};

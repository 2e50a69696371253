#include "platform/confd/ipc/ipc_frame.h"

#include "platform/confd/ipc/ipc_bytes.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

std::vector<uint8_t> ipc_frame_bytes(const t_ipc_frame &frame)
{
    IpcWriter header;
    header.u32(static_cast<uint32_t>(IPC_HEADER_SIZE - sizeof(uint32_t) + frame.body.size()));
    header.integer(frame.op, 2);
    header.u8(frame.kind);
    header.u8(0);
    header.u32(frame.id);
    header.u32(static_cast<uint32_t>(frame.status));
    std::vector<uint8_t> bytes = header.take();
    bytes.insert(bytes.end(), frame.body.begin(), frame.body.end());
    return bytes;
}

// Fills everything but the body; the body's size by *p_body_size.
static bool parse_header(std::span<const uint8_t> bytes, uint32_t max_frame, t_ipc_frame *p_frame,
                         size_t *p_body_size)
{
    IpcReader reader(bytes.first(IPC_HEADER_SIZE));
    uint32_t length = reader.u32();
    p_frame->op = static_cast<uint16_t>(reader.integer(2));
    p_frame->kind = reader.u8();
    uint8_t reserved = reader.u8();
    p_frame->id = reader.u32();
    p_frame->status = static_cast<int32_t>(reader.u32());
    *p_body_size = length - (IPC_HEADER_SIZE - sizeof(uint32_t));
    bool is_oneway = p_frame->kind == IPC_KIND_ONEWAY;
    return length >= IPC_HEADER_SIZE - sizeof(uint32_t) && length <= max_frame && reserved == 0 &&
           p_frame->kind >= IPC_KIND_REQUEST && p_frame->kind <= IPC_KIND_ONEWAY &&
           is_oneway == (p_frame->id == 0) && (p_frame->kind == IPC_KIND_REPLY || p_frame->status == 0);
}

// After a failed call on the descriptor: waits and gives OK when it is to be tried again.
static e_ipc_frame wait_or_fail(int fd, short events)
{
    if (errno == EINTR)
        return IPC_FRAME_OK;
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
        pollfd waiting = {fd, events, 0};
        poll(&waiting, 1, -1);
        return IPC_FRAME_OK;
    }
    return errno == ECONNRESET || errno == EPIPE || errno == ESHUTDOWN ? IPC_FRAME_GONE : IPC_FRAME_ERROR;
}

static e_ipc_frame read_whole(int fd, std::span<uint8_t> bytes)
{
    while (!bytes.empty()) {
        ssize_t count = recv(fd, bytes.data(), bytes.size(), 0);
        if (count == 0)
            return IPC_FRAME_GONE;
        if (count > 0) {
            bytes = bytes.subspan(static_cast<size_t>(count));
            continue;
        }
        e_ipc_frame result = wait_or_fail(fd, POLLIN);
        if (result != IPC_FRAME_OK)
            return result;
    }
    return IPC_FRAME_OK;
}

e_ipc_frame ipc_frame_read(int fd, uint32_t max_frame, t_ipc_frame *p_frame)
{
    uint8_t header[IPC_HEADER_SIZE];
    e_ipc_frame result = read_whole(fd, header);
    if (result != IPC_FRAME_OK)
        return result;
    size_t body_size = 0;
    if (!parse_header(header, max_frame, p_frame, &body_size))
        return IPC_FRAME_BAD;
    p_frame->body.resize(body_size);
    return read_whole(fd, p_frame->body);
}

e_ipc_frame ipc_frame_write(int fd, std::span<const uint8_t> bytes)
{
    while (!bytes.empty()) {
        ssize_t count = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            bytes = bytes.subspan(static_cast<size_t>(count));
            continue;
        }
        e_ipc_frame result = wait_or_fail(fd, POLLOUT);
        if (result != IPC_FRAME_OK)
            return result;
    }
    return IPC_FRAME_OK;
}

void IpcAssembler::feed(std::span<const uint8_t> bytes)
{
    _bytes.erase(_bytes.begin(), _bytes.begin() + static_cast<ptrdiff_t>(_used));
    _used = 0;
    _bytes.insert(_bytes.end(), bytes.begin(), bytes.end());
}

e_ipc_frame IpcAssembler::next(t_ipc_frame *p_frame)
{
    std::span<const uint8_t> rest = std::span<const uint8_t>(_bytes).subspan(_used);
    if (rest.size() < IPC_HEADER_SIZE)
        return IPC_FRAME_MORE;
    size_t body_size = 0;
    if (!parse_header(rest, _max_frame, p_frame, &body_size))
        return IPC_FRAME_BAD;
    if (rest.size() - IPC_HEADER_SIZE < body_size)
        return IPC_FRAME_MORE;
    std::span<const uint8_t> body = rest.subspan(IPC_HEADER_SIZE, body_size);
    p_frame->body.assign(body.begin(), body.end());
    _used += IPC_HEADER_SIZE + body_size;
    return IPC_FRAME_OK;
}

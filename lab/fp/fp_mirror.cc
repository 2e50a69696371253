#include "lab/fp/fp_mirror.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

// Head of a capture file. The magic number tells the byte order and that times are in nanoseconds.
struct t_file_head {
    uint32_t magic;
    uint16_t version_major;
    uint16_t version_minor;
    uint32_t zone;
    uint32_t accuracy;
    uint32_t longest;    // bytes of a frame
    uint32_t link_type;  // 1 is Ethernet
};
static_assert(sizeof(t_file_head) == 24);
static_assert(offsetof(t_file_head, link_type) == 20);

struct t_frame_head {
    uint32_t seconds;
    uint32_t nanoseconds;
    uint32_t captured;     // bytes that follow
    uint32_t wire_length;  // bytes
};
static_assert(sizeof(t_frame_head) == 16);

static constexpr t_file_head file_head = {0xa1b23c4d, 2, 4, 0, 0, 262144, 1};

struct t_fp_mirror {
    int fd;
    std::string path;
};

void t_fp_mirror_deleter::operator()(t_fp_mirror *p_mirror) const
{
    close(p_mirror->fd);
    delete p_mirror;
}

static bool refuse(const t_fp_mirror *p_mirror, const char *reason, std::string *p_error)
{
    *p_error = p_mirror->path + ": " + reason;
    return false;
}

// Writes the head of a new file, or reads that of an old one.
static bool head_settle(const t_fp_mirror *p_mirror, std::string *p_error)
{
    struct stat status;
    if (fstat(p_mirror->fd, &status) != 0)
        return refuse(p_mirror, strerror(errno), p_error);
    if (!S_ISREG(status.st_mode))
        return refuse(p_mirror, "not a regular file", p_error);
    if (status.st_size == 0) {
        bool is_written = write(p_mirror->fd, &file_head, sizeof(file_head)) == sizeof(file_head);
        return is_written || refuse(p_mirror, strerror(errno), p_error);
    }
    t_file_head head = {};
    bool is_same = pread(p_mirror->fd, &head, sizeof(head), 0) == sizeof(head) &&
                   memcmp(&head, &file_head, sizeof(head)) == 0;
    return is_same || refuse(p_mirror, "holds something else than copies", p_error);
}

fp_mirror_ptr fp_mirror_open(const std::string &path, std::string *p_error)
{
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0644);
    if (fd < 0) {
        *p_error = path + ": " + strerror(errno);
        return nullptr;
    }
    fp_mirror_ptr mirror(new t_fp_mirror{fd, path});
    return head_settle(mirror.get(), p_error) ? std::move(mirror) : nullptr;
}

static iovec piece_of(const void *p_bytes, size_t size)
{
    return {const_cast<void *>(p_bytes), size};
}

bool fp_mirror_write(t_fp_mirror *p_mirror, const t_fp_frame &frame, uint32_t copies, std::string *p_error)
{
    static constexpr uint64_t second_ns = 1000000000;
    t_frame_head head = {static_cast<uint32_t>(frame.time_ns / second_ns),
                         static_cast<uint32_t>(frame.time_ns % second_ns),
                         static_cast<uint32_t>(frame.bytes.size()), frame.wire_length};
    iovec pieces[] = {piece_of(&head, sizeof(head)), piece_of(frame.bytes.data(), frame.bytes.size())};
    for (uint32_t i = 0; i < copies; i++) {
        ssize_t written = writev(p_mirror->fd, pieces, 2);
        if (written != static_cast<ssize_t>(sizeof(head) + frame.bytes.size()))
            return refuse(p_mirror, written < 0 ? strerror(errno) : "no room for a copy", p_error);
    }
    return true;
}

#include "lab/chmgrd/shared_region.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

static constexpr size_t address_offset = 8;

static bool fill_address(const std::string &text, t_shared_region_bytes *p_bytes)
{
    uint32_t family = AF_INET;
    in_addr four = {};
    uint8_t *p_address = p_bytes->data() + address_offset;
    if (inet_pton(AF_INET, text.c_str(), &four) == 1) {
        uint32_t number = ntohl(four.s_addr);
        memcpy(p_address, &number, sizeof(number));
    } else if (inet_pton(AF_INET6, text.c_str(), p_address) == 1) {
        family = AF_INET6;
    } else {
        return false;
    }
    memcpy(p_bytes->data(), &family, sizeof(family));
    return true;
}

bool shared_region_fill(const std::string &address, const std::string &host_name,
                        t_shared_region_bytes *p_bytes, std::string *p_error)
{
    p_bytes->fill(0);
    if (!address.empty() && !fill_address(address, p_bytes)) {
        *p_error = address + ": no address";
        return false;
    }
    if (host_name.size() >= SHARED_REGION_HOST_NAME_SIZE) {
        *p_error = "the host name is longer than 252 characters";
        return false;
    }
    memcpy(p_bytes->data() + SHARED_REGION_HOST_NAME_OFFSET, host_name.data(), host_name.size());
    return true;
}

// The whole block at once: a reader that maps it in between finds a block that is too short, and waits.
static bool write_block(int fd, const t_shared_region_bytes &bytes)
{
    return pwrite(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
}

bool shared_region_publish(const t_shared_region_bytes &bytes, std::string *p_error)
{
    int fd = shm_open(SHARED_REGION_NAME, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    bool is_written = fd >= 0 && write_block(fd, bytes);
    if (!is_written)
        *p_error = std::string(SHARED_REGION_NAME) + ": " + strerror(errno);
    if (fd >= 0)
        close(fd);
    return is_written;
}

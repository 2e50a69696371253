#include "mgmtd/ipc/ipc_access.h"

#include "platform/confd/ipc/ipc_auth.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/random.h>
#include <unistd.h>

static bool fail(const std::string &path, int error, std::string *p_error)
{
    *p_error = path + ": " + (error != 0 ? strerror(error) : "holds no secret");
    return false;
}

static bool write_all(int fd, const std::string &text)
{
    return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(fd) == 0;
}

// Written aside and linked to its name, so that nobody ever reads a part of it and two that start at once
// agree.
static bool make(const std::string &path, std::string *p_error)
{
    static constexpr char digits[] = "0123456789abcdef";
    uint8_t random[32];
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    if (getrandom(random, sizeof(random), 0) != static_cast<ssize_t>(sizeof(random)))
        return fail(path, errno, p_error);
    std::string text;
    for (uint8_t byte : random)
        text += {digits[byte >> 4], digits[byte & 15]};
    std::string aside = path + "." + std::to_string(getpid());
    int fd = open(aside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        return fail(path, errno, p_error);
    bool ok = write_all(fd, text + "\n") && (link(aside.c_str(), path.c_str()) == 0 || errno == EEXIST);
    int error = errno;
    close(fd);
    unlink(aside.c_str());
    return ok || fail(path, error, p_error);
}

bool ipc_access_open(const std::string &path, std::string *p_secret, std::string *p_error)
{
    if (ipc_auth_read_secret(path.c_str(), p_secret))
        return true;
    if (errno != ENOENT)
        return fail(path, errno, p_error);
    return make(path, p_error) &&
           (ipc_auth_read_secret(path.c_str(), p_secret) || fail(path, errno, p_error));
}

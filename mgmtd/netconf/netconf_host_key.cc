#include "mgmtd/netconf/netconf_host_key.h"

#include "common/lum_log.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static constexpr off_t max_key_file = 64 * 1024;  // bytes

void t_ssh_key_deleter::operator()(ssh_key p_key) const
{
    ssh_key_free(p_key);
}

static ssh_key_ptr refuse(const std::string &path, const char *reason, std::string *p_error)
{
    *p_error = "SSH host key " + path + ": " + reason;
    return nullptr;
}

static bool all_write(int fd, const char *text)
{
    size_t size = strlen(text);
    for (size_t at = 0; at < size;) {
        ssize_t written = write(fd, text + at, size - at);
        if (written <= 0)
            return false;
        at += static_cast<size_t>(written);
    }
    return fsync(fd) == 0;
}

// The key appears under its name as a whole or not at all.
static bool file_make(const std::string &path, const char *text)
{
    std::string aside = path + ".new";
    unlink(aside.c_str());
    int fd = open(aside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0)
        return false;
    bool is_written = all_write(fd, text);
    int reason = errno;
    close(fd);
    if (is_written && rename(aside.c_str(), path.c_str()) == 0)
        return true;
    reason = is_written ? errno : reason;
    unlink(aside.c_str());
    errno = reason;
    return false;
}

static ssh_key_ptr key_make(const std::string &path, std::string *p_error)
{
    ssh_key p_key = nullptr;
    char *p_text = nullptr;
    if (ssh_pki_generate(SSH_KEYTYPE_ED25519, 0, &p_key) != SSH_OK)
        return refuse(path, "no key could be made", p_error);
    ssh_key_ptr key(p_key);
    if (ssh_pki_export_privkey_base64(p_key, nullptr, nullptr, nullptr, &p_text) != SSH_OK)
        return refuse(path, "the new key can't be written down", p_error);
    bool is_made = file_make(path, p_text);
    int reason = errno;
    ssh_string_free_char(p_text);
    if (!is_made)
        return refuse(path, strerror(reason), p_error);
    LUM_LOG(LUM_LOG_NOTICE, "SSH host key made: %s", path.c_str());
    return key;
}

static bool file_read(int fd, std::string *p_text)
{
    char room[4096];
    for (ssize_t size; (size = read(fd, room, sizeof(room))) != 0;) {
        if (size < 0 || p_text->size() > max_key_file)
            return false;
        p_text->append(room, static_cast<size_t>(size));
    }
    return true;
}

static ssh_key_ptr key_read(int fd, const std::string &path, std::string *p_error)
{
    struct stat status;
    if (fstat(fd, &status) != 0)
        return refuse(path, strerror(errno), p_error);
    if (!S_ISREG(status.st_mode) || status.st_size > max_key_file)
        return refuse(path, "this is no file of a key", p_error);
    if ((status.st_mode & 077) != 0)
        return refuse(path, "others than its owner may read or write it", p_error);
    std::string text;
    if (!file_read(fd, &text))
        return refuse(path, strerror(errno), p_error);
    ssh_key p_key = nullptr;
    if (ssh_pki_import_privkey_base64(text.c_str(), nullptr, nullptr, nullptr, &p_key) != SSH_OK)
        return refuse(path, "it holds no private key without a passphrase", p_error);
    return ssh_key_ptr(p_key);
}

ssh_key_ptr netconf_host_key_open(const std::string &path, std::string *p_error)
{
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0 && errno == ENOENT)
        return key_make(path, p_error);
    if (fd < 0)
        return refuse(path, strerror(errno), p_error);
    ssh_key_ptr key = key_read(fd, path, p_error);
    close(fd);
    return key;
}

#include "tests/mgmtd/netconf/netconf_client.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

NetconfClient::~NetconfClient()
{
    if (p_channel != nullptr)
        ssh_channel_free(p_channel);
    if (p_session != nullptr) {
        ssh_disconnect(p_session);
        ssh_free(p_session);
    }
    if (fd >= 0)
        close(fd);
}

std::string NetconfClient::login(int port, const std::string &user, const std::string &password,
                                 ssh_key p_key)
{
    static const bool reads_files = false;
    long timeout_s = 30;
    p_session = ssh_new();
    ssh_options_set(p_session, SSH_OPTIONS_PROCESS_CONFIG, &reads_files);
    ssh_options_set(p_session, SSH_OPTIONS_HOST, "127.0.0.1");
    ssh_options_set(p_session, SSH_OPTIONS_PORT, &port);
    ssh_options_set(p_session, SSH_OPTIONS_USER, user.c_str());
    ssh_options_set(p_session, SSH_OPTIONS_TIMEOUT, &timeout_s);
    if (ssh_connect(p_session) != SSH_OK)
        return std::string("connect: ") + ssh_get_error(p_session);
    int result = p_key != nullptr ? ssh_userauth_publickey(p_session, nullptr, p_key)
                                  : ssh_userauth_password(p_session, nullptr, password.c_str());
    if (result != SSH_AUTH_SUCCESS)
        return "denied";
    p_channel = ssh_channel_new(p_session);
    if (ssh_channel_open_session(p_channel) != SSH_OK ||
        ssh_channel_request_subsystem(p_channel, "netconf") != SSH_OK)
        return "refused";
    return hello(true);
}

std::string NetconfClient::connect_local(const std::string &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const void *p_address = &address;
    fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, static_cast<const sockaddr *>(p_address), sizeof(address)) != 0)
        return "connect";
    return hello(false);
}

std::string NetconfClient::hello(bool has_chunks)
{
    std::string version = has_chunks ? "1" : "0";
    send_bytes("<hello xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\"><capabilities><capability>"
               "urn:ietf:params:netconf:base:1." +
               version + "</capability></capabilities></hello>]]>]]>");
    if (read_message().find("candidate:1.0") == std::string::npos)
        return "hello";
    is_chunked = has_chunks;
    return "";
}

void NetconfClient::send_bytes(const std::string &bytes)
{
    for (size_t at = 0; at < bytes.size();) {
        size_t size = std::min<size_t>(bytes.size() - at, 64 * 1024);
        long sent = p_channel != nullptr
                        ? ssh_channel_write(p_channel, bytes.data() + at, static_cast<uint32_t>(size))
                        : ::send(fd, bytes.data() + at, size, MSG_NOSIGNAL);
        if (sent <= 0)
            return;
        at += static_cast<size_t>(sent);
    }
}

void NetconfClient::send_raw(const std::string &text)
{
    if (is_chunked)
        send_bytes("\n#" + std::to_string(text.size()) + "\n" + text + "\n##\n");
    else
        send_bytes(text + "]]>]]>");
}

void NetconfClient::send(const std::string &operation)
{
    send_raw("<rpc message-id=\"7\" xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\">" + operation +
             "</rpc>");
}

long NetconfClient::receive(char *p_room, unsigned int size) const
{
    return p_channel != nullptr ? ssh_channel_read(p_channel, p_room, size, 0) : recv(fd, p_room, size, 0);
}

std::string NetconfClient::read_message()
{
    std::string end = is_chunked ? "\n##\n" : "]]>]]>";
    size_t at = 0;
    while ((at = got.find(end)) == std::string::npos) {
        char room[16 * 1024];
        long size = receive(room, sizeof(room));
        if (size <= 0)
            return "";
        got.append(room, static_cast<size_t>(size));
    }
    std::string message = got.substr(0, at);
    got.erase(0, at + end.size());
    return message;
}

std::string NetconfClient::ask(const std::string &operation)
{
    send(operation);
    return read_message();
}

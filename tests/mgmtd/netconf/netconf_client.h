// NETCONF clients for tests, blocking, for a thread beside the one that turns the world: over SSH, and over
// the local socket.
#pragma once

#include <libssh/libssh.h>
#include <string>

struct NetconfClient {
    ~NetconfClient();

    // Empty when it worked, else what failed. The key may be null.
    std::string login(int port, const std::string &user, const std::string &password, ssh_key p_key);
    std::string connect_local(const std::string &path);

    void send(const std::string &operation);    // in an rpc with the message-id 7
    void send_raw(const std::string &text);     // in one chunk
    void send_bytes(const std::string &bytes);  // without framing
    std::string read_message();                 // empty at the end of the session
    std::string ask(const std::string &operation);

    std::string hello(bool has_chunks);
    long receive(char *p_room, unsigned int size) const;

    ssh_session p_session = nullptr;
    ssh_channel p_channel = nullptr;
    int fd = -1;
    bool is_chunked = false;
    std::string got;
};

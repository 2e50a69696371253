#include "platform/confd/ipc/ipc_auth.h"

#include "platform/confd/ipc/ipc_protocol.h"

#include <algorithm>
#include <cerrno>
#include <crypt.h>
#include <fstream>
#include <memory>
#include <sys/random.h>

static constexpr size_t max_secret_size = 256;
static constexpr char alphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789./";
static_assert(sizeof(alphabet) == 64 + 1);

bool ipc_auth_read_secret(const char *p_path, std::string *p_secret)
{
    errno = 0;
    std::ifstream file(p_path, std::ios::binary);
    std::string line(max_secret_size + 1, '\0');
    if (!file)
        return false;
    file.read(line.data(), static_cast<std::streamsize>(line.size()));
    line.resize(static_cast<size_t>(file.gcount()));
    line.resize(std::min(line.find_first_of(std::string("\r\n\0", 3)), line.size()));
    if (line.empty() || line.size() > max_secret_size)
        return false;
    *p_secret = line;
    return true;
}

std::string ipc_auth_challenge()
{
    uint8_t random[IPC_CHALLENGE_SIZE];
    if (getrandom(random, sizeof(random), 0) != static_cast<ssize_t>(sizeof(random)))
        return {};
    std::string challenge;
    for (uint8_t byte : random)
        challenge += alphabet[byte % 64];
    return challenge;
}

std::string ipc_auth_proof(const std::string &secret, const std::string &challenge)
{
    if (challenge.size() != IPC_CHALLENGE_SIZE || challenge.find_first_not_of(alphabet) != std::string::npos)
        return {};
    std::unique_ptr<crypt_data> data = std::make_unique<crypt_data>();
    std::string setting = "$5$rounds=1000$" + challenge + "$";
    const char *p_proof = crypt_r(secret.c_str(), setting.c_str(), data.get());
    return p_proof != nullptr && p_proof[0] == '$' ? p_proof : std::string();
}

bool ipc_auth_is_proven(const std::string &secret, const std::string &challenge, const std::string &proof)
{
    std::string wanted = ipc_auth_proof(secret, challenge);
    if (wanted.empty() || wanted.size() != proof.size())
        return false;
    int difference = 0;
    for (size_t i = 0; i < wanted.size(); i++)
        difference |= wanted[i] ^ proof[i];
    return difference == 0;
}

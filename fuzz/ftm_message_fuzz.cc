// Applies arbitrary messages, each behind its size in two bytes, to one table. What is refused has a reason
// and leaves the message untouched; what is taken fills its bytes exactly, and the table stays readable.
#include "lab/ftmd/ftm_service.h"

#include <cstdlib>

static void require(bool holds)
{
    if (!holds)
        abort();
}

static void message_check(std::span<const uint8_t> bytes)
{
    t_ftm_message message = {};
    std::string error;
    if (!ftm_decode(bytes, &message, &error)) {
        require(!error.empty() && message.type == FTM_MESSAGE_NONE);
        return;
    }
    bool is_filter = message.type <= FTM_MESSAGE_INTERFACE_DELETE;
    size_t entries = message.vpns.size() * 8 + message.interfaces.size() * 38;
    require(bytes.size() == (is_filter ? 139 + entries : 1));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    std::span<const uint8_t> rest(p_data, size);
    t_ftm_service service;
    std::string error;
    ftm_service_up(&service);
    while (rest.size() >= 2) {
        size_t wanted = static_cast<size_t>(rest[0]) << 8 | rest[1];
        std::span<const uint8_t> bytes = rest.subspan(2, std::min(wanted, rest.size() - 2));
        rest = rest.subspan(2 + bytes.size());
        message_check(bytes);
        ftm_service_message(&service, bytes, &error);
    }
    nlohmann::json json =
        nlohmann::json::parse(ftm_service_answer(&service, {"bindings"})
                                  .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    t_fp_bindings read;
    require(fp_bindings_read(json, &read, &error));
    require(read.vpns.size() == service.table.vpns.size());
    require(read.interfaces.size() == service.table.interfaces.size());
    return 0;
}

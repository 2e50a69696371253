// Frames and bodies between the management daemon and its clients. The input is a stream of frames. Whatever
// decodes as one of the records encodes to the same bytes again; a path that parses parses again from its own
// parts.
#include "platform/confd/ipc/ipc_frame.h"
#include "platform/confd/ipc/ipc_messages.h"
#include "platform/confd/ipc/ipc_path.h"

#include <cstdlib>
#include <type_traits>

static void require(bool holds)
{
    if (!holds)
        abort();
}

static std::string text_of(const t_ipc_parsed_path &path)
{
    std::string text = path.is_absolute ? "/" : "";
    for (size_t i = 0; i < path.steps.size(); i++) {
        const t_ipc_path_step &step = path.steps[i];
        text += i > 0 ? "/" : "";
        text += step.prefix.empty() ? step.name : step.prefix + ":" + step.name;
        for (size_t j = 0; j < step.keys.size(); j++)
            text += (j > 0 ? " " : "{") + ipc_path_quote_key(step.keys[j]);
        text += step.keys.empty() ? "" : "}";
        text += step.index.has_value() ? "[" + std::to_string(*step.index) + "]" : "";
    }
    return text;
}

static void check_path(const std::string &text)
{
    t_ipc_parsed_path path;
    if (!ipc_path_parse(text, &path))
        return;
    t_ipc_parsed_path again;
    require(ipc_path_parse(text_of(path), &again));
    require(text_of(again) == text_of(path));
}

template <typename Record>
static void check_record(const t_ipc_frame &frame)
{
    Record record;
    if (!ipc_decode(frame.body, &record))
        return;
    require(ipc_encode(record) == frame.body);
    if constexpr (std::is_same_v<Record, t_ipc_path>)
        check_path(record.path);
}

template <typename... Records>
static void check_records(const t_ipc_frame &frame)
{
    (check_record<Records>(frame), ...);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    IpcAssembler assembler;
    assembler.set_max_frame(IPC_MAX_FRAME);
    assembler.feed({p_data, size});
    t_ipc_frame frame;
    while (assembler.next(&frame) == IPC_FRAME_OK) {
        // Handshake, data, subscriptions.
        check_records<t_ipc_hello, t_ipc_proof, t_ipc_start_session, t_ipc_path, t_ipc_set_elem,
                      t_ipc_trigger, t_ipc_subscribe, t_ipc_diff_request, t_ipc_modifications, t_ipc_sync,
                      t_ipc_abort>(frame);
        // Registering, and the answers of daemons.
        check_records<t_ipc_reg_calls, t_ipc_reg_point, t_ipc_reg_notif, t_ipc_error, t_ipc_worker,
                      t_ipc_dp_data, t_ipc_dp_action_reply, t_ipc_notification, t_ipc_snmp_notification>(
            frame);
        // MAAPI, events.
        check_records<t_ipc_count, t_ipc_attach, t_ipc_thandle, t_ipc_maapi_path, t_ipc_maapi_set,
                      t_ipc_maapi_set_text, t_ipc_maapi_next, t_ipc_cli_write, t_ipc_events>(frame);
        // What the server sends.
        check_records<t_ipc_batch, t_ipc_diff_page, t_ipc_tag_values, t_ipc_trans_init, t_ipc_dp_validate,
                      t_ipc_dp_object, t_ipc_dp_find_next, t_ipc_dp_action, t_ipc_dp_command, t_ipc_schema>(
            frame);
    }
    return 0;
}

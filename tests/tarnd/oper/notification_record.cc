#include "tests/tarnd/oper/notification_record.h"

#include <cstdio>
#include <utility>

#include "generated/lumora_schema.h"
#include "lconfd/lconfd_notif.h"

static std::vector<t_tarn_notification> sent;
static std::vector<std::string> last_entries;
static int send_result;

std::vector<t_tarn_notification> notification_record_take()
{
    return std::exchange(sent, {});
}

std::vector<std::string> notification_record_entries()
{
    return last_entries;
}

void notification_record_set_result(int result)
{
    send_result = result;
}

static std::string hex(const void *p_bytes, size_t size)
{
    std::string text;
    char pair[3];
    for (size_t i = 0; i < size; i++) {
        snprintf(pair, sizeof(pair), "%02x", static_cast<const uint8_t *>(p_bytes)[i]);
        text += pair;
    }
    return text;
}

static std::string value_text(const confd_value_t &value)
{
    switch (value.type) {
    case C_BUF:
        return {reinterpret_cast<const char *>(value.val.buf.ptr), value.val.buf.size};
    case C_ENUM_VALUE:
        return std::to_string(value.val.enumvalue);
    case C_IPV4:
        return hex(&value.val.ip, sizeof(value.val.ip));
    case C_IPV6:
        return hex(&value.val.ip6, sizeof(value.val.ip6));
    default:
        return "-";
    }
}

static void record(const confd_tag_value_t &entry, t_tarn_notification *p_notification)
{
    std::string text = value_text(entry.v);
    char head[32];
    snprintf(head, sizeof(head), "%08x:%08x %d ", entry.tag.ns, entry.tag.tag,
             static_cast<int>(entry.v.type));
    last_entries.push_back(head + text);
    if (entry.tag.tag == LUMORA_TAG_VPN_LIST_NAME)
        p_notification->vpn_list = text;
    else if (entry.tag.tag == LUMORA_TAG_POLICY_NAME || entry.tag.tag == LUMORA_TAG_ACCESS_LIST_NAME)
        p_notification->policy = text;
    else if (entry.tag.tag == LUMORA_TAG_STATUS)
        p_notification->status = text;
}

using f_send = decltype(lconfd_event_send_notification);
f_send wrap_send asm("__wrap__Z30lconfd_event_send_notificationP16t_lconfd_contextPK17confd_tag_value_ti");
int wrap_send(t_lconfd_context *, const confd_tag_value_t *values, int num_values)
{
    t_tarn_notification notification;
    last_entries.clear();
    for (const confd_tag_value_t *p_entry = values; p_entry < values + num_values; p_entry++)
        record(*p_entry, &notification);
    sent.push_back(std::move(notification));
    return send_result;
}

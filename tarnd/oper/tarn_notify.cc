#include "tarnd/oper/tarn_notify.h"

#include "generated/lumora_schema.h"
#include "lconfd/lconfd_api.h"
#include "lconfd/lconfd_notif.h"
#include "tarnd/core/tarn.h"

#include <arpa/inet.h>
#include <cstring>
#include <string_view>

// What receivers know the events by.
static_assert(LUMORA_NS_POLICY == 0x25640284);
static_assert(LUMORA_TAG_DATA_POLICY_ASSOCIATION_STATUS == 0x73e916a8);
static_assert(LUMORA_TAG_ACCESS_LIST_ASSOCIATION_STATUS == 0x026db0d4);
static_assert(LUMORA_TAG_SEVERITY_LEVEL == 0x18f30f38);
static_assert(LUMORA_TAG_HOST_NAME == 0x5808a665);
static_assert(LUMORA_TAG_SYSTEM_IP == 0x5e5f3f28);
static_assert(LUMORA_TAG_POLICY_NAME == 0x61fe004e);
static_assert(LUMORA_TAG_VPN_LIST_NAME == 0x0ed4d8e3);
static_assert(LUMORA_TAG_ACCESS_LIST_NAME == 0x1420cbfa);
static_assert(LUMORA_TAG_STATUS == 0x74470328);

static constexpr int32_t event_severity = 2;

namespace {

// An event as it is made: entry by entry, in the order that the model has. Texts stay the caller's.
struct t_event {
    confd_tag_value_t values[8];
    int count = 0;

    confd_value_t *add(uint32_t tag, confd_vtype type, uint32_t name_space = 0)
    {
        confd_tag_value_t *p_entry = &values[count++];
        *p_entry = {};
        p_entry->tag = {tag, name_space};
        p_entry->v.type = type;
        return &p_entry->v;
    }

    void add_mark(uint32_t tag, confd_vtype type)
    {
        add(tag, type, LUMORA_NS_POLICY)->val.xmltag = {tag, LUMORA_NS_POLICY};
    }

    void add_text(uint32_t tag, std::string_view text)
    {
        // The framework reads it only.
        void *p_text = const_cast<char *>(text.data());
        add(tag, C_BUF)->val.buf = {static_cast<unsigned>(text.size()), static_cast<unsigned char *>(p_text)};
    }
};

}  // namespace

static void add_system_address(t_event *p_event)
{
    t_ipaddr address;
    IPADDR_INIT(&address, IP_ADDR_V4);
    lconfd_get_system_ip(&address);
    if (IPADDR_IS_V4(&address))
        p_event->add(LUMORA_TAG_SYSTEM_IP, C_IPV4)->val.ip.s_addr = htonl(address.u.addr4.s_addr);
    else
        memcpy(&p_event->add(LUMORA_TAG_SYSTEM_IP, C_IPV6)->val.ip6, address.u.addr6_b, sizeof(in6_addr));
}

// What every event begins with.
static void begin(t_event *p_event, uint32_t tag)
{
    const char *host = lconfd_get_hostname();
    p_event->add_mark(tag, C_XMLBEGIN);
    p_event->add(LUMORA_TAG_SEVERITY_LEVEL, C_ENUM_VALUE)->val.enumvalue = event_severity;
    p_event->add_text(LUMORA_TAG_HOST_NAME, host != nullptr && host[0] != '\0' ? host : "default");
    add_system_address(p_event);
}

static void end_and_send(const t_tarn *p_tarn, t_event *p_event)
{
    p_event->add_mark(p_event->values[0].tag.tag, C_XMLEND);
    (void)lconfd_event_send_notification(p_tarn->p_tarn_lconfd_ctx, p_event->values, p_event->count);
}

int tarn_notify_data_policy_association_notification(t_tarn *p_tarn, const char *p_vpn_list_name,
                                                     const char *p_policy_name, const char *p_status_str)
{
    t_event event;
    begin(&event, LUMORA_TAG_DATA_POLICY_ASSOCIATION_STATUS);
    event.add_text(LUMORA_TAG_POLICY_NAME, p_policy_name);
    event.add_text(LUMORA_TAG_VPN_LIST_NAME, p_vpn_list_name);
    event.add_text(LUMORA_TAG_STATUS, p_status_str);
    end_and_send(p_tarn, &event);
    return 0;
}

int tarn_notify_access_list_association_notification(t_tarn *p_tarn, const char *p_policy_name,
                                                     const char *p_status_str)
{
    t_event event;
    begin(&event, LUMORA_TAG_ACCESS_LIST_ASSOCIATION_STATUS);
    event.add_text(LUMORA_TAG_ACCESS_LIST_NAME, p_policy_name);
    event.add_text(LUMORA_TAG_STATUS, p_status_str);
    end_and_send(p_tarn, &event);
    return 0;
}

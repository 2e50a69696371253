#include "tests/lconfd/notif_fake.h"

#include "platform/confd/confd_cdb.h"

#include <cstring>
#include <mutex>

char g_hostname[128] = "edge-1";

static std::mutex g_lock;
static std::vector<t_sent> g_sent;
static std::string g_group;
static int g_phase = 2;
static bool g_fails;

std::vector<t_sent> fake_sent()
{
    std::lock_guard guard(g_lock);
    return g_sent;
}

std::vector<std::string> fake_texts()
{
    std::vector<std::string> texts;
    for (const t_sent &sent : fake_sent())
        texts.push_back(sent.text);
    return texts;
}

void fake_reset()
{
    std::lock_guard guard(g_lock);
    g_sent.clear();
    g_phase = 2;
    g_fails = false;
}

void fake_phase(int phase)
{
    g_phase = phase;
}

void fake_fail_sending(bool fails)
{
    std::lock_guard guard(g_lock);
    g_fails = fails;
}

// ---- Texts ----

static std::string text_of(const confd_value_t &value)
{
    char text[64];
    confd_pp_value(text, sizeof(text), &value);
    return text;
}

// Leaves out what every notification has.
static std::string text_of(const confd_tag_value_t *values, int count)
{
    std::string text;
    for (int i = 4; i < count - 1; i++)
        text += " " + std::string(confd_hash2str(values[i].tag.tag)) + "=" + text_of(values[i].v);
    return text;
}

// ---- The framework's names ----

int cdb_get_phase(int, cdb_phase *phase)
{
    *phase = {g_phase, 0};
    return g_phase < 0 ? CONFD_ERR : CONFD_OK;
}

int confd_notification_send(confd_notification_ctx *nctx, const confd_datetime *,
                            const confd_tag_value_t *values, int nvalues)
{
    std::lock_guard guard(g_lock);
    g_sent.push_back(
        {"stream " + std::to_string(nctx->id) + text_of(values, nvalues), std::chrono::steady_clock::now()});
    return g_fails ? CONFD_ERR : CONFD_OK;
}

int confd_notification_set_snmp_notify_name(confd_notification_ctx *, const char *notify_name)
{
    g_group = notify_name;
    return CONFD_OK;
}

int confd_notification_send_snmp(confd_notification_ctx *nctx, const char *notification,
                                 const confd_snmp_varbind *varbinds, int num_vars)
{
    std::string text = "trap " + std::to_string(nctx->id) + " " + g_group + " " + notification;
    for (int i = 2; i < num_vars; i++)
        text += " " + std::string(varbinds[i].var.name) + "=" + text_of(varbinds[i].val);
    std::lock_guard guard(g_lock);
    g_sent.push_back({text, std::chrono::steady_clock::now()});
    return CONFD_OK;
}

const char *confd_hash2str(uint32_t hash)
{
    static const struct {
        uint32_t tag;
        const char *name;
    } names[] = {{0x73e916a8, "data-policy-association-status"},
                 {0x18f30f38, "severity"},
                 {0x5808a665, "host-name"},
                 {0x5e5f3f28, "system-ip"},
                 {0x61fe004e, "policy-name"}};
    for (const auto &row : names)
        if (row.tag == hash)
            return row.name;
    return hash == 0xbad ? nullptr : "field";
}

int confd_pp_value(char *buf, int bufsiz, const confd_value_t *v)
{
    size_t size = static_cast<size_t>(bufsiz);
    switch (v->type) {
    case C_STR:
        return snprintf(buf, size, "%s", v->val.s);
    case C_BUF:
        return snprintf(buf, size, "%.*s", static_cast<int>(v->val.buf.size), v->val.buf.ptr);
    case C_IPV4:
        return snprintf(buf, size, "ipv4");
    default:
        return snprintf(buf, size, "%u", v->val.u32);
    }
}

confd_cs_node *confd_cs_node_cd(const confd_cs_node *, const char *, ...)
{
    return nullptr;
}

int confd_val2str_ptr(confd_type *, const confd_value_t *, const char **)
{
    return CONFD_ERR;
}

// ---- Notifications ----

confd_value_t fake_value(confd_vtype type, uint32_t number)
{
    confd_value_t value = {.type = type, .val = {}};
    value.val.u32 = number;
    return value;
}

t_notification::t_notification(int32_t severity, uint32_t tag, uint32_t ns)
{
    add(tag, fake_value(C_XMLBEGIN, 0), ns);
    add(0x18f30f38, fake_value(C_ENUM_VALUE, static_cast<uint32_t>(severity)));
    add_text(0x5808a665, "edge-1");
    add(0x5e5f3f28, fake_value(C_IPV4, htonl(0x0a000001)));
}

void t_notification::add(uint32_t tag, confd_value_t value, uint32_t ns)
{
    values.push_back({{tag, ns}, value});
}

void t_notification::add_text(uint32_t tag, const char *text)
{
    confd_value_t value = {.type = C_STR, .val = {}};
    value.val.c_s = text;
    add(tag, value);
}

void t_notification::end()
{
    add(values[0].tag.tag, fake_value(C_XMLEND, 0), values[0].tag.ns);
}

// The table of traps, the groups, and a trap's way from a notification to the framework.
#include "lconfd/lconfd_trap.h"

#include "common/ip_util.h"
#include "generated/lconfd_trap_rows.h"
#include "lconfd/lconfd_notif.h"
#include "lconfd/lconfd_private.h"

#include <array>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <utility>

static constexpr uint32_t levels_tag = 0x7dec02bd;  // of the leaf-list that names a module's severities
static constexpr int all_modules = 0;

// ---- The table ----

static std::array<t_lconfd_trap_hash_entry *, 256> g_lconfd_trap_hash_table;

static uint8_t lconfd_trap_table_hash_fn(const xml_tag &key)
{
    return static_cast<uint8_t>(key.tag);
}

static bool lconfd_trap_table_hash_cmp(const xml_tag &key, const xml_tag &sought)
{
    return key.tag == sought.tag && (key.ns == sought.ns || sought.ns == 0);
}

void lconfd_trap_add_hash_entry(uint32_t tag, uint32_t ns, const char *mib_name, e_lconfd_trap_index index)
{
    auto *p_entry = new (std::nothrow) t_lconfd_trap_hash_entry{{tag, ns}, {}, index, nullptr};
    if (p_entry == nullptr) {
        LCONFD_LOG("Failed to allocate memory for hash entry");
        return;
    }
    snprintf(p_entry->mib_name, sizeof(p_entry->mib_name), "%s", mib_name);
    t_lconfd_trap_hash_entry **pp_end = &g_lconfd_trap_hash_table[lconfd_trap_table_hash_fn(p_entry->key)];
    while (*pp_end != nullptr)
        pp_end = &(*pp_end)->next;
    *pp_end = p_entry;
}

const t_lconfd_trap_hash_entry *lconfd_trap_table_lookup(const xml_tag *p_tag)
{
    const t_lconfd_trap_hash_entry *p_entry = g_lconfd_trap_hash_table[lconfd_trap_table_hash_fn(*p_tag)];
    while (p_entry != nullptr && !lconfd_trap_table_hash_cmp(p_entry->key, *p_tag))
        p_entry = p_entry->next;
    return p_entry;
}

const char *lconfd_trap_get_mib_name(uint32_t tag, uint32_t ns)
{
    xml_tag key = {tag, ns};
    const t_lconfd_trap_hash_entry *p_entry = lconfd_trap_table_lookup(&key);
    if (p_entry != nullptr)
        return p_entry->mib_name;
    LCONFD_LOG("Failed to find MIB name for tag %u ns %u", tag, ns);
    return nullptr;
}

static void lconfd_trap_table_free()
{
    for (t_lconfd_trap_hash_entry *&p_head : g_lconfd_trap_hash_table)
        while (p_head != nullptr)
            delete std::exchange(p_head, p_head->next);
}

static void lconfd_trap_table_init()
{
    lconfd_trap_table_free();
    for (const t_lconfd_trap_row &row : lconfd_trap_rows)
        lconfd_trap_add_hash_entry(row.tag, row.ns, row.mib_name,
                                   static_cast<e_lconfd_trap_index>(row.trap_index));
}

// ---- The list of groups ----

static t_dll g_lconfd_trap_tag_table;
static std::mutex g_lconfd_trap_tag_lock;

static t_lconfd_trap_tag_map *group_of(t_dlnode *p_node)
{
    return DLL_RECORD(p_node, t_lconfd_trap_tag_map, entry);
}

t_lconfd_trap_tag_map *lconfd_trap_find_tag(const char *name)
{
    for (t_dlnode *p_node = g_lconfd_trap_tag_table.p_head; p_node != nullptr; p_node = p_node->p_next)
        if (strncmp(group_of(p_node)->notify_name, name, sizeof(t_lconfd_trap_tag_map::notify_name)) == 0)
            return group_of(p_node);
    return nullptr;
}

t_lconfd_trap_tag_map *lconfd_trap_add_tag(const char *name)
{
    auto *p_map = new (std::nothrow) t_lconfd_trap_tag_map{};
    if (p_map == nullptr) {
        LCONFD_LOG("Failed to allocate memory for trap tag %s", name);
        return nullptr;
    }
    snprintf(p_map->notify_name, sizeof(p_map->notify_name), "%s", name);
    DLL_ADD(&g_lconfd_trap_tag_table, &p_map->entry);
    return p_map;
}

void lconfd_trap_remove_tag(const char *name)
{
    t_lconfd_trap_tag_map *p_map = lconfd_trap_find_tag(name);
    if (p_map == nullptr) {
        LCONFD_LOG("Failed to find tag %s", name);
        return;
    }
    DLL_REMOVE(&g_lconfd_trap_tag_table, &p_map->entry);
    delete p_map;
}

static void lconfd_trap_tag_table_free()
{
    std::lock_guard guard(g_lconfd_trap_tag_lock);
    auto *p_entry = std::exchange(g_lconfd_trap_tag_table, {}).p_head;
    while (p_entry != nullptr) {
        t_lconfd_trap_tag_map *p_map = group_of(p_entry);
        p_entry = p_entry->p_next;
        delete p_map;
    }
}

// An initialisation that is tried again finds what the last one has left.
void lconfd_trap_module_init()
{
    lconfd_trap_table_init();
    lconfd_trap_tag_table_free();
}

void lconfd_trap_module_free()
{
    lconfd_trap_table_free();
    lconfd_trap_tag_table_free();
}

// ---- A group's traps ----

static uint8_t bit_of(int trap_index)
{
    return static_cast<uint8_t>(1 << (trap_index % 8));
}

static bool is_trap(int trap_index)
{
    if (trap_index > LCONFD_TRAP_START && trap_index < LCONFD_TRAP_END)
        return true;
    LCONFD_LOG("Trap value out of bounds: trap_index %d", trap_index);
    return false;
}

static bool has_bit(const t_lconfd_trap_tag_map *p_map, int trap_index)
{
    int byte = trap_index / 8;
    return ((p_map->bitmap[byte] | p_map->all_bitmap[byte]) & bit_of(trap_index)) != 0;
}

bool lconfd_trap_is_enabled(const t_lconfd_trap_tag_map *p_map, int trap_index)
{
    return is_trap(trap_index) && has_bit(p_map, trap_index);
}

void lconfd_trap_set(t_lconfd_trap_tag_map *p_map, int trap_index, bool on)
{
    if (!is_trap(trap_index))
        return;
    uint8_t *p_byte = &p_map->bitmap[trap_index / 8];
    *p_byte = static_cast<uint8_t>(on ? *p_byte | bit_of(trap_index) : *p_byte & ~bit_of(trap_index));
}

void lconfd_trap_bitmap_dump(const t_lconfd_trap_tag_map *p_map)
{
    std::string text = " ";
    for (int trap = LCONFD_TRAP_START + 1; trap < LCONFD_TRAP_END; trap++)
        text += has_bit(p_map, trap) ? '1' : '0';
    LCONFD_DEBUG("Trap group %s has a combined bitmap %s", p_map->notify_name, text.c_str());
}

// ---- Putting a trap together ----

static constexpr int first_field = 4;       // behind start, severity, host name and address
static constexpr int num_other_values = 3;  // values of a notification beyond its varbinds
static constexpr size_t address_text_size = 128;

static const t_lconfd_trap_hash_entry *find_trap(const t_lconfd_notification_queue_item &item)
{
    const confd_tag_value_t &start = item.val[0];
    if (start.v.type != C_XMLBEGIN) {
        LCONFD_LOG("Notification starts with wrong tag value type");
        return nullptr;
    }
    const t_lconfd_trap_hash_entry *p_found = lconfd_trap_table_lookup(&start.tag);
    if (p_found == nullptr)
        LCONFD_LOG("Notification name couldn't be found in trap table for tag:%u ns:%u", start.tag.tag,
                   start.tag.ns);
    return p_found;
}

static void add_varbind(t_lconfd_snmp_trap *p_trap, const char *name, const confd_value_t &value)
{
    confd_snmp_varbind *p_varbind = &p_trap->varbind[p_trap->num_values++];
    p_varbind->type = CONFD_SNMP_VARIABLE;
    snprintf(p_varbind->var.name, sizeof(p_varbind->var.name), "%s", name);
    p_varbind->val = value;
}

static bool is_address(const confd_value_t &value)
{
    return value.type == C_IPV4 || value.type == C_IPV6;
}

// The text lives in the buffer of the varbind that comes next. False, logged, without memory.
static bool address_to_text(t_lconfd_snmp_trap *p_trap, confd_value_t *p_value)
{
    char *text = static_cast<char *>(lconfd_alloc(address_text_size));
    if (text == nullptr) {
        LCONFD_LOG("Failed to allocate memory for trap buffer fields");
        return false;
    }
    t_ipaddr address = {};
    if (p_value->type == C_IPV4)
        IPADDR_SET_V4(&address, ntohl(p_value->val.ip.s_addr));
    else
        IPADDR_SET_V6(&address, &p_value->val.ip6);
    p_trap->buffers[p_trap->num_values] = text;
    p_value->type = C_STR;
    p_value->val.s = ipaddr_print(&address, text, address_text_size);
    return true;
}

static void add_field(t_lconfd_notification_queue_item *p_item, const confd_tag_value_t &field)
{
    uint32_t ns = field.tag.ns != 0 ? field.tag.ns : p_item->val[0].tag.ns;
    const char *name = lconfd_trap_get_mib_name(field.tag.tag, ns);
    if (name == nullptr) {
        LCONFD_LOG("Notification field name couldn't be found in trap table");
        return;
    }
    confd_value_t value = field.v;
    if (!is_address(value) || address_to_text(&p_item->trap, &value))
        add_varbind(&p_item->trap, name, value);
}

static void add_varbinds(t_lconfd_notification_queue_item *p_item)
{
    t_lconfd_snmp_trap *p_trap = &p_item->trap;
    confd_value_t time = {.type = C_DATETIME, .val = {}};
    time.val.datetime = p_item->event_time;
    add_varbind(p_trap, "eventTime", time);
    LUM_ASSERT(p_item->val[1].v.type == C_ENUM_VALUE, "(&(p_item->val[1].v))->type == C_ENUM_VALUE");
    add_varbind(p_trap, "netconfNotificationSeverity", p_item->val[1].v);
    int limit = p_item->num_values - num_other_values;
    for (int i = first_field; i < p_item->num_values && p_trap->num_values < limit; i++)
        if (p_item->val[i].v.type != C_XMLEND)
            add_field(p_item, p_item->val[i]);
}

void lconfd_trap_populate(t_lconfd_notification_queue_item *p_item)
{
    if (p_item->num_values <= first_field) {
        LCONFD_LOG("Cannot populate empty notification queue item");
        return;
    }
    const t_lconfd_trap_hash_entry *p_found = find_trap(*p_item);
    if (p_found == nullptr)
        return;
    size_t count = static_cast<size_t>(p_item->num_values - num_other_values);
    void *p_mem = lconfd_alloc(count * sizeof(confd_snmp_varbind));
    if (p_mem == nullptr) {
        LCONFD_LOG("Cannot allocate for trap item");
        return;
    }
    t_lconfd_snmp_trap *p_trap = &p_item->trap;
    p_trap->varbind = static_cast<confd_snmp_varbind *>(p_mem);
    memset(p_mem, 0, count * sizeof(confd_snmp_varbind));
    snprintf(p_trap->trap_name, sizeof(p_trap->trap_name), "%s", p_found->mib_name);
    p_trap->trap_index = p_found->trap_index;
    add_varbinds(p_item);
}

// ---- Sending ----

static void send_to_group(const t_lconfd_snmp_trap &trap, const t_lconfd_trap_tag_map &group)
{
    confd_notification_ctx *p_ctx = g_lconfd_notification_throttler.p_snmp_notification_ctx;
    if (confd_notification_set_snmp_notify_name(p_ctx, group.notify_name) != CONFD_OK)
        LCONFD_LOG("Failed to set snmp notify/tag name : %s (%d) %s", LCONFD_WHY);
    if (confd_notification_send_snmp(p_ctx, trap.trap_name, trap.varbind, trap.num_values) != CONFD_OK)
        LCONFD_LOG("Failed to send snmp notification %s : %s (%d) %s", trap.trap_name, LCONFD_WHY);
    LCONFD_DEBUG("Sending trap %s", trap.trap_name);
}

void lconfd_trap_send(const t_lconfd_notification_queue_item *p_item)
{
    const t_lconfd_snmp_trap &trap = p_item->trap;
    LCONFD_DEBUG("Processing trap %s", trap.trap_name);
    std::lock_guard guard(g_lconfd_trap_tag_lock);
    for (t_dlnode *p_node = g_lconfd_trap_tag_table.p_head; p_node != nullptr; p_node = p_node->p_next)
        if (lconfd_trap_is_enabled(group_of(p_node), trap.trap_index))
            send_to_group(trap, *group_of(p_node));
}

// ---- Configuration ----

static std::string text_of(const confd_value_t &key)
{
    return {reinterpret_cast<const char *>(key.val.buf.ptr), key.val.buf.size};
}

int lconfd_config_trap_group(t_lconfd_sub_entry *, confd_iter_op oper, int num_keys,
                             const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    if (num_keys != 1) {
        LCONFD_LOG("Incorrect number of keys %u", static_cast<unsigned>(num_keys));
        return LCONFD_STATUS_FAIL;
    }
    LUM_ASSERT(p_key[0].type == C_BUF, "(&key_p[0])->type == C_BUF");
    std::string name = text_of(p_key[0]);
    std::lock_guard guard(g_lconfd_trap_tag_lock);
    if (oper == MOP_CREATED && lconfd_trap_add_tag(name.c_str()) == nullptr) {
        LCONFD_LOG("Unable to create a new tag for group %s", name.c_str());
        return LCONFD_STATUS_MEM_FAIL;
    }
    if (oper == MOP_DELETED)
        lconfd_trap_remove_tag(name.c_str());
    LCONFD_DEBUG("Configuring group %s with %d operation", name.c_str(), static_cast<int>(oper));
    return LCONFD_STATUS_OK;
}

static void set_levels(t_lconfd_trap_tag_map *p_map, int module, confd_iter_op oper, const confd_list &levels)
{
    for (unsigned int i = 0; i < levels.size; i++) {
        const confd_value_t &level = levels.ptr[i];
        LUM_ASSERT(level.type == C_ENUM_VALUE, "(level_ptr + i)->type == C_ENUM_VALUE");
        if (oper == MOP_CREATED || oper == MOP_MODIFIED)
            lconfd_trap_set_group(p_map, module, level.val.enumvalue);
    }
}

// A deletion leaves the module's traps cleared.
static void set_module(t_lconfd_trap_tag_map *p_map, int module, confd_iter_op oper, int num_values,
                       const confd_tag_value_t *p_val)
{
    lconfd_trap_reset_group(p_map, module);
    for (int i = 0; i < num_values; i++)
        if (p_val[i].tag.tag == levels_tag && p_val[i].v.type == C_LIST)
            set_levels(p_map, module, oper, p_val[i].v.val.list);
}

// The setting for all modules lives apart from those for single ones: neither overwrites the other.
static void set_all_modules(t_lconfd_trap_tag_map *p_map, confd_iter_op oper, int num_values,
                            const confd_tag_value_t *p_val)
{
    uint8_t saved[sizeof(p_map->bitmap)];
    memcpy(saved, p_map->bitmap, sizeof(saved));
    set_module(p_map, all_modules, oper, num_values, p_val);
    memcpy(p_map->all_bitmap, p_map->bitmap, sizeof(saved));
    memcpy(p_map->bitmap, saved, sizeof(saved));
}

int lconfd_config_trap_group_enable(t_lconfd_sub_entry *, confd_iter_op oper, int, const confd_value_t *p_key,
                                    int num_values, const confd_tag_value_t *p_val)
{
    LUM_ASSERT(p_key[0].type == C_BUF, "(&key_p[0])->type == C_BUF");
    LUM_ASSERT(p_key[1].type == C_ENUM_VALUE, "(&key_p[1])->type == C_ENUM_VALUE");
    std::string name = text_of(p_key[0]);
    int module = p_key[1].val.enumvalue;
    std::lock_guard guard(g_lconfd_trap_tag_lock);
    t_lconfd_trap_tag_map *p_map = lconfd_trap_find_tag(name.c_str());
    if (p_map == nullptr) {
        LCONFD_LOG("Failed to find tag entry for %s group", name.c_str());
        return LCONFD_STATUS_FAIL;
    }
    if (module == all_modules)
        set_all_modules(p_map, oper, num_values, p_val);
    else
        set_module(p_map, module, oper, num_values, p_val);
    LCONFD_DEBUG("Finished configuring %s group %d module", name.c_str(), module);
    lconfd_trap_bitmap_dump(p_map);
    return LCONFD_STATUS_OK;
}

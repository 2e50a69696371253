// The throttler: queueing on the main thread, sending on its own, and the line of syslog.
#include "lconfd/lconfd_notif.h"

#include "lconfd/lconfd_private.h"
#include "lconfd/lconfd_util.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <syslog.h>
#include <utility>

// The daemon's name of this host, as its lines of syslog begin with.
extern char g_hostname[128];

static constexpr int default_sleep_interval_ms = 200;
static constexpr int severity_critical = 1;
static constexpr int severity_major = 2;
static constexpr int queue_limits[LCONFD_NUM_NOTIF_QUEUES] = {100, 50, 50};
static constexpr int running_phase = 2;

t_lconfd_notification_throttler g_lconfd_notification_throttler;

// ---- Memory ----

static void *lconfd_default_alloc(size_t size)
{
    return malloc(size);
}

static void lconfd_default_free(void *p_mem)
{
    free(p_mem);
}

static f_lconfd_alloc alloc_fn = lconfd_default_alloc;
static f_lconfd_free free_fn = lconfd_default_free;

void lconfd_mem_fn_init(f_lconfd_alloc alloc, f_lconfd_free free)
{
    alloc_fn = alloc;
    free_fn = free;
}

void *lconfd_alloc(size_t size)
{
    return alloc_fn(size);
}

static void release(void *p_mem)
{
    if (p_mem != nullptr)
        free_fn(p_mem);
}

// ---- Items ----

static void lconfd_notification_free_queue_item(t_lconfd_notification_queue_item *p_item)
{
    for (void *p_text : p_item->buffers)
        release(p_text);
    for (void *p_text : p_item->trap.buffers)
        release(p_text);
    release(p_item->trap.varbind);
    release(p_item);
}

// Copies a text, with a terminator behind it. Null, logged, without memory.
static void *text_copy(const void *p_text, size_t size)
{
    char *p_copy = static_cast<char *>(lconfd_alloc(size + 1));
    if (p_copy == nullptr) {
        LCONFD_LOG("Unable to allocate memory for string field size %u", static_cast<unsigned>(size));
        return nullptr;
    }
    if (size > 0)
        memcpy(p_copy, p_text, size);
    p_copy[size] = '\0';
    return p_copy;
}

// Replaces the item's texts by copies of its own.
static bool own_texts(t_lconfd_notification_queue_item *p_item)
{
    for (int i = 0; i < p_item->num_values; i++) {
        confd_value_t *p_value = &p_item->val[i].v;
        if (p_value->type == C_STR)
            p_value->val.s =
                static_cast<char *>(p_item->buffers[i] = text_copy(p_value->val.s, strlen(p_value->val.s)));
        else if (p_value->type == C_BUF)
            p_value->val.buf.ptr = static_cast<unsigned char *>(
                p_item->buffers[i] = text_copy(p_value->val.buf.ptr, p_value->val.buf.size));
        else
            continue;
        if (p_item->buffers[i] == nullptr)
            return false;
    }
    return true;
}

static t_lconfd_notification_queue_item *item_new(const confd_tag_value_t *values, int num_values)
{
    void *p_mem = lconfd_alloc(sizeof(t_lconfd_notification_queue_item));
    if (p_mem == nullptr) {
        LCONFD_LOG("Unable to allocate memory for notification queue item");
        return nullptr;
    }
    auto *p_item = new (p_mem) t_lconfd_notification_queue_item{};
    memcpy(p_item->val, values, static_cast<size_t>(num_values) * sizeof(*values));
    p_item->num_values = num_values;
    lconfd_get_date_time(&p_item->event_time);
    if (own_texts(p_item))
        return p_item;
    lconfd_notification_free_queue_item(p_item);
    return nullptr;
}

// ---- Queueing ----

static int queue_of(int32_t severity)
{
    if (severity == severity_critical)
        return LCONFD_NOTIF_QUEUE_CRITICAL;
    return severity == severity_major ? LCONFD_NOTIF_QUEUE_MAJOR : LCONFD_NOTIF_QUEUE_MINOR;
}

// 0, -1 or -2. The state is looked at again, under the lock that the end takes too.
static int append(int index, t_lconfd_notification_queue_item *p_item)
{
    t_lconfd_notification_throttler *p_throttler = &g_lconfd_notification_throttler;
    int result = 0;
    if (pthread_spin_lock(&p_throttler->queue_lock[index]) != 0) {
        LCONFD_LOG("Lock error on notification queue %d", index);
        result = -1;
    }
    bool has_room = p_throttler->queue_size[index] < queue_limits[index] &&
                    p_throttler->state != LCONFD_THROTTLER_TERMINATE;
    if (has_room && result == 0) {
        DLL_ADD(&p_throttler->queue[index], &p_item->entries);
        p_throttler->queue_size[index]++;
    }
    if (pthread_spin_unlock(&p_throttler->queue_lock[index]) != 0)
        LCONFD_LOG("Unlock error on notification queue %d", index);
    if (has_room)
        return result;
    LCONFD_DEBUG("Notification throttler has terminated or max queue size reached");
    return -2;
}

static bool takes_notifications()
{
    switch (g_lconfd_notification_throttler.state) {
    case LCONFD_THROTTLER_TERMINATE:
        LCONFD_DEBUG("Notification throttler has terminated.");
        return false;
    case LCONFD_THROTTLER_INIT:
        LCONFD_DEBUG("Notification throttler hasn't been initialized");
        return false;
    default:
        return true;
    }
}

int lconfd_enqueue_notification(const confd_tag_value_t *values, int num_values)
{
    if (!takes_notifications())
        return -1;
    const confd_tag_value_t *val_p = &values[1];
    LUM_ASSERT(num_values > 1 && val_p->v.type == C_ENUM_VALUE, "(&val_p[1].v)->type == C_ENUM_VALUE");
    t_lconfd_notification_queue_item *p_item = item_new(values, num_values);
    if (p_item == nullptr)
        return -1;
    lconfd_trap_populate(p_item);
    int result = append(queue_of(val_p->v.val.enumvalue), p_item);
    if (result != 0) {
        LCONFD_DEBUG("Failed to send notification. Freeing memory");
        lconfd_notification_free_queue_item(p_item);
    }
    return result;
}

// ---- From the daemon ----

static int send_directly(t_lconfd_context *ctx, const confd_tag_value_t *values, int num_values)
{
    LCONFD_DEBUG("Trying to send the notification directly");
    confd_datetime now = {};
    lconfd_get_date_time(&now);
    if (confd_notification_send(ctx->module_data.notif_ctxt, &now, values, num_values) == CONFD_OK)
        return 0;
    LCONFD_DEBUG("Failed to send notification directly: %s (%d) %s", LCONFD_WHY);
    return 1;
}

int lconfd_event_send_notification(t_lconfd_context *ctx, const confd_tag_value_t *values, int num_values)
{
    LUM_ASSERT(num_values < static_cast<int>(LCONFD_NOTIF_MAX_VALUES), "num_values < 20");
    if (ctx == nullptr)
        return 1;
    cdb_phase phase = {};
    if (cdb_get_phase(ctx->data_socket, &phase) != CONFD_OK) {
        LCONFD_DEBUG("Failed to get confd phase : %s (%d) %s", LCONFD_WHY);
        return 1;
    }
    if (phase.phase < running_phase) {
        LCONFD_DEBUG("Confd in phase %d; Not sending notification", phase.phase);
        return 0;
    }
    if (lconfd_enqueue_notification(values, num_values) == -1)
        return send_directly(ctx, values, num_values);
    return 0;
}

// ---- Sending ----

static t_lconfd_notification_queue_item *take_first(int index)
{
    t_lconfd_notification_throttler *p_throttler = &g_lconfd_notification_throttler;
    if (pthread_spin_lock(&p_throttler->queue_lock[index]) != 0) {
        LCONFD_LOG("Lock error on notification queue %d", index);
        return nullptr;
    }
    t_dlnode *p_node = p_throttler->queue[index].p_head;
    if (p_node != nullptr) {
        DLL_REMOVE(&p_throttler->queue[index], p_node);
        p_throttler->queue_size[index]--;
    }
    pthread_spin_unlock(&p_throttler->queue_lock[index]);
    return p_node != nullptr ? DLL_RECORD(p_node, t_lconfd_notification_queue_item, entries) : nullptr;
}

static t_lconfd_notification_queue_item *take_most_severe()
{
    t_lconfd_notification_queue_item *p_item = nullptr;
    for (int index = 0; index < LCONFD_NUM_NOTIF_QUEUES && p_item == nullptr; index++)
        p_item = take_first(index);
    return p_item;
}

// What fails is not tried again; the item goes on to the next receiver.
static void send_item(const t_lconfd_notification_queue_item &item)
{
    const t_lconfd_notification_throttler &throttler = g_lconfd_notification_throttler;
    if (throttler.p_notification_ctx == nullptr)
        LCONFD_LOG("Empty notification context. Shouldn't be reaching here");
    else if (confd_notification_send(throttler.p_notification_ctx, &item.event_time, item.val,
                                     item.num_values) != CONFD_OK)
        LCONFD_LOG("Failed to send notification : %s (%d) %s", LCONFD_WHY);
    if (throttler.p_snmp_notification_ctx == nullptr)
        LCONFD_LOG("Empty snmp notification context. Shouldn't be reaching here");
    else
        lconfd_trap_send(&item);
    lconfd_add_to_syslog(&item.event_time, item.val, item.num_values);
}

void lconfd_notification_throttler_send()
{
    t_lconfd_notification_throttler *p_throttler = &g_lconfd_notification_throttler;
    if (pthread_spin_trylock(&p_throttler->state_lock) != 0)
        return;
    if (p_throttler->state == LCONFD_THROTTLER_ACTIVE) {
        t_lconfd_notification_queue_item *p_item = take_most_severe();
        if (p_item != nullptr) {
            send_item(*p_item);
            lconfd_notification_free_queue_item(p_item);
        }
    }
    pthread_spin_unlock(&p_throttler->state_lock);
}

static void sleep_ms(int interval_ms)
{
    timespec interval = {.tv_sec = interval_ms / 1000, .tv_nsec = interval_ms % 1000 * 1000000L};
    nanosleep(&interval, nullptr);
}

static void *lconfd_notification_throttle_thread_main(void *)
{
    sigset_t signals;
    sigfillset(&signals);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    while (g_lconfd_notification_throttler.state != LCONFD_THROTTLER_TERMINATE) {
        lconfd_notification_throttler_send();
        sleep_ms(g_lconfd_notification_throttler.sleep_interval);
    }
    return nullptr;
}

// ---- Its life ----

void lconfd_notification_sleep_interval_init(int interval_ms)
{
    g_lconfd_notification_throttler.sleep_interval = interval_ms;
}

static void init_locks(t_lconfd_notification_throttler *p_throttler)
{
    for (int index = 0; index < LCONFD_NUM_NOTIF_QUEUES; index++) {
        p_throttler->queue[index] = {};
        p_throttler->queue_size[index] = 0;
        int result = pthread_spin_init(&p_throttler->queue_lock[index], PTHREAD_PROCESS_PRIVATE);
        if (result != 0)
            LCONFD_LOG("Failed to init spinlock for queue %d with error number %d", index, result);
    }
    int result = pthread_spin_init(&p_throttler->state_lock, PTHREAD_PROCESS_PRIVATE);
    if (result != 0)
        LCONFD_LOG("Failed to init spinlock for state_lock with error number %d", result);
}

static void start_thread(t_lconfd_notification_throttler *p_throttler)
{
    int result =
        pthread_create(&p_throttler->send_thread, nullptr, lconfd_notification_throttle_thread_main, nullptr);
    if (result == 0)
        return;
    LCONFD_LOG("Failed to spawn a thread with error number %d", result);
    p_throttler->send_thread = 0;
}

// The thread looks at the contexts only after it has seen the state that is set last.
void lconfd_notification_throttler_init(const t_lconfd_context *ctx)
{
    t_lconfd_notification_throttler *p_throttler = &g_lconfd_notification_throttler;
    e_lconfd_throttler_state state = p_throttler->state;
    LCONFD_DEBUG("Notification throttler thread init with state %d", static_cast<int>(state));
    if (state == LCONFD_THROTTLER_TERMINATE)
        return;
    p_throttler->p_notification_ctx = ctx->module_data.notif_ctxt;
    p_throttler->p_snmp_notification_ctx = ctx->module_data.snmp_notif_ctxt;
    if (state == LCONFD_THROTTLER_INIT) {
        init_locks(p_throttler);
        p_throttler->sleep_interval = default_sleep_interval_ms;
        start_thread(p_throttler);
    }
    p_throttler->state = LCONFD_THROTTLER_ACTIVE;
}

static bool has_locks()
{
    e_lconfd_throttler_state state = g_lconfd_notification_throttler.state;
    return state == LCONFD_THROTTLER_RESET || state == LCONFD_THROTTLER_ACTIVE;
}

void lconfd_notification_throttler_connection_reset()
{
    t_lconfd_notification_throttler *p_throttler = &g_lconfd_notification_throttler;
    if (!has_locks())
        return;
    if (pthread_spin_lock(&p_throttler->state_lock) != 0)
        LCONFD_LOG("Lock error on notification throtler queue");
    p_throttler->state = LCONFD_THROTTLER_RESET;
    p_throttler->p_notification_ctx = nullptr;
    p_throttler->p_snmp_notification_ctx = nullptr;
    pthread_spin_unlock(&p_throttler->state_lock);
}

static void terminate(t_lconfd_notification_throttler *p_throttler)
{
    pthread_spin_lock(&p_throttler->state_lock);
    for (pthread_spinlock_t &lock : p_throttler->queue_lock)
        pthread_spin_lock(&lock);
    LCONFD_DEBUG("Setting terminate on notification throttler");
    p_throttler->state = LCONFD_THROTTLER_TERMINATE;
    for (int index = LCONFD_NUM_NOTIF_QUEUES - 1; index >= 0; index--)
        pthread_spin_unlock(&p_throttler->queue_lock[index]);
    pthread_spin_unlock(&p_throttler->state_lock);
}

static void destroy_queue(t_lconfd_notification_throttler *p_throttler, int index)
{
    t_dll *p_queue = &p_throttler->queue[index];
    if (p_queue->p_head != nullptr)
        LCONFD_DEBUG("Pending notifications from queue %d are being dropped", index);
    while (t_dlnode *p_node = p_queue->p_head) {
        DLL_REMOVE(p_queue, p_node);
        lconfd_notification_free_queue_item(DLL_RECORD(p_node, t_lconfd_notification_queue_item, entries));
    }
    p_throttler->queue_size[index] = 0;
    LCONFD_DEBUG("Notification queue %d destroyed", index);
    int result = pthread_spin_destroy(&p_throttler->queue_lock[index]);
    if (result != 0)
        LCONFD_LOG("Failed to destroy spinlock for queue %d with error number %d", index, result);
    LCONFD_DEBUG("Queue spinlock %d destroyed", index);
}

void lconfd_notification_throttler_free()
{
    t_lconfd_notification_throttler *p_throttler = &g_lconfd_notification_throttler;
    if (!has_locks()) {
        p_throttler->state = LCONFD_THROTTLER_TERMINATE;
        return;
    }
    terminate(p_throttler);
    pthread_t thread = std::exchange(p_throttler->send_thread, 0);
    if (thread != 0 && pthread_join(thread, nullptr) != 0)
        LCONFD_LOG("pthread join failed");
    for (int index = 0; index < LCONFD_NUM_NOTIF_QUEUES; index++)
        destroy_queue(p_throttler, index);
    if (pthread_spin_destroy(&p_throttler->state_lock) != 0)
        LCONFD_LOG("Failed to destroy spinlock for send_lock");
}

// ---- Syslog ----

static constexpr size_t max_text_length = 2047;
static constexpr int message_severity = 6;
static constexpr int message_code = 1400002;

static std::string tag_name(uint32_t tag)
{
    const char *name = confd_hash2str(tag);
    return name != nullptr ? name : std::to_string(tag);
}

// The name of an enumeration's value, or null.
static const char *enum_name(const std::string &notification, const std::string &field,
                             const confd_value_t &value)
{
    const confd_cs_node *p_node = confd_cs_node_cd(nullptr, "/%s/%s", notification.c_str(), field.c_str());
    const char *name = nullptr;
    if (p_node == nullptr || p_node->info.type == nullptr ||
        confd_val2str_ptr(p_node->info.type, &value, &name) == CONFD_ERR)
        return nullptr;
    return name;
}

static std::string value_text(const std::string &notification, const std::string &field,
                              const confd_value_t &value)
{
    const char *name = value.type == C_ENUM_VALUE ? enum_name(notification, field, value) : nullptr;
    if (name != nullptr)
        return name;
    char text[max_text_length + 1] = "";
    confd_pp_value(text, sizeof(text), &value);
    return text;
}

std::string lconfd_notification_text(const confd_tag_value_t *values, int num_values)
{
    if (num_values < 2)
        return "";
    std::string name = tag_name(values[0].tag.tag);
    std::string text = name + " ";
    for (int i = 1; i < num_values - 1 && text.size() < max_text_length; i++) {
        std::string field = tag_name(values[i].tag.tag);
        text += field + ":" + value_text(name, field, values[i].v) + " ";
    }
    return text.substr(0, max_text_length);
}

void lconfd_add_to_syslog(const confd_datetime *event_time, const confd_tag_value_t *values, int num_values)
{
    if (values == nullptr) {
        LCONFD_LOG("Notification: Failed to write notification information to syslog");
        return;
    }
    syslog(LUM_LOG_INFO, "%%Lumora-%s-%s-%d-%s-%d: Notification: %d/%d/%d %d:%d:%d %s", g_hostname,
           lconfd_module_name(), message_severity, "INFO", message_code, event_time->month, event_time->day,
           event_time->year, event_time->hour, event_time->min, event_time->sec,
           lconfd_notification_text(values, num_values).c_str());
}

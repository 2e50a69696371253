// The adapter's detached threads: registering the subscriptions, which waits for the framework's start, and
// reading configuration, which waits until the main thread has served it. And the mask by which the router's
// daemons take turns at their first reading.
#include "lconfd/lconfd_private.h"

#include "platform/confd/confd_maapi.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <new>
#include <unistd.h>

static constexpr const char *mask_path = "/lconfd-initial-read-priority";
static constexpr int mask_name_space = 1480636862;
static constexpr int locked_session = CDB_LOCK_WAIT | CDB_LOCK_REQUEST;

// ---- Threads ----

// Writing to a pipe or socket whose other end is gone is a failure, not the end of the process.
void lconfd_thread_block_sigpipe()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

bool lconfd_thread_start_detached(void *(*main)(void *), void *arg)
{
    pthread_attr_t attributes;
    pthread_t thread;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    int result = pthread_create(&thread, &attributes, main, arg);
    pthread_attr_destroy(&attributes);
    return result == 0;
}

// ---- The mask ----

// A session on the operational store. The flags take the lock for each write alone: a reader never waits for
// a notification that the main thread has not acknowledged.
static bool open_mask_session(const LconfdSocket &data)
{
    if (data.fd < 0) {
        LCONFD_LOG("Failed to open data socket");
        return false;
    }
    if (cdb_connect(data.fd, CDB_DATA_SOCKET, lconfd_address(), LCONFD_ADDRESS_SIZE) != CONFD_OK) {
        LCONFD_LOG("Failed to connect data socket to confd %s (%d) : %s", LCONFD_WHY);
        return false;
    }
    if (cdb_start_session2(data.fd, CDB_OPERATIONAL, locked_session) != CONFD_OK) {
        LCONFD_LOG("Failed to start cdb session %s (%d) : %s", LCONFD_WHY);
        return false;
    }
    return true;
}

static bool get_mask(const LconfdSocket &data, confd_value_t *p_value)
{
    if (cdb_get(data.fd, p_value, "%s", mask_path) == CONFD_OK)
        return true;
    LCONFD_LOG("Failed to get lconfd-initial-read-priority %s (%d) : %s", LCONFD_WHY);
    return false;
}

int lconfd_mask_allows_read(uint32_t module)
{
    LconfdSocket data;
    confd_value_t val = {};
    if (!open_mask_session(data) || !get_mask(data, &val))
        return 0;
    LUM_ASSERT(val.type == C_BIT32, "(&val)->type == C_BIT32");
    cdb_end_session(data.fd);
    uint32_t own_priority = lconfd_lum_module_get_initial_read_priority(module);
    for (uint32_t priority = 0; priority < own_priority; priority++) {
        if ((val.val.b32 & lconfd_get_initial_read_priority_to_confd_val(priority)) != 0)
            continue;
        LCONFD_DEBUG("Initial config read not allowed (curr priority:%u, mod priority:%u)", priority,
                     own_priority);
        return 0;
    }
    return 1;
}

int lconfd_can_read_initial_config(t_lconfd_context *ctx)
{
    return ctx->init_config_read_done == 0 ? lconfd_mask_allows_read(ctx->module_data.mod_id) : 0;
}

// Reading and writing needs no lock: the order lets one daemon at a time come here.
int lconfd_set_initial_config_read_done(uint32_t module)
{
    uint32_t bit =
        lconfd_get_initial_read_priority_to_confd_val(lconfd_lum_module_get_initial_read_priority(module));
    if (bit == 0)
        return 0;
    LconfdSocket data;
    confd_value_t curr_val = {};
    if (!open_mask_session(data) || !get_mask(data, &curr_val))
        return 1;
    LUM_ASSERT(curr_val.type == C_BIT32, "(&curr_val)->type == C_BIT32");
    curr_val.val.b32 |= bit;
    if (cdb_set_elem(data.fd, &curr_val, "%s", mask_path) != CONFD_OK) {
        LCONFD_LOG("Failed to set lconfd-initial-read-priority %s (%d) : %s", LCONFD_WHY);
        return 1;
    }
    LCONFD_DEBUG("Set lconfd-initial-read-priority to %u", curr_val.val.b32);
    cdb_end_session(data.fd);
    return 0;
}

// ---- Reading ----

std::unique_ptr<t_lconfd_thread_sub_list> lconfd_sub_list_new(const t_lconfd_context *ctx)
{
    std::unique_ptr<t_lconfd_thread_sub_list> list(new (std::nothrow) t_lconfd_thread_sub_list{});
    if (list == nullptr) {
        LCONFD_LOG("Failed to allocate memory for subscription list");
        return nullptr;
    }
    list->lconfd_ctx_p = const_cast<t_lconfd_context *>(ctx);
    list->anchor = ctx->anchor;
    return list;
}

static void list_add(t_lconfd_thread_sub_list *p_list, int id, bool is_oper)
{
    LUM_ASSERT(static_cast<size_t>(p_list->num_sub) < LCONFD_MAX_SUB_IDS, "num_sub < 128");
    p_list->sub_ids[p_list->num_sub] = id;
    p_list->oper_sub[p_list->num_sub++] = is_oper;
}

void lconfd_sub_list_add_all(t_lconfd_thread_sub_list *p_list, const t_lconfd_context *ctx)
{
    p_list->is_initial = true;
    for (t_lconfd_sub_entry *p_entry = lconfd_sub_next(ctx, nullptr); p_entry != nullptr;
         p_entry = lconfd_sub_next(ctx, p_entry))
        list_add(p_list, p_entry->id, p_entry->oper_data != 0);
}

// The first read has not come to its trigger: whoever looks next may begin it again.
static void give_up(const t_lconfd_thread_sub_list &list)
{
    std::lock_guard guard(list.anchor->lock);
    if (list.is_initial && list.anchor->p_ctx != nullptr)
        list.anchor->p_ctx->init_read_started = 0;
}

// Each call waits until the main thread has served the last notification of it.
static void trigger(int fd, const t_lconfd_thread_sub_list &list, bool is_oper)
{
    const char *kind = is_oper ? "oper" : "config";
    int ids[LCONFD_MAX_SUB_IDS];
    int count = 0;
    for (int i = 0; i < list.num_sub; i++)
        if ((list.oper_sub[i] != 0) == is_oper)
            ids[count++] = list.sub_ids[i];
    if (count == 0)
        return;
    int result = is_oper ? cdb_trigger_oper_subscriptions(fd, ids, count, 1)
                         : cdb_trigger_subscriptions(fd, ids, count);
    if (result == CONFD_OK)
        LCONFD_DEBUG("Triggered %u %s subscriptions", static_cast<unsigned>(count), kind);
    else
        LCONFD_LOG("Failed to trigger config subscription (%s - %d)%s (%d) : %s", lconfd_module_name(),
                   result, LCONFD_WHY);
}

// The module whose first read has ended just now, or 0.
static uint32_t take_first_end(const t_lconfd_thread_sub_list &list)
{
    std::lock_guard guard(list.anchor->lock);
    t_lconfd_context *ctx = list.anchor->p_ctx;
    if (ctx == nullptr || ctx->init_config_read_done.exchange(1) != 0)
        return LUM_MODULE_UNKNOWN;
    return ctx->module_data.mod_id;
}

static void *lconfd_thread_read_sub_config(void *arg)
{
    std::unique_ptr<t_lconfd_thread_sub_list> list(static_cast<t_lconfd_thread_sub_list *>(arg));
    lconfd_thread_block_sigpipe();
    LconfdSocket data;
    int result = CONFD_ERR;
    if (data.fd < 0)
        LCONFD_LOG("Failed to open data socket to read init config (%s)", lconfd_module_name());
    else if (result = cdb_connect(data.fd, CDB_DATA_SOCKET, lconfd_address(), LCONFD_ADDRESS_SIZE);
             result != CONFD_OK)
        LCONFD_LOG("Failed to connect init data socket to confd (%s - %d)", lconfd_module_name(), result);
    if (result != CONFD_OK) {
        give_up(*list);
        return nullptr;
    }
    trigger(data.fd, *list, false);
    trigger(data.fd, *list, true);
    uint32_t module = take_first_end(*list);
    if (module != LUM_MODULE_UNKNOWN) {
        LCONFD_DEBUG("Initial config read done");
        lconfd_set_initial_config_read_done(module);
    }
    return nullptr;
}

void lconfd_sub_list_read(std::unique_ptr<t_lconfd_thread_sub_list> list)
{
    if (list->num_sub == 0)
        return;
    if (lconfd_thread_start_detached(lconfd_thread_read_sub_config, list.get()))
        static_cast<void>(list.release());
    else
        give_up(*list);
}

int lconfd_read_sub_config(t_lconfd_context *ctx, const int *sub_ids, int count)
{
    if (count == 0)
        return 0;
    auto list = lconfd_sub_list_new(ctx);
    if (list == nullptr)
        return LCONFD_STATUS_MEM_FAIL;
    for (int i = 0; i < count; i++)
        list_add(list.get(), sub_ids[i], false);
    lconfd_sub_list_read(std::move(list));
    return 0;
}

int lconfd_read_sub_config_all(t_lconfd_context *ctx)
{
    auto list = lconfd_sub_list_new(ctx);
    if (list == nullptr)
        return LCONFD_STATUS_MEM_FAIL;
    {
        std::lock_guard guard(ctx->anchor->lock);
        lconfd_sub_list_add_all(list.get(), ctx);
    }
    lconfd_sub_list_read(std::move(list));
    return 0;
}

// What is committed before the read is served is in it, and not served by itself.
void lconfd_read_own_config(t_lconfd_context *ctx)
{
    int ids[LCONFD_MAX_SUB_IDS];
    int count = 0;
    {
        std::lock_guard guard(ctx->anchor->lock);
        for (t_lconfd_sub_entry *p_entry = lconfd_subscription_points; p_entry->path[0] != '\0'; p_entry++) {
            p_entry->init_cfg_read = 0;
            ids[count++] = p_entry->id;
        }
    }
    if (ctx->init_config_read_done == 1)
        lconfd_read_sub_config(ctx, ids, count);
}

// ---- Registering ----

namespace {

// The registration thread's own: it may outlive the connection that it was started for, and the context.
struct t_registration {
    t_registration(const t_lconfd_context &ctx)
        : anchor(ctx.anchor), generation(ctx.anchor->generation), module(ctx.module_data.mod_id),
          pipe_fd(fcntl(ctx.pipe_fd[1], F_DUPFD_CLOEXEC, 0))
    {}
    ~t_registration()
    {
        if (pipe_fd >= 0)
            close(pipe_fd);
    }
    t_registration(const t_registration &) = delete;
    t_registration &operator=(const t_registration &) = delete;

    std::shared_ptr<t_lconfd_anchor> anchor;
    uint64_t generation;
    uint32_t module;
    int pipe_fd;
};

// The context for as long as this stands, or null when its connection is gone.
struct t_hold {
    explicit t_hold(const t_registration &registration)
        : guard(registration.anchor->lock),
          ctx(registration.anchor->generation == registration.generation ? registration.anchor->p_ctx
                                                                         : nullptr)
    {}

    std::lock_guard<std::mutex> guard;
    t_lconfd_context *ctx;
};

}  // namespace

static void tell(const t_registration &registration, char word)
{
    // When nobody reads any more there is nobody to tell.
    [[maybe_unused]] ssize_t size = write(registration.pipe_fd, &word, sizeof(word));
}

static bool load_schemas(const t_registration &registration)
{
    {
        std::lock_guard guard(registration.anchor->lock);
        if (registration.anchor->schemas_loaded)
            return true;
    }
    if (confd_load_schemas(lconfd_address(), LCONFD_ADDRESS_SIZE) != CONFD_OK) {
        LCONFD_LOG("Failed to load schemas %s (%d) : %s", LCONFD_WHY);
        return false;
    }
    std::lock_guard guard(registration.anchor->lock);
    registration.anchor->schemas_loaded = true;
    return true;
}

static bool wait_phase(const LconfdSocket &maapi, int phase)
{
    LCONFD_DEBUG("Waiting for confd phase %d", phase);
    if (maapi_wait_start(maapi.fd, phase) == CONFD_OK)
        return true;
    LCONFD_LOG("Failed to wait for confd phase %d %s (%d) : %s", phase, LCONFD_WHY);
    return false;
}

static bool install_keys(const LconfdSocket &maapi)
{
    LCONFD_DEBUG("Installing crypto keys");
    if (maapi_install_crypto_keys(maapi.fd) == CONFD_OK)
        return true;
    LCONFD_LOG("Failed to install crypto keys %s (%d) : %s", LCONFD_WHY);
    return false;
}

static bool wait_for_confd(const LconfdSocket &data)
{
    LconfdSocket maapi;
    if (maapi.fd < 0 || maapi_connect(maapi.fd, lconfd_address(), LCONFD_ADDRESS_SIZE) != CONFD_OK) {
        LCONFD_LOG("Failed to connect maapi socket to confd %s (%d) : %s", LCONFD_WHY);
        return false;
    }
    if (data.fd < 0 ||
        cdb_connect(data.fd, CDB_DATA_SOCKET, lconfd_address(), LCONFD_ADDRESS_SIZE) != CONFD_OK) {
        LCONFD_LOG("Failed to connect data socket to confd %s (%d) : %s", LCONFD_WHY);
        return false;
    }
    return wait_phase(maapi, 1) && install_keys(maapi) && wait_phase(maapi, 2);
}

static bool check_subscribed(int result, const char *path, int id, const char *kind)
{
    if (result == CONFD_OK)
        LCONFD_LOG("Subscribed for %s (id: %u, type: %s)", path, static_cast<unsigned>(id), kind);
    else
        LCONFD_LOG("Failed to subscribe for %s %s (%d) : %s", path, LCONFD_WHY);
    return result == CONFD_OK;
}

static bool subscribe_entry(t_lconfd_context *ctx, t_lconfd_sub_entry *p_entry)
{
    int sock = ctx->sub_socket;
    int space = p_entry->name_space;
    const char *path = p_entry->path;
    p_entry->lconfd_ctx_p = ctx;
    if (p_entry->oper_data != 0)
        return check_subscribed(cdb_oper_subscribe(sock, space, &p_entry->id, "/%s", path), path, p_entry->id,
                                "OPER");
    if (p_entry->two_phase != 0)
        return check_subscribed(cdb_subscribe2(sock, CDB_SUB_RUNNING_TWOPHASE, 0, p_entry->priority,
                                               &p_entry->id, space, "/%s", path),
                                path, p_entry->id, "TWO PHASE");
    int result = cdb_subscribe(sock, p_entry->priority, space, &p_entry->id, "/%s", path);
    if (!check_subscribed(result, path, p_entry->id, "ADD"))
        return false;
    if (p_entry->del_priority == 0)
        return true;
    result = cdb_subscribe(sock, p_entry->del_priority, space, &p_entry->del_sub_id, "/%s", path);
    return check_subscribed(result, path, p_entry->del_sub_id, "DEL");
}

static bool subscribe_mask(const t_registration &registration)
{
    t_hold hold(registration);
    if (hold.ctx == nullptr)
        return false;
    int sock = hold.ctx->sub_socket;
    if (cdb_connect(sock, CDB_SUBSCRIPTION_SOCKET, lconfd_address(), LCONFD_ADDRESS_SIZE) != CONFD_OK) {
        LCONFD_LOG("Failed to connect subscription socket to confd %s (%d) : %s", LCONFD_WHY);
        return false;
    }
    int *p_id = &hold.ctx->module_data.initial_read_priority_sub_id;
    return check_subscribed(cdb_oper_subscribe(sock, mask_name_space, p_id, "%s", mask_path), mask_path,
                            *p_id, "OPER");
}

// *p_entry goes on to the next entry, null behind the last.
static bool subscribe_next(const t_registration &registration, t_lconfd_sub_entry **pp_entry)
{
    t_hold hold(registration);
    if (hold.ctx == nullptr)
        return false;
    *pp_entry = lconfd_sub_next(hold.ctx, *pp_entry);
    return *pp_entry == nullptr || subscribe_entry(hold.ctx, *pp_entry);
}

static bool subscribe_done(const t_registration &registration)
{
    t_hold hold(registration);
    if (hold.ctx == nullptr)
        return false;
    if (cdb_subscribe_done(hold.ctx->sub_socket) == CONFD_OK)
        return true;
    LCONFD_LOG("Failed to end subscribing %s (%d) : %s", LCONFD_WHY);
    return false;
}

static bool subscribe_all(const t_registration &registration)
{
    LCONFD_DEBUG("Confd in phase 2 - Subscribing to cdb");
    if (!subscribe_mask(registration))
        return false;
    t_lconfd_sub_entry *p_entry = nullptr;
    do {
        if (!subscribe_next(registration, &p_entry))
            return false;
    } while (p_entry != nullptr);
    if (!subscribe_done(registration))
        return false;
    tell(registration, LCONFD_PIPE_SUBSCRIBED);
    return true;
}

static bool is_first_read_open(const t_registration &registration)
{
    t_hold hold(registration);
    return hold.ctx != nullptr && hold.ctx->init_config_read_done == 0;
}

// The first read, if it is this daemon's turn and nobody else has begun it.
static bool read_first(const t_registration &registration)
{
    if (!is_first_read_open(registration) || lconfd_mask_allows_read(registration.module) == 0)
        return true;
    std::unique_ptr<t_lconfd_thread_sub_list> list;
    {
        t_hold hold(registration);
        if (hold.ctx == nullptr || hold.ctx->init_read_started.exchange(1) != 0)
            return true;
        list = lconfd_sub_list_new(hold.ctx);
        if (list != nullptr)
            lconfd_sub_list_add_all(list.get(), hold.ctx);
        else
            hold.ctx->init_read_started = 0;
    }
    if (list == nullptr) {
        LCONFD_LOG("Initial trigger for subscriptions failed");
        return false;
    }
    lconfd_sub_list_read(std::move(list));
    return true;
}

static void *lconfd_thread_register_subscriptions(void *arg)
{
    std::unique_ptr<t_registration> registration(static_cast<t_registration *>(arg));
    lconfd_thread_block_sigpipe();
    LconfdSocket data;
    if (!load_schemas(*registration) || !wait_for_confd(data) || !subscribe_all(*registration) ||
        !read_first(*registration))
        tell(*registration, LCONFD_PIPE_RETRY);
    return nullptr;
}

void lconfd_register_subscriptions(t_lconfd_context *ctx)
{
    auto registration = std::make_unique<t_registration>(*ctx);
    if (lconfd_thread_start_detached(lconfd_thread_register_subscriptions, registration.get()))
        static_cast<void>(registration.release());
}

#include "tests/lconfd/framework.h"

#include "platform/confd/confd_cdb.h"

#include <arpa/inet.h>
#include <csignal>
#include <event2/event.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

// ---- The system ----

static bool raise_loopback()
{
    ifreq request = {};
    snprintf(request.ifr_name, sizeof(request.ifr_name), "lo");
    request.ifr_flags = IFF_UP;
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    bool is_up = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    close(fd);
    return is_up;
}

static bool enter_namespaces()
{
    int flags = CLONE_NEWNS | CLONE_NEWNET;
    uid_t uid = geteuid();
    if (uid == 0)
        return unshare(flags) == 0;
    if (unshare(CLONE_NEWUSER | flags) != 0)
        return false;
    std::ofstream("/proc/self/uid_map") << "0 " << uid << " 1";
    return geteuid() == 0;
}

static bool make_own_system()
{
    return enter_namespaces() && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", "/etc", "tmpfs", 0, nullptr) == 0 &&
           mount("none", "/dev/shm", "tmpfs", 0, nullptr) == 0 && raise_loopback() &&
           std::filesystem::create_directory("/etc/confd") &&
           (std::ofstream("/etc/confd/confd_ipc_secret") << "word\n").good();
}

bool own_system()
{
    static const bool is_made = make_own_system();
    return is_made;
}

// ---- The management daemon ----

namespace {

struct t_model {
    schema_context_ptr context;
    std::unique_ptr<const t_schema_index> index;
};

}  // namespace

// Loaded once for all tests of the process.
static const t_model &model()
{
    static const t_model loaded = [] {
        std::string error;
        std::vector<std::string> errors;
        t_model made;
        made.context = schema_context_new(TEST_YANG_FOLDER, &error);
        made.index = schema_index_new(made.context.get(), &errors);
        return made;
    }();
    return loaded;
}

Framework::Framework(int phase, bool supplies) : start_phase(phase), supplies_mask(supplies)
{
    char path[] = "/tmp/lconfd-test-XXXXXX";
    folder = mkdtemp(path);
    signal(SIGPIPE, SIG_IGN);
    start();
}

Framework::~Framework()
{
    if (server != nullptr)
        stop();
    std::filesystem::remove_all(folder);
}

static void keep_trap(void *p_ctx, const t_ipc_snmp_notification &notification)
{
    std::string text = notification.notify_name + " " + notification.notification;
    for (const t_ipc_varbind &varbind : notification.varbinds)
        text += " " + varbind.name;
    Framework *p_framework = static_cast<Framework *>(p_ctx);
    std::lock_guard guard(p_framework->traps_lock);
    p_framework->traps.push_back(text);
}

static constexpr t_mgmt_snmp_ops snmp_ops = {.send = keep_trap};

void Framework::start()
{
    t_mgmt_error reason;
    std::string error;
    p_base = event_base_new();
    t_mgmt_engine_options options = {.store_folder = folder,
                                     .supply_read_priority = supplies_mask,
                                     .now_ms = nullptr,
                                     .p_snmp = &snmp_ops,
                                     .p_snmp_ctx = this};
    engine = mgmt_engine_new(p_base, model().index.get(), model().context.get(), options, &reason);
    ASSERT_NE(engine, nullptr) << mgmt_error_text(reason);
    server = ipc_server_open(p_base, engine.get(), {.secret = "word"}, &error);
    ASSERT_NE(server, nullptr) << error;
    session = mgmt_session_open(engine.get(), {.name = "admin", .context = "cli"});
    mgmt_engine_set_phase(engine.get(), start_phase);
    owner = std::thread([this] { event_base_loop(p_base, EVLOOP_NO_EXIT_ON_EMPTY); });
}

void Framework::stop()
{
    mgmt_engine_post(engine.get(), [this] { event_base_loopbreak(p_base); });
    owner.join();
    server.reset();
    engine.reset();
    event_base_free(p_base);
}

void Framework::set_phase(int phase)
{
    mgmt_engine_post(engine.get(), [this, phase] { mgmt_engine_set_phase(engine.get(), phase); });
}

std::future<t_mgmt_commit_result> Framework::commit(const std::string &json)
{
    auto promise = std::make_shared<std::promise<t_mgmt_commit_result>>();
    auto on_edited = [this, promise](const t_mgmt_error &error) {
        EXPECT_EQ(error.code, MGMT_OK) << mgmt_error_text(error);
        t_mgmt_commit_request request;
        request.done = [promise](const t_mgmt_commit_result &done) { promise->set_value(done); };
        mgmt_commit(engine.get(), session, std::move(request));
    };
    mgmt_engine_post(engine.get(), [this, json, on_edited] {
        std::vector<t_mgmt_edit> edits;
        t_mgmt_error error;
        EXPECT_TRUE(mgmt_edit_read_json(*model().index, json, &edits, &error)) << mgmt_error_text(error);
        mgmt_edit(engine.get(), session, std::move(edits), on_edited);
    });
    return promise->get_future();
}

std::future<std::string> Framework::command(const std::string &path)
{
    auto promise = std::make_shared<std::promise<std::string>>();
    auto output = std::make_shared<std::string>();
    mgmt_engine_post(engine.get(), [this, path, promise, output] {
        t_mgmt_action_request request;
        request.p_rpc = schema_find(*model().index, path);
        request.output = [output](std::string_view text) { *output += text; };
        request.done = [promise, output](const t_mgmt_action_result &done) {
            promise->set_value(done.error.code == MGMT_OK ? *output : mgmt_error_text(done.error));
        };
        mgmt_action(engine.get(), session, std::move(request));
    });
    return promise->get_future();
}

// ---- What daemons tell ----

std::vector<std::string> Framework::take_traps()
{
    std::lock_guard guard(traps_lock);
    return std::exchange(traps, {});
}

std::future<std::vector<std::string>> Framework::notifications()
{
    auto promise = std::make_shared<std::promise<std::vector<std::string>>>();
    mgmt_engine_post(engine.get(), [this, promise] {
        std::vector<std::string> texts;
        for (const t_mgmt_notification &notification : mgmt_notifications(*engine))
            texts.push_back(notification.json);
        promise->set_value(texts);
    });
    return promise->get_future();
}

// ---- Another daemon ----

std::future<int> Framework::set_mask(uint32_t mask)
{
    return std::async(std::launch::async, [mask] {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(CONFD_PORT);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        confd_value_t value = {.type = C_BIT32, .val = {}};
        value.val.b32 = mask;
        int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        int result =
            cdb_connect(fd, CDB_DATA_SOCKET, reinterpret_cast<sockaddr *>(&address), sizeof(address));
        if (result == CONFD_OK)
            result = cdb_start_session2(fd, CDB_OPERATIONAL, CDB_LOCK_WAIT | CDB_LOCK_REQUEST);
        if (result == CONFD_OK)
            result = cdb_set_elem(fd, &value, "/lconfd-initial-read-priority");
        close(fd);
        return result;
    });
}

// The transport with the real engine and operations behind it, over loopback: logins, crowds, hostile
// messages, waiting sessions, orderly ends.

#include "mgmtd/control/control_peer.h"
#include "mgmtd/netconf/mgmt_netconf.h"
#include "mgmtd/netconf/netconf_guard.h"
#include "mgmtd/netconf/netconf_host_key.h"
#include "mgmtd/netconf/netconf_modules.h"
#include "mgmtd/rights/mgmt_users.h"
#include "tests/mgmtd/netconf/netconf_client.h"
#include "tests/mgmtd/test_daemon.h"

#include <arpa/inet.h>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

static const bool modules_are_set = (TestWorld::load_more = netconf_modules_load) != nullptr;

using namespace std::chrono_literals;

// A world with the transport, and users "anna" (password and key) and "boris" (password), administrators.
struct NetconfWorld {
    explicit NetconfWorld(size_t max_notifications = NETCONF_NOTIFICATIONS);
    ~NetconfWorld();

    // Runs a client beside the turning world.
    template <typename Result>
    Result with(std::function<Result()> client)
    {
        auto result = std::async(std::launch::async, std::move(client));
        auto deadline = std::chrono::steady_clock::now() + 120s;
        while (result.wait_for(0s) != std::future_status::ready) {
            EXPECT_LT(std::chrono::steady_clock::now(), deadline);
            world.turn();
            std::this_thread::sleep_for(500us);
        }
        return result.get();
    }

    std::string login(NetconfClient *p_client, const char *user = "anna", const char *password = "secret a")
    {
        return with<std::string>([=, this] { return p_client->login(port, user, password, nullptr); });
    }
    std::string ask(NetconfClient *p_client, const std::string &operation)
    {
        return with<std::string>([=] { return p_client->ask(operation); });
    }
    void stop();

    TestWorld world;
    ssh_key_ptr key;
    mgmt_netconf_ptr netconf;
    t_mgmt_netconf_options options;
    int port = 0;
};

static ssh_key_ptr key_new()
{
    ssh_key p_key = nullptr;
    EXPECT_EQ(ssh_pki_generate(SSH_KEYTYPE_ED25519, 0, &p_key), SSH_OK);
    return ssh_key_ptr(p_key);
}

NetconfWorld::NetconfWorld(size_t max_notifications) : key(key_new())
{
    char *p_text = nullptr;
    EXPECT_EQ(ssh_pki_export_pubkey_base64(key.get(), &p_text), SSH_OK);
    std::string edit = R"([{"op":"merge","path":"/users","value":{"user":[
        {"name":"anna","group":"admin","password":")" +
                       mgmt_password_hash("secret a") +
                       R"(","authorized-key":[{"name":"k","algorithm":"ssh-ed25519","key-data":")" + p_text +
                       R"("}]},{"name":"boris","group":"admin","password":")" +
                       mgmt_password_hash("secret b") + R"("}]}}])";
    ssh_string_free_char(p_text);
    t_mgmt_error edited = world.edit(edit);
    EXPECT_EQ(edited.code, MGMT_OK) << mgmt_error_text(edited);
    EXPECT_EQ(world.commit().error.code, MGMT_OK);
    std::string error;
    options = {.address = "127.0.0.1",
               .port = 0,
               .host_key = world.folder + "/ssh_host_key",
               .socket = world.folder + "/netconf.sock",
               .group = CONTROL_NO_GROUP,
               .max_notifications = max_notifications};
    ly_ctx *p_context = const_cast<ly_ctx *>(mgmt_engine_context(*world.engine));
    netconf = mgmt_netconf_open(world.engine.get(), p_context, options, &error);
    EXPECT_NE(netconf, nullptr) << error;
    EXPECT_TRUE(mgmt_netconf_start(netconf.get(), &error)) << error;
    port = mgmt_netconf_port(*netconf);
}

void NetconfWorld::stop()
{
    bool has_stopped = false;
    mgmt_netconf_stop(netconf.get(), [&] { has_stopped = true; });
    EXPECT_TRUE(world.until([&] { return has_stopped; }));
    netconf.reset();
}

NetconfWorld::~NetconfWorld()
{
    if (netconf != nullptr)
        stop();
}

static constexpr const char *get_config =
    "<get-config><source><running/></source><filter type=\"subtree\"><users "
    "xmlns=\"urn:lumora:yang:system\"><user><name/></user></users></filter></get-config>";

// ---- Logins ----

TEST(NetconfLogin, UsersComeInByKeyAndPasswordAndNobodyElse)
{
    NetconfWorld world;
    ssh_key_ptr other = key_new();
    struct {
        const char *user;
        const char *password;
        ssh_key p_key;
        const char *want;
    } cases[] = {
        {"anna", "", world.key.get(), ""},        {"anna", "", other.get(), "denied"},
        {"boris", "", world.key.get(), "denied"}, {"anna", "secret a", nullptr, ""},
        {"anna", "secret b", nullptr, "denied"},  {"nobody", "secret a", nullptr, "denied"},
        {"nobody", "", nullptr, "denied"},        {"boris", "secret b", nullptr, ""},
    };
    for (const auto &c : cases) {
        NetconfClient client;
        EXPECT_EQ(
            world.with<std::string>([&] { return client.login(world.port, c.user, c.password, c.p_key); }),
            c.want)
            << c.user << " " << c.password;
        if (*c.want != '\0')
            continue;
        std::string reply = world.ask(&client, get_config);
        EXPECT_NE(reply.find("<name>boris</name>"), std::string::npos) << reply;
        EXPECT_NE(world.ask(&client, "<close-session/>").find("<ok/>"), std::string::npos);
        EXPECT_EQ(world.with<std::string>([&] { return client.read_message(); }), "");
    }
    EXPECT_TRUE(world.world.until([&] { return mgmt_netconf_monitor(*world.netconf)->sessions.empty(); }));
    EXPECT_EQ(mgmt_netconf_monitor(*world.netconf)->in_sessions, 3u);
    EXPECT_EQ(mgmt_netconf_monitor(*world.netconf)->dropped_sessions, 0u);
}

TEST(NetconfLogin, RootOnTheLocalSocketIsInWithoutAPassword)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root";
    NetconfWorld world;
    NetconfClient client;
    EXPECT_EQ(world.with<std::string>([&] { return client.connect_local(world.options.socket); }), "");
    EXPECT_NE(world.ask(&client, get_config).find("boris"), std::string::npos);
    EXPECT_NE(world.ask(&client, get_config).find("boris"), std::string::npos) << "and again";
}

TEST(NetconfLogin, AUserHasSixteenSessions)
{
    NetconfWorld world;
    std::vector<std::unique_ptr<NetconfClient>> clients;
    for (size_t i = 0; i <= NETCONF_SESSIONS_USER; i++) {
        clients.push_back(std::make_unique<NetconfClient>());
        EXPECT_EQ(world.login(clients.back().get()), i < NETCONF_SESSIONS_USER ? "" : "refused") << i;
    }
    clients.erase(clients.begin());
    NetconfClient next;
    EXPECT_TRUE(world.world.until(
        [&] { return mgmt_netconf_monitor(*world.netconf)->sessions.size() < NETCONF_SESSIONS_USER; }));
    EXPECT_EQ(world.login(&next), "");
}

TEST(NetconfHostKey, IsMadeOnceAndPrivate)
{
    char folder[] = "/tmp/netconf-key-XXXXXX";
    std::string path = std::string(mkdtemp(folder)) + "/key";
    std::string error;
    ssh_key_ptr made = netconf_host_key_open(path, &error);
    ASSERT_NE(made, nullptr) << error;
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600));
    ssh_key_ptr again = netconf_host_key_open(path, &error);
    ASSERT_NE(again, nullptr) << error;
    EXPECT_EQ(ssh_key_cmp(made.get(), again.get(), SSH_KEY_CMP_PRIVATE), 0);
    std::filesystem::permissions(path, std::filesystem::perms(0640));
    EXPECT_EQ(netconf_host_key_open(path, &error), nullptr);
    EXPECT_EQ(error, "SSH host key " + path + ": others than its owner may read or write it");
    std::filesystem::permissions(path, std::filesystem::perms(0600));
    std::ofstream(path) << "nothing";
    EXPECT_EQ(netconf_host_key_open(path, &error), nullptr);
    EXPECT_EQ(error, "SSH host key " + path + ": it holds no private key without a passphrase");
    EXPECT_EQ(netconf_host_key_open(path + "/none", &error), nullptr);
    EXPECT_EQ(error, "SSH host key " + path + "/none: Not a directory");
    std::filesystem::remove_all(folder);
}

// ---- Crowds ----

static int peer_new(int port, const std::string &bytes)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const void *p_address = &address;
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(connect(fd, static_cast<const sockaddr *>(p_address), sizeof(address)), 0);
    EXPECT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    return fd;
}

TEST(NetconfCrowd, SilentAndHalfOpenPeersKeepNobodyOut)
{
    static constexpr const char *beginnings[] = {"", "SSH-2", "SSH-2.0-half\r\n"};
    NetconfWorld world;
    std::vector<int> peers;
    for (size_t i = 0; i < 600; i++)
        peers.push_back(peer_new(world.port, beginnings[i % 3]));
    auto begun = std::chrono::steady_clock::now();
    NetconfClient client;
    EXPECT_EQ(world.login(&client), "");
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 15s);
    EXPECT_NE(world.ask(&client, get_config).find("boris"), std::string::npos);
    world.stop();
    for (int fd : peers)
        close(fd);
}

TEST(NetconfCrowd, OneSessionsCommitKeepsNoOtherWaiting)
{
    NetconfWorld world;
    TestSubscriber subscriber(&world.world, "d");
    subscriber.add("/policy/zone", 1);
    subscriber.done();
    subscriber.hold = true;
    NetconfClient committer;
    NetconfClient reader;
    ASSERT_EQ(world.login(&committer), "");
    ASSERT_EQ(world.login(&reader, "boris", "secret b"), "");
    std::string edited = world.ask(&committer, "<edit-config><target><candidate/></target><config><policy "
                                               "xmlns=\"urn:lumora:yang:policy\"><zone><name>z</name></zone>"
                                               "</policy></config></edit-config>");
    EXPECT_NE(edited.find("<ok/>"), std::string::npos) << edited;
    committer.send("<commit/>");
    ASSERT_TRUE(world.world.until([&] { return subscriber.open_count == 1; }));
    auto fastest = 10000ms;
    for (int i = 0; i < 5; i++) {
        auto begun = std::chrono::steady_clock::now();
        EXPECT_NE(world.ask(&reader, get_config).find("boris"), std::string::npos);
        auto took = std::chrono::steady_clock::now() - begun;
        fastest = std::min(fastest, std::chrono::duration_cast<std::chrono::milliseconds>(took));
    }
    EXPECT_LT(fastest, 200ms);
    EXPECT_EQ(subscriber.open_count, 1) << "the commit has ended";
    world.stop();  // with the commit under way
    EXPECT_EQ(committer.read_message(), "");
}

// One who never reads, beside one who does.
TEST(NetconfCrowd, ASlowSubscriberLosesItsSessionAndHarmsNobody)
{
    static constexpr size_t batch = 20;
    static constexpr size_t most = 20000;
    static constexpr const char *subscribe =
        "<create-subscription xmlns=\"urn:ietf:params:xml:ns:netconf:notification:1.0\"/>";
    NetconfWorld world(2 * batch);
    TestDaemon daemon(&world.world, "d");
    t_ipc_reg_notif stream = {.name = "lumora", .context = "", .worker_conn_id = daemon.worker.id};
    t_ipc_frame enlisted = daemon.control.request(IPC_OP_REG_NOTIF_STREAM, ipc_encode(stream));
    int32_t sender = daemon.control.read<t_ipc_count>(enlisted).count;
    daemon.ready();
    NetconfClient slow;
    NetconfClient quick;
    ASSERT_EQ(world.with<std::string>([&] { return slow.connect_local(world.options.socket); }), "");
    ASSERT_EQ(world.login(&quick), "");
    ASSERT_NE(world.ask(&slow, subscribe).find("<ok/>"), std::string::npos);
    ASSERT_NE(world.ask(&quick, subscribe).find("<ok/>"), std::string::npos);
    std::atomic<size_t> received = 0;
    std::thread reader([&] {
        while (quick.read_message().find("policy-name") != std::string::npos)
            received++;
    });
    const auto &sessions = mgmt_netconf_monitor(*world.netconf)->sessions;
    size_t sent = 0;
    while (sessions.size() == 2 && sent < most) {
        for (size_t i = 0; i < batch; i++, sent++)
            daemon.worker.send({.op = IPC_OP_NOTIF_SEND,
                                .kind = IPC_KIND_ONEWAY,
                                .id = 0,
                                .status = 0,
                                .body = ipc_encode(test_association(sender, "edge"))});
        EXPECT_TRUE(world.world.until([&] { return received == sent; })) << received << " of " << sent;
    }
    EXPECT_EQ(sessions.size(), 1u) << "after " << sent;
    EXPECT_EQ(received, sent);
    world.stop();
    reader.join();
}

TEST(NetconfKill, TheOtherSessionsLockIsFreeAtOnce)
{
    NetconfWorld world;
    NetconfClient holder;
    NetconfClient killer;
    static constexpr const char *lock = "<lock><target><candidate/></target></lock>";
    ASSERT_EQ(world.login(&holder), "");
    const auto &sessions = mgmt_netconf_monitor(*world.netconf)->sessions;
    ASSERT_TRUE(world.world.until([&] { return sessions.size() == 1; }));
    uint32_t id = sessions.begin()->first;
    ASSERT_EQ(world.login(&killer, "boris", "secret b"), "");
    EXPECT_NE(world.ask(&holder, lock).find("<ok/>"), std::string::npos);
    auto kill = [](uint32_t which) {
        return "<kill-session><session-id>" + std::to_string(which) + "</session-id></kill-session>";
    };
    EXPECT_NE(world.ask(&killer, kill(id + 1)).find("invalid-value"), std::string::npos) << "itself";
    EXPECT_NE(world.ask(&killer, kill(id + 2)).find("invalid-value"), std::string::npos) << "nobody";
    EXPECT_NE(world.ask(&killer, kill(id)).find("<ok/>"), std::string::npos);
    EXPECT_NE(world.ask(&killer, lock).find("<ok/>"), std::string::npos);
    EXPECT_EQ(world.with<std::string>([&] { return holder.read_message(); }), "");
}

// ---- Hostile messages ----

static std::string rpc_with(const std::string &before, const std::string &inside)
{
    return before +
           "<rpc message-id=\"7\" xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\"><edit-config><target>"
           "<candidate/></target><config>" +
           inside + "</config></edit-config></rpc>";
}

static std::string repeated(const std::string &part, size_t count)
{
    std::string text;
    text.reserve(part.size() * count);
    for (size_t i = 0; i < count; i++)
        text += part;
    return text;
}

TEST(NetconfHostile, MessagesBeyondTheLimitsAreAnsweredAndTheSessionGoesOn)
{
    NetconfWorld world;
    std::string bomb = "<!DOCTYPE r [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;\">]>";
    struct {
        const char *name;
        std::string message;
        const char *want;
    } cases[] = {
        {"deep", rpc_with("", repeated("<a>", 100000)), "too-big"},
        {"deep, hidden", rpc_with("", repeated("<a b=\"/>\"><!--</a>--><![CDATA[</a>]]>", 1000)), "too-big"},
        {"as deep as may be", rpc_with("", repeated("<a>", 60) + repeated("</a>", 60)), "unknown-namespace"},
        {"large", rpc_with("", "<a>" + std::string(16u << 20, 'x') + "</a>"), "too-big"},
        {"many", rpc_with("", repeated("<a/>", NETCONF_MAX_ELEMENTS)), "too-big"},
        {"a long XPath", rpc_with("", "<a b=\"" + repeated("/a[", 3000) + "\"/>"), "too-big"},
        {"entities", rpc_with(bomb, "<a>&b;</a>"), "operation-failed"},
        {"nothing", " ", "operation-failed"},
        {"not closed", "<rpc garbage", "operation-failed"},
        {"entities without declaration", rpc_with("", "<a>&b;</a>"), "operation-failed"},
    };
    for (const auto &c : cases) {
        NetconfClient client;
        ASSERT_EQ(world.login(&client), "");
        std::string reply = world.with<std::string>([&] {
            client.send_raw(c.message);
            return client.read_message();
        });
        std::string tag = std::string("<error-tag>") + c.want + "</error-tag>";
        EXPECT_NE(reply.find(tag), std::string::npos) << c.name << ": " << reply;
        EXPECT_NE(world.ask(&client, get_config).find("boris"), std::string::npos) << c.name;
    }
}

TEST(NetconfHostile, BrokenFramingEndsTheSession)
{
    NetconfWorld world;
    for (const char *bytes : {"\n#0\n", "\n#4294967296\n", "\n#x\n", "<rpc/>]]>]]>", "\n##\n"}) {
        NetconfClient client;
        ASSERT_EQ(world.login(&client), "");
        EXPECT_EQ(world.with<std::string>([&] {
            client.send_bytes(bytes);
            return client.read_message();
        }),
                  "")
            << bytes;
    }
}

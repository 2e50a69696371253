// Confirmed commits against a model of them: a random walk, and what it does not reach.

#include "tests/mgmtd/test_daemon.h"

#include <gtest/gtest.h>
#include <random>

// ---- The calendar, which must not matter ----

static time_t g_calendar_step;

extern "C" {
time_t __real_time(time_t *p_time);
time_t __wrap_time(time_t *p_time)
{
    time_t now = __real_time(p_time) + g_calendar_step;
    if (p_time != nullptr)
        *p_time = now;
    return now;
}
}

// ---- The model ----

namespace {

struct t_model {
    static constexpr int as_running = -1;

    int running = 0;  // the value of one leaf; 0: it is not set
    int candidate = as_running;
    bool is_pending = false;
    int before = 0;
    uint32_t giver = 0;
    std::string persist;
    int64_t due_ms = 0;
    bool undone_last = false;  // the newest commit is an undoing

    e_mgmt_error may(uint32_t session, const std::string &persist_id) const
    {
        if (!is_pending)
            return persist_id.empty() ? MGMT_OK : MGMT_ERR_NOEXISTS;
        bool may = persist.empty() ? session == giver && persist_id.empty() : persist_id == persist;
        return may ? MGMT_OK : MGMT_ERR_ACCESS_DENIED;
    }

    void undo()
    {
        if (candidate == as_running)
            candidate = running;
        running = before;
        is_pending = false;
        undone_last = true;
    }

    void commit(uint32_t session, const std::optional<t_mgmt_confirm> &confirm, int64_t now_ms)
    {
        bool changed = candidate != as_running && candidate != running;
        bool begins = confirm && !is_pending && changed;
        if (begins)
            before = running;
        is_pending = confirm && (is_pending || begins);
        if (is_pending) {
            giver = session;
            persist = confirm->persist;
            due_ms = now_ms + confirm->timeout_ms;
        }
        running = changed ? candidate : running;
        candidate = as_running;
        undone_last = undone_last && !changed;
    }
};

}  // namespace

// ---- The walk ----

namespace {

struct t_walk {
    TestWorld world;
    t_model model;
    std::mt19937 random;
    std::vector<uint32_t> sessions = {0, 0, 0};
    std::unique_ptr<TestSubscriber> subscriber;
    int told = 0;
    size_t undone = 0;

    explicit t_walk(uint32_t seed) : random(seed)
    {
        start();
    }

    uint32_t number(uint32_t limit)
    {
        return static_cast<uint32_t>(random() % limit);
    }

    std::string persist()
    {
        static constexpr const char *names[] = {"", "", "a", "b"};
        return names[number(4)];
    }

    void start()
    {
        for (uint32_t &session : sessions)
            session = mgmt_session_open(world.engine.get(), {.name = "admin", .context = "cli"});
        subscriber = std::make_unique<TestSubscriber>(&world, "d");
        subscriber->add("/policy", 1);
        subscriber->done();
        subscriber->on_batch = [this](const TestBatch &) { told = value_of(MGMT_DS_RUNNING); };
        told = value_of(MGMT_DS_RUNNING);
    }

    int value_of(e_mgmt_datastore datastore)
    {
        t_mgmt_path path;
        t_mgmt_error error;
        mgmt_tree_ptr tree = mgmt_tree_of(world.engine.get(), datastore);
        EXPECT_TRUE(mgmt_path_read(mgmt_engine_schema(*world.engine), nullptr, "/policy/log-frequency", &path,
                                   &error));
        const lyd_node *p_node = mgmt_path_node(*tree, path, &error);
        return p_node != nullptr ? atoi(mgmt_node_text(p_node)) : 0;
    }

    void edit()
    {
        int value = 1 + static_cast<int>(number(5));
        std::string json =
            R"([{"op":"merge","path":"/policy/log-frequency","value":)" + std::to_string(value) + "}]";
        ASSERT_EQ(world.edit(json, sessions[number(3)]).code, MGMT_OK);
        model.candidate = value;
    }

    void commit()
    {
        uint32_t session = sessions[number(3)];
        std::optional<t_mgmt_confirm> confirm;
        if (number(3) > 0)
            confirm = {.timeout_ms = 1000 + number(60000), .persist = persist()};
        std::string persist_id = model.is_pending && number(2) == 0 ? model.persist : persist();
        e_mgmt_error expected = model.may(session, persist_id);
        world.commit_start(confirm, session, persist_id);
        ASSERT_TRUE(world.until([&] { return world.committed.has_value(); }));
        EXPECT_EQ(world.committed->error.code, expected) << mgmt_error_text(world.committed->error);
        if (expected == MGMT_OK)
            model.commit(session, confirm, world.now_ms);
    }

    void cancel()
    {
        uint32_t session = sessions[number(3)];
        std::optional<t_mgmt_error> error;
        std::string persist_id = model.is_pending && number(2) == 0 ? model.persist : persist();
        e_mgmt_error expected = model.is_pending ? model.may(session, persist_id) : MGMT_ERR_NOEXISTS;
        mgmt_cancel_commit(world.engine.get(), session, persist_id,
                           [&](const t_mgmt_error &one) { error = one; });
        ASSERT_TRUE(world.until([&] { return error.has_value(); }));
        EXPECT_EQ(error->code, expected) << mgmt_error_text(*error);
        if (expected == MGMT_OK)
            model.undo();
    }

    void session_loss()
    {
        uint32_t &session = sessions[number(3)];
        mgmt_session_close(world.engine.get(), session);
        world.settle();
        if (model.is_pending && model.persist.empty() && model.giver == session)
            model.undo();
        session = mgmt_session_open(world.engine.get(), {.name = "admin", .context = "cli"});
    }

    void time_passes()
    {
        world.advance(number(20000));
        if (model.is_pending && world.now_ms >= model.due_ms)
            model.undo();
    }

    void restart()
    {
        subscriber.reset();
        world.restart();
        if (model.is_pending)
            model.undo();
        model.candidate = t_model::as_running;
        start();
    }

    void step()
    {
        static constexpr void (t_walk::*steps[])() = {
            &t_walk::edit,   &t_walk::edit,   &t_walk::commit,      &t_walk::commit,
            &t_walk::commit, &t_walk::cancel, &t_walk::time_passes, &t_walk::session_loss};
        bool was_pending = model.is_pending;
        uint32_t choice = number(40);
        if (choice == 0)
            restart();
        else if (choice == 1)
            g_calendar_step = static_cast<time_t>(number(2000000)) - 1000000;
        else
            (this->*steps[choice % std::size(steps)])();
        undone += was_pending && model.undone_last;
    }

    void check()
    {
        EXPECT_EQ(value_of(MGMT_DS_RUNNING), model.running);
        EXPECT_EQ(told, model.running);
        bool follows = model.candidate == t_model::as_running;
        EXPECT_EQ(value_of(MGMT_DS_CANDIDATE), follows ? model.running : model.candidate);
        auto pending = mgmt_pending_confirm(*world.engine);
        ASSERT_EQ(pending.has_value(), model.is_pending);
        if (pending) {
            EXPECT_EQ(pending->remaining_ms, model.due_ms - world.now_ms);
            EXPECT_EQ(pending->session, model.persist.empty() ? model.giver : 0);
            EXPECT_EQ(pending->number, mgmt_commits(*world.engine).front().number);
        }
        if (model.undone_last) {
            EXPECT_NE(mgmt_commits(*world.engine).front().comment.find("not confirmed, undone"),
                      std::string::npos);
        }
    }
};

}  // namespace

TEST(MgmtConfirm, AThousandRandomStepsAgreeWithTheModel)
{
    const uint32_t seed = std::random_device()();
    t_walk walk(seed);
    for (int step = 0; step < 1000 && !testing::Test::HasFailure(); step++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << " step " << step);
        walk.step();
        walk.check();
    }
    EXPECT_GT(walk.undone, 5u) << "seed " << seed;
    EXPECT_TRUE(mgmt_alarms(*walk.world.engine).empty());
    g_calendar_step = 0;
}

// What comes into being while others are at work.
TEST(MgmtConfirm, ItTakesItsTurnBesideLocksAndSubscribers)
{
    TestWorld world;
    t_mgmt_engine *p_engine = world.engine.get();
    TestSubscriber subscriber(&world, "d");
    subscriber.add("/policy", 1);
    subscriber.add("/policy", 2, CDB_SUB_RUNNING_TWOPHASE);
    subscriber.done();
    uint32_t giver = mgmt_session_open(p_engine, {.name = "giver", .context = "cli"});
    ASSERT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone{a}"}])").code, MGMT_OK);
    world.commit_start(t_mgmt_confirm{.timeout_ms = 999, .persist = ""}, giver);
    ASSERT_TRUE(world.until([&] { return world.committed.has_value(); }));
    EXPECT_EQ(world.committed->error.code, MGMT_ERR_BADTYPE);

    // Its session leaves and its time passes while subscribers are told: undone once, when they have all
    // heard.
    subscriber.on_batch = [&](const TestBatch &batch) { subscriber.hold = batch.type == CDB_SUB_COMMIT; };
    world.commit_start(t_mgmt_confirm{.timeout_ms = 5000, .persist = ""}, giver);
    ASSERT_TRUE(world.until([&] { return subscriber.hold && subscriber.is_open(); }));
    t_mgmt_error error;
    EXPECT_FALSE(mgmt_lock(p_engine, world.session, MGMT_DS_RUNNING, &error));
    EXPECT_EQ(error.code, MGMT_ERR_LOCKED);
    mgmt_session_close(p_engine, giver);
    world.advance(6000);
    EXPECT_NE(world.running(), "{}");
    EXPECT_TRUE(mgmt_pending_confirm(*p_engine).has_value());
    subscriber.on_batch = nullptr;
    subscriber.hold = false;
    subscriber.sync();
    ASSERT_TRUE(world.until([&] { return !mgmt_pending_confirm(*p_engine).has_value(); }));
    world.settle();
    EXPECT_EQ(world.running(), "{}");
    ASSERT_EQ(mgmt_commits(*p_engine).size(), 2u);
    EXPECT_EQ(mgmt_commits(*p_engine)[0].user, "system");
    EXPECT_EQ(mgmt_commits(*p_engine)[0].comment,
              "commit 1 of giver not confirmed, undone: its session has ended");
    size_t prepares = 0;
    for (const TestBatch &batch : subscriber.batches)
        prepares += batch.type == CDB_SUB_PREPARE;
    EXPECT_EQ(prepares, 1u) << "nobody is asked whether it may be undone";
    EXPECT_NE(mgmt_compare(p_engine), "") << "the candidate keeps what was undone";
    EXPECT_TRUE(mgmt_lock(p_engine, world.session, MGMT_DS_RUNNING, &error));
}

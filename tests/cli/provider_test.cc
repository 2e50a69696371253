// Tables from end to end: the built command, the management daemon's engine and control socket, and a daemon
// that gives rows.

#include "generated/lumora_schema.h"
#include "mgmtd/control/mgmt_control.h"
#include "tests/mgmtd/test_daemon.h"
#include "tests/tools/run_command.h"

#include <algorithm>
#include <future>
#include <gtest/gtest.h>

using t_rows = std::vector<std::pair<std::string, std::vector<uint64_t>>>;  // key; packets and bytes, or none

static t_ipc_dp_data row_data(const t_rows &rows, size_t at, uint32_t key_tag)
{
    t_ipc_dp_data data = {.what = IPC_DATA_END, .values = {}, .keys = {}, .next = -1};
    if (at >= rows.size())
        return data;
    data.what = IPC_DATA_OBJECT;
    data.values.push_back({.tag = {key_tag, 0}, .value = IpcValue::text(rows[at].first)});
    static constexpr uint32_t tags[] = {LUMORA_TAG_PACKETS, LUMORA_TAG_BYTES};
    for (size_t i = 0; i < rows[at].second.size(); i++) {
        confd_value_t number = {.type = C_UINT64, .val = {}};
        number.val.u64 = rows[at].second[i];
        data.values.push_back({.tag = {tags[i], 0}, .value = IpcValue(number)});
    }
    return data;
}

static std::string key_text(const std::vector<IpcValue> &keys)
{
    const confd_value_t &key = keys.at(0).v;
    return {reinterpret_cast<const char *>(key.val.buf.ptr), key.val.buf.size};
}

static void serve(TestDaemon *p_daemon, const t_ipc_frame &frame)
{
    static const t_rows lists = {{"idle", {}}, {"in", {}}};
    static const t_rows counters = {{"off", {}}, {"web", {1234, 98765432109}}};
    std::string point;
    std::string key;
    IpcKeypath keypath;
    if (frame.op == IPC_OP_DP_GET_OBJECT) {
        auto object = p_daemon->worker.read<t_ipc_dp_object>(frame);
        point = object.point;
        key = key_text(object.keypath.steps[0]);
    } else if (frame.op == IPC_OP_DP_FIND_NEXT_OBJECT) {
        auto find = p_daemon->worker.read<t_ipc_dp_find_next>(frame);
        point = find.point;
        key = key_text(find.keys);
        keypath = find.keypath;
    } else {
        auto next = p_daemon->worker.read<t_ipc_dp_next>(frame);
        point = next.point;
        keypath = next.keypath;
    }
    bool is_list = point == "access-list-counters";
    bool is_idle = !is_list && key_text(keypath.steps.at(1)) == "idle";
    const t_rows &rows = is_list ? lists : counters;
    auto found = std::ranges::find(rows, key, &t_rows::value_type::first);
    size_t at = key.empty() ? 0 : static_cast<size_t>(found - rows.begin());
    at += frame.op == IPC_OP_DP_FIND_NEXT_OBJECT ? 1 : 0;
    t_ipc_dp_data answer =
        row_data(is_idle ? t_rows() : rows, at, is_list ? LUMORA_TAG_NAME : LUMORA_TAG_COUNTER_NAME);
    p_daemon->answer(frame, ipc_encode(answer));
}

TEST(CliProvider, RowsComeAsATableAndAsJson)
{
    static constexpr uint32_t calls =
        IPC_CALL_GET_OBJECT | IPC_CALL_GET_NEXT_OBJECT | IPC_CALL_FIND_NEXT_OBJECT;
    TestWorld world;
    TestDaemon daemon(&world, "d");
    for (const char *p_point : {"access-list-counters", "access-policy-counter-list"})
        daemon.add(IPC_OP_REG_DATA, p_point, calls);
    daemon.ready();
    daemon.serve = [&](const t_ipc_frame &frame) { serve(&daemon, frame); };
    std::string socket = world.folder + "/control";
    std::string error;
    mgmt_control_ptr control = mgmt_control_open(world.p_base, world.engine.get(), {.path = socket}, &error);
    ASSERT_NE(control, nullptr) << error;
    auto run = [&](const std::string &arguments) {
        auto result =
            std::async(std::launch::async, run_command, LUMORA_CLI " -s " + socket + ' ' + arguments);
        EXPECT_TRUE(world.until(
            [&] { return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
        return result.get();
    };

    t_command_result table = run("show access-list counters");
    EXPECT_EQ(table.out, "access-list  counter  packets           bytes\n"
                         "in           off            -    (not loaded)\n"
                         "in           web        1,234  98,765,432,109\n")
        << table.err;
    EXPECT_EQ(run("show access-list counters in --json").out, R"({
  "access-list-counters": [
    {
      "kind": "acl",
      "access-list": "in",
      "counter": "off",
      "packets": null,
      "bytes": null
    },
    {
      "kind": "acl",
      "access-list": "in",
      "counter": "web",
      "packets": 1234,
      "bytes": 98765432109
    }
  ]
}
)");
    t_command_result nobody = run("show access-list counters out");
    EXPECT_EQ(nobody.err, "lumora-cli: /policy/access-list-counters{out}: there is no such node\n");
    EXPECT_EQ(nobody.status, 1);
}

// Groups and their sets, traps from notifications, configuration.

#include <gtest/gtest.h>

#include "tests/common/syslog_lines.h"
#include "tests/lconfd/notif_fake.h"

#include "lconfd/lconfd_private.h"

#include <cstdlib>
#include <cstring>

using t_texts = std::vector<std::string>;

static constexpr uint32_t levels_tag = 0x7dec02bd;

static std::string enabled(const t_lconfd_trap_tag_map &map)
{
    std::string text;
    for (int trap = 1; trap < LCONFD_TRAP_END; trap++)
        if (lconfd_trap_is_enabled(&map, trap))
            text += std::to_string(trap) + " ";
    return text;
}

struct Trap : testing::Test {
    Trap()
    {
        lconfd_trap_module_init();
        syslog_lines_take();
    }

    ~Trap() override
    {
        lconfd_trap_module_free();
    }
};

// ---- Groups ----

TEST(TrapGolden, SetsByModuleAndLevel)
{
    static constexpr struct {
        int module, level;
        const char *traps;
    } cases[] = {
        {1, 1, "5 "},
        {2, 1, "4 "},
        {3, 0, "29 30 "},
        {3, 1, "25 26 27 28 "},
        {4, 1, "63 64 65 "},
        {4, 2, "61 62 "},
        {5, 1, "6 7 8 9 10 11 12 13 14 15 16 17 18 19 "},
        {6, 1, "20 21 22 23 24 "},
        {7, 1, "56 66 67 68 69 70 "},
        {8, 1, "36 37 38 39 40 41 42 43 72 98 99 100 "},
        {8, 2, "31 32 33 34 35 82 86 "},
        {9, 0, "97 "},
        {9, 1, "2 3 44 45 46 47 54 71 77 81 96 "},
        {9, 2, "1 48 49 50 51 52 53 55 "},
        {10, 1, "57 58 80 83 84 85 87 88 89 92 109 "},
        {10, 2, "59 60 73 "},
        {11, 2, "74 75 76 "},
        {12, 1, "79 103 104 106 107 108 "},
        {12, 2, "78 101 102 105 "},
        {13, 1, "90 93 94 95 110 "},
    };
    for (int module = 1; module < 18; module++)
        for (int level = -1; level < 4; level++) {
            std::string wanted;
            for (const auto &c : cases)
                if (c.module == module && c.level == level)
                    wanted = c.traps;
            t_lconfd_trap_tag_map map = {};
            lconfd_trap_set_group(&map, module, level);
            EXPECT_EQ(enabled(map), wanted) << "module " << module << " level " << level;
        }
    for (int level = 0; level < 3; level++) {
        t_lconfd_trap_tag_map all = {}, one_by_one = {};
        lconfd_trap_set_group(&all, 0, level);
        for (const auto &c : cases)
            if (c.level == level)
                lconfd_trap_set_group(&one_by_one, c.module, level);
        EXPECT_EQ(enabled(all), enabled(one_by_one)) << "level " << level;
        EXPECT_FALSE(lconfd_trap_is_enabled(&all, 91));
    }
}

TEST_F(Trap, BoundsAndGoldenDump)
{
    t_lconfd_trap_tag_map map = {};
    strcpy(map.notify_name, "ops");
    for (int trap : {0, 111, -1, 1, 9, 110})
        lconfd_trap_set(&map, trap, true);
    map.all_bitmap[0] = 1 << 3;
    EXPECT_FALSE(lconfd_trap_is_enabled(&map, 111));
    t_texts bounds;
    for (const t_syslog_line &line : syslog_lines_take())
        bounds.push_back(line.text);
    static const std::string out_of_bounds = "Trap value out of bounds: trap_index ";
    EXPECT_EQ(bounds, (t_texts{out_of_bounds + "0", out_of_bounds + "111", out_of_bounds + "-1",
                               out_of_bounds + "111"}));
    lconfd_trap_bitmap_dump(&map);
    EXPECT_EQ(syslog_lines_take(),
              (std::vector<t_syslog_line>{
                  {191, "Trap group ops has a combined bitmap  1010000010" + std::string(99, '0') + "1"}}));
}

// ---- The table ----

TEST_F(Trap, ATagOfTwoNamespacesHasTwoNames)
{
    lconfd_trap_add_hash_entry(0x10042, 1, "first", LCONFD_TRAP_START);
    lconfd_trap_add_hash_entry(0x20042, 1, "sameChain", LCONFD_TRAP_START);
    lconfd_trap_add_hash_entry(0x10042, 2, "second", LCONFD_TRAP_START);
    EXPECT_STREQ(lconfd_trap_get_mib_name(0x10042, 2), "second");
    EXPECT_STREQ(lconfd_trap_get_mib_name(0x10042, 1), "first");
    EXPECT_STREQ(lconfd_trap_get_mib_name(0x10042, 0), "first");
    EXPECT_EQ(lconfd_trap_get_mib_name(0x10042, 3), nullptr);
    EXPECT_EQ(syslog_lines_take(),
              (std::vector<t_syslog_line>{{191, "Failed to find MIB name for tag 65602 ns 3"}}));
}

// ---- Putting traps together ----

static t_texts varbinds(const t_notification &notification)
{
    t_lconfd_notification_queue_item item = {};
    item.num_values = static_cast<int>(notification.values.size());
    std::copy(notification.values.begin(), notification.values.end(), item.val);
    lconfd_trap_populate(&item);
    t_texts texts;
    for (int i = 0; i < item.trap.num_values; i++) {
        const confd_snmp_varbind &varbind = item.trap.varbind[i];
        EXPECT_EQ(varbind.type, CONFD_SNMP_VARIABLE);
        texts.push_back(std::to_string(varbind.val.type) + " " + varbind.var.name +
                        (varbind.val.type == C_STR ? std::string("=") + varbind.val.val.s : ""));
    }
    if (item.trap.trap_index != 0)
        texts.push_back(std::to_string(item.trap.trap_index) + " " + item.trap.trap_name);
    for (void *p_text : item.trap.buffers)
        free(p_text);
    free(item.trap.varbind);
    return texts;
}

TEST_F(Trap, VarbindsAreTimeSeverityAndTheFieldsThatTheTableKnows)
{
    static constexpr uint32_t space = 77;
    static const t_texts head = {"19 eventTime", "28 netconfNotificationSeverity"};
    lconfd_trap_add_hash_entry(0x100, space, "demo", LCONFD_TRAP_DISK_USAGE);
    lconfd_trap_add_hash_entry(0x101, space, "demoAddress", LCONFD_TRAP_START);
    lconfd_trap_add_hash_entry(0x102, space, "demoPort", LCONFD_TRAP_START);
    lconfd_trap_add_hash_entry(0x102, 78, "elsewherePort", LCONFD_TRAP_START);
    confd_value_t ipv6 = {.type = C_IPV6, .val = {}};
    ipv6.val.ip6.s6_addr[0] = 0x20;
    ipv6.val.ip6.s6_addr[1] = 0x01;
    ipv6.val.ip6.s6_addr[15] = 0x09;

    t_notification all(2, 0x100, space);
    all.add(0x101, fake_value(C_IPV4, htonl(0x0a010203)));
    all.add(0x101, ipv6);
    all.add(0x999, fake_value(C_UINT32, 1));
    all.add(0x102, fake_value(C_UINT16, 1));
    all.add(0x102, fake_value(C_UINT16, 1), 78);
    all.end();
    EXPECT_EQ(varbinds(all), (t_texts{head[0], head[1], "4 demoAddress=10.1.2.3", "4 demoAddress=2001::9",
                                      "11 demoPort", "11 elsewherePort", "45 demo"}));

    t_notification short_one(2, 0x100, space);
    EXPECT_EQ(varbinds(short_one), t_texts()) << "four values";
    short_one.end();
    EXPECT_EQ(varbinds(short_one), (t_texts{head[0], head[1], "45 demo"}));
    short_one.values.back() = {{0x102, 0}, fake_value(C_UINT16, 1)};
    EXPECT_EQ(varbinds(short_one), (t_texts{head[0], head[1], "45 demo"}))
        << "without an end: there is no room";
    t_notification unknown(2, 0x103, space);
    unknown.end();
    EXPECT_EQ(varbinds(unknown), t_texts());
    all.values[0].v.type = C_XMLTAG;
    EXPECT_EQ(varbinds(all), t_texts());
}

// ---- Configuration ----

static confd_value_t text_value(const char *text)
{
    confd_value_t value = {.type = C_BUF, .val = {}};
    value.val.buf = {static_cast<unsigned>(strlen(text)),
                     reinterpret_cast<unsigned char *>(const_cast<char *>(text))};
    return value;
}

static int config_group(const char *name, confd_iter_op oper)
{
    confd_value_t key = text_value(name);
    return lconfd_config_trap_group(nullptr, oper, 1, &key, 0, nullptr);
}

static int config_enable(const char *name, int module, confd_iter_op oper, std::vector<uint32_t> levels)
{
    confd_value_t keys[2] = {text_value(name), fake_value(C_ENUM_VALUE, static_cast<uint32_t>(module))};
    std::vector<confd_value_t> list;
    for (uint32_t level : levels)
        list.push_back(fake_value(C_ENUM_VALUE, level));
    confd_tag_value_t value = {{levels_tag, 0}, {.type = C_LIST, .val = {}}};
    value.v.val.list = {static_cast<unsigned>(list.size()), list.data()};
    return lconfd_config_trap_group_enable(nullptr, oper, 2, keys, 1, &value);
}

TEST_F(Trap, SettingsOfSingleModulesAndOfAllStandSideBySide)
{
    static const std::string all_critical = "29 30 97 ";
    EXPECT_EQ(config_group("ops", MOP_CREATED), 0);
    EXPECT_EQ(config_group("noc", MOP_CREATED), 0);
    const t_lconfd_trap_tag_map *p_ops = lconfd_trap_find_tag("ops");
    ASSERT_NE(p_ops, nullptr);
    static const struct {
        const char *behaviour;
        int module;
        confd_iter_op oper;
        std::vector<uint32_t> levels;
        std::string wanted;
    } steps[] = {
        {"one level of one module", 2, MOP_CREATED, {1}, "4 "},
        {"all modules beside it", 0, MOP_CREATED, {0}, "4 " + all_critical},
        {"levels replace each other", 3, MOP_CREATED, {0, 1}, "4 25 26 27 28 29 30 97 "},
        {"the module's part goes, what all modules gave stays", 3, MOP_MODIFIED, {}, "4 " + all_critical},
        {"no more of all modules", 0, MOP_DELETED, {0}, "4 "},
        {"a deletion clears the module", 2, MOP_DELETED, {1}, ""},
        {"other operations set nothing", 2, MOP_VALUE_SET, {1}, ""},
    };
    for (const auto &step : steps) {
        EXPECT_EQ(config_enable("ops", step.module, step.oper, step.levels), 0);
        EXPECT_EQ(enabled(*p_ops), step.wanted) << step.behaviour;
    }
    EXPECT_EQ(enabled(*lconfd_trap_find_tag("noc")), "");
    config_enable("ops", 2, MOP_CREATED, {1});
    config_group("ops", MOP_DELETED);
    EXPECT_EQ(config_enable("ops", 2, MOP_CREATED, {1}), 1) << "there is no such group";
    config_group("ops", MOP_CREATED);
    EXPECT_EQ(enabled(*lconfd_trap_find_tag("ops")), "") << "a new group begins empty";
    EXPECT_EQ(lconfd_config_trap_group(nullptr, MOP_CREATED, 2, nullptr, 0, nullptr), 1);
}

TEST(TrapDeathTest, OtherTypesAreFaults)
{
    confd_value_t keys[2] = {fake_value(C_UINT32, 1), fake_value(C_ENUM_VALUE, 1)};
    auto enable = [&](confd_value_t level) {
        lconfd_trap_add_tag("ops");
        confd_tag_value_t value = {{levels_tag, 0}, {.type = C_LIST, .val = {}}};
        value.v.val.list = {1, &level};
        lconfd_config_trap_group_enable(nullptr, MOP_CREATED, 2, keys, 1, &value);
    };
    EXPECT_EXIT(lconfd_config_trap_group(nullptr, MOP_CREATED, 1, keys, 0, nullptr),
                testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(enable(keys[1]), testing::KilledBySignal(SIGSEGV), "");
    keys[0] = text_value("ops");
    EXPECT_EXIT(enable(fake_value(C_UINT32, 1)), testing::KilledBySignal(SIGSEGV), "");
    keys[1].type = C_UINT32;
    EXPECT_EXIT(enable(fake_value(C_ENUM_VALUE, 1)), testing::KilledBySignal(SIGSEGV), "");
}

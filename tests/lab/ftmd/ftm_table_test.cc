// The table's rules, and what the service keeps beside it.
#include "lab/ftmd/ftm_service.h"
#include "tests/lab/ftmd/ftm_bytes.h"

#include <gtest/gtest.h>

static constexpr uint8_t data = 1;
static constexpr uint8_t route = 2;

class FtmTableShortTest : public testing::Test {
protected:
    void SetUp() override
    {
        ftm_service_up(&service);
    }

    bool send(const t_message_bytes &bytes)
    {
        return ftm_service_message(&service, bytes, &error);
    }

    // Rows as "name@range=filter" and "name@interface/direction=filter".
    std::string rows()
    {
        std::string text;
        t_fp_bindings bindings = ftm_table_bindings(service.table);
        for (const t_fp_vpn_binding &row : bindings.vpns)
            text += row.name + '@' + std::to_string(row.min_vpn) + '-' + std::to_string(row.max_vpn) + '=' +
                    std::to_string(row.filter_id) + ' ';
        for (const t_fp_interface_binding &row : bindings.interfaces)
            text += row.name + '@' + row.interface + '/' + std::to_string(row.direction) + '=' +
                    std::to_string(row.filter_id) + ' ';
        return text;
    }

    t_ftm_service service;
    std::string error;
};

TEST_F(FtmTableShortTest, AddsOverwriteByTypeAndRangeAndDeletesNeedTheFilter)
{
    struct t_step {
        const char *behaviour;
        t_message_bytes message;
        const char *want;
    };
    static const t_step steps[] = {
        {"each entry is a row", vpn_message({1, data, 3, 5, "a"}, {{1, 9}, {20, 20}}), "a@1-9=5 a@20-20=5 "},
        {"another type has rows of its own", vpn_message({1, route, 3, 6, "r"}, {{1, 9}}),
         "a@1-9=5 a@20-20=5 r@1-9=6 "},
        {"another name and direction don't", vpn_message({1, data, 1, 7, "b"}, {{1, 9}}),
         "b@1-9=7 a@20-20=5 r@1-9=6 "},
        {"an old filter's delete is too late", vpn_message({2, data, 3, 5, "a"}, {{1, 9}, {20, 20}}),
         "b@1-9=7 r@1-9=6 "},
        {"a range within another is none of it", vpn_message({2, data, 3, 7, "b"}, {{2, 3}}),
         "b@1-9=7 r@1-9=6 "},
        {"the name of a delete says nothing", vpn_message({2, data, 0, 7, "x"}, {{1, 9}}), "r@1-9=6 "},
        {"an id without a program is a row", vpn_message({1, route, 3, UINT32_MAX, "r"}, {{1, 9}}),
         "r@1-9=4294967295 "},
        {"lists by interface and direction",
         interface_message({3, 0, 0, 1, "l"}, {{5, 1, "ge0/1"}, {5, 2, "ge0/1"}}),
         "r@1-9=4294967295 l@ge0/1/1=1 l@ge0/1/2=1 "},
        {"and by family", interface_message({3, 1, 0, 2, "m"}, {{5, 1, "ge0/1"}}),
         "r@1-9=4294967295 l@ge0/1/1=1 l@ge0/1/2=1 m@ge0/1/1=2 "},
        {"not by VPN", interface_message({3, 0, 0, 3, "n"}, {{6, 1, "ge0/1"}}),
         "r@1-9=4294967295 n@ge0/1/1=3 l@ge0/1/2=1 m@ge0/1/1=2 "},
        {"deletes need the filter here, too",
         interface_message({4, 0, 0, 1, "n"}, {{6, 1, "ge0/1"}, {0, 2, "ge0/1"}, {6, 1, "ge0/9"}}),
         "r@1-9=4294967295 n@ge0/1/1=3 m@ge0/1/1=2 "},
        {"clearing flows changes nothing", {5}, "r@1-9=4294967295 n@ge0/1/1=3 m@ge0/1/1=2 "},
    };
    for (const t_step &step : steps) {
        EXPECT_TRUE(send(step.message)) << step.behaviour << ": " << error;
        EXPECT_EQ(rows(), step.want) << step.behaviour;
    }
    EXPECT_EQ(service.stats.missed_deletes, 4u);
    ftm_service_down(&service);
    EXPECT_NE(rows(), "") << "the loss of a connection changes nothing";
    ftm_service_up(&service);
    EXPECT_EQ(rows(), "") << "a new connection empties the table";
}

TEST_F(FtmTableShortTest, TheLogKeepsTheOrderAndCountsAreByType)
{
    EXPECT_TRUE(send(vpn_message({1, data, 3, 5, "a"}, {{1, 9}})));
    EXPECT_FALSE(send({1, 2}));
    ftm_service_up(&service);
    EXPECT_TRUE(send({5}));
    nlohmann::ordered_json log = ftm_service_answer(&service, {"log"})["messages"];
    ASSERT_EQ(log.size(), 3u);
    EXPECT_EQ(log[0]["message"], "vpn-filter-add");
    EXPECT_EQ(log[0]["connection"], 1);
    EXPECT_EQ(log[1]["message"], "malformed");
    EXPECT_EQ(log[1]["reason"], "2 bytes end inside the fixed fields");
    EXPECT_EQ(log[1]["begins"], "0102");
    EXPECT_EQ(log[2]["sequence"], 3);
    EXPECT_EQ(log[2]["connection"], 2);
    EXPECT_EQ(ftm_service_answer(&service, {"log", "1"})["messages"].size(), 1u);
    EXPECT_EQ(ftm_service_answer(&service, {"log", "-1"})["ok"], false);
    EXPECT_EQ(ftm_service_answer(&service, {"bindings", "all"})["ok"], false);
    nlohmann::ordered_json stats = ftm_service_answer(&service, {"stats"});
    EXPECT_EQ(stats["messages"], 3);
    EXPECT_EQ(stats["malformed"], 1);
    EXPECT_EQ(stats["vpn-filter-add"], 1);
    EXPECT_EQ(stats["dpi-clear-flows"], 1);
    for (size_t i = 0; i < FTM_LOG_SIZE; i++)
        send({5});
    log = ftm_service_answer(&service, {"log"})["messages"];
    EXPECT_EQ(log.size(), FTM_LOG_SIZE);
    EXPECT_EQ(log[0]["sequence"], 4);
}

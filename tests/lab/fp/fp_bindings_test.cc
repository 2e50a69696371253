// The table of bindings: what is met where, and its form in JSON.
#include "lab/fp/fp_bindings.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

static const t_fp_bindings table = {
    .vpns = {{FP_FILTER_DATA, 1, 100, 1, FP_POLICY_DIRECTION_ALL, "wide"},
             {FP_FILTER_DATA, 10, 20, 2, FP_POLICY_DIRECTION_TUNNEL, "tunnel"},
             {FP_FILTER_DATA, 15, 25, 3, FP_POLICY_DIRECTION_SERVICE, "service"},
             {FP_FILTER_DATA, 30, 30, 4, FP_POLICY_DIRECTION_NONE, "nothing"},
             {FP_FILTER_DATA, 41, 40, 5, FP_POLICY_DIRECTION_ALL, "backwards"},
             {FP_FILTER_APP_ROUTE, 10, 10, 6, FP_POLICY_DIRECTION_NONE, "route"},
             {FP_FILTER_ZONE, 10, 10, 7, FP_POLICY_DIRECTION_ALL, "zone"},
             {FP_FILTER_NONE, 10, 10, UINT32_MAX, FP_POLICY_DIRECTION_ALL, "none"},
             {FP_FILTER_DATA, UINT32_MAX, UINT32_MAX, 0x80000001, FP_POLICY_DIRECTION_ALL, "last"}},
    .interfaces = {{FP_FAMILY_IPV4, "ge0/1", FP_INTERFACE_DIRECTION_IN, 10, 20, "in4"},
                   {FP_FAMILY_IPV4, "ge0/1", FP_INTERFACE_DIRECTION_OUT, 10, 21, "out4"},
                   {FP_FAMILY_IPV6, "ge0/1", FP_INTERFACE_DIRECTION_IN, 10, 22, "in6"},
                   {FP_FAMILY_IPV4, "ge0/2", FP_INTERFACE_DIRECTION_NONE, 10, 23, "never"}},
};

TEST(FpBindingsShortTest, EachStageIsFoundByWhatItIsBoundTo)
{
    using enum e_fp_interface_direction;
    struct t_case {
        const char *behaviour;
        t_fp_place place;
        std::vector<std::string> want;  // names, in order
    };
    static const t_case cases[] = {
        {"ingress list, application-route, data policy",
         {10, "ge0/1", FP_INTERFACE_DIRECTION_IN, FP_SIDE_TUNNEL, FP_FAMILY_IPV4},
         {"in4", "route", "tunnel"}},
        {"a policy of the other side gives way to a wider range; the packet's direction and family count",
         {10, "ge0/1", FP_INTERFACE_DIRECTION_OUT, FP_SIDE_SERVICE, FP_FAMILY_IPV4},
         {"route", "wide", "out4"}},
        {"the other family's list, whatever VPN it was bound in",
         {50, "ge0/1", FP_INTERFACE_DIRECTION_IN, FP_SIDE_SERVICE, FP_FAMILY_IPV6},
         {"in6", "wide"}},
        {"no list of that family and direction",
         {1, "ge0/1", FP_INTERFACE_DIRECTION_OUT, FP_SIDE_SERVICE, FP_FAMILY_IPV6},
         {"wide"}},
        {"the side decides between ranges of the same width",
         {15, "", FP_INTERFACE_DIRECTION_IN, FP_SIDE_SERVICE, FP_FAMILY_IPV4},
         {"service"}},
        {"a policy without a direction is met from no side",
         {30, "", FP_INTERFACE_DIRECTION_IN, FP_SIDE_TUNNEL, FP_FAMILY_IPV4},
         {"wide"}},
        {"a list without a direction is met by no packet, a range that runs backwards holds nothing",
         {101, "ge0/2", FP_INTERFACE_DIRECTION_IN, FP_SIDE_TUNNEL, FP_FAMILY_IPV4},
         {}},
        {"the last VPN",
         {UINT32_MAX, "", FP_INTERFACE_DIRECTION_IN, FP_SIDE_TUNNEL, FP_FAMILY_IPV4},
         {"last"}},
    };
    for (const t_case &c : cases) {
        std::vector<std::string> got;
        for (const t_fp_stage &stage : fp_bindings_lookup(table, c.place))
            got.push_back(*stage.p_name);
        EXPECT_EQ(got, c.want) << c.behaviour;
    }
}

TEST(FpBindingsShortTest, JsonKeepsEveryRow)
{
    nlohmann::json json = nlohmann::json::parse(fp_bindings_json(table).dump());
    EXPECT_EQ(json["vpns"][7], nlohmann::json::parse(R"({"type": "none", "min": 10, "max": 10, "filter": -1,
                                                         "direction": "all", "name": "none"})"));
    EXPECT_EQ(json["interfaces"][2], nlohmann::json::parse(R"({"family": "ipv6", "interface": "ge0/1",
        "direction": "in", "vpn": 10, "filter": 22, "name": "in6"})"));
    t_fp_bindings read;
    std::string error;
    ASSERT_TRUE(fp_bindings_read(json, &read, &error)) << error;
    EXPECT_EQ(fp_bindings_json(read), fp_bindings_json(table));
}

TEST(FpBindingsShortTest, ARowThatDoesNotHoldIsNamedAndChangesNothing)
{
    static const std::pair<const char *, const char *> cases[] = {
        {"/vpns/1/type", "\"ingress\""},
        {"/vpns/1/min", "-1"},
        {"/vpns/1/max", "4294967296"},
        {"/vpns/1/filter", "-2"},
        {"/vpns/1/direction", "3"},
        {"/vpns/1/name", "null"},
        {"/vpns/1", "7"},
        {"/interfaces/1/family", "\"ipv5\""},
        {"/interfaces/1/vpn", "1.5"},
        {"/interfaces/1/interface", "[]"},
        {"/interfaces/1/direction", "\"all\""},
    };
    for (auto [path, value] : cases) {
        nlohmann::json json = nlohmann::json::parse(fp_bindings_json(table).dump());
        json[nlohmann::json::json_pointer(path)] = nlohmann::json::parse(value);
        t_fp_bindings read = {.vpns = {{}}, .interfaces = {}};
        std::string error;
        EXPECT_FALSE(fp_bindings_read(json, &read, &error)) << path;
        EXPECT_TRUE(error.starts_with("row 2 of ")) << path << ": " << error;
        EXPECT_EQ(read.vpns.size(), 1u) << path;
    }
}

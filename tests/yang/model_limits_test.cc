// What the model accepts and refuses. Each case changes one thing of an example that uses the whole model.

#include "yang/schema_index.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <fstream>

#include <nlohmann/json.hpp>

using nlohmann::json;

static ly_ctx *model()
{
    static std::string error;
    static schema_context_ptr context = schema_context_new(YANG_MODULE_FOLDER, &error);
    ly_log_options(LY_LOSTORE_LAST);
    EXPECT_NE(context, nullptr) << error;
    return context.get();
}

static const json &example()
{
    static const json content = json::parse(std::ifstream("tests/yang/router.json"));
    return content;
}

// Empty when the model accepts the configuration; else path and reason.
static std::string refusal(const json &configuration)
{
    lyd_node *p_tree = nullptr;
    LY_ERR result = lyd_parse_data_mem(model(), configuration.dump().c_str(), LYD_JSON,
                                       LYD_PARSE_STRICT | LYD_PARSE_NO_STATE, LYD_VALIDATE_NO_STATE, &p_tree);
    lyd_free_all(p_tree);
    if (result == LY_SUCCESS)
        return "";
    const char *path = ly_errpath(model());
    return std::string(path != nullptr ? path : "no path") + " " + ly_errmsg(model());
}

static constexpr const char *policy = "/lumora-policy:policy";
static constexpr const char *keelson = "/lumora-policy:policy-from-keelson";
static constexpr const char *vpn = "/lumora-vpn:vpn/vpn-instance";
static constexpr const char *snmp = "/lumora-snmp:snmp/trap";
static constexpr const char *zbf_seq = "/zone-based-policy/0/sequence/0";
static constexpr const char *acl_seq = "/access-list/0/sequence/0";
static constexpr const char *dp_seq = "/data-policy/0/vpn-list/0/sequence/0";
static constexpr const char *ar_seq = "/app-route-policy/0/vpn-list/0/sequence/0";

static std::string name_of(size_t length)
{
    return '"' + std::string(length, 'n') + '"';
}

// So many classes, with those that the example names among them.
static std::string classes(int count)
{
    json result = {{{"name", "voice"}}, {{"name", "bulk"}}};
    for (int i = 2; i < count; i++)
        result.push_back({{"name", "class-" + std::to_string(i)}});
    return result.dump();
}

static const std::string nine_actions =
    R"({"base-action":"accept","count":"c","log":[null],"cflowd":[null],"mirror":"tap","policer":"p-8","class":"voice",
        "fallback":true,"backup-preferred-color":["lte","3g"])";

namespace {

struct t_case {
    const char *behaviour;
    std::string root;     // of the pointer
    std::string pointer;  // a list's index "-" appends
    std::string value;    // JSON; empty removes
    std::string path;     // in the refusal; empty: the model accepts
    std::string text;     // in the refusal
};

}  // namespace

static json changed(const t_case &row)
{
    json configuration = example();
    json::json_pointer pointer(row.root + row.pointer);
    if (row.value.empty())
        configuration[pointer.parent_pointer()].erase(pointer.back());
    else
        configuration[pointer] = json::parse(row.value);
    return configuration;
}

static void expect(std::span<const t_case> cases)
{
    for (const t_case &row : cases) {
        std::string text = refusal(changed(row));
        if (row.path.empty()) {
            EXPECT_EQ(text, "") << row.behaviour;
            continue;
        }
        EXPECT_NE(text.find(row.path), text.npos) << row.behaviour << ": " << text;
        EXPECT_NE(text.find(row.text), text.npos) << row.behaviour << ": " << text;
    }
}

TEST(ModelTest, takes_a_configuration_that_uses_all_of_it)
{
    EXPECT_EQ(refusal(example()), "");
}

TEST(ModelTest, keeps_names_within_their_buffers)
{
    static const struct {
        const char *root;
        const char *pointer;
        size_t longest;
        const char *value;  // with % for the name
    } names[] = {
        {policy, "/class-map/class/-", 32, R"({"name":%})"},
        {policy, "/lists/data-prefix-list/-", 127, R"({"name":%})"},
        {policy, "/lists/app-list/-", 127, R"({"name":%})"},
        {policy, "/lists/app-list/0/app/0/name", 127, "%"},
        {policy, "/policer/-", 52, R"({"name":%,"rate":"8","burst":1,"exceed":"drop"})"},
        {policy, "/mirror/-", 127, R"({"name":%})"},
        {policy, "/mirror/0/interface/0/name", 127, "%"},
        {policy, "/zone/-", 32, R"({"name":%})"},
        {policy, "/zone-pair/0/name", 32, "%"},
        {policy, "/zone-based-policy/-", 32, R"({"name":%,"default-action":"drop"})"},
        {policy, "/access-list/-", 32, R"({"name":%})"},
        {policy, "/ipv6/access-list/-", 32, R"({"name":%})"},
        {policy, "/zone-based-policy/0/sequence/0/action/count", 63, "%"},
        {keelson, "/lists/vpn-list/-", 127, R"({"name":%})"},
        {keelson, "/sla-class/-", 32, R"({"name":%})"},
        {keelson, "/data-policy/0/name", 127, "%"},
        {keelson, "/app-route-policy/0/name", 127, "%"},
        {keelson, "/data-policy/0/vpn-list/0/sequence/0/action/set/tloc-list", 127, "%"},
        {vpn, "/1/interface/0/name", 32, "%"},
        {snmp, "/group/-", 31, R"({"name":%})"},
    };
    for (const auto &row : names) {
        for (const std::string &name : {name_of(row.longest), name_of(row.longest + 1),
                                        std::string(R"("__own")"), std::string(R"("")")}) {
            std::string value = row.value;
            value.replace(value.find('%'), 1, name);
            std::string text = refusal(changed({"", row.root, row.pointer, value, "", ""}));
            EXPECT_EQ(text.empty(), name == name_of(row.longest))
                << row.root << row.pointer << " " << name << " " << text;
        }
    }
}

TEST(ModelTest, says_why_a_name_is_refused)
{
    static const t_case cases[] = {
        {"system names are reserved", policy, "/class-map/class/1/name", R"("__control_fc")", "class-map",
         "begin with two underscores"},
        {"a class name fits 32 bytes", policy, "/class-map/class/1/name", name_of(33), "class-map",
         "1 to 32 characters"},
        {"characters are bytes", policy, "/class-map/class/1/name", R"("größe")", "class-map",
         "printable ASCII"},
        {"a policer's name has no blank", policy, "/policer/0/name", R"("p 512k")", "policer", "no blanks"},
        {"a policer's name fits behind a sequence number", policy, "/policer/0/name", name_of(53), "policer",
         "1 to 52"},
        {"a counter's name fits a slot", policy, std::string(acl_seq) + "/action/count", name_of(64),
         "action/count", "1 to 63"},
        {"a trap group's name fits 31 bytes", snmp, "/group/0/name", name_of(32), "trap/group", "1 to 31"},
        {"a zone pair's name stands in paths", policy, "/zone-pair/0/name", R"("in out")", "zone-pair",
         "no blanks, braces"},
        {"a zone-based policy's name stands in paths", policy, "/zone-based-policy/0/name", R"("f{w}")",
         "zone-based-policy", "no blanks, braces"},
    };
    expect(cases);
}

TEST(ModelTest, keeps_numbers_within_the_daemons_tables)
{
    static const t_case cases[] = {
        {"71 classes", policy, "/class-map/class", classes(71), "", ""},
        {"72 classes", policy, "/class-map/class", classes(72), "class-map", "Too many \"class\""},
        {"7 SLA classes", keelson, "/sla-class", classes(7), "", ""},
        {"8 SLA classes", keelson, "/sla-class", classes(8), "sla-class", "Too many \"sla-class\""},
        {"a rate of 8", policy, "/policer/0/rate", R"("8")", "", ""},
        {"a rate below 8", policy, "/policer/0/rate", R"("7")", "policer", "at least 8 bits per second"},
        {"a rate below 8, of the controller", keelson, "/policer/0/rate", R"("0")", "policer",
         "at least 8 bits per second"},
        {"a pair id of 0", policy, "/zone-pair/0/pair-id", "0", "zone-pair", "at least 1"},
        {"two pairs with one id", policy, "/zone-pair/1/pair-id", "1", "zone-pair", "pair-id"},
        {"a prefix of length 0 in a list", policy, "/lists/data-prefix-list/0/ip-prefix/0/prefix",
         R"("0.0.0.0/0")", "ip-prefix", "length 0"},
        {"length 0 written as 00", keelson, "/lists/data-prefix-list/0/ip-prefix/0/prefix",
         R"("10.0.0.0/00")", "ip-prefix", ""},
        {"an IPv6 prefix in a list", policy, "/lists/data-prefix-list/0/ip-prefix/0/prefix",
         R"("2001:db8::/32")", "ip-prefix", ""},
        {"color 0", keelson, std::string(ar_seq) + "/action/set/tloc/color", R"("invalid")", "tloc/color",
         "Invalid enumeration"},
        {"an encapsulation besides gre and ipsec", keelson, std::string(ar_seq) + "/action/set/tloc/encap",
         R"("tls")", "tloc/encap", "Invalid enumeration"},
        {"a service in the lower-case form", keelson, std::string(dp_seq) + "/action/set/service-type",
         R"("netsvc1")", "service-type", "Invalid enumeration"},
        {"a DSCP of 64", keelson, std::string(dp_seq) + "/action/set/dscp", "64", "set/dscp", "range"},
        {"a VPN above 16 bits", keelson, std::string(dp_seq) + "/action/set/vpn", "65536", "set/vpn",
         "range"},
        {"a port above 16 bits", policy, std::string(acl_seq) + "/match/source-port", R"(["65536"])",
         "source-port", "0 to 65535"},
        {"a range the wrong way round", policy, std::string(acl_seq) + "/match/source-port", R"(["20-10"])",
         "source-port", "lower end"},
        {"a range of one port", policy, std::string(acl_seq) + "/match/source-port", R"(["80-80"])", "", ""},
        {"a range of lengths the wrong way round", policy, std::string(acl_seq) + "/match/packet-length",
         R"(["1500-64"])", "packet-length", "lower end"},
        {"a next hop that is no address", policy, std::string(acl_seq) + "/action/set/next-hop",
         R"("10.0.0.256")", "next-hop", "IPv4 or IPv6 address"},
        {"a next hop of nine groups", policy, std::string(acl_seq) + "/action/set/next-hop",
         R"("1:2:3:4::5:6:7:8")", "next-hop", "eight groups"},
        {"a next hop of IPv4", policy, std::string(acl_seq) + "/action/set/next-hop", R"("10.0.0.1")", "",
         ""},
        {"a DNS server of IPv6", keelson, std::string(dp_seq) + "/action/redirect-dns", R"("2001:db8::1")",
         "redirect-dns", ""},
        {"a negative log frequency", policy, "/log-frequency", "-1", "log-frequency", "range"},
    };
    expect(cases);
}

TEST(ModelTest, takes_only_ranges_of_vpns_that_the_daemon_can_tell_apart)
{
    static const struct {
        const char *range;
        bool good;
    } rows[] = {
        {"0", true},        {"99999", true},  {"100000", false}, {"1-2", true},
        {"100-100", false}, {"20-10", false}, {"0-1", true},     {"01", false},
        {"1-02", false},    {"1-", false},    {"-1", false},     {"1-2-3", false},
        {"a", false},       {"", false},      {"9-10", true},    {"1 - 2", false},
    };
    for (const auto &row : rows) {
        t_case change = {"", keelson, "/lists/vpn-list/0/vpn/0/range", json(row.range).dump(), "", ""};
        std::string text = refusal(changed(change));
        EXPECT_EQ(text.empty(), row.good) << row.range << " " << text;
        EXPECT_TRUE(row.good || text.find("vpn") != text.npos) << row.range << " " << text;
    }
}

TEST(ModelTest, wants_the_leaves_that_the_daemon_asserts)
{
    static const struct {
        const char *root;
        std::string pointer;
        const char *leaf;
    } rows[] = {
        {policy, "/policer/0", "rate"},
        {policy, "/policer/0", "burst"},
        {policy, "/policer/0", "exceed"},
        {keelson, "/policer/0", "rate"},
        {keelson, "/policer/0", "burst"},
        {keelson, "/policer/0", "exceed"},
        {policy, "/zone-based-policy/0", "default-action"},
        {policy, std::string(zbf_seq) + "/action", "base-action"},
        {policy, std::string(acl_seq) + "/action", "base-action"},
        {policy, "/ipv6/access-list/0/sequence/0/action", "base-action"},
        {keelson, std::string(dp_seq) + "/action", "base-action"},
        {policy, "/zone-pair/0", "pair-id"},
        {policy, "/zone-pair/0", "source-zone"},
        {policy, "/zone-pair/0", "destination-zone"},
        {policy, "/zone-pair/0", "zone-policy"},
        {policy, "/mirror/0/remote-dest/0", "source"},
        {keelson, std::string(dp_seq) + "/action/set/lum-tloc-pref-list/0", "tloc-ip"},
        {keelson, std::string(dp_seq) + "/action/set/lum-tloc-pref-list/0", "tloc-color"},
        {keelson, std::string(dp_seq) + "/action/set/lum-tloc-pref-list/0", "tloc-encap"},
        {vpn, "/1/interface/0/access-list/0", "acl-name"},
        {vpn, "/1/interface/0/ipv6/access-list/0", "acl-name"},
    };
    for (const auto &row : rows) {
        std::string text = refusal(changed({"", row.root, row.pointer + "/" + row.leaf, "", "", ""}));
        EXPECT_NE(text.find(std::string("Mandatory node \"") + row.leaf + "\""), text.npos)
            << row.pointer << " " << text;
    }
    std::string text = refusal(changed({"", policy, std::string(zbf_seq) + "/action", "", "", ""}));
    EXPECT_NE(text.find("base-action"), text.npos) << "a sequence without actions: " << text;
}

TEST(ModelTest, resolves_references_where_the_daemon_needs_the_object)
{
    static const std::string match_acl = std::string(acl_seq) + "/match/";
    static const std::string match_zbf = std::string(zbf_seq) + "/match/";
    static const std::string match_dp = std::string(dp_seq) + "/match/";
    static const t_case cases[] = {
        {"zone of a pair", policy, "/zone-pair/0/source-zone", R"("nowhere")", "source-zone", "leafref"},
        {"other zone of a pair", policy, "/zone-pair/0/destination-zone", R"("nowhere")", "destination-zone",
         "leafref"},
        {"policy of a pair", policy, "/zone-pair/0/zone-policy", R"("none")", "zone-policy", "leafref"},
        {"prefix list of an access list", policy, match_acl + "source-data-prefix-list", R"("none")",
         "prefix-list", "leafref"},
        {"prefix list of a zone-based policy is local", policy, match_zbf + "source-data-prefix-list",
         R"("none")", "prefix-list", "leafref"},
        {"prefix list of a data policy is the controller's", keelson,
         match_dp + "destination-data-prefix-list", R"("unused")", "prefix-list", "leafref"},
        {"application list of a zone-based policy is the controller's", policy, match_zbf + "app-list",
         R"("mail")", "app-list", "leafref"},
        {"application list of an access list is local", policy, match_acl + "app-list", R"("web")",
         "app-list", "leafref"},
        {"policer of an access list is local", policy, std::string(acl_seq) + "/action/policer", R"("p-8")",
         "policer", "leafref"},
        {"policer of a zone-based policy is the controller's", policy,
         std::string(zbf_seq) + "/action/policer", R"("p-512k")", "policer", "leafref"},
        {"mirror", keelson, std::string(dp_seq) + "/action/mirror", R"("none")", "mirror", "leafref"},
        {"class that an access list matches", policy, match_acl + "class", R"("none")", "class", "leafref"},
        {"class that an access list sets", policy, std::string(acl_seq) + "/action/class", R"("none")",
         "class", "leafref"},
        {"class that a policy sets can come later", policy, std::string(zbf_seq) + "/action/class",
         R"("none")", "", ""},
        {"VPN list of a policy", keelson, "/data-policy/0/vpn-list/0/name", R"("none")", "vpn-list",
         "leafref"},
        {"VPN list of an application-route policy", keelson, "/app-route-policy/0/vpn-list/0/name",
         R"("none")", "vpn-list", "leafref"},
        {"SLA class can come later", keelson, "/app-route-policy/0/vpn-list/0/sla-class-name", R"("none")",
         "", ""},
        {"access list of the other family", vpn, "/1/interface/0/access-list/0/acl-name", R"("acl6")",
         "acl-name", "leafref"},
        {"access list of the other family", vpn, "/1/interface/0/ipv6/access-list/0/acl-name", R"("acl4")",
         "acl-name", "leafref"},
        {"trap group of a target", snmp, "/target/0/group-name", R"("none")", "group-name", "leafref"},
        {"VPN of a translation", keelson, std::string(ar_seq) + "/action/nat/use-vpn", "11", "use-vpn",
         "the VPN is not configured"},
        {"VPN of a translation", keelson, std::string(dp_seq) + "/action",
         R"({"base-action":"drop","nat":{"use-vpn":11}})", "use-vpn", "the VPN is not configured"},
        {"VPN of a translation", policy, std::string(zbf_seq) + "/action/nat", R"({"use-vpn":11})", "use-vpn",
         "the VPN is not configured"},
        {"VPN of a translation", policy, std::string(zbf_seq) + "/action/nat", R"({"use-vpn":0})", "", ""},
        {"applications and families do not mix", policy, "/lists/app-list/0/app-family",
         R"([{"name":"game"}])", "app-list", "Data for both cases"},
        {"an access list for IPv6 can't match applications", policy,
         "/ipv6/access-list/0/sequence/0/match/app-list", R"("mail")", "match", "app-list"},
    };
    expect(cases);
}

TEST(ModelTest, refuses_empty_lists_that_something_refers_to)
{
    static const std::string lists[] = {"source-data-prefix-list", "destination-data-prefix-list", "app-list",
                                        "dns-app-list"};
    static const struct {
        const char *root;
        const char *sequence;
        const char *list_root;  // of the prefix lists
        const char *app_root;
    } users[] = {{policy, acl_seq, policy, policy},
                 {policy, zbf_seq, policy, keelson},
                 {keelson, dp_seq, keelson, keelson},
                 {keelson, ar_seq, keelson, keelson}};
    for (const auto &user : users)
        for (const std::string &list : lists) {
            bool prefixes = list.find("prefix") != list.npos;
            json configuration =
                changed({"", user.root, std::string(user.sequence) + "/match/" + list, R"("empty")", "", ""});
            std::string base = prefixes ? user.list_root : user.app_root;
            configuration[json::json_pointer(base + "/lists/" + (prefixes ? "data-prefix-list" : "app-list") +
                                             "/-")] = {{"name", "empty"}};
            std::string text = refusal(configuration);
            EXPECT_NE(text.find(list), text.npos) << user.sequence << " " << text;
            EXPECT_NE(text.find("list is empty and would match everything"), text.npos)
                << user.sequence << " " << text;
        }
}

TEST(ModelTest, counts_the_actions_of_a_sequence)
{
    const std::string action[] = {std::string(dp_seq) + "/action", std::string(zbf_seq) + "/action"};
    const char *const roots[] = {keelson, policy};
    for (size_t i = 0; i < 2; i++) {
        const t_case cases[] = {
            {"9 actions", roots[i], action[i], nine_actions + "}", "", ""},
            {"fallback that is off is no action", roots[i], action[i],
             R"({"base-action":"accept","count":"c","log":[null],"cflowd":[null],"mirror":"tap","policer":"p-8","class":"voice","fallback":false,
                 "backup-preferred-color":["lte"],"tcp-optimization":[null],"ssl-optimization":[null],"packet-duplication":[null],"redirect-dns":"10.0.0.1"})",
             "", ""},
            {"12 actions with a service", roots[i], action[i],
             nine_actions + R"(,"set":{"service-type":"FW","dscp":1}})", "", ""},
            {"13 actions with a service", roots[i], action[i],
             nine_actions + R"(,"set":{"service-type":"FW","dscp":1,"restrict":[null]}})", "action",
             "at most 12 actions"},
            {"12 actions with a translation", roots[i], action[i],
             nine_actions + R"(,"nat":{"use-vpn":10,"pool":1},"set":{"tloc":{"ip":"10.0.0.1","label":1}}})",
             "", ""},
            {"13 actions with a translation", roots[i], action[i],
             nine_actions +
                 R"(,"nat":{"use-vpn":10,"pool":1},"set":{"tloc":{"ip":"10.0.0.1"},"color-encap":{"color":"red"}}})",
             "action", "at most 12 actions"},
            {"the VPN of a service is no action", roots[i], action[i],
             nine_actions + R"(,"set":{"service-type":"FW","dscp":1,"vpn":10}})", "", ""},
        };
        expect(cases);
    }
    const t_case routes[] = {
        {"the SLA class counts, 12", keelson, std::string(ar_seq) + "/action",
         nine_actions + R"(,"set":{"dscp":1,"restrict":[null]}})", "", ""},
        {"the SLA class counts, 13", keelson, std::string(ar_seq) + "/action",
         nine_actions + R"(,"set":{"dscp":1,"restrict":[null],"local":[null]}})", "action", "at most 12"},
        {"given or not", keelson, std::string(ar_seq) + "/action",
         nine_actions +
             R"(,"sla-class":{"sla-class-name":"gold"},"set":{"dscp":1,"restrict":[null],"local":[null]}})",
         "action", "at most 12"},
    };
    expect(routes);
}

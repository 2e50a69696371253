// The tags that the daemons and the model agree on. They stand in compiled programs of routers in the field
// and in other daemons, so they never change.

#include "generated/lumora_schema.h"
#include "tarnd/config/tarn_rule.h"
#include "yang/schema_index.h"

#include <gtest/gtest.h>

struct t_row {
    uint32_t tag;
    const char *path;
    e_schema_kind kind;
    e_schema_value value;
    e_schema_value element = SCHEMA_VALUE_NONE;
};

// clang-format off
static constexpr t_row golden[] = {
    // Objects with keys and global leaves
    {0x0bb0ec92, "/policy/app-visibility", SCHEMA_KIND_LEAF, SCHEMA_VALUE_BOOL},
    {0x209c98ce, "/policy/flow-visibility", SCHEMA_KIND_LEAF, SCHEMA_VALUE_BOOL},
    {0x6f44232a, "/policy/log-frequency", SCHEMA_KIND_LEAF, SCHEMA_VALUE_INT32},
    {0x758f0715, "/policy/zone-to-nozone-internet", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x5780daa2, "/policy-from-keelson/data-policy/direction", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x7037c488, "/policy-from-keelson/data-policy/vpn-list/default-action", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x1fc19c53, "/policy-from-keelson/app-route-policy/vpn-list/sla-class-name", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x47fac177, "/policy/class-map/class/queue", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT8},
    {0x440eedc0, "/policy/mirror/remote-dest/source", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UNION},
    {0x31c4ad27, "/policy-from-keelson/policer/rate", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT64},
    {0x4b124597, "/policy-from-keelson/policer/burst", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT32},
    {0x03fe4de6, "/policy-from-keelson/policer/exceed", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x53af7f02, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/lum-tloc-pref-list/tloc-ip", SCHEMA_KIND_LEAF, SCHEMA_VALUE_IPV4},
    {0x0b235208, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/lum-tloc-pref-list/tloc-color", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x1d213356, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/lum-tloc-pref-list/tloc-encap", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x41bc4274, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/lum-tloc-pref-list/tloc-label", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT32},
    {0x6aa74198, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/lum-tloc-pref-list/tloc-preference", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT32},
    {0x50679287, "/policy/zone-pair", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x686f98ed, "/policy/zone-based-policy", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x4d129a5b, "/policy/ipv6/access-list/sequence", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x7dec02bd, "/snmp/trap/group/enable/level", SCHEMA_KIND_LEAF_LIST, SCHEMA_VALUE_LIST, SCHEMA_VALUE_ENUM},
    // Matches
    {0x3838f6e1, "/policy-from-keelson/data-policy/vpn-list/sequence/match/protocol", SCHEMA_KIND_LEAF_LIST, SCHEMA_VALUE_LIST, SCHEMA_VALUE_UINT8},
    {0x0f472580, "/policy-from-keelson/data-policy/vpn-list/sequence/match/source-port", SCHEMA_KIND_LEAF_LIST, SCHEMA_VALUE_LIST, SCHEMA_VALUE_STRING},
    {0x6475b955, "/policy-from-keelson/data-policy/vpn-list/sequence/match/destination-port", SCHEMA_KIND_LEAF_LIST, SCHEMA_VALUE_LIST, SCHEMA_VALUE_STRING},
    {0x553788af, "/policy-from-keelson/data-policy/vpn-list/sequence/match/source-ip", SCHEMA_KIND_LEAF_LIST, SCHEMA_VALUE_LIST, SCHEMA_VALUE_IPV4PREFIX},
    {0x22688857, "/policy-from-keelson/data-policy/vpn-list/sequence/match/destination-ip", SCHEMA_KIND_LEAF_LIST, SCHEMA_VALUE_LIST, SCHEMA_VALUE_IPV4PREFIX},
    {0x32d6e4cb, "/policy-from-keelson/data-policy/vpn-list/sequence/match/source-data-prefix-list", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x4db8ee1a, "/policy-from-keelson/data-policy/vpn-list/sequence/match/destination-data-prefix-list", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x42a50984, "/policy-from-keelson/data-policy/vpn-list/sequence/match/dscp", SCHEMA_KIND_LEAF_LIST, SCHEMA_VALUE_LIST, SCHEMA_VALUE_UINT8},
    {0x42a50984, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/dscp", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT8},
    {0x6854f46f, "/policy/access-list/sequence/match/class", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x6854f46f, "/policy/class-map/class", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x4f1498b9, "/policy-from-keelson/data-policy/vpn-list/sequence/match/tcp", SCHEMA_KIND_LEAF, SCHEMA_VALUE_BIT32},
    {0x5b2c4c8c, "/policy-from-keelson/data-policy/vpn-list/sequence/match/packet-length", SCHEMA_KIND_LEAF_LIST, SCHEMA_VALUE_LIST, SCHEMA_VALUE_STRING},
    {0x542ece51, "/policy-from-keelson/data-policy/vpn-list/sequence/match/app-list", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x542ece51, "/policy/lists/app-list", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x542ece51, "/policy-from-keelson/lists/app-list", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x63457662, "/policy/access-list/sequence/match/traffic-class", SCHEMA_KIND_LEAF_LIST, SCHEMA_VALUE_LIST, SCHEMA_VALUE_UINT8},
    {0x63457662, "/policy/access-list/sequence/action/set/traffic-class", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT8},
    {0x6e505df6, "/policy-from-keelson/data-policy/vpn-list/sequence/match/plp", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x5a06eb58, "/policy-from-keelson/data-policy/vpn-list/sequence/match/dns-app-list", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x226e9214, "/policy-from-keelson/data-policy/vpn-list/sequence/match/dns", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    // Actions
    {0x0369ffb7, "/policy-from-keelson/data-policy/vpn-list/sequence/action/base-action", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x0ac83abe, "/policy-from-keelson/data-policy/vpn-list/sequence/action/count", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x4ca57cf4, "/policy-from-keelson/data-policy/vpn-list/sequence/action/log", SCHEMA_KIND_LEAF, SCHEMA_VALUE_EMPTY},
    {0x2bf83993, "/policy-from-keelson/data-policy/vpn-list/sequence/action/cflowd", SCHEMA_KIND_LEAF, SCHEMA_VALUE_EMPTY},
    {0x65975b28, "/policy-from-keelson/data-policy/vpn-list/sequence/action/mirror", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x65975b28, "/policy/mirror", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x58e2217b, "/policy-from-keelson/data-policy/vpn-list/sequence/action/policer", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x58e2217b, "/policy/policer", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x58e2217b, "/policy-from-keelson/policer", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x6854f46f, "/policy-from-keelson/data-policy/vpn-list/sequence/action/class", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x19c134f9, "/policy-from-keelson/data-policy/vpn-list/sequence/action/nat/use-vpn", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT32},
    {0x7273b107, "/policy-from-keelson/data-policy/vpn-list/sequence/action/nat/pool", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT32},
    {0x22cdcc44, "/policy-from-keelson/data-policy/vpn-list/sequence/action/redirect-dns", SCHEMA_KIND_LEAF, SCHEMA_VALUE_IPV4},
    {0x6f889001, "/policy-from-keelson/data-policy/vpn-list/sequence/action/tcp-optimization", SCHEMA_KIND_LEAF, SCHEMA_VALUE_EMPTY},
    {0x7c9e7c08, "/policy-from-keelson/data-policy/vpn-list/sequence/action/ssl-optimization", SCHEMA_KIND_LEAF, SCHEMA_VALUE_EMPTY},
    {0x0f474ab8, "/policy-from-keelson/data-policy/vpn-list/sequence/action/packet-duplication", SCHEMA_KIND_LEAF, SCHEMA_VALUE_EMPTY},
    {0x24c9f321, "/policy-from-keelson/data-policy/vpn-list/sequence/action/loss-protect", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x5023aaed, "/policy-from-keelson/data-policy/vpn-list/sequence/action/fallback", SCHEMA_KIND_LEAF, SCHEMA_VALUE_BOOL},
    {0x58223d85, "/policy-from-keelson/app-route-policy/vpn-list/sequence/action/sla-class", SCHEMA_KIND_CONTAINER, SCHEMA_VALUE_NONE},
    {0x58223d85, "/policy-from-keelson/sla-class", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x5c327362, "/policy-from-keelson/app-route-policy/vpn-list/sequence/action/sla-class/strict", SCHEMA_KIND_LEAF, SCHEMA_VALUE_BOOL},
    {0x6464ce5d, "/policy-from-keelson/app-route-policy/vpn-list/sequence/action/sla-class/preferred-color", SCHEMA_KIND_LEAF_LIST, SCHEMA_VALUE_LIST, SCHEMA_VALUE_ENUM},
    {0x23e66386, "/policy-from-keelson/data-policy/vpn-list/sequence/action/backup-preferred-color", SCHEMA_KIND_LEAF_LIST, SCHEMA_VALUE_LIST, SCHEMA_VALUE_ENUM},
    {0x6a7435bb, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set", SCHEMA_KIND_CONTAINER, SCHEMA_VALUE_NONE},
    {0x3da6fd46, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/color-encap", SCHEMA_KIND_CONTAINER, SCHEMA_VALUE_NONE},
    {0x078cd2b7, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/local-tloc-list", SCHEMA_KIND_CONTAINER, SCHEMA_VALUE_NONE},
    {0x33c074ce, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/tloc", SCHEMA_KIND_CONTAINER, SCHEMA_VALUE_NONE},
    {0x61fa2cdb, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/tloc/ip", SCHEMA_KIND_LEAF, SCHEMA_VALUE_IPV4},
    {0x22266391, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/tloc/label", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT32},
    {0x22266391, "/vpn/vpn-instance/label", SCHEMA_KIND_LEAF, SCHEMA_VALUE_INT32},
    {0x2b503622, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/tloc/color", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x2b503622, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/color-encap/color", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x2b503622, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/local-tloc-list/color", SCHEMA_KIND_LEAF_LIST, SCHEMA_VALUE_LIST, SCHEMA_VALUE_ENUM},
    {0x5a62686b, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/tloc/encap", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x5a62686b, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/color-encap/encap", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x5a62686b, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/local-tloc-list/encap", SCHEMA_KIND_LEAF_LIST, SCHEMA_VALUE_LIST, SCHEMA_VALUE_ENUM},
    {0x0add765d, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/restrict", SCHEMA_KIND_LEAF, SCHEMA_VALUE_EMPTY},
    {0x0add765d, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/local-tloc-list/restrict", SCHEMA_KIND_LEAF, SCHEMA_VALUE_EMPTY},
    {0x72d28bfe, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/tloc-list", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x7ef235bf, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/local", SCHEMA_KIND_LEAF, SCHEMA_VALUE_EMPTY},
    {0x6ccfcce4, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/service-type", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x4d7d11c2, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/vpn", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT32},
    {0x4d7d11c2, "/vpn", SCHEMA_KIND_CONTAINER, SCHEMA_VALUE_NONE},
    {0x4d7d11c2, "/policy/zone/vpn", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x4d7d11c2, "/policy-from-keelson/lists/vpn-list/vpn", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x70a1c5a8, "/policy-from-keelson/data-policy/vpn-list/sequence/action/set/next-hop", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    // Operational rows
    {0x64d3d948, "/policy/app-route-policy-filter", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x199eea0a, "/policy/app-route-policy-filter/app-route-policy-vpnlist", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x0e5abb71, "/policy/app-route-policy-filter/app-route-policy-vpnlist/app-route-policy-counter", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x692fc3f2, "/policy/data-policy-filter", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x5e089540, "/policy/data-policy-filter/data-policy-vpnlist", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x71b9987d, "/policy/data-policy-filter/data-policy-vpnlist/data-policy-counter", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x3faefcec, "/policy/data-policy-filter/data-policy-vpnlist/data-policy-policer", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x62d4f46a, "/policy/zbfw-filter-statistics", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x223da8b8, "/policy/zbfw-filter-statistics/zbfw-policy-counter", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x097a20f3, "/policy/access-list-names", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x27f47908, "/policy/access-list-counters", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x22592248, "/policy/access-list-counters/counter-list", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x2eb19ff7, "/policy/access-list-policers", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x3d6b962a, "/policy/access-list-policers/policer-list", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x2b05e33f, "/policy/access-list-associations", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x1d7c9be6, "/policy/access-list-associations/interface-list", SCHEMA_KIND_LIST, SCHEMA_VALUE_NONE},
    {0x771b3037, "/policy/access-list-names/name", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x771b3037, "/tarn-clear-policy-acl/name", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x5a01054e, "/policy/zbfw-filter-statistics/zbfw-policy-counter/counter-name", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x16ebed30, "/policy/zbfw-filter-statistics/zbfw-policy-counter/packets", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT64},
    {0x4258b159, "/policy/zbfw-filter-statistics/zbfw-policy-counter/bytes", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT64},
    {0x57809244, "/policy/access-list-policers/policer-list/policer-name", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x528ffc0b, "/policy/access-list-policers/policer-list/oob-packets", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT64},
    {0x77c99227, "/policy/access-list-policers/policer-list/oob-bytes", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT64},
    {0x4ed9d764, "/policy/access-list-associations/interface-list/interface-name", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x20ba4552, "/policy/access-list-associations/interface-list/interface-direction", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x197390ac, "/policy/filter-memory-usage/filters-in-use", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT32},
    {0x03647cc1, "/policy/filter-memory-usage/blocks-in-use", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT32},
    {0x3a378571, "/policy/filter-memory-usage/filters-total", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT32},
    {0x21125a01, "/policy/filter-memory-usage/blocks-total", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UINT32},
    // Notifications
    {0x73e916a8, "/data-policy-association-status", SCHEMA_KIND_NOTIFICATION, SCHEMA_VALUE_NONE},
    {0x026db0d4, "/access-list-association-status", SCHEMA_KIND_NOTIFICATION, SCHEMA_VALUE_NONE},
    {0x18f30f38, "/data-policy-association-status/severity-level", SCHEMA_KIND_LEAF, SCHEMA_VALUE_ENUM},
    {0x5808a665, "/data-policy-association-status/host-name", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x5e5f3f28, "/data-policy-association-status/system-ip", SCHEMA_KIND_LEAF, SCHEMA_VALUE_UNION},
    {0x61fe004e, "/data-policy-association-status/policy-name", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x0ed4d8e3, "/data-policy-association-status/vpn-list-name", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x1420cbfa, "/access-list-association-status/access-list-name", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
    {0x74470328, "/data-policy-association-status/status", SCHEMA_KIND_LEAF, SCHEMA_VALUE_STRING},
};
// clang-format on

TEST(SchemaTagsGoldenTest, nodes_have_the_tags_kinds_and_types_that_the_daemons_expect)
{
    std::string error;
    schema_context_ptr context = schema_context_new(YANG_MODULE_FOLDER, &error);
    ASSERT_NE(context, nullptr) << error;
    std::vector<std::string> errors;
    std::unique_ptr<const t_schema_index> index = schema_index_new(context.get(), &errors);
    ASSERT_NE(index, nullptr) << errors.front();
    for (const t_row &row : golden) {
        const t_schema_node *p_node = schema_find(*index, row.path);
        ASSERT_NE(p_node, nullptr) << row.path;
        EXPECT_EQ(p_node->tag, row.tag) << row.path;
        EXPECT_EQ(p_node->kind, row.kind) << row.path;
        EXPECT_EQ(p_node->value, row.value) << row.path;
        EXPECT_EQ(p_node->element, row.element) << row.path;
    }
}

// The keys of a rule's actions are tags of the model.
static_assert(TARN_ACTION_TAG_ACTION == LUMORA_TAG_BASE_ACTION);
static_assert(TARN_ACTION_TAG_LOCAL_TLOC_LIST == LUMORA_TAG_LOCAL_TLOC_LIST);
static_assert(TARN_ACTION_TAG_COUNT == LUMORA_TAG_COUNT);
static_assert(TARN_ACTION_TAG_SVC_LOCAL_STRICT == LUMORA_TAG_RESTRICT);
static_assert(TARN_ACTION_TAG_PKT_DUP == LUMORA_TAG_PACKET_DUPLICATION);
static_assert(TARN_ACTION_TAG_NAT_VPN == LUMORA_TAG_USE_VPN);
static_assert(TARN_ACTION_TAG_REDIRECT_DNS == LUMORA_TAG_REDIRECT_DNS);
static_assert(TARN_ACTION_TAG_BACKUP_PREFERRED_COLOR == LUMORA_TAG_BACKUP_PREFERRED_COLOR);
static_assert(TARN_ACTION_TAG_LOSS_PROTECT == LUMORA_TAG_LOSS_PROTECT);
static_assert(TARN_ACTION_TAG_CFLOWD == LUMORA_TAG_CFLOWD);
static_assert(TARN_ACTION_TAG_TLOC == LUMORA_TAG_TLOC);
static_assert(TARN_ACTION_TAG_TLOC_COLOR_ENCAP == LUMORA_TAG_COLOR_ENCAP);
static_assert(TARN_ACTION_TAG_DSCP == LUMORA_TAG_DSCP);
static_assert(TARN_ACTION_TAG_LOG == LUMORA_TAG_LOG);
static_assert(TARN_ACTION_TAG_FALLBACK == LUMORA_TAG_FALLBACK);
static_assert(TARN_ACTION_TAG_SLA_CLASS == LUMORA_TAG_SLA_CLASS);
static_assert(TARN_ACTION_TAG_POLICER == LUMORA_TAG_POLICER);
static_assert(TARN_ACTION_TAG_TRAFFIC_CLASS == LUMORA_TAG_TRAFFIC_CLASS);
static_assert(TARN_ACTION_TAG_MIRROR == LUMORA_TAG_MIRROR);
static_assert(TARN_ACTION_TAG_CLASS == LUMORA_TAG_CLASS);
static_assert(TARN_ACTION_TAG_SERVICE == LUMORA_TAG_SERVICE_TYPE);
static_assert(TARN_ACTION_TAG_TCP_OPTIMIZATION == LUMORA_TAG_TCP_OPTIMIZATION);
static_assert(TARN_ACTION_TAG_NEXT_HOP == LUMORA_TAG_NEXT_HOP);
static_assert(TARN_ACTION_TAG_NAT_POOL == LUMORA_TAG_POOL);
static_assert(TARN_ACTION_TAG_TLOC_LIST == LUMORA_TAG_TLOC_LIST);
static_assert(TARN_ACTION_TAG_SSL_OPTIMIZATION == LUMORA_TAG_SSL_OPTIMIZATION);
static_assert(TARN_ACTION_TAG_SVC_LOCAL == LUMORA_TAG_LOCAL);

static_assert(LUMORA_NS_POLICY == 0x25640284 && LUMORA_NS_VPN == 0x09ae20f2);
static_assert(LUMORA_NS_SYSTEM == 0x5840b9be && LUMORA_NS_SNMP == 0x109febec);

// Enumerations whose numbers other programs know.
static_assert(LUMORA_PACKET_ACTION_ACCEPT == 0 && LUMORA_PACKET_ACTION_DROP == 1 &&
              LUMORA_PACKET_ACTION_INSPECT == 2);
static_assert(LUMORA_LOSS_PROTECTION_FEC_ADAPTIVE == 10 && LUMORA_LOSS_PROTECTION_FEC_ALWAYS == 11);
static_assert(LUMORA_POLICY_DIRECTION_FROM_SERVICE == 0 && LUMORA_POLICY_DIRECTION_FROM_TUNNEL == 1);
static_assert(LUMORA_POLICY_DIRECTION_ALL == 2 && LUMORA_EXCEED_ACTION_REMARK == 1);
static_assert(LUMORA_TLOC_COLOR_DEFAULT == 1 && LUMORA_TLOC_COLOR_PRIVATE6 == 22);
static_assert(LUMORA_TLOC_ENCAP_GRE == 1 && LUMORA_TLOC_ENCAP_IPSEC == 2);
static_assert(LUMORA_SERVICE_TYPE_FW == 1 && LUMORA_SERVICE_TYPE_TE == 8);
static_assert(LUMORA_INTERFACE_DIRECTION_IN == 0 && LUMORA_INTERFACE_DIRECTION_OUT == 1);
static_assert(LUMORA_SEVERITY_CRITICAL == 1 && LUMORA_SEVERITY_MINOR == 3);
static_assert(LUMORA_TRAP_LEVEL_CRITICAL == 0 && LUMORA_TRAP_LEVEL_MINOR == 2);
static_assert(LUMORA_TRAP_MODULE_ALL == 0 && LUMORA_TRAP_MODULE_WWAN == 13);

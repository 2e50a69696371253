// Zones and pairs of zones against a plain model: random changes, and what packets find after each pass.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>

#include "fp_api/fp_filter_action.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/zone/tarn_zbf.h"
#include "tests/tarnd/config/pass_world.h"
#include "tests/tarnd/zone/zone_tables.h"

namespace {

struct t_model_pair {
    std::string src;
    std::string dst;
    std::string policy;
    uint32_t id;
};

class ZoneModel {
public:
    explicit ZoneModel(uint32_t seed) : random(seed)
    {
        tables.init();
    }
    void step();
    void compare();

private:
    void change_zone(const std::string &zone);
    void change_vpn(const std::string &zone, uint32_t vpn_id);
    void change_pair(const std::string &pair);
    void change_policy(const std::string &policy);
    void drop_record(uint32_t vpn_id, uint16_t zone_id);
    int rebuild();  // the result and the expected records

    ZoneTables tables;
    PassWorld world;
    std::mt19937 random;
    std::map<std::string, uint16_t> zones;
    std::set<std::pair<std::string, uint32_t>> vpns;
    std::vector<std::pair<uint16_t, uint16_t>> vpn_records;  // VPN and zone id, in order of creation
    std::map<std::string, t_model_pair> pairs;
    std::map<std::string, bool> policies;
    uint16_t last_zone_id = 0;
    uint32_t last_pair_id = 0;
    bool rebuild_wanted = false;
    std::map<std::pair<uint16_t, uint16_t>, std::vector<uint32_t>> records;  // ids of pairs, the last first
    size_t record_count = 0;
};

}  // namespace

// The last one made, which needn't be the one that this VPN made: the table knows 16 bits of it.
void ZoneModel::drop_record(uint32_t vpn_id, uint16_t zone_id)
{
    std::pair<uint16_t, uint16_t> wanted = {static_cast<uint16_t>(vpn_id), zone_id};
    auto found = std::find(vpn_records.rbegin(), vpn_records.rend(), wanted);
    if (found != vpn_records.rend())
        vpn_records.erase(std::next(found).base());
}

void ZoneModel::change_zone(const std::string &zone)
{
    if (random() % 2) {
        ASSERT_EQ(tarn_config_zone_add(&world.tarn, zone.c_str()), zones.contains(zone) ? 17 : 0);
        if (!zones.contains(zone))
            zones[zone] = ++last_zone_id;
    } else {
        ASSERT_EQ(tarn_config_zone_delete(&world.tarn, zone.c_str()), zones.contains(zone) ? 0 : 2);
        while (!vpns.empty()) {
            auto vpn = vpns.lower_bound({zone, 0});
            if (vpn == vpns.end() || vpn->first != zone)
                break;
            drop_record(vpn->second, zones[zone]);
            vpns.erase(vpn);
        }
        zones.erase(zone);
    }
}

void ZoneModel::change_vpn(const std::string &zone, uint32_t vpn_id)
{
    bool here = vpns.contains({zone, vpn_id});
    if (random() % 3) {
        int want = !zones.contains(zone) ? 2 : here ? 17 : 0;
        ASSERT_EQ(tarn_config_zone_vpn_add(&world.tarn, zone.c_str(), vpn_id), want);
        if (want != 0)
            return;
        vpns.insert({zone, vpn_id});
        if (vpn_records.size() < TEST_VPN_RECORDS)
            vpn_records.emplace_back(static_cast<uint16_t>(vpn_id), zones[zone]);
    } else {
        ASSERT_EQ(tarn_config_zone_vpn_delete(&world.tarn, zone.c_str(), vpn_id), here ? 0 : 2);
        if (!here)
            return;
        vpns.erase({zone, vpn_id});
        drop_record(vpn_id, zones[zone]);
    }
}

void ZoneModel::change_pair(const std::string &pair)
{
    auto zone = [&] { return "zone" + std::to_string(random() % 4); };
    t_model_pair wanted = {zone(), zone(), "policy" + std::to_string(random() % 3), ++last_pair_id};
    rebuild_wanted = true;
    world.tarn.process_zbf_config = 1;  // as the parser does
    if (random() % 3) {
        int want = pairs.contains(pair) ? 17 : 0;
        ASSERT_EQ(tarn_config_zone_pair_create(&world.tarn, pair.c_str(), wanted.src.c_str(),
                                               wanted.dst.c_str(), wanted.policy.c_str(), wanted.id),
                  want);
        if (want == 0)
            pairs[pair] = wanted;
        ASSERT_EQ(
            tarn_config_zone_pair_modify(&world.tarn, pair.c_str(), nullptr, wanted.dst.c_str(), nullptr), 0);
        pairs[pair].dst = wanted.dst;
    } else {
        ASSERT_EQ(tarn_config_zone_pair_delete(&world.tarn, pair.c_str()), pairs.contains(pair) ? 0 : 2);
        pairs.erase(pair);
    }
}

void ZoneModel::change_policy(const std::string &policy)
{
    const char *name = policy.c_str();
    rebuild_wanted = true;
    if (policies[policy]) {
        ASSERT_EQ(tarn_policy_delete(&world.tarn, TARN_POLICY_TYPE_ZBF, name), 0);
    } else {
        ASSERT_EQ(tarn_policy_add(&world.tarn, TARN_POLICY_TYPE_ZBF, name, TARN_POLICY_DIR_ALL,
                                  TARN_FILTER_ACTION_ACCEPT),
                  0);
        world.add_rule(TARN_POLICY_TYPE_ZBF, name, TARN_ZBF_VPN_LIST, 1);
    }
    policies[policy] = !policies[policy];
}

// The first pair that leads nowhere ends the walk; a full table does not.
int ZoneModel::rebuild()
{
    records.clear();
    record_count = 0;
    for (const auto &[name, pair] : pairs) {
        if (!zones.contains(pair.src) || !zones.contains(pair.dst) || !policies[pair.policy])
            return 22;
        if (record_count == TEST_PAIR_RECORDS)
            continue;
        std::vector<uint32_t> &ids = records[{zones[pair.src], zones[pair.dst]}];
        ids.insert(ids.begin(), pair.id);
        record_count++;
    }
    return 0;
}

void ZoneModel::step()
{
    std::string zone = "zone" + std::to_string(random() % 4);
    switch (random() % 8) {
    case 0:
        return change_zone(zone);
    case 1:
        return change_policy("policy" + std::to_string(random() % 3));
    case 2:
    case 3:
        return change_pair("pair" + std::to_string(random() % 8));
    default:
        return change_vpn(zone, static_cast<uint32_t>(random() % 5 + (random() % 3 ? 0 : 65536)));
    }
}

void ZoneModel::compare()
{
    int want = rebuild_wanted ? rebuild() : 0;
    rebuild_wanted = false;
    ASSERT_EQ(tarn_process_config(&world.tarn), want);
    ASSERT_EQ(world.tarn.process_zbf_config, 0);
    ASSERT_EQ(tables.p_ctrl->zbf_enabled, !zones.empty());
    for (uint16_t vpn = 0; vpn < 5; vpn++) {
        std::vector<uint16_t> want_zones;
        for (auto record = vpn_records.rbegin(); record != vpn_records.rend(); ++record)
            if (record->first == vpn)
                want_zones.push_back(record->second);
        ASSERT_EQ(tables.zones_of(vpn), want_zones);
    }
    ASSERT_EQ(tables.pair_count(), record_count);
    for (const auto &[key, ids] : records) {
        std::vector<uint32_t> found;
        for (const t_fp_zbf_pair_record *p_record : tables.pairs_of(key.first, key.second))
            found.push_back(p_record->zb_pair_id);
        ASSERT_EQ(found, ids);
    }
}

TEST(ZoneModel, PacketsFindWhatAPlainModelSays)
{
    for (uint32_t seed = 1; seed <= 12; seed++) {
        SCOPED_TRACE(seed);
        ZoneModel model(seed);
        for (int step = 0; step < 250; step++) {
            model.step();
            if (step % 3 == 0)
                model.compare();
            ASSERT_FALSE(HasFatalFailure()) << "step " << step;
        }
    }
}

// Random commits against a flat map of paths and values that knows the rules by itself.

#include "tests/mgmtd/store/store_world.h"

#include <map>
#include <random>
#include <set>

using t_flat =
    std::map<std::string, std::string>;  // the path of a leaf, entry or element; its value or nothing

namespace {

struct t_random_world {
    std::mt19937 random;
    t_flat flat;   // running, as it should be
    t_flat next;   // flat with the edits of the commit in hand
    bool is_good;  // so far
    std::string edits;

    int pick(int count)
    {
        return static_cast<int>(random() % static_cast<unsigned int>(count));
    }

    void add(const std::string &op, const std::string &path, const std::string &value = "")
    {
        edits += (edits.empty() ? "[" : ",") + world_edit(op, path, value).substr(1);
        edits.pop_back();
    }

    bool erase(const std::string &path)
    {
        bool found = false;
        for (auto place = next.lower_bound(path); place != next.end() && place->first.starts_with(path);) {
            bool is_below = place->first.size() == path.size() || place->first[path.size()] == '/';
            found = found || is_below;
            place = is_below ? next.erase(place) : std::next(place);
        }
        return found;
    }

    void remove(const std::string &path)
    {
        add("delete", path);
        is_good = erase(path) && is_good;
    }

    void list_edit()
    {
        std::string list = "/policy-from-keelson/lists/data-prefix-list{l" + std::to_string(pick(8)) + "}";
        std::string member = list + "/ip-prefix{10." + std::to_string(pick(3)) + ".0.0/16}";
        switch (pick(6)) {
        case 0:
            return remove(list);
        case 1:
            return remove(member);
        case 2:
            add("create", list);
            is_good = is_good && !next.contains(list);
            next[list] = "";
            return;
        default:
            add("merge", member);
            next[list] = next[member] = "";
        }
    }

    void sequence_edit()
    {
        static const std::string context = "/policy-from-keelson/data-policy{d}/vpn-list{v}";
        std::string sequence = context + "/sequence{" + std::to_string(pick(30)) + "}";
        if (pick(3) == 0)
            return remove(sequence);
        next[context] = next["/policy-from-keelson/data-policy{d}"] = next[sequence] = "";
        std::string list = "l" + std::to_string(pick(8));
        bool replaces = pick(2) == 0;
        bool has_verdict = pick(10) != 0;
        std::string protocol = std::to_string(pick(256));
        if (replaces) {
            erase(sequence);
            next[sequence] = "";
        }
        add(replaces ? "replace" : "merge", sequence,
            R"({"match":{"source-data-prefix-list":")" + list + R"(","protocol":[)" + protocol + "]}" +
                (has_verdict ? R"(,"action":{"base-action":"drop","log":[null]})" : "") + "}");
        next[sequence + "/match/source-data-prefix-list"] = list;
        next[sequence + "/match/protocol{" + protocol + "}"] = "";
        if (has_verdict) {
            next[sequence + "/action/base-action"] = "drop";
            next[sequence + "/action/log"] = "";
        }
    }

    void application_edit()
    {
        std::string list = "/policy/lists/app-list{a" + std::to_string(pick(3)) + "}";
        if (pick(4) == 0)
            return remove(list);
        bool is_family = pick(4) == 0;
        std::string other = is_family ? "/app{" : "/app-family{";
        for (int i = 0; i < 4; i++)
            erase(list + other + "n" + std::to_string(i) + "}");
        std::string member = list + (is_family ? "/app-family{n" : "/app{n") + std::to_string(pick(4)) + "}";
        add("merge", member);
        next[list] = next[member] = "";
    }

    void policer_edit()
    {
        std::string policer = "/policy/policer{p" + std::to_string(pick(5)) + "}";
        switch (pick(4)) {
        case 0:
            return remove(policer);
        case 1: {
            int rate = pick(20);
            add("merge", policer + "/rate", "\"" + std::to_string(rate) + "\"");
            is_good = is_good && rate >= 8;
            next[policer] = "";
            next[policer + "/rate"] = std::to_string(rate);
            return;
        }
        default:
            add("merge", policer, R"({"rate":"1000","burst":15,"exceed":"drop"})");
            next[policer] = "";
            next[policer + "/rate"] = "1000";
            next[policer + "/burst"] = "15";
            next[policer + "/exceed"] = "drop";
        }
    }

    // The rules of the model that the edits can break.
    bool is_valid() const
    {
        for (const auto &[path, value] : next) {
            bool is_sequence = path.find("/sequence{") != std::string::npos && path.ends_with("}") &&
                               path.find("/match") == std::string::npos;
            if (is_sequence && !next.contains(path + "/action/base-action"))
                return false;
            bool is_policer = path.starts_with("/policy/policer{") && path.ends_with("}");
            if (is_policer && (!next.contains(path + "/rate") || !next.contains(path + "/burst")))
                return false;
            if (!path.ends_with("/source-data-prefix-list"))
                continue;
            std::string members = "/policy-from-keelson/lists/data-prefix-list{" + value + "}/ip-prefix{";
            auto member = next.lower_bound(members);
            if (member == next.end() || !member->first.starts_with(members))
                return false;
        }
        return !switches_kind();
    }

    bool holds(const t_flat &map, const std::string &lead) const
    {
        auto place = map.lower_bound(lead);
        return place != map.end() && place->first.starts_with(lead);
    }

    // An application list that stays may not change its kind.
    bool switches_kind() const
    {
        for (int i = 0; i < 3; i++) {
            std::string list = "/policy/lists/app-list{a" + std::to_string(i) + "}";
            bool had_app = holds(flat, list + "/app{");
            bool had_family = holds(flat, list + "/app-family{");
            bool has_app = holds(next, list + "/app{");
            bool has_family = holds(next, list + "/app-family{");
            if ((had_app && has_family) || (had_family && has_app))
                return true;
        }
        return false;
    }

    void commit_make()
    {
        next = flat;
        is_good = true;
        edits.clear();
        int count = 1 + pick(3);
        for (int i = 0; i < count; i++) {
            switch (pick(4)) {
            case 0:
                list_edit();
                break;
            case 1:
                application_edit();
                break;
            case 2:
                policer_edit();
                break;
            default:
                sequence_edit();
            }
        }
        edits += "]";
    }
};

}  // namespace

// Lines "+ /path value" as a map; the frame that every commit shares is left out.
static t_flat flat_of(const mgmt_tree_ptr &tree)
{
    t_flat flat;
    std::string lines = world_lines(tree);
    for (size_t start = 0; start < lines.size();) {
        size_t end = lines.find('\n', start);
        std::string line = lines.substr(start + 2, end - start - 2);
        start = end + 1;
        // Keys here hold no blanks.
        size_t blank = line.find(' ');
        flat[line.substr(0, blank)] = blank == std::string::npos ? "" : line.substr(blank + 1);
    }
    for (auto place = flat.begin(); place != flat.end();)
        place = place->first.starts_with("/policy-from-keelson/lists/vpn-list") ? flat.erase(place)
                                                                                : std::next(place);
    return flat;
}

// The difference leads from the old tree to the new one, and a validation of everything agrees.
static void commit_check(const t_world_store &world, const mgmt_tree_ptr &before)
{
    t_mgmt_error error;
    mgmt_work_tree_ptr replayed = mgmt_tree_copy(*before);
    ASSERT_TRUE(mgmt_edit_apply(replayed, mgmt_diff_edits(*world.diff), &error)) << mgmt_error_text(error);
    ASSERT_TRUE(mgmt_tree_equal(*replayed, *world.store.running));
    mgmt_work_tree_ptr whole = mgmt_tree_copy(*world.store.running);
    ASSERT_TRUE(mgmt_tree_validate(whole.get(), &error)) << mgmt_error_text(error);
}

static void run(unsigned int seed, int commits)
{
    SCOPED_TRACE("seed " + std::to_string(seed));
    t_world_store world;
    ASSERT_EQ(world.commit(world_edit("merge", "/policy-from-keelson/lists/vpn-list{v}/vpn{1}")), "");
    t_random_world random = {std::mt19937(seed), {}, {}, true, ""};
    int refused = 0;
    for (int i = 0; i < commits; i++) {
        random.commit_make();
        mgmt_tree_ptr before = world.store.running;
        world.diff = nullptr;
        std::string outcome = world.commit(random.edits);
        bool expected = random.is_good && random.is_valid();
        ASSERT_EQ(outcome.empty(), expected) << i << ": " << random.edits << "\n" << outcome;
        if (expected)
            random.flat = random.next;
        else
            refused++;
        ASSERT_EQ(flat_of(world.store.running), random.flat) << random.edits;
        if (world.diff != nullptr)
            commit_check(world, before);
        else
            ASSERT_TRUE(mgmt_tree_equal(*before, *world.store.running));
    }
    EXPECT_GT(refused, commits / 5);
    EXPECT_LT(refused, commits * 4 / 5);
    // A restart finds the same.
    ASSERT_TRUE(world.open());
    EXPECT_EQ(flat_of(world.store.running), random.flat);
}

TEST(StoreRandom, CommitsAgreeWithTheMapAndDifferencesReplay)
{
    run(1, 250);
    run(2, 250);
}

TEST(StoreRandomSoak, TenThousandCommits)
{
    run(3, 10000);
}

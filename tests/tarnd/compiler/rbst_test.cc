#include "tarnd/compiler/rbst.h"

#include "tests/support/random_table.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <numeric>
#include <random>
#include <set>
#include <vector>

// A tree whose keys are the elements of an array that outlives it.
struct t_tree {
    t_rbst tree;
    std::vector<uint32_t> keys;

    explicit t_tree(uint32_t count) : keys(count)
    {
        rbst_init(&tree);
        std::iota(keys.begin(), keys.end(), 0);
    }
    ~t_tree()
    {
        rbst_delete_all(&tree, free_node);
    }
    t_tree(const t_tree &) = delete;
    t_tree &operator=(const t_tree &) = delete;

    int add(uint32_t key)
    {
        return rbst_add(&tree, &keys[key], nullptr);
    }
    void add_all()
    {
        for (uint32_t key = 0; key < keys.size(); key++)
            add(key);
    }
};

static uint32_t key_of(const t_rbst_node *p_node)
{
    return *static_cast<const uint32_t *>(p_node->key);
}

static std::vector<uint32_t> ascending_keys(const t_rbst *p_tree)
{
    std::vector<uint32_t> keys;
    for (t_rbst_node *p_node = nullptr; (p_node = rbst_getnext(p_tree, p_node)) != nullptr;)
        keys.push_back(key_of(p_node));
    return keys;
}

// Checks parent links and order below a node and returns the number of nodes.
static uint32_t check_links(const t_rbst_node *p_node, const t_rbst_node *p_parent, bool check_counts)
{
    if (p_node == nullptr)
        return 0;
    EXPECT_EQ(p_node->parent, p_parent);
    uint32_t count = 1 + check_links(p_node->left, p_node, check_counts) +
                     check_links(p_node->right, p_node, check_counts);
    if (check_counts) {
        EXPECT_EQ(p_node->num_nodes, count);
    }
    return count;
}

TEST(Rbst, BehavesAsASortedSet)
{
    for (unsigned seed = 1; seed <= 60; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        t_tree own(1 + random_below(&random, 300));
        std::set<uint32_t> twin;
        for (size_t i = 0; i < 2 * own.keys.size(); i++) {
            uint32_t key = random_below(&random, static_cast<uint32_t>(own.keys.size()));
            EXPECT_EQ(own.add(key), twin.insert(key).second ? 1 : 0);
        }
        EXPECT_EQ(check_links(own.tree.root, nullptr, true), twin.size());
        EXPECT_EQ(rbst_elements(&own.tree), twin.size());
        EXPECT_EQ(ascending_keys(&own.tree), std::vector<uint32_t>(twin.begin(), twin.end()));
        for (uint32_t &key : own.keys)
            EXPECT_EQ(rbst_search(&own.tree, &key) != nullptr, twin.contains(key));
        while (!twin.empty()) {
            uint32_t key = own.keys[random_below(&random, static_cast<uint32_t>(own.keys.size()))];
            if (twin.erase(key) == 0)
                continue;
            free(rbst_delete(&own.tree, rbst_search(&own.tree, &key)));
            ASSERT_EQ(ascending_keys(&own.tree), std::vector<uint32_t>(twin.begin(), twin.end()));
        }
        check_links(own.tree.root, nullptr, false);
        EXPECT_TRUE(rbst_is_empty(&own.tree));
    }
}

TEST(Rbst, ARefusedDuplicateChangesNoCount)
{
    t_tree own(50);
    own.add_all();
    for (uint32_t key = 0; key < 50; key++)
        EXPECT_EQ(own.add(key), 0);
    EXPECT_EQ(check_links(own.tree.root, nullptr, true), 50u);
}

TEST(Rbst, DeletionLeavesTheCountsOfAncestors)
{
    t_tree own(3);
    own.add_all();
    t_rbst_node *p_leaf = own.tree.root;
    while (p_leaf->left != nullptr || p_leaf->right != nullptr)
        p_leaf = p_leaf->left != nullptr ? p_leaf->left : p_leaf->right;
    t_rbst_node *p_root = own.tree.root;
    EXPECT_EQ(rbst_delete(&own.tree, p_leaf), p_leaf);
    free(p_leaf);
    EXPECT_EQ(p_root->num_nodes, 3u);
    EXPECT_EQ(rbst_elements(&own.tree), 2u);
}

TEST(Rbst, PairsLeaveAnOddTailInFirst)
{
    t_tree own(5);
    own.add_all();
    t_rbst_node *p_first = nullptr;
    t_rbst_node *p_second = nullptr;
    for (uint32_t key = 0; key < 4; key += 2) {
        ASSERT_TRUE(rbst_get_pair(&own.tree, p_second, &p_first, &p_second));
        EXPECT_EQ(key_of(p_first), key);
        EXPECT_EQ(key_of(p_second), key + 1);
    }
    EXPECT_FALSE(rbst_get_pair(&own.tree, p_second, &p_first, &p_second));
    EXPECT_EQ(key_of(p_first), 4u);
    EXPECT_EQ(p_second, nullptr);
    EXPECT_FALSE(rbst_get_pair(&own.tree, p_first, &p_first, &p_second));
    EXPECT_EQ(p_first, nullptr);
}

static std::vector<uint32_t> g_visited;

static void note_key(t_rbst *, t_rbst_node *p_node)
{
    g_visited.push_back(key_of(p_node));
}

static void right_first_preorder(const t_rbst_node *p_node, std::vector<uint32_t> *p_keys)
{
    if (p_node == nullptr)
        return;
    p_keys->push_back(key_of(p_node));
    right_first_preorder(p_node->right, p_keys);
    right_first_preorder(p_node->left, p_keys);
}

TEST(Rbst, TraversesANodeThenItsRightThenItsLeftSubtree)
{
    g_visited.clear();
    t_tree own(100);
    rbst_traverse(&own.tree, note_key);
    EXPECT_TRUE(g_visited.empty());
    EXPECT_EQ(rbst_height(&own.tree), -1);
    own.add_all();
    rbst_traverse(&own.tree, note_key);
    std::vector<uint32_t> want;
    right_first_preorder(own.tree.root, &want);
    EXPECT_EQ(g_visited, want);
}

TEST(Rbst, RotationsKeepOrderAndCounts)
{
    t_tree own(40);
    own.add_all();
    std::vector<uint32_t> before = ascending_keys(&own.tree);
    std::mt19937 random(7);
    for (int i = 0; i < 200; i++) {
        t_rbst_node *p_node = rbst_search(&own.tree, &own.keys[random_below(&random, 40)]);
        if (p_node->right != nullptr && random_below(&random, 2) == 0) {
            EXPECT_EQ(rbst_left_rotate(&own.tree, p_node)->left, p_node);
        } else if (p_node->left != nullptr) {
            EXPECT_EQ(rbst_right_rotate(&own.tree, p_node)->right, p_node);
        }
    }
    EXPECT_EQ(ascending_keys(&own.tree), before);
    EXPECT_EQ(check_links(own.tree.root, nullptr, true), 40u);
}

// Each of n ascending keys is the root with equal chance. The bound of the chi-square sum with 7 degrees of
// freedom is passed by chance once in a million runs.
TEST(Rbst, EveryKeyIsTheRootEquallyOften)
{
    static constexpr int trees = 8000;
    double count[8] = {};
    for (int i = 0; i < trees; i++) {
        t_tree own(8);
        own.add_all();
        count[key_of(own.tree.root)]++;
    }
    double sum = 0;
    for (double c : count)
        sum += (c - trees / 8.0) * (c - trees / 8.0) / (trees / 8.0);
    EXPECT_LT(sum, 40.0);
}

TEST(Rbst, AscendingKeysGiveALowTree)
{
    t_tree own(10000);
    own.add_all();
    EXPECT_LT(rbst_height(&own.tree), 60);
}

TEST(RbstDeathTest, RotationNeedsTheChildThatComesUp)
{
    t_tree own(1);
    own.add_all();
    EXPECT_EXIT(rbst_left_rotate(&own.tree, own.tree.root), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(rbst_right_rotate(&own.tree, own.tree.root), testing::KilledBySignal(SIGSEGV), "");
}

#include "platform/avl/avl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <random>
#include <vector>

namespace {

// A record in two trees at once, by number and by the number's reverse, with neither node first.
struct t_item {
    uint32_t number;
    avl_node_t by_number;
    bool is_key;  // never set in a tree's objects: tells the sides of a comparison apart
    avl_node_t by_reverse;
};

}  // namespace

static int item_cmp(const void *key, const void *object)
{
    const t_item *p_key = static_cast<const t_item *>(key);
    const t_item *p_object = static_cast<const t_item *>(object);
    EXPECT_FALSE(p_object->is_key) << "a key stands second";
    return p_key->number < p_object->number ? -7 : p_key->number > p_object->number;
}

static int item_reverse_cmp(const void *key, const void *object)
{
    return -item_cmp(key, object);
}

static t_item item_key(uint32_t number)
{
    t_item key = {};
    key.number = number;
    key.is_key = true;
    return key;
}

static uint32_t number_of(const void *object, uint32_t if_null)
{
    return object != nullptr ? static_cast<const t_item *>(object)->number : if_null;
}

static constexpr uint32_t none = UINT32_MAX;

using item_map = std::map<uint32_t, std::unique_ptr<t_item>>;

// Height of the subtree when it is a balanced search tree with sound parent links, -1 otherwise.
static int balanced_height(const avl_node_t *node, const avl_node_t *parent)
{
    if (node == nullptr)
        return 0;
    if ((node->parent_balance & ~uintptr_t{3}) != reinterpret_cast<uintptr_t>(parent))
        return -1;
    int left = balanced_height(node->left, node);
    int right = balanced_height(node->right, node);
    if (left < 0 || right < 0 || left - right > 1 || right - left > 1)
        return -1;
    return 1 + (left > right ? left : right);
}

static bool is_balanced(const avl_tree_t &tree)
{
    const avl_node_t *root = reinterpret_cast<const avl_node_t *>(tree.header.parent_balance & ~uintptr_t{3});
    return balanced_height(root, &tree.header) >= 0;
}

static void expect_same_content(const avl_tree_t &up, const avl_tree_t &down, const item_map &model)
{
    ASSERT_EQ(avl_numnodes(&up), model.size());
    ASSERT_EQ(avl_numnodes(&down), model.size());
    ASSERT_TRUE(is_balanced(up));
    ASSERT_TRUE(is_balanced(down));
    void *p_up = avl_first(&up);
    void *p_last = nullptr;
    for (const auto &[number, item] : model) {
        ASSERT_EQ(p_up, item.get()) << number;
        p_last = p_up;
        p_up = avl_walk(&up, p_up);
    }
    ASSERT_EQ(p_up, nullptr);
    ASSERT_EQ(avl_first(&down), p_last);
    for (auto it = model.rbegin(); it != model.rend(); ++it) {
        ASSERT_EQ(p_last, it->second.get());
        p_last = avl_walk(&up, p_last, AVL_BACKWARD);
    }
    ASSERT_EQ(p_last, nullptr);
}

static void insert_number(avl_tree_t *p_up, avl_tree_t *p_down, item_map *p_model, uint32_t number)
{
    auto item = std::make_unique<t_item>();
    item->number = number;
    int expected = p_model->contains(number) ? EEXIST : 0;
    ASSERT_EQ(avl_insert(p_up, item.get()), expected);
    ASSERT_EQ(avl_insert(p_down, item.get()), expected);
    if (expected == 0)
        p_model->emplace(number, std::move(item));
}

static void remove_number(avl_tree_t *p_up, avl_tree_t *p_down, item_map *p_model, uint32_t number)
{
    t_item key = item_key(number);
    void *p_found = avl_find(p_up, &key);
    if (p_found == nullptr)
        return;
    avl_remove(p_up, p_found);
    avl_remove(p_down, p_found);
    p_model->erase(number);
}

static void search_number(const avl_tree_t &up, const avl_tree_t &down, const item_map &model,
                          uint32_t number)
{
    t_item key = item_key(number);
    auto found = model.find(number);
    ASSERT_EQ(avl_find(&up, &key), found != model.end() ? found->second.get() : nullptr);
    auto above = model.upper_bound(number);
    ASSERT_EQ(number_of(avl_find_next(&up, &key), none), above != model.end() ? above->first : none);
    auto below = model.lower_bound(number);
    ASSERT_EQ(number_of(avl_find_next(&down, &key), none), below != model.begin() ? (--below)->first : none);
}

// Two trees over the same objects against a map, with sizes from a handful to a few thousand.
TEST(Avl, AMillionRandomOperationsAgreeWithASortedMap)
{
    static const struct {
        uint32_t numbers;
        uint32_t operations;
    } rounds[] = {{4, 20'000}, {60, 200'000}, {5'000, 780'000}};
    std::minstd_rand random(20);
    auto below = [&random](uint32_t limit) { return static_cast<uint32_t>(random() >> 4) % limit; };
    for (const auto &round : rounds) {
        avl_tree_t up, down;
        item_map model;
        avl_create(&up, item_cmp, sizeof(t_item), offsetof(t_item, by_number));
        avl_create(&down, item_reverse_cmp, sizeof(t_item), offsetof(t_item, by_reverse));
        for (uint32_t i = 0; i < round.operations; i++) {
            uint32_t number = below(round.numbers);
            uint32_t kind = below(4);
            if (kind == 0)
                insert_number(&up, &down, &model, number);
            else if (kind == 1)
                remove_number(&up, &down, &model, number);
            else
                search_number(up, down, model, number);
            if (i % (round.operations / 100) == 0)
                expect_same_content(up, down, model);
            if (HasFatalFailure())
                FAIL() << "operation " << i << " of " << round.numbers << " numbers";
        }
    }
}

// Each order of inserting and each order of removing up to six objects.
TEST(Avl, EveryOrderOfInsertingAndRemovingFewObjectsStaysBalanced)
{
    for (uint32_t count = 1; count <= 6; count++) {
        std::vector<t_item> items(count);
        std::vector<uint32_t> in(count);
        for (uint32_t i = 0; i < count; i++)
            in[i] = items[i].number = i;
        do {
            std::vector<uint32_t> out(count);
            for (uint32_t i = 0; i < count; i++)
                out[i] = i;
            do {
                avl_tree_t tree;
                avl_create(&tree, item_cmp, sizeof(t_item), offsetof(t_item, by_number));
                for (uint32_t i : in)
                    ASSERT_EQ(avl_insert(&tree, &items[i]), 0);
                for (uint32_t i : out) {
                    avl_remove(&tree, &items[i]);
                    ASSERT_TRUE(is_balanced(tree));
                }
                ASSERT_EQ(avl_first(&tree), nullptr);
            } while (std::next_permutation(out.begin(), out.end()));
        } while (std::next_permutation(in.begin(), in.end()));
    }
}

struct AvlTenTest : testing::Test {
    avl_tree_t tree;
    std::vector<std::unique_ptr<t_item>> items;

    AvlTenTest()
    {
        avl_create(&tree, item_cmp, sizeof(t_item), offsetof(t_item, by_number));
        for (uint32_t i = 0; i < 10; i++) {
            items.push_back(std::make_unique<t_item>());
            items.back()->number = i;
            EXPECT_EQ(avl_insert(&tree, items.back().get()), 0);
        }
    }
};

static int remove_even(void *object, void *arg1, void *arg2)
{
    AvlTenTest *p_test = static_cast<AvlTenTest *>(arg1);
    uint32_t number = static_cast<t_item *>(object)->number;
    static_cast<std::vector<uint32_t> *>(arg2)->push_back(number);
    if (number % 2 == 0) {
        avl_remove(&p_test->tree, object);
        p_test->items[number].reset();
    }
    return number == 6 ? -6 : 0;
}

TEST_F(AvlTenTest, ForeachSurvivesRemovalOfTheCurrentObjectAndStopsAtTheFirstResult)
{
    std::vector<uint32_t> visited;
    EXPECT_EQ(avl_foreach(&tree, remove_even, this, &visited), -6);
    EXPECT_EQ(visited, (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(avl_numnodes(&tree), 6u);
    EXPECT_TRUE(is_balanced(tree));
    visited.clear();
    EXPECT_EQ(avl_foreach(&tree, remove_even, this, &visited), 0);
    EXPECT_EQ(visited, (std::vector<uint32_t>{1, 3, 5, 7, 8, 9}));
}

static avl_tree_t *g_p_released_from;
static std::vector<uint32_t> g_released;

static void note_release(void *object)
{
    EXPECT_EQ(avl_numnodes(g_p_released_from), 0u);
    EXPECT_EQ(avl_first(g_p_released_from), nullptr);
    g_released.push_back(static_cast<t_item *>(object)->number);
}

TEST_F(AvlTenTest, DestroyNodesHandsOutEachObjectInOrderFromAnEmptyTree)
{
    g_p_released_from = &tree;
    g_released.clear();
    avl_destroy_nodes(&tree, note_release);
    EXPECT_EQ(g_released, (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    for (const auto &item : items)
        EXPECT_EQ(avl_insert(&tree, item.get()), 0) << item->number;
    avl_destroy_nodes(&tree, nullptr);
    EXPECT_EQ(avl_numnodes(&tree), 0u);
}

static int count_visits(void *, void *arg1, void *)
{
    ++*static_cast<int *>(arg1);
    return 0;
}

static void expect_reads_empty(avl_tree_t *p_tree)
{
    t_item key = item_key(1);
    int visits = 0;
    EXPECT_EQ(avl_find(p_tree, &key), nullptr);
    EXPECT_EQ(avl_find_next(p_tree, &key), nullptr);
    EXPECT_EQ(avl_first(p_tree), nullptr);
    EXPECT_EQ(avl_walk(p_tree, nullptr), nullptr);
    EXPECT_EQ(avl_walk(p_tree, &key), nullptr);
    EXPECT_EQ(avl_walk(p_tree, &key, AVL_BACKWARD), nullptr);
    EXPECT_EQ(avl_foreach(p_tree, count_visits, &visits, nullptr), 0);
    EXPECT_EQ(visits, 0);
    EXPECT_EQ(avl_numnodes(p_tree), 0u);
    avl_destroy_nodes(p_tree, note_release);
}

TEST_F(AvlTenTest, AZeroedTreeReadsAsEmptyAndADestroyedOneToo)
{
    avl_tree_t zeroed = {};
    expect_reads_empty(&zeroed);
    avl_destroy(&zeroed);
    expect_reads_empty(&zeroed);
    avl_destroy(&tree);
    expect_reads_empty(&tree);
}

TEST(AvlDeathTest, ANodeOutsideTheObjectStopsTheProcess)
{
    avl_tree_t tree;
    EXPECT_EXIT(avl_create(&tree, item_cmp, 40, 17), testing::KilledBySignal(SIGILL), "");
    EXPECT_EXIT(avl_create(&tree, item_cmp, 40, 41), testing::KilledBySignal(SIGILL), "");
    avl_create(&tree, item_cmp, 40, 16);
}

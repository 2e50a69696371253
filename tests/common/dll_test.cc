#include "common/dll.h"

#include <gtest/gtest.h>

#include <csignal>
#include <random>
#include <vector>

namespace {

struct t_item {
    int number;
    t_dlnode first_node;  // two nodes: the list in hand uses the second
    t_dlnode node;
};

}  // namespace

// The list's records, after a check that both directions and the count agree.
static std::vector<t_item *> items_of(const t_dll &list)
{
    std::vector<t_item *> items;
    t_dlnode *p_prev = nullptr;
    for (t_dlnode *p_node = list.p_head; p_node != nullptr; p_node = p_node->p_next) {
        EXPECT_EQ(p_node->p_prev, p_prev);
        items.push_back(DLL_RECORD(p_node, t_item, node));
        p_prev = p_node;
    }
    EXPECT_EQ(list.p_tail, p_prev);
    EXPECT_EQ(list.count, static_cast<int>(items.size()));
    return items;
}

TEST(Dll, BehavesLikeAVectorUnderRandomOperations)
{
    std::mt19937 random(10);
    std::vector<t_item> pool(24, t_item{});
    std::vector<t_item *> idle;
    for (t_item &item : pool)
        idle.push_back(&item);
    t_dll list = {};
    std::vector<t_item *> model;
    for (int round = 0; round < 20000; round++) {
        size_t at = random() % (model.size() + 1);  // the size itself stands for null
        t_dlnode *p_at = at < model.size() ? &model[at]->node : nullptr;
        bool removes = idle.empty() || random() % 2 == 0;
        if (removes) {
            if (p_at == nullptr)
                continue;
            DLL_REMOVE(&list, p_at);
            EXPECT_TRUE(p_at->p_next == nullptr && p_at->p_prev == nullptr);
            idle.push_back(model[at]);
            model.erase(model.begin() + static_cast<ptrdiff_t>(at));
        } else {
            t_item *p_new = idle.back();
            idle.pop_back();
            switch (random() % 3) {
            case 0:
                DLL_ADD(&list, &p_new->node);
                at = model.size();
                break;
            case 1:
                DLL_INSERT(&list, p_at, &p_new->node);
                at = p_at == nullptr ? 0 : at + 1;
                break;
            default:
                DLL_INSERT_BEFORE(&list, p_at, &p_new->node);
            }
            model.insert(model.begin() + static_cast<ptrdiff_t>(at), p_new);
        }
        ASSERT_EQ(items_of(list), model);
    }
}

TEST(DllDeathTest, MisuseIsAnAssertion)
{
    t_item a = {};
    t_item b = {};
    t_item c = {};
    t_dll list = {};
    EXPECT_EXIT(DLL_REMOVE(&list, &a.node), testing::KilledBySignal(SIGSEGV), "");
    DLL_ADD(&list, &a.node);
    DLL_ADD(&list, &b.node);
    t_dll other = {};
    for (t_dlnode *p_linked : {&a.node, &b.node}) {
        EXPECT_EXIT(DLL_ADD(&other, p_linked), testing::KilledBySignal(SIGSEGV), "");
        EXPECT_EXIT(DLL_INSERT(&other, nullptr, p_linked), testing::KilledBySignal(SIGSEGV), "");
        EXPECT_EXIT(DLL_INSERT_BEFORE(&other, nullptr, p_linked), testing::KilledBySignal(SIGSEGV), "");
    }
    list.count = 0;
    EXPECT_EXIT(DLL_ADD(&list, &c.node), testing::KilledBySignal(SIGSEGV), "");
    other.count = 1;
    EXPECT_EXIT(DLL_INSERT(&other, nullptr, &c.node), testing::KilledBySignal(SIGSEGV), "");
}

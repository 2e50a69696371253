#include "tarnd/compiler/stack.h"

#include <gtest/gtest.h>

#include <vector>

static std::vector<void *> g_visited;

TEST(Stack, LastInIsFirstOutAndAWalkChangesNothing)
{
    t_stack stack;
    stack_init(&stack);
    EXPECT_EQ(stack_top(&stack), nullptr);
    int values[3];
    for (int &value : values)
        stack_push(&stack, &value);
    EXPECT_EQ(stack_top(&stack), &values[2]);
    std::vector<void *> want = {&values[2], &values[1], &values[0]};
    g_visited.clear();
    for (int walk = 0; walk < 2; walk++)
        stack_traverse(&stack, [](void *data) { g_visited.push_back(data); });
    for (int walk = 0; walk < 2; walk++)
        EXPECT_TRUE(std::equal(want.begin(), want.end(), g_visited.begin() + 3 * walk));
    for (void *p_value : want)
        EXPECT_EQ(stack_pop(&stack), p_value);
    EXPECT_TRUE(stack_empty(&stack));
}

#include "tarnd/compiler/stack.h"

#include "common/lum_assert.h"

#include <cstdlib>

void stack_init(t_stack *p_stack)
{
    p_stack->head = nullptr;
}

void stack_push(t_stack *p_stack, void *data)
{
    t_snode *p_node = static_cast<t_snode *>(malloc(sizeof(t_snode)));
    LUM_ASSERT(p_node, "node");
    *p_node = {data, p_stack->head};
    p_stack->head = p_node;
}

void *stack_pop(t_stack *p_stack)
{
    t_snode *p_node = p_stack->head;
    void *data = p_node->data;
    p_stack->head = p_node->next;
    free(p_node);
    return data;
}

void *stack_top(const t_stack *p_stack)
{
    return stack_empty(p_stack) ? nullptr : p_stack->head->data;
}

bool stack_empty(const t_stack *p_stack)
{
    return p_stack->head == nullptr;
}

void stack_traverse(t_stack *p_stack, f_stack_visit visit)
{
    t_stack visited = {};
    while (!stack_empty(p_stack)) {
        void *data = stack_pop(p_stack);
        visit(data);
        stack_push(&visited, data);
    }
    while (!stack_empty(&visited))
        stack_push(p_stack, stack_pop(&visited));
}

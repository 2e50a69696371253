// t_stack: a linked stack of pointers, for walks that would otherwise recurse.
//
// The stack owns its links, never what they point to.
#pragma once

struct t_snode {
    void *data;
    t_snode *next;
};

struct t_stack {
    t_snode *head;
};

using f_stack_visit = void (*)(void *data);

void stack_init(t_stack *p_stack);

// Puts data on top. A link that cannot be allocated is an assertion.
void stack_push(t_stack *p_stack, void *data);

// Takes the top off. The stack must not be empty.
void *stack_pop(t_stack *p_stack);

// The top, or null when the stack is empty.
void *stack_top(const t_stack *p_stack);
bool stack_empty(const t_stack *p_stack);

// Visits from the top down; the stack is the same afterwards.
void stack_traverse(t_stack *p_stack, f_stack_visit visit);

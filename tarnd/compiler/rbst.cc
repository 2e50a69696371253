#include "tarnd/compiler/rbst.h"

#include "common/lum_assert.h"
#include "tarnd/compiler/shape_random.h"
#include "tarnd/compiler/tarn_cmp.h"

#include <cstdlib>
#include <utility>

static t_shape_random g_shape;

void rbst_init(t_rbst *p_tree)
{
    *p_tree = {};
    p_tree->cmp = uint32s_cmp;
}

t_rbst *rbst_alloc()
{
    t_rbst *p_tree = static_cast<t_rbst *>(malloc(sizeof(t_rbst)));
    LUM_ASSERT(p_tree, "tree");
    rbst_init(p_tree);
    return p_tree;
}

t_rbst_node *rbst_search(const t_rbst *p_tree, void *key)
{
    t_rbst_node *p_node = p_tree->root;
    while (p_node != nullptr) {
        int order = p_tree->cmp(key, p_node->key);
        if (order == 0)
            return p_node;
        p_node = order < 0 ? p_node->left : p_node->right;
    }
    return nullptr;
}

static t_rbst_node *node_new(void *key, void *data)
{
    t_rbst_node *p_node = static_cast<t_rbst_node *>(malloc(sizeof(t_rbst_node)));
    if (p_node == nullptr)
        return nullptr;
    *p_node = {};
    p_node->key = key;
    p_node->data = data;
    p_node->num_nodes = 1;
    return p_node;
}

static void link_leaf(t_rbst *p_tree, t_rbst_node *p_parent, t_rbst_node *p_new)
{
    p_new->parent = p_parent;
    if (p_parent == nullptr)
        p_tree->root = p_new;
    else if (p_tree->cmp(p_new->key, p_parent->key) < 0)
        p_parent->left = p_new;
    else
        p_parent->right = p_new;
}

int rbst_add(t_rbst *p_tree, void *key, void *data)
{
    // Counts change on the way down, so a duplicate has to be known before.
    if (rbst_search(p_tree, key) != nullptr)
        return 0;
    t_rbst_node *p_new = node_new(key, data);
    if (p_new == nullptr)
        return -1;
    t_rbst_node *p_last = nullptr;
    for (t_rbst_node *p_node = p_tree->root; p_node != nullptr;) {
        p_node->num_nodes++;
        if (shape_random_below(&g_shape, p_node->num_nodes) == 0) {
            rbst_add_root(p_tree, p_node, p_new);
            return 1;
        }
        p_last = p_node;
        p_node = p_tree->cmp(key, p_node->key) < 0 ? p_node->left : p_node->right;
    }
    link_leaf(p_tree, p_last, p_new);
    return 1;
}

void rbst_add_root(t_rbst *p_tree, t_rbst_node *p_sub, t_rbst_node *p_new)
{
    rbst_add_root_rcrs(p_tree, p_sub, p_new);
}

// The new node starts as a leaf below the place where the recursion ends and comes up by one rotation a
// level. Depth is that of the tree, logarithmic in its size.
t_rbst_node *rbst_add_root_rcrs(t_rbst *p_tree, t_rbst_node *p_sub, t_rbst_node *p_new)
{
    if (p_sub == nullptr)
        return p_new;
    bool goes_left = p_tree->cmp(p_new->key, p_sub->key) < 0;
    t_rbst_node **pp_child = goes_left ? &p_sub->left : &p_sub->right;
    *pp_child = rbst_add_root_rcrs(p_tree, *pp_child, p_new);
    (*pp_child)->parent = p_sub;
    return goes_left ? rbst_right_rotate(p_tree, p_sub) : rbst_left_rotate(p_tree, p_sub);
}

static uint32_t subtree_size(const t_rbst_node *p_node)
{
    return p_node == nullptr ? 0 : p_node->num_nodes;
}

// Puts p_up in p_node's place below p_node's parent and moves the subtree size upward.
static void replace_in_parent(t_rbst *p_tree, t_rbst_node *p_node, t_rbst_node *p_up)
{
    p_up->parent = p_node->parent;
    if (p_node->parent == nullptr)
        p_tree->root = p_up;
    else if (p_node->parent->left == p_node)
        p_node->parent->left = p_up;
    else
        p_node->parent->right = p_up;
    p_node->parent = p_up;
    p_up->num_nodes = p_node->num_nodes;
    p_node->num_nodes = 1 + subtree_size(p_node->left) + subtree_size(p_node->right);
}

t_rbst_node *rbst_left_rotate(t_rbst *p_tree, t_rbst_node *p_node)
{
    LUM_ASSERT(p_node->right, "x->right");
    t_rbst_node *p_up = p_node->right;
    p_node->right = p_up->left;
    if (p_up->left != nullptr)
        p_up->left->parent = p_node;
    p_up->left = p_node;
    replace_in_parent(p_tree, p_node, p_up);
    return p_up;
}

t_rbst_node *rbst_right_rotate(t_rbst *p_tree, t_rbst_node *p_node)
{
    LUM_ASSERT(p_node->left, "x->left");
    t_rbst_node *p_up = p_node->left;
    p_node->left = p_up->right;
    if (p_up->right != nullptr)
        p_up->right->parent = p_node;
    p_up->right = p_node;
    replace_in_parent(p_tree, p_node, p_up);
    return p_up;
}

t_rbst_node *rbst_min(t_rbst_node *p_node)
{
    while (p_node != nullptr && p_node->left != nullptr)
        p_node = p_node->left;
    return p_node;
}

t_rbst_node *rbst_first(const t_rbst *p_tree)
{
    return rbst_min(p_tree->root);
}

static t_rbst_node *successor(t_rbst_node *p_node)
{
    if (p_node->right != nullptr)
        return rbst_min(p_node->right);
    t_rbst_node *p_up = p_node->parent;
    while (p_up != nullptr && p_up->right == p_node) {
        p_node = p_up;
        p_up = p_up->parent;
    }
    return p_up;
}

t_rbst_node *rbst_getnext(const t_rbst *p_tree, t_rbst_node *p_node)
{
    return p_node == nullptr ? rbst_first(p_tree) : successor(p_node);
}

bool rbst_get_pair(const t_rbst *p_tree, t_rbst_node *p_node, t_rbst_node **pp_first, t_rbst_node **pp_second)
{
    *pp_first = nullptr;
    *pp_second = nullptr;
    *pp_first = rbst_getnext(p_tree, p_node);
    if (*pp_first == nullptr)
        return false;
    *pp_second = rbst_getnext(p_tree, *pp_first);
    return *pp_second != nullptr;
}

void rbst_traverse(t_rbst *p_tree, f_rbst_visit visit)
{
    t_stack pending = {};
    if (p_tree->root != nullptr)
        stack_push(&pending, p_tree->root);
    while (!stack_empty(&pending)) {
        t_rbst_node *p_node = static_cast<t_rbst_node *>(stack_pop(&pending));
        visit(p_tree, p_node);
        if (p_node->left != nullptr)
            stack_push(&pending, p_node->left);
        if (p_node->right != nullptr)
            stack_push(&pending, p_node->right);
    }
}

static void count_node(t_rbst *p_tree, t_rbst_node *)
{
    p_tree->n_nodes++;
}

uint32_t rbst_elements(t_rbst *p_tree)
{
    p_tree->n_nodes = 0;
    rbst_traverse(p_tree, count_node);
    return p_tree->n_nodes;
}

bool rbst_is_empty(const t_rbst *p_tree)
{
    return p_tree->root == nullptr;
}

static int node_height(const t_rbst_node *p_node)
{
    if (p_node == nullptr)
        return -1;
    int left = node_height(p_node->left);
    int right = node_height(p_node->right);
    return 1 + (left > right ? left : right);
}

int rbst_height(const t_rbst *p_tree)
{
    return node_height(p_tree->root);
}

t_rbst_node *rbst_delete(t_rbst *p_tree, t_rbst_node *p_node)
{
    t_rbst_node *p_out = p_node;
    if (p_node->left != nullptr && p_node->right != nullptr) {
        p_out = successor(p_node);
        std::swap(p_node->key, p_out->key);
        std::swap(p_node->data, p_out->data);
        std::swap(p_node->num_nodes, p_out->num_nodes);
    }
    t_rbst_node *p_child = p_out->left != nullptr ? p_out->left : p_out->right;
    if (p_child != nullptr)
        p_child->parent = p_out->parent;
    if (p_out->parent == nullptr)
        p_tree->root = p_child;
    else if (p_out->parent->left == p_out)
        p_out->parent->left = p_child;
    else
        p_out->parent->right = p_child;
    return p_out;
}

static void push_for_deletion(t_rbst *p_tree, t_rbst_node *p_node)
{
    stack_push(&p_tree->nodes_to_delete, p_node);
}

void rbst_delete_all(t_rbst *p_tree, f_rbst_free free_cb)
{
    rbst_traverse(p_tree, push_for_deletion);
    // Children were pushed behind their parents, so every node popped is a leaf by then.
    while (!stack_empty(&p_tree->nodes_to_delete)) {
        t_rbst_node *p_node = static_cast<t_rbst_node *>(stack_pop(&p_tree->nodes_to_delete));
        p_node = rbst_delete(p_tree, p_node);
        if (free_cb != nullptr)
            free_cb(p_node);
    }
    p_tree->root = nullptr;
    p_tree->n_nodes = 0;
}

void free_node(t_rbst_node *p_node)
{
    free(p_node);
}

void free_atomic_key(t_rbst_node *p_node)
{
    free(p_node->key);
    free(p_node);
}

// t_rbst: a randomized binary search tree (C. Martinez, S. Roura, "Randomized binary search trees", 1998).
//
// A node whose subtree grows to n nodes takes the new key at its root with probability 1/n, so the shape is
// that of a tree over keys in random order, however sorted the keys arrive. The tree owns its nodes, never
// its keys or data: the callback of rbst_delete_all decides about them. Keys are unique.
#pragma once

#include "tarnd/compiler/stack.h"

#include <cstdint>

struct t_rbst_node {
    void *key;
    void *data;
    uint32_t *mem_ptr;   // where the node's table entry was written
    uint32_t num_nodes;  // size of the subtree, this node included
    t_rbst_node *parent;
    t_rbst_node *left;
    t_rbst_node *right;
};

using rbst_cb_t = int (*)(void *p_key1, void *p_key2);

struct t_rbst {
    uint32_t n_nodes;  // valid right after rbst_elements only
    t_rbst_node *root;
    rbst_cb_t cmp;
    t_stack nodes_to_delete;  // scratch of rbst_delete_all
    uint32_t *base_mem_ptr;   // scratch of table writers: first entry, and next free place
    uint32_t *mem_ptr;
};

using f_rbst_visit = void (*)(t_rbst *p_tree, t_rbst_node *p_node);

// Frees what a node stands for; the node is already out of the tree and belongs to the callback.
using f_rbst_free = void (*)(t_rbst_node *p_node);

// Clears all; keys are compared with uint32s_cmp until the caller sets cmp.
void rbst_init(t_rbst *p_tree);

// A new, initialised tree; the caller frees it with free. No memory is an assertion.
t_rbst *rbst_alloc();

// Adds a key. Returns 1; 0 if an equal key is there already; -1 if there is no memory for the node. Unless it
// is 1 nothing has changed, and key and data stay the caller's.
int rbst_add(t_rbst *p_tree, void *key, void *data);

// The node with an equal key, or null.
t_rbst_node *rbst_search(const t_rbst *p_tree, void *key);

// Ascending iteration. rbst_getnext takes null for the start and returns null at the end.
t_rbst_node *rbst_first(const t_rbst *p_tree);
t_rbst_node *rbst_min(t_rbst_node *p_node);
t_rbst_node *rbst_getnext(const t_rbst *p_tree, t_rbst_node *p_node);

// The two nodes that follow p_node (null: from the minimum). True only if both exist; with one left it
// stands in *pp_first.
bool rbst_get_pair(const t_rbst *p_tree, t_rbst_node *p_node, t_rbst_node **pp_first,
                   t_rbst_node **pp_second);

// Preorder: a node, then its right subtree, then its left. The callback must not change the tree.
void rbst_traverse(t_rbst *p_tree, f_rbst_visit visit);

// Number of nodes, by a full walk.
uint32_t rbst_elements(t_rbst *p_tree);
bool rbst_is_empty(const t_rbst *p_tree);

// -1 for an empty tree, else the number of levels below the root.
int rbst_height(const t_rbst *p_tree);

// Takes a node's key out and returns the node whose storage is free now, which need not be p_node. The
// ancestors' num_nodes are not updated.
t_rbst_node *rbst_delete(t_rbst *p_tree, t_rbst_node *p_node);

// Empties the tree. Each node goes through free_cb; with null, keys, data and nodes stay the caller's.
void rbst_delete_all(t_rbst *p_tree, f_rbst_free free_cb);

// Free callbacks: the node alone; the node and its key (both from malloc).
void free_node(t_rbst_node *p_node);
void free_atomic_key(t_rbst_node *p_node);

// Rotations about p_node; the child that comes up is returned and must exist (assertion).
t_rbst_node *rbst_left_rotate(t_rbst *p_tree, t_rbst_node *p_node);
t_rbst_node *rbst_right_rotate(t_rbst *p_tree, t_rbst_node *p_node);

// Inserts p_new at the root of the subtree p_sub, whose num_nodes already counts it.
void rbst_add_root(t_rbst *p_tree, t_rbst_node *p_sub, t_rbst_node *p_new);
t_rbst_node *rbst_add_root_rcrs(t_rbst *p_tree, t_rbst_node *p_sub, t_rbst_node *p_new);

// Balanced trees with the node inside the object.
//
// A store of configuration objects is an avl_tree_t. Its objects are ordinary records with an avl_node_t
// somewhere in them; the tree is told the position once, at avl_create, and from then on every call takes and
// gives objects, never nodes. An object that is in several trees holds several nodes. The tree allocates
// nothing and owns nothing: it links records that belong to the caller, and a record must leave every tree
// before it is freed.
//
// The order is the caller's comparison function. It is always called with the key first: the key of a search
// or the object being inserted, then an object of the tree. A key is an object of which only the compared
// members are filled in. No two objects of a tree compare equal.
//
// A zeroed avl_tree_t is an empty tree for every reading call and for both destroys, so that stores may be
// read before they are created and after they are destroyed. Only avl_insert and avl_remove need avl_create
// before them. A tree that holds objects must stay at its address. No locks: the caller's thread, or the
// caller's lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

// Link of one tree, zeroed while the object is in none. Only the tree reads or writes it.
struct avl_node_t {
    uintptr_t parent_balance;  // the parent's address, and the balance in its two lowest bits
    avl_node_t *left;
    avl_node_t *right;
};
static_assert(sizeof(avl_node_t) == 24);
static_assert(std::is_standard_layout_v<avl_node_t>);

// Below 0 when key goes before object, 0 when they are the same, above 0 otherwise. Must not change the tree.
using f_avl_compare = int (*)(const void *key, const void *object);

// One step of avl_foreach. A result other than 0 ends the walk.
using f_avl_visit = int (*)(void *object, void *arg1, void *arg2);

// Takes over an object that avl_destroy_nodes has taken out of its tree; free() is one.
using f_avl_release = void (*)(void *object);

enum e_avl_direction { AVL_FORWARD, AVL_BACKWARD };

struct avl_tree_t {
    avl_node_t header;  // parent: root, left: first, right: last
    f_avl_compare compare;
    uint32_t node_offset;  // bytes from an object to its node
    uint32_t num_nodes;
};
static_assert(sizeof(avl_tree_t) == 40);
static_assert(std::is_standard_layout_v<avl_tree_t>);

// Set up and take down.

// Makes the tree empty, whatever it held before. object_size and node_offset are in bytes; a node that would
// not lie inside the object stops the process.
void avl_create(avl_tree_t *tree, f_avl_compare compare, size_t object_size, size_t node_offset);

// Takes all objects out, in order, and hands each to release, for which the tree is empty already. With a
// null release the objects simply stay with their owners. The tree can be used again.
void avl_destroy_nodes(avl_tree_t *tree, f_avl_release release);

// Ends the tree: it reads as empty until the next avl_create. Objects that it still held are not touched;
// their owners may free them, or zero their nodes and insert them elsewhere.
void avl_destroy(avl_tree_t *tree);

// Change.

// 0, or 17 (EEXIST) when an equal object is there already; nothing is changed then.
[[nodiscard]] int avl_insert(avl_tree_t *tree, void *object);

// The object must be in this tree. It is not freed, and can be inserted again at once.
void avl_remove(avl_tree_t *tree, void *object);

// Look up. All give an object or null.

void *avl_find(const avl_tree_t *tree, const void *key);

// The first object strictly after the key, whether an object equal to the key is there or not.
void *avl_find_next(const avl_tree_t *tree, const void *key);

// The lowest object.
void *avl_first(const avl_tree_t *tree);

// The neighbour of an object of this tree, null behind the last one and for a null object.
void *avl_walk(const avl_tree_t *tree, const void *object, e_avl_direction direction = AVL_FORWARD);

size_t avl_numnodes(const avl_tree_t *tree);

// Calls visit for each object in ascending order and hands back its first result other than 0, at once; 0
// when all have been visited. visit may remove and free the object it is called for, but no other one; of the
// objects that it inserts, those behind its own object's old successor are visited.
int avl_foreach(avl_tree_t *tree, f_avl_visit visit, void *arg1, void *arg2);

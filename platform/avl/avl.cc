#include "platform/avl/avl.h"

#include <boost/intrusive/avltree_algorithms.hpp>
#include <cerrno>

namespace {

// How the algorithms see a node. A zeroed node is balanced and has no parent.
struct avl_node_traits {
    using node = avl_node_t;
    using node_ptr = avl_node_t *;
    using const_node_ptr = const avl_node_t *;
    using balance = uintptr_t;

    static constexpr uintptr_t balance_mask = 3;

    static node_ptr get_parent(const_node_ptr n)
    {
        return reinterpret_cast<node_ptr>(n->parent_balance & ~balance_mask);
    }
    static void set_parent(node_ptr n, node_ptr parent)
    {
        n->parent_balance = reinterpret_cast<uintptr_t>(parent) | get_balance(n);
    }
    static node_ptr get_left(const_node_ptr n)
    {
        return n->left;
    }
    static void set_left(node_ptr n, node_ptr left)
    {
        n->left = left;
    }
    static node_ptr get_right(const_node_ptr n)
    {
        return n->right;
    }
    static void set_right(node_ptr n, node_ptr right)
    {
        n->right = right;
    }
    static balance get_balance(const_node_ptr n)
    {
        return n->parent_balance & balance_mask;
    }
    static void set_balance(node_ptr n, balance b)
    {
        n->parent_balance = (n->parent_balance & ~balance_mask) | b;
    }
    static balance zero()
    {
        return 0;
    }
    static balance negative()
    {
        return 1;
    }
    static balance positive()
    {
        return 2;
    }
};

using algorithms = boost::intrusive::avltree_algorithms<avl_node_traits>;

}  // namespace

static_assert(alignof(avl_node_t) > avl_node_traits::balance_mask);

static avl_node_t *node_of(const avl_tree_t *tree, const void *object)
{
    const char *p_object = static_cast<const char *>(object);
    return reinterpret_cast<avl_node_t *>(const_cast<char *>(p_object) + tree->node_offset);
}

static void *object_of(const avl_tree_t *tree, const avl_node_t *node)
{
    const char *p_node = reinterpret_cast<const char *>(node);
    return const_cast<char *>(p_node) - tree->node_offset;
}

// The object of a search's result, which is the header when nothing was found.
static void *object_unless_header(const avl_tree_t *tree, const avl_node_t *node)
{
    return node == &tree->header ? nullptr : object_of(tree, node);
}

static avl_node_t *root_of(const avl_tree_t *tree)
{
    return avl_node_traits::get_parent(&tree->header);
}

void avl_create(avl_tree_t *tree, f_avl_compare compare, size_t object_size, size_t node_offset)
{
    if (node_offset > object_size || object_size - node_offset < sizeof(avl_node_t) ||
        node_offset > UINT32_MAX)
        __builtin_trap();
    *tree = {{}, compare, static_cast<uint32_t>(node_offset), 0};
    algorithms::init_header(&tree->header);
}

void avl_destroy_nodes(avl_tree_t *tree, f_avl_release release)
{
    if (root_of(tree) == nullptr)
        return;
    avl_node_t old_header = {};
    algorithms::init_header(&old_header);
    algorithms::swap_tree(&old_header, &tree->header);
    tree->num_nodes = 0;
    size_t node_offset = tree->node_offset;  // release may destroy the tree itself
    while (avl_node_t *node = algorithms::unlink_leftmost_without_rebalance(&old_header)) {
        *node = {};
        if (release != nullptr)
            release(reinterpret_cast<char *>(node) - node_offset);
    }
}

void avl_destroy(avl_tree_t *tree)
{
    *tree = {};
}

// Searched here and not by the library's own check, which compares in both directions.
int avl_insert(avl_tree_t *tree, void *object)
{
    algorithms::insert_commit_data place;
    place.node = &tree->header;
    place.link_left = true;
    for (avl_node_t *node = root_of(tree); node != nullptr;) {
        int order = tree->compare(object, object_of(tree, node));
        if (order == 0)
            return EEXIST;
        place.node = node;
        place.link_left = order < 0;
        node = place.link_left ? node->left : node->right;
    }
    avl_node_t *new_node = node_of(tree, object);
    *new_node = {};
    algorithms::insert_unique_commit(&tree->header, new_node, place);
    tree->num_nodes++;
    return 0;
}

void avl_remove(avl_tree_t *tree, void *object)
{
    avl_node_t *node = node_of(tree, object);
    algorithms::erase(&tree->header, node);
    *node = {};
    tree->num_nodes--;
}

void *avl_find(const avl_tree_t *tree, const void *key)
{
    for (avl_node_t *node = root_of(tree); node != nullptr;) {
        void *object = object_of(tree, node);
        int order = tree->compare(key, object);
        if (order == 0)
            return object;
        node = order < 0 ? node->left : node->right;
    }
    return nullptr;
}

void *avl_find_next(const avl_tree_t *tree, const void *key)
{
    auto before = [tree](const void *searched, const avl_node_t *node) {
        return tree->compare(searched, object_of(tree, node)) < 0;
    };
    return object_unless_header(tree, algorithms::upper_bound(&tree->header, key, before));
}

void *avl_first(const avl_tree_t *tree)
{
    return root_of(tree) != nullptr ? object_of(tree, tree->header.left) : nullptr;
}

void *avl_walk(const avl_tree_t *tree, const void *object, e_avl_direction direction)
{
    if (object == nullptr || root_of(tree) == nullptr)
        return nullptr;
    avl_node_t *node = node_of(tree, object);
    if (direction == AVL_FORWARD)
        return object_unless_header(tree, algorithms::next_node(node));
    // In front of the first node the library's step may wrap around.
    return node != tree->header.left ? object_of(tree, algorithms::prev_node(node)) : nullptr;
}

size_t avl_numnodes(const avl_tree_t *tree)
{
    return tree->num_nodes;
}

int avl_foreach(avl_tree_t *tree, f_avl_visit visit, void *arg1, void *arg2)
{
    for (void *object = avl_first(tree); object != nullptr;) {
        void *next = avl_walk(tree, object);  // before the visit, which may remove the object
        int result = visit(object, arg1, arg2);
        if (result != 0)
            return result;
        object = next;
    }
    return 0;
}

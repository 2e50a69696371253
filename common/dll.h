// Intrusive doubly linked list with a count.
//
// The node is a member of the listed record, so the list allocates nothing and owns nothing; a record that is
// on several lists holds several nodes. A zeroed t_dll is an empty list and a zeroed t_dlnode is a node on no
// list. Removal clears the node's links, and adding asserts that they are clear: a node that is still linked
// elsewhere is caught unless it is the only one there. Walk from p_head along p_next and come from node to
// record with DLL_RECORD; take p_next before a callback that may remove the node.
//
// No locks: a list belongs to the thread, or to the lock, of the record that holds it.
#pragma once

#include <cstddef>
#include <type_traits>

#include "common/lum_assert.h"

struct t_dlnode {
    t_dlnode *p_next;
    t_dlnode *p_prev;
};
static_assert(sizeof(t_dlnode) == 16);
static_assert(std::is_standard_layout_v<t_dlnode>);

struct t_dll {
    t_dlnode *p_head;
    t_dlnode *p_tail;
    int count;
};
static_assert(sizeof(t_dll) == 24);
static_assert(offsetof(t_dll, p_tail) == 8);
static_assert(offsetof(t_dll, count) == 16);
static_assert(std::is_standard_layout_v<t_dll>);

// The record of the given type whose member is the node. p_node must not be null.
#define DLL_RECORD(p_node, type, member)                                                                     \
    static_cast<type *>(static_cast<void *>(reinterpret_cast<char *>(p_node) - offsetof(type, member)))

// What must hold before a node goes into a list: the node is on no list, and the count fits the ends.
inline void dll_assert_insertable(const t_dll *p_dll, const t_dlnode *p_newnode)
{
    LUM_ASSERT(p_newnode->p_next == nullptr && p_newnode->p_prev == nullptr,
               "p_newnode->p_next == NULL && p_newnode->p_prev == NULL");
    if (p_dll->p_tail == nullptr)
        LUM_ASSERT(p_dll->count == 0, "p_dll->count == 0");
    else
        LUM_ASSERT(p_dll->count > 0, "p_dll->count > 0");
}

// Links the node between two neighbours; null stands for the end of the list on that side.
inline void dll_link(t_dll *p_dll, t_dlnode *p_prev, t_dlnode *p_next, t_dlnode *p_newnode)
{
    p_newnode->p_prev = p_prev;
    p_newnode->p_next = p_next;
    (p_prev != nullptr ? p_prev->p_next : p_dll->p_head) = p_newnode;
    (p_next != nullptr ? p_next->p_prev : p_dll->p_tail) = p_newnode;
    p_dll->count++;
}

// Appends.
inline void DLL_ADD(t_dll *p_dll, t_dlnode *p_newnode)
{
    dll_assert_insertable(p_dll, p_newnode);
    dll_link(p_dll, p_dll->p_tail, nullptr, p_newnode);
}

// Inserts behind p_after, which is on the list, or at the head for null.
inline void DLL_INSERT(t_dll *p_dll, t_dlnode *p_after, t_dlnode *p_newnode)
{
    dll_assert_insertable(p_dll, p_newnode);
    dll_link(p_dll, p_after, p_after != nullptr ? p_after->p_next : p_dll->p_head, p_newnode);
}

// Inserts in front of p_before, which is on the list, or at the tail for null.
inline void DLL_INSERT_BEFORE(t_dll *p_dll, t_dlnode *p_before, t_dlnode *p_newnode)
{
    dll_assert_insertable(p_dll, p_newnode);
    dll_link(p_dll, p_before != nullptr ? p_before->p_prev : p_dll->p_tail, p_before, p_newnode);
}

// Unlinks a node of this list and clears both its links. Whether the node is on this very list isn't checked.
inline void DLL_REMOVE(t_dll *p_dll, t_dlnode *p_node)
{
    LUM_ASSERT(p_dll->count > 0, "p_dll->count > 0");
    (p_node->p_prev != nullptr ? p_node->p_prev->p_next : p_dll->p_head) = p_node->p_next;
    (p_node->p_next != nullptr ? p_node->p_next->p_prev : p_dll->p_tail) = p_node->p_prev;
    p_node->p_next = nullptr;
    p_node->p_prev = nullptr;
    p_dll->count--;
}

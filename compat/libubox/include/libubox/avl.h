/*
 * Ordered, intrusive tree with a list of its nodes in order.
 *
 * The caller sets node.key before inserting; key and node must outlive their stay in the tree. The tree owns
 * nothing. Nodes with equal keys (allow_dups) keep the order of insertion; only the first of them, the
 * leader, hangs in the tree, the rest in the list behind it.
 *
 * Results: avl_insert 0, or -1 when the key is there and duplicates are not allowed.
 */
#pragma once

#include "list.h"

struct avl_node {
    struct list_head list;
    struct avl_node *parent;
    struct avl_node *left;
    struct avl_node *right;
    const void *key;
    signed char balance;
    bool leader;
};

typedef int (*avl_tree_comp)(const void *k1, const void *k2, void *ptr);

struct avl_tree {
    struct list_head list_head;
    struct avl_node *root;
    unsigned int count;
    bool allow_dups;
    avl_tree_comp comp;
    void *cmp_ptr;
};

enum avl_find_mode { AVL_FIND_EQUAL, AVL_FIND_LESSEQUAL, AVL_FIND_GREATEREQUAL };

void avl_init(struct avl_tree *tree, avl_tree_comp comp, bool allow_dups, void *ptr);
struct avl_node *avl_find(const struct avl_tree *tree, const void *key);
struct avl_node *avl_find_greaterequal(const struct avl_tree *tree, const void *key);
struct avl_node *avl_find_lessequal(const struct avl_tree *tree, const void *key);
int avl_insert(struct avl_tree *tree, struct avl_node *node);
void avl_delete(struct avl_tree *tree, struct avl_node *node);

static inline bool avl_is_first(struct avl_tree *tree, struct avl_node *node)
{
    return tree->list_head.next == &node->list;
}

static inline bool avl_is_last(struct avl_tree *tree, struct avl_node *node)
{
    return tree->list_head.prev == &node->list;
}

static inline bool avl_is_empty(struct avl_tree *tree)
{
    return tree->count == 0;
}

#define avl_find_element(tree, key, element, node_member)                                                    \
    container_of_safe(avl_find(tree, key), __typeof__(*(element)), node_member)
#define avl_find_le_element(tree, key, element, node_member)                                                 \
    container_of_safe(avl_find_lessequal(tree, key), __typeof__(*(element)), node_member)
#define avl_find_ge_element(tree, key, element, node_member)                                                 \
    container_of_safe(avl_find_greaterequal(tree, key), __typeof__(*(element)), node_member)

#define avl_first_element(tree, element, node_member)                                                        \
    container_of((tree)->list_head.next, __typeof__(*(element)), node_member.list)
#define avl_last_element(tree, element, node_member)                                                         \
    container_of((tree)->list_head.prev, __typeof__(*(element)), node_member.list)
#define avl_next_element(element, node_member)                                                               \
    container_of((element)->node_member.list.next, __typeof__(*(element)), node_member.list)
#define avl_prev_element(element, node_member)                                                               \
    container_of((element)->node_member.list.prev, __typeof__(*(element)), node_member.list)

#define avl_for_each_element(tree, element, node_member)                                                     \
    list_for_each_entry(element, &(tree)->list_head, node_member.list)
#define avl_for_each_element_reverse(tree, element, node_member)                                             \
    list_for_each_entry_reverse(element, &(tree)->list_head, node_member.list)
#define avl_for_each_element_safe(tree, element, node_member, ptr)                                           \
    list_for_each_entry_safe(element, ptr, &(tree)->list_head, node_member.list)

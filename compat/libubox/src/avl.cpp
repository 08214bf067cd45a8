// Height-balanced tree behind libubox/avl.h. The field `balance` holds the height of the node's subtree,
// which stays far below the largest signed char.
#include "exported.h"

#include <cstring>

namespace {

int height(const avl_node *node)
{
    return node != nullptr ? node->balance : 0;
}

void update_height(avl_node *node)
{
    const int left = height(node->left);
    const int right = height(node->right);
    node->balance = static_cast<signed char>((left > right ? left : right) + 1);
}

void replace_child(avl_tree *tree, avl_node *parent, const avl_node *old_child, avl_node *new_child)
{
    if (parent == nullptr) {
        tree->root = new_child;
    } else if (parent->left == old_child) {
        parent->left = new_child;
    } else {
        parent->right = new_child;
    }
    if (new_child != nullptr) {
        new_child->parent = parent;
    }
}

// Lifts a child of the node into the node's place; returns the child.
avl_node *rotate(avl_tree *tree, avl_node *node, avl_node *child)
{
    const bool lift_left = child == node->left;
    avl_node *inner = lift_left ? child->right : child->left;

    replace_child(tree, node->parent, node, child);
    (lift_left ? child->right : child->left) = node;
    node->parent = child;
    (lift_left ? node->left : node->right) = inner;
    if (inner != nullptr) {
        inner->parent = node;
    }
    update_height(node);
    update_height(child);
    return child;
}

void rebalance_upwards(avl_tree *tree, avl_node *node)
{
    while (node != nullptr) {
        const int lean = height(node->left) - height(node->right);
        const bool left_heavy = lean > 0;
        avl_node *child = left_heavy ? node->left : node->right;
        if (child != nullptr && (lean > 1 || lean < -1)) {
            avl_node *inner = left_heavy ? child->right : child->left;
            if (inner != nullptr && inner->balance > height(left_heavy ? child->left : child->right)) {
                child = rotate(tree, child, inner);
            }
            node = rotate(tree, node, child);
        } else {
            update_height(node);
        }
        node = node->parent;
    }
}

// The last node met on the way down to the key's place, with the order of the key relative to it.
avl_node *descend(const avl_tree *tree, const void *key, int *order)
{
    avl_node *node = tree->root;
    avl_node *last = nullptr;

    *order = 0;
    while (node != nullptr) {
        last = node;
        *order = tree->comp(key, node->key, tree->cmp_ptr);
        if (*order == 0) {
            break;
        }
        node = *order < 0 ? node->left : node->right;
    }
    return last;
}

avl_node *list_node(const avl_tree *tree, list_head *entry)
{
    return entry == &tree->list_head ? nullptr : container_of(entry, avl_node, list);
}

// The last of the nodes that share this leader's key.
avl_node *last_of_group(const avl_tree *tree, avl_node *leader)
{
    avl_node *last = leader;
    for (;;) {
        avl_node *next = list_node(tree, last->list.next);
        if (next == nullptr || next->leader) {
            return last;
        }
        last = next;
    }
}

void take_place(avl_tree *tree, avl_node *node, avl_node *successor)
{
    successor->left = node->left;
    successor->right = node->right;
    successor->balance = node->balance;
    if (successor->left != nullptr) {
        successor->left->parent = successor;
    }
    if (successor->right != nullptr) {
        successor->right->parent = successor;
    }
    replace_child(tree, node->parent, node, successor);
}

void remove_from_tree(avl_tree *tree, avl_node *node)
{
    avl_node *start = nullptr;

    if (node->left != nullptr && node->right != nullptr) {
        avl_node *next = node->right;
        while (next->left != nullptr) {
            next = next->left;
        }
        start = next->parent == node ? next : next->parent;
        replace_child(tree, next->parent, next, next->right);
        take_place(tree, node, next);
    } else {
        start = node->parent;
        replace_child(tree, node->parent, node, node->left != nullptr ? node->left : node->right);
    }
    rebalance_upwards(tree, start);
}

} // namespace

void avl_init(avl_tree *tree, avl_tree_comp comp, bool allow_dups, void *ptr)
{
    INIT_LIST_HEAD(&tree->list_head);
    tree->root = nullptr;
    tree->count = 0;
    tree->allow_dups = allow_dups;
    tree->comp = comp;
    tree->cmp_ptr = ptr;
}

avl_node *avl_find(const avl_tree *tree, const void *key)
{
    int order;
    avl_node *node = descend(tree, key, &order);
    return node != nullptr && order == 0 ? node : nullptr;
}

avl_node *avl_find_lessequal(const avl_tree *tree, const void *key)
{
    int order;
    avl_node *node = descend(tree, key, &order);
    if (node == nullptr || order >= 0) {
        return node;
    }
    return list_node(tree, node->list.prev);
}

avl_node *avl_find_greaterequal(const avl_tree *tree, const void *key)
{
    int order;
    avl_node *node = descend(tree, key, &order);
    if (node == nullptr || order <= 0) {
        return node;
    }
    return list_node(tree, last_of_group(tree, node)->list.next);
}

int avl_insert(avl_tree *tree, avl_node *node)
{
    int order;
    avl_node *place = descend(tree, node->key, &order);

    if (place != nullptr && order == 0 && !tree->allow_dups) {
        return -1;
    }
    node->parent = place;
    node->left = nullptr;
    node->right = nullptr;
    node->balance = 1;
    node->leader = place == nullptr || order != 0;
    tree->count++;

    if (place == nullptr) {
        tree->root = node;
        list_add(&node->list, &tree->list_head);
        return 0;
    }
    if (order < 0) {
        place->left = node;
        list_add_tail(&node->list, &place->list);
    } else {
        list_add(&node->list, &last_of_group(tree, place)->list);
        if (order == 0) {
            node->parent = nullptr;
            return 0;
        }
        place->right = node;
    }
    rebalance_upwards(tree, place);
    return 0;
}

void avl_delete(avl_tree *tree, avl_node *node)
{
    if (node->leader) {
        avl_node *next = container_of(node->list.next, avl_node, list);
        const bool last = node->list.next == &tree->list_head;
        if (!last && !next->leader) {
            next->leader = true;
            take_place(tree, node, next);
        } else {
            remove_from_tree(tree, node);
        }
    }
    list_del(&node->list);
    tree->count--;
}

int avl_strcmp(const void *k1, const void *k2, void *)
{
    return strcmp(static_cast<const char *>(k1), static_cast<const char *>(k2));
}

int avl_blobcmp(const void *k1, const void *k2, void *)
{
    const auto *a1 = static_cast<const blob_attr *>(k1);
    const auto *a2 = static_cast<const blob_attr *>(k2);
    if (blob_raw_len(a1) != blob_raw_len(a2)) {
        return blob_raw_len(a1) < blob_raw_len(a2) ? -1 : 1;
    }
    return memcmp(a1, a2, blob_raw_len(a1));
}

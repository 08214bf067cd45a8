/*
 * Circular, intrusive, doubly linked list.
 *
 * A node lives inside its user's struct; the list owns nothing and allocates nothing. A head is a node that
 * points to itself when the list is empty. Removing an entry while walking is allowed in the _safe forms
 * only. C and C++; this header has no C++ linkage guards, callers wrap the inclusion.
 */
#pragma once

#include <stdbool.h>
#include <stddef.h>

struct list_head {
    struct list_head *next;
    struct list_head *prev;
};

#ifndef container_of
#define container_of(ptr, type, member)                                                                      \
    __extension__({                                                                                          \
        const __typeof__(((type *)NULL)->member) *member_ptr_ = (ptr);                                       \
        (type *)((char *)member_ptr_ - offsetof(type, member));                                              \
    })
#endif

#ifndef container_of_safe
#define container_of_safe(ptr, type, member)                                                                 \
    __extension__({                                                                                          \
        const __typeof__(((type *)NULL)->member) *safe_ptr_ = (ptr);                                         \
        safe_ptr_ ? (type *)((char *)safe_ptr_ - offsetof(type, member)) : (type *)NULL;                     \
    })
#endif

#define LIST_HEAD_INIT(name)                                                                                 \
    {                                                                                                        \
        &(name), &(name)                                                                                     \
    }
#undef LIST_HEAD
#define LIST_HEAD(name) struct list_head name = LIST_HEAD_INIT(name)

static inline void INIT_LIST_HEAD(struct list_head *list)
{
    list->next = list;
    list->prev = list;
}

static inline bool list_empty(const struct list_head *head)
{
    return head->next == head;
}

static inline bool list_is_first(const struct list_head *list, const struct list_head *head)
{
    return list->prev == head;
}

static inline bool list_is_last(const struct list_head *list, const struct list_head *head)
{
    return list->next == head;
}

static inline void _list_add(struct list_head *entry, struct list_head *before, struct list_head *after)
{
    entry->prev = before;
    entry->next = after;
    before->next = entry;
    after->prev = entry;
}

static inline void _list_del(struct list_head *entry)
{
    entry->prev->next = entry->next;
    entry->next->prev = entry->prev;
}

/* At the front. */
static inline void list_add(struct list_head *_new, struct list_head *head)
{
    _list_add(_new, head, head->next);
}

/* At the back. */
static inline void list_add_tail(struct list_head *_new, struct list_head *head)
{
    _list_add(_new, head->prev, head);
}

/* Leaves the node with null links, so that a use after removal is seen at once. */
static inline void list_del(struct list_head *entry)
{
    _list_del(entry);
    entry->next = NULL;
    entry->prev = NULL;
}

/* Leaves the node as an empty list, so that membership can be asked with list_empty. */
static inline void list_del_init(struct list_head *entry)
{
    _list_del(entry);
    INIT_LIST_HEAD(entry);
}

static inline void list_move(struct list_head *list, struct list_head *head)
{
    _list_del(list);
    list_add(list, head);
}

static inline void list_move_tail(struct list_head *entry, struct list_head *head)
{
    _list_del(entry);
    list_add_tail(entry, head);
}

static inline void _list_splice(const struct list_head *list, struct list_head *before,
                                struct list_head *after)
{
    if (list_empty(list)) {
        return;
    }
    list->next->prev = before;
    before->next = list->next;
    list->prev->next = after;
    after->prev = list->prev;
}

static inline void list_splice(const struct list_head *list, struct list_head *head)
{
    _list_splice(list, head, head->next);
}

static inline void list_splice_tail(const struct list_head *list, struct list_head *head)
{
    _list_splice(list, head->prev, head);
}

static inline void list_splice_init(struct list_head *list, struct list_head *head)
{
    list_splice(list, head);
    INIT_LIST_HEAD(list);
}

static inline void list_splice_tail_init(struct list_head *list, struct list_head *head)
{
    list_splice_tail(list, head);
    INIT_LIST_HEAD(list);
}

#define list_entry(ptr, type, field) container_of(ptr, type, field)
#define list_first_entry(ptr, type, field) list_entry((ptr)->next, type, field)
#define list_last_entry(ptr, type, field) list_entry((ptr)->prev, type, field)
#define list_next_entry(p, field) list_entry((p)->field.next, __typeof__(*(p)), field)
#define list_entry_is_h(p, h, field) (&(p)->field == (h))

#define list_for_each(p, head) for ((p) = (head)->next; (p) != (head); (p) = (p)->next)
#define list_for_each_safe(p, n, head)                                                                       \
    for ((p) = (head)->next, (n) = (p)->next; (p) != (head); (p) = (n), (n) = (p)->next)
#define list_for_each_prev(p, head) for ((p) = (head)->prev; (p) != (head); (p) = (p)->prev)
#define list_for_each_prev_safe(p, n, head)                                                                  \
    for ((p) = (head)->prev, (n) = (p)->prev; (p) != (head); (p) = (n), (n) = (p)->prev)

#define list_for_each_entry(p, h, field)                                                                     \
    for ((p) = list_first_entry(h, __typeof__(*(p)), field); &(p)->field != (h);                             \
         (p) = list_entry((p)->field.next, __typeof__(*(p)), field))
#define list_for_each_entry_safe(p, n, h, field)                                                             \
    for ((p) = list_first_entry(h, __typeof__(*(p)), field),                                                 \
        (n) = list_entry((p)->field.next, __typeof__(*(p)), field);                                          \
         &(p)->field != (h); (p) = (n), (n) = list_entry((n)->field.next, __typeof__(*(n)), field))
#define list_for_each_entry_reverse(p, h, field)                                                             \
    for ((p) = list_last_entry(h, __typeof__(*(p)), field); &(p)->field != (h);                              \
         (p) = list_entry((p)->field.prev, __typeof__(*(p)), field))

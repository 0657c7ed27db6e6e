/*
 * The intrusive, circular, doubly linked list that the database loaders and the usage table keep
 * their records in: each record embeds a link, an empty list's head points to itself both ways.
 */
#ifndef DPI_LIST_HEAD_H
#define DPI_LIST_HEAD_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct list_head {
    struct list_head *next, *prev;
};

/* What a removed link holds, so that a stale use of it faults at a recognisable address. */
#define LIST_POISON_NEXT ((struct list_head *)(uintptr_t)0x00100100u)
#define LIST_POISON_PREV ((struct list_head *)(uintptr_t)0x00200200u)

/* A static initialiser: struct list_head head = LIST_HEAD_INIT(head); */
#define LIST_HEAD_INIT(head) \
    { &(head), &(head) }

/* The record of the given type whose member of the given name is *link. */
#define LIST_RECORD(link, type, member) ((type *)(void *)((char *)(link)-offsetof(type, member)))

static inline void list_init(struct list_head *head) {
    head->next = head;
    head->prev = head;
}

static inline int list_is_empty(const struct list_head *head) {
    return head->next == head;
}

static inline void list_append(struct list_head *head, struct list_head *link) {
    link->next = head;
    link->prev = head->prev;
    head->prev->next = link;
    head->prev = link;
}

static inline void list_remove(struct list_head *link) {
    link->prev->next = link->next;
    link->next->prev = link->prev;
    link->next = LIST_POISON_NEXT;
    link->prev = LIST_POISON_PREV;
}

#ifdef __cplusplus
}
#endif

#endif

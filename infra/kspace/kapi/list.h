// SPDX-License-Identifier: GPL-2.0-only
// Doubly linked circular lists, linked through a list_head inside each entry.
#pragma once

#include "compiler.h"

struct list_head {
    list_head* next;
    list_head* prev;
};

#define LIST_HEAD(name)                                                                            \
    constinit list_head name                                                                       \
    {                                                                                              \
        &name, &name                                                                               \
    }

inline void INIT_LIST_HEAD(list_head* head)
{
    head->next = head;
    head->prev = head;
}

inline bool list_empty(const list_head* head)
{
    return head->next == head;
}

inline void kapi_list_insert(list_head* entry, list_head* prev, list_head* next)
{
    next->prev = entry;
    entry->next = next;
    entry->prev = prev;
    prev->next = entry;
}

// At the list's beginning.
inline void list_add(list_head* entry, list_head* head)
{
    kapi_list_insert(entry, head, head->next);
}

// At the list's end.
inline void list_add_tail(list_head* entry, list_head* head)
{
    kapi_list_insert(entry, head->prev, head);
}

inline void list_del_init(list_head* entry)
{
    entry->next->prev = entry->prev;
    entry->prev->next = entry->next;
    INIT_LIST_HEAD(entry);
}

// The record that holds the link; member is the link's name in it.
#define list_entry(link, type, member)                                                             \
    reinterpret_cast<type*>(reinterpret_cast<char*>(link) - offsetof(type, member))

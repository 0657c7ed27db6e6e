// Upkeep of the singly linked lists whose nodes hold one record: struct Node { Record data; Node
// *next; }.
#pragma once

#include <cstdlib>

inline namespace routerutil {

// A node, all zero; nullptr when memory is short. Release it with free_nodes or free.
template <typename Node>
Node *create_node() {
    return static_cast<Node *>(calloc(1, sizeof(Node)));
}

template <typename Node>
void append_node(Node **head, Node *node) {
    Node **end = head;
    while (*end != nullptr)
        end = &(*end)->next;
    *end = node;
}

template <typename Node>
void free_nodes(Node *first) {
    while (first != nullptr) {
        Node *const next = first->next;
        free(first);
        first = next;
    }
}

} // namespace routerutil

// Doubly linked list of one-word values, each cell owning a copy of its
// value and a release callback.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "common/allocator.h"

namespace common {

// One cell of a common::llist.
template <class T>
class lelement {
public:
    using release_fn = void (*)(T);

    lelement(T value, release_fn release_cb) : release(release_cb) {
        cell = static_cast<T*>(std::malloc(sizeof(T)));
        if (cell) *cell = value;
    }
    lelement(const lelement&) = delete;
    lelement& operator=(const lelement&) = delete;
    // Runs the release callback on the value, then frees the cell.
    virtual ~lelement() {
        if (release && cell) release(*cell);
        std::free(cell);
    }

    allocator<T> alloc;
    T* cell = nullptr;             // malloc'ed one-word copy of the value
    release_fn release = nullptr;  // called with the value on destruction
    lelement* next = nullptr;
    lelement* prev = nullptr;
};

// Doubly linked list of lelement cells.
template <class T>
class llist {
public:
    using release_fn = void (*)(T);
    struct reference {};

    // Position in a list; `element` is null at the end.
    class iterator {
    public:
        iterator(llist* c, lelement<T>* e) : container(c), element(e) {}
        virtual ~iterator() {}
        T& operator*() const { return *element->cell; }
        iterator& operator++() {
            element = element ? element->next : nullptr;
            return *this;
        }
        bool operator==(const iterator& o) const { return element == o.element; }
        bool operator!=(const iterator& o) const { return element != o.element; }
        llist* container;
        lelement<T>* element;
    };

    explicit llist(release_fn default_release = nullptr) : release(default_release) {}
    llist(const llist&) = delete;
    llist& operator=(const llist&) = delete;
    // Erases from the head until empty.
    virtual ~llist() {
        while (head) erase(iterator(this, head));
        head = tail = nullptr;
        count = 0;
    }

    // Links a new cell holding `value` after the tail; a null `release_cb`
    // takes the list's default. Returns the address of the stored value.
    T* append(T value, release_fn release_cb = nullptr) {
        auto* e = new lelement<T>(value, release_cb ? release_cb : release);
        e->prev = tail;
        if (tail) tail->next = e;
        else head = e;
        tail = e;
        ++count;
        return e->cell;
    }

    // Unlinks and deletes the iterator's cell; a null element is ignored.
    void erase(iterator it) {
        lelement<T>* e = it.element;
        if (!e) return;
        if (e->prev) {
            e->prev->next = e->next;
            if (e->next) e->next->prev = e->prev;
            else tail = e->prev;
        } else {
            head = e->next;
            if (e->next) e->next->prev = nullptr;
            else tail = nullptr;
        }
        delete e;
        --count;
    }

    iterator begin() { return iterator(this, head); }
    iterator end() { return iterator(this, nullptr); }

    lelement<T>* head = nullptr;
    lelement<T>* tail = nullptr;
    int32_t count = 0;
    release_fn release = nullptr;  // default release for new cells
};

}  // namespace common

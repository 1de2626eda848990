// Growable contiguous array of one-word elements on the C heap, with an
// optional release callback run on each element as it leaves the block.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "common/allocator.h"
#include "common/exceptions.h"

namespace common {

// The storage layer of every library container; common::stack builds on it.
template <class T, class A = allocator<T>>
class mblock {
    // Bytes of one element; the elements are often pointers to records.
    static constexpr size_t element_size = sizeof(T);  // NOLINT(bugprone-sizeof-expression)
    static_assert(element_size <= sizeof(void*), "mblock elements are at most one machine word");
    static_assert(std::is_trivially_copyable<T>::value, "mblock elements are moved as raw bytes");

public:
    // Called with each element as it is removed or the block is destroyed.
    using release_fn = void (*)(T);

    // Largest element count a block may hold.
    static constexpr uint32_t max_elements = 0x3fffffff;

    // An empty, unallocated block; `release` may be null.
    explicit mblock(release_fn release_cb = nullptr) : release(release_cb) {}
    mblock(const mblock&) = delete;
    mblock& operator=(const mblock&) = delete;

    // Releases every element in index order, then frees the buffer.
    virtual ~mblock() {
        struct freer {
            mblock* self;
            ~freer() {
                std::free(self->data);
                self->data = self->first = self->top = self->last = nullptr;
                self->count = 0;
            }
        } guard{this};
        if (release)
            for (int32_t i = 0; i < count; ++i) release(data[i]);
    }

    // Puts `value` at `index`, shifting the elements at and after it up.
    // Appending is an insert at index `count`.
    void insert(T value, int32_t index) {
        // An index beyond `count` would move a negative number of elements.
        if (index < 0 || index > count) throw _throw_out_of_range();
        // The room test looks at `top`; `count` against the real capacity is
        // checked too, because a growth for an insert before the end leaves
        // `top` at the insertion point and the test alone would then let the
        // block write past its buffer.
        if (data && top < last && count < capacity()) {
            ++top;
        } else {
            int32_t add = index >= count + 1 ? index : count + 1;
            uint32_t cap = uint32_t(count) + uint32_t(add);
            if (cap > max_elements) throw _throw_bad_allocation();
            T* grown = static_cast<T*>(std::realloc(data, size_t(cap) * element_size));
            if (!grown) throw _throw_bad_allocation();
            first = data = grown;
            last = data + (cap - 1);
            // Deliberately the insertion point, not `count`: right for appends.
            top = data + index;
        }
        // The value is stored by index rather than at `top`: after a growth
        // for an insert before the end `top` no longer marks the last element.
        if (index != count) std::memmove(data + index + 1, data + index, size_t(count - index) * element_size);
        data[index] = value;
        ++count;
    }

    // Appends `value` at the end.
    void append(T value) { insert(value, count); }

    // Releases the element at `index`, closes the gap and shrinks the buffer
    // once more than half of its slots are unused.
    void remove(int32_t index) {
        if (index < 0 || index >= count) throw _throw_out_of_range();
        if (!data) return;
        if (release) release(data[index]);
        if (count == 1) {
            std::free(data);
            data = first = top = last = nullptr;
            count = 0;
            return;
        }
        int32_t unused = int32_t(last - top);
        if (count < unused) {
            if (uint32_t(count) > max_elements) throw _throw_bad_allocation();
            size_t bytes = size_t(count) * element_size;
            T* scratch = static_cast<T*>(std::malloc(bytes));
            if (!scratch) throw _throw_bad_allocation();
            std::memcpy(scratch, data, size_t(index) * element_size);
            std::memcpy(scratch + index, data + index + 1, size_t(count - index - 1) * element_size);
            std::free(data);
            T* fresh = static_cast<T*>(std::malloc(bytes));
            if (!fresh) {
                std::free(scratch);
                data = first = top = last = nullptr;
                count = 0;
                throw _throw_bad_allocation();
            }
            std::memcpy(fresh, scratch, size_t(count - 1) * element_size);
            std::free(scratch);
            first = data = fresh;
            // Exactly full afterwards; the spare slot allocated is not counted.
            top = last = data + (count - 2);
        } else {
            std::memmove(data + index, data + index + 1, size_t(count - index - 1) * element_size);
            if (top > first) --top;
        }
        --count;
    }

    // Number of elements in use.
    int32_t size() const { return count; }
    // Number of slots between `first` and `last` inclusive; 0 when unallocated.
    int32_t capacity() const { return data ? int32_t(last - first) + 1 : 0; }
    // Replaces the release callback (null for none).
    void set_release(release_fn release_cb) { release = release_cb; }

protected:
    // Private buffer holder; adds nothing to the allocator.
    class _mblock_impl : public A {};

public:
    _mblock_impl impl;
    T* first = nullptr;  // start of the element buffer (equal to data)
    T* top = nullptr;    // slot of the last element in use
    T* last = nullptr;   // last slot of the allocated capacity
    int32_t count = 0;   // elements in use
    T* data = nullptr;   // the owned buffer; null when nothing is stored
    release_fn release = nullptr;
};

}  // namespace common

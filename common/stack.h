// The library's general sequence: an indexable, insertable, sortable array of
// one-word elements, walked with a checked iterator.
#pragma once

#include <cstdint>

#include "common/mblock.h"

namespace common {

// Array of one-word elements; despite the name it is not limited to push/pop.
template <class T, class A = allocator<T>>
class stack : public mblock<T, A> {
public:
    using base = mblock<T, A>;
    using typename base::release_fn;

    // Tags the iterator type; carries nothing.
    struct reference {};

    // Checked position in a stack.
    class iterator {
    public:
        iterator(const stack* c, int32_t pos) : container(c), position(pos) {}
        virtual ~iterator() {}

        // The element at `position`. Throws _throw_out_of_range outside the
        // elements in use, _throw_empty_allocation without a buffer.
        T& operator*() const {
            int32_t n = container->count;
            if (n != 0 && (position < 0 || position >= n)) throw _throw_out_of_range();
            if (!container->data) throw _throw_empty_allocation();
            // With no elements but a buffer still allocated the position is not
            // range-checked by the design; it is still kept inside the buffer.
            if (position < 0 || position >= container->capacity()) throw _throw_out_of_range();
            return container->data[position];
        }

        // This position minus the other's; both must lie on elements in use.
        int32_t operator-(const iterator& other) const {
            int32_t n = container->count;
            if (position < 0 || position >= n || other.position < 0 || other.position >= n) throw _throw_out_of_range();
            return position - other.position;
        }

        iterator& operator++() {
            ++position;
            return *this;
        }
        iterator& operator--() {
            --position;
            return *this;
        }
        bool operator==(const iterator& o) const { return container == o.container && position == o.position; }
        bool operator!=(const iterator& o) const { return !(*this == o); }

        const stack* container;
        int32_t position;
    };

    // A "greater than" test on two elements: non-zero when *a goes after *b.
    using compare_fn = int (*)(const T* a, const T* b);

    explicit stack(release_fn release_cb = nullptr) : base(release_cb) {}
    ~stack() override {}

    // Iterator on the first element.
    iterator begin() const { return iterator(this, 0); }
    // Iterator one past the last element.
    iterator end() const { return iterator(this, this->count); }
    // Iterator on element `index`.
    iterator at(int32_t index) const { return iterator(this, index); }
    // The element at `index`, through the checked iterator.
    T& operator[](int32_t index) const { return *at(index); }

    // Sorts in place with quicksort (not stable). Does nothing for fewer than
    // two elements.
    void sort(compare_fn greater) {
        if (this->count > 1) quicksort(greater, 0, this->count - 1);
    }

private:
    void quicksort(compare_fn greater, int32_t low, int32_t high) {
        // Recurse on the smaller side and loop on the larger one, so the depth
        // stays logarithmic even on already sorted input.
        while (low < high) {
            T pivot = (*this)[low];
            int32_t i = low, j = high;
            while (i != j) {
                while (j != i && greater(&(*this)[j], &pivot)) --j;
                if (j != i) (*this)[i++] = (*this)[j];
                while (i != j && greater(&pivot, &(*this)[i])) ++i;
                if (i != j) (*this)[j--] = (*this)[i];
            }
            (*this)[i] = pivot;
            if (i - low < high - i) {
                if (i - low > 0) quicksort(greater, low, i - 1);
                low = i + 1;
            } else {
                if (high - i > 0) quicksort(greater, i + 1, high);
                high = i - 1;
            }
        }
    }
};

// Case-insensitive "greater than" on two C-string elements, for stack::sort:
// 1 when *a sorts after *b, else 0; a prefix sorts before the longer name.
int compare_cstrings(char* const* a, char* const* b);

}  // namespace common

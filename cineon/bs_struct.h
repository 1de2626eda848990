// In-place byte-order reversal of a record, field by field, driven by a list
// of integer layout codes.
#pragma once

#include <cstdint>

#include "common/exceptions.h"
#include "common/stack.h"

namespace common {

// Layout codes of a swap description.
enum bs_code : int {
    bs_byte = -1,         // a single byte, never swapped
    bs_short = -2,        // a 16-bit field
    bs_long = -4,         // a 32-bit field
    bs_array = -101,      // followed by an element code and a count
    bs_group = -102,      // followed by a record size, a count, one record's codes, bs_group_end
    bs_group_end = -103,  // closes the codes of a group's record
};

template <class T>
class bs_struct;

// Swaps the record it is built on, in place, before the constructor returns.
// The walk keeps its position as a byte offset clamped to the record's
// extent: a field that does not lie wholly inside the record is skipped, so a
// description that covers more bytes than the record holds is harmless.
template <class T>
class bs_struct<T*> {
public:
    // Swaps `extent` bytes at `record` by `description` (a char record must
    // pass its real size); a null or empty description does nothing. Throws _throw_wrong_definition,
    // _throw_unexpected_termination or _throw_out_of_range on a malformed
    // description, leaving the record partly swapped.
    bs_struct(T* record_ptr, const stack<int>* description, uint64_t extent = sizeof(T))
        : record(record_ptr), size(extent) {
        if (!record || !description || description->count == 0) return;
        walk(*description);
    }
    // Not copyable: it stands for one walk over one record.
    bs_struct(const bs_struct&) = delete;
    bs_struct& operator=(const bs_struct&) = delete;
    // Owns nothing; the record stays the caller's.
    virtual ~bs_struct() {}

    // The record being swapped; owned by the caller.
    T* record;
    // Bytes of the record the walk may touch.
    uint64_t size;
    // Byte offset reached by the walk, never beyond `size`.
    uint64_t position = 0;

private:
    // The record as bytes.
    unsigned char* bytes() const { return reinterpret_cast<unsigned char*>(record); }

    // Moves the position `n` bytes on, stopping at the record's end.
    void advance(uint64_t n) { position = n >= size || position + n >= size ? size : position + n; }

    // Reverses the `width` bytes at the position when they lie inside the
    // record, then advances past them.
    void swap_field(unsigned width) {
        if (position + width <= size) {
            unsigned char* p = bytes() + position;
            for (unsigned i = 0; i < width / 2; ++i) {
                unsigned char t = p[i];
                p[i] = p[width - 1 - i];
                p[width - 1 - i] = t;
            }
        }
        advance(width);
    }

    // The entry after `index`; a description that ends there is cut short.
    static int next(const stack<int>& d, int32_t& index) {
        if (index + 1 >= d.count) throw _throw_unexpected_termination();
        return d[++index];
    }

    // Walks the description from its first entry to its last, keeping the
    // count of single bytes since the last 4-byte field.
    void walk(const stack<int>& d) {
        int64_t align = 0;
        for (int32_t i = 0; i < d.count; ++i) {
            int code = d[i];
            if (align == 4) align = 0;
            if (code == bs_short) {
                if (align % 2 != 0) {
                    advance(1);
                    ++align;
                }
                swap_field(2);
                align += 2;
            } else if (code == bs_long) {
                if (align >= 1 && align <= 3) advance(uint64_t(4 - align));
                swap_field(4);
                align = 0;
            } else if (code == bs_array) {
                int element = next(d, i);
                int n = next(d, i);
                walk_array(element, n);
            } else if (code == bs_group) {
                int record_size = next(d, i);
                int n = next(d, i);
                walk_group(d, i, record_size, n);
            } else {
                advance(1);
                ++align;
            }
        }
    }

    // Swaps `n` elements of code `element`; arrays neither pad nor change
    // the alignment count.
    void walk_array(int element, int n) {
        unsigned width;
        if (element == bs_byte) width = 1;
        else if (element == bs_short) width = 2;
        else if (element == bs_long) width = 4;
        else throw _throw_wrong_definition();
        if (n < 1) return;
        if (width == 1) {
            advance(uint64_t(n));
            return;
        }
        for (int k = 0; k < n && position < size; ++k) swap_field(width);
    }

    // Swaps `n` records of `record_size` bytes each by the codes that follow
    // `index` up to the closing bs_group_end, and leaves `index` on it.
    void walk_group(const stack<int>& d, int32_t& index, int record_size, int n) {
        if (record_size < 0) throw _throw_wrong_definition();
        stack<int> inner;
        for (int code = next(d, index); code != bs_group_end; code = next(d, index)) inner.append(code);
        for (int k = 0; k < n && position < size; ++k) {
            uint64_t step = uint64_t(record_size);
            uint64_t extent = position + step <= size ? step : size - position;
            bs_struct<char*> sub(reinterpret_cast<char*>(bytes() + position), &inner, extent);
            advance(step);
        }
    }
};

}  // namespace common

// Base of every private buffer holder of the runtime library. All library
// memory comes from malloc/realloc and goes back with free.
#pragma once

namespace common {

// Polymorphic, data-free base for the nested _<class>_impl buffer holders.
template <class T>
class allocator {
public:
    virtual ~allocator() {}
};

}  // namespace common

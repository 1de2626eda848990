// Exception tags thrown by the runtime library's containers and byte-swapped
// structures. Each is an empty class: the type alone says what went wrong.
#pragma once

namespace common {

// An index or iterator position lies outside its container.
class _throw_out_of_range {};
// A container would need more elements than its 32-bit byte size can hold.
class _throw_bad_allocation {};
// An element was read from a container whose buffer is not allocated.
class _throw_empty_allocation {};
// A layout description holds a code that is not allowed where it stands.
class _throw_wrong_definition {};
// A layout description ends where further entries are required.
class _throw_unexpected_termination {};

}  // namespace common

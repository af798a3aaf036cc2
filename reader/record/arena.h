// Memory that is taken in small pieces and kept to the end.
#pragma once

#include <cstddef>
#include <string_view>

namespace tamrix {

// Purpose: a list of millions of files consists of small pieces that are never given back one by one. So they
// lie side by side in large blocks and cost no allocation of their own (time, and about 12 bytes each).
// Threads: one at a time: the one that lists, afterwards the reader stage's.
// Lifetime: pieces are valid until the process ends.

// `size` bytes at any address. Throws std::bad_alloc.
char* takeFromArena(std::size_t size);

// A copy of `text` with a NUL behind it. Throws std::bad_alloc.
const char* copyToArena(std::string_view text);

}  // namespace tamrix

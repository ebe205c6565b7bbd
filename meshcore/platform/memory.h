#pragma once
// Hints to the operating system about how memory will be used.

#include <cstddef>

namespace meshcore {

// Asks for huge pages over the whole pages inside [p, p + bytes) when the block
// is large (8 MB or more): filling a million records otherwise costs a page
// fault per 4 KB. Only advice: does nothing where the system has no such request.
void AdviseLargeBlock(void* p, std::size_t bytes);

} // namespace meshcore

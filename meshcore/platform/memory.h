#pragma once
// Hints to the operating system about how memory will be used.

#include <cstddef>

namespace meshcore {

// Asks for huge pages over the whole pages inside [p, p + bytes) when the block
// is large (8 MB or more) and huge pages are enabled: filling a million records
// otherwise costs a page fault per 4 KB. Only advice: does nothing where the
// system has no such request.
void AdviseLargeBlock(void* p, std::size_t bytes);

// Backs the whole pages inside [p, p + bytes) with memory now, in one request
// rather than one page fault per page at the first write, where the system
// can. Contents are left as they are, so another thread may be writing the
// block meanwhile. Only advice: does nothing where the system has no such
// request.
void PrefaultBlock(void* p, std::size_t bytes);

// Whether AdviseLargeBlock asks for huge pages. The advice trades a faster
// first touch for a risk of long stalls while the kernel compacts memory that
// other processes left fragmented. MESHCORE_HUGEPAGES=1 or 0 in the
// environment decides, read once at the first call.
bool LargeBlockHugePages();

} // namespace meshcore

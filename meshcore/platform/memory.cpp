#include "meshcore/platform/memory.h"

#include <cstdint>
#include <cstdlib>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace meshcore {

namespace {

constexpr bool kHugePagesByDefault = false;

} // namespace

bool LargeBlockHugePages() {
  static const bool wanted = [] {
    const char* value = std::getenv("MESHCORE_HUGEPAGES");
    if (!value || !*value)
      return kHugePagesByDefault;
    return value[0] != '0';
  }();
  return wanted;
}

void AdviseLargeBlock([[maybe_unused]] void* p, [[maybe_unused]] std::size_t bytes) {
#if defined(MADV_HUGEPAGE)
  constexpr std::size_t kLarge = std::size_t(8) << 20;
  constexpr std::uintptr_t kPage = 4096;
  if (!p || bytes < kLarge || !LargeBlockHugePages())
    return;
  const auto start = reinterpret_cast<std::uintptr_t>(p);
  const std::uintptr_t b = (start + kPage - 1) & ~(kPage - 1);
  const std::uintptr_t e = (start + bytes) & ~(kPage - 1);
  if (e > b)
    ::madvise(reinterpret_cast<void*>(b), e - b, MADV_HUGEPAGE); // failure is harmless
#endif
}

void PrefaultBlock([[maybe_unused]] void* p, [[maybe_unused]] std::size_t bytes) {
#if defined(__linux__)
  // Linux 5.14 and later; older kernels refuse the request, which is harmless.
  constexpr int kPopulateWrite = 23; // MADV_POPULATE_WRITE
  constexpr std::uintptr_t kPage = 4096;
  const auto start = reinterpret_cast<std::uintptr_t>(p);
  const std::uintptr_t b = (start + kPage - 1) & ~(kPage - 1);
  const std::uintptr_t e = (start + bytes) & ~(kPage - 1);
  if (p && e > b)
    ::madvise(reinterpret_cast<void*>(b), e - b, kPopulateWrite);
#endif
}

} // namespace meshcore

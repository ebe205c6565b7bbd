#include "meshcore/platform/thread_id.h"

#include <mutex>
#include <unordered_map>

namespace meshcore {

// Numbers are handed out in order of first use, so two live threads never share
// one (a hash of the native id could collide). The table only grows with the
// number of distinct native ids, which the system reuses.
std::uint32_t GetThreadId32(std::thread::id id) {
  static std::mutex mutex;
  static std::unordered_map<std::thread::id, std::uint32_t> ids;
  static std::uint32_t next = 1;
  std::lock_guard<std::mutex> lock(mutex);
  auto [it, inserted] = ids.emplace(id, next);
  if (inserted && ++next == 0)
    next = 1;
  return it->second;
}

std::uint32_t GetCurrentThreadId32() {
  thread_local const std::uint32_t id = GetThreadId32(std::this_thread::get_id());
  return id;
}

} // namespace meshcore

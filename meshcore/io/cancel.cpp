#include "meshcore/io/cancel.h"

#include "meshcore/containers/hash_table.h"
#include "meshcore/platform/thread_id.h"

#include <atomic>
#include <mutex>

namespace meshcore {

namespace {

// Hosts insert and remove from their own threads while workers poll, so the set
// is guarded; the counter lets the common "nobody is cancelled" poll skip the lock.
struct CancelSet {
  std::mutex mutex;
  CHashUInt threads;
  std::atomic<int> count{0};
};

CancelSet& GetCancelSet() {
  static CancelSet set;
  return set;
}

} // namespace

int SetCancel(int cancel, int threadId) {
  const unsigned id = threadId == 0 ? GetCurrentThreadId32() : static_cast<unsigned>(threadId);
  CancelSet& set = GetCancelSet();
  std::lock_guard lock(set.mutex);
  const int result = cancel ? set.threads.Insert(id) : set.threads.Remove(id);
  if (result)
    set.count.fetch_add(cancel ? 1 : -1, std::memory_order_release);
  return result;
}

int ShouldCancel() {
  CancelSet& set = GetCancelSet();
  if (set.count.load(std::memory_order_acquire) == 0)
    return 0;
  const unsigned id = GetCurrentThreadId32();
  std::lock_guard lock(set.mutex);
  return set.threads.IsFound(id) ? 1 : 0;
}

} // namespace meshcore

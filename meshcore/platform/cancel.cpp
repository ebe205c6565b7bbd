#include "meshcore/platform/cancel.h"

#include "meshcore/platform/thread_id.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <set>

namespace meshcore {

namespace {

// Hosts insert and remove from their own threads while workers poll, so the set
// is guarded; the counter lets the common "nobody is cancelled" poll skip the lock.
struct CancelSet {
  std::mutex mutex;
  std::set<unsigned> threads;
  std::atomic<int> count{0};
  std::map<unsigned, double> progress;
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
  const int result = cancel ? int(set.threads.insert(id).second) : int(set.threads.erase(id));
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
  return set.threads.count(id) ? 1 : 0;
}

void ReportProgress(double fraction) {
  CancelSet& set = GetCancelSet();
  const unsigned id = GetCurrentThreadId32();
  std::lock_guard lock(set.mutex);
  set.progress[id] = std::clamp(fraction, 0.0, 1.0);
}

void ClearProgress() {
  CancelSet& set = GetCancelSet();
  const unsigned id = GetCurrentThreadId32();
  std::lock_guard lock(set.mutex);
  set.progress.erase(id);
}

double GetProgress(int threadId) {
  const unsigned id = threadId == 0 ? GetCurrentThreadId32() : static_cast<unsigned>(threadId);
  CancelSet& set = GetCancelSet();
  std::lock_guard lock(set.mutex);
  auto it = set.progress.find(id);
  return it == set.progress.end() ? -1.0 : it->second;
}

bool CCancelCheck::Check() {
  if (m_cancelled)
    return true;
  if (m_total)
    ReportProgress(double(std::min(m_done, m_total)) / double(m_total));
  m_cancelled = ShouldCancel() != 0;
  return m_cancelled;
}

} // namespace meshcore

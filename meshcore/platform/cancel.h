#pragma once
// Per-thread cancellation and progress of long operations. Every layer polls
// it (readers, writers, operations), so it lives at the bottom.

#include <cstdint>

namespace meshcore {

// threadId 0 means the calling thread; cancel non-zero asks that thread's
// current operation to stop, 0 withdraws the request.
int SetCancel(int cancel, int threadId);
// 1 when the calling thread has been asked to stop.
int ShouldCancel();

// The calling thread's operation is this far along (0..1). Hosts poll it from
// another thread with GetProgress; ClearProgress ends the report.
void ReportProgress(double fraction);
void ClearProgress();
// The last fraction the thread reported, or a negative value when none.
double GetProgress(int threadId);

// Polls the cancel flag (and reports progress) once every `period` ticks, so
// that inner loops over millions of records answer a cancel within a few
// milliseconds at no measurable cost.
class CCancelCheck {
public:
  explicit CCancelCheck(std::uint64_t total = 0, unsigned period = 4096)
      : m_total(total), m_period(period ? period : 1), m_left(m_period) {}

  // True once the operation has been asked to stop; every call counts one record.
  bool Tick() {
    if (--m_left != 0)
      return false;
    return Poll();
  }
  // Counts n records at once (bulk loops).
  bool Advance(std::uint64_t n) {
    m_done += n;
    if (n < m_left) {
      m_left -= unsigned(n);
      return false;
    }
    m_left = m_period;
    return Check();
  }
  // Polls now, with the work done so far (e.g. a byte offset against a total of bytes).
  bool At(std::uint64_t done) {
    m_done = done;
    m_left = m_period;
    return Check();
  }
  // Polls now, whatever the count.
  bool Check();
  bool IsCancelled() const { return m_cancelled; }
  void SetTotal(std::uint64_t total) { m_total = total; }

private:
  bool Poll() {
    m_done += m_period;
    m_left = m_period;
    return Check();
  }

  std::uint64_t m_total;
  std::uint64_t m_done = 0;
  unsigned m_period;
  unsigned m_left;
  bool m_cancelled = false;
};

} // namespace meshcore

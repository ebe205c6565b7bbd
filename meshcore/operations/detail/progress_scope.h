#pragma once
// Internal to the operations: ends the calling thread's progress report when
// an operation returns, however it returns, so that a host polling
// GetProgress never sees a stale fraction of an operation that has finished.

#include "meshcore/platform/cancel.h"

namespace meshcore::detail {

class CProgressScope {
public:
  CProgressScope() = default;
  CProgressScope(const CProgressScope&) = delete;
  CProgressScope& operator=(const CProgressScope&) = delete;
  ~CProgressScope() { ClearProgress(); }
};

} // namespace meshcore::detail

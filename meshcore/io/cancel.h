#pragma once
// Per-thread cancellation of long operations.

namespace meshcore {

// threadId 0 means the calling thread; cancel non-zero asks that thread's
// current operation to stop, 0 withdraws the request.
int SetCancel(int cancel, int threadId);
// 1 when the calling thread has been asked to stop.
int ShouldCancel();

} // namespace meshcore

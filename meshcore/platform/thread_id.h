#pragma once
// 32-bit thread identifiers for the per-thread tables (cancel set, reader map).

#include <cstdint>
#include <thread>

namespace meshcore {

// The identifier of the calling thread: never 0, the same for the thread's whole life.
std::uint32_t GetCurrentThreadId32();
// The identifier of any thread, equal to what that thread's GetCurrentThreadId32 returns.
std::uint32_t GetThreadId32(std::thread::id id);

} // namespace meshcore

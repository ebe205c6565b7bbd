// The tool's host, the progress line and Ctrl-C handling.
#include "tools/tool.h"

#include "meshcore/io/cancel.h"
#include "meshcore/io/file_io.h"
#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/platform/thread_id.h"

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <exception>
#include <thread>

namespace meshcore::tool {

namespace {

// Set by the signal handler only: a lock-free atomic is safe to touch there.
std::atomic<bool> g_interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free);

bool g_handlerInstalled = false;
struct sigaction g_previousAction {};

bool g_progressShown = false; // guarded by ErrorStreamMutex

extern "C" void OnInterrupt(int) {
  g_interrupted.store(true);
}

} // namespace

int ExitStatusForIoError(int ioError) {
  switch (ioError) {
  case IO_FILE_OK:
    return kExitOk;
  case IO_FILE_CANT_OPEN:
  case IO_FILE_ACCESS_DENIED:
    return kExitCannotOpen;
  case IO_FILE_UNKNOWN_TYPE:
  case IO_FILE_CANT_SAVE_OPTIONS:
    return kExitUnknownType;
  case IO_FILE_BAD_FORMAT:
  case IO_FILE_EMPTY:
    return kExitBadFormat;
  case IO_FILE_CANCELLED:
    return kExitCancelled;
  default:
    return kExitFailure;
  }
}

std::mutex& ErrorStreamMutex() {
  static std::mutex mutex;
  return mutex;
}

void ClearProgressLine(Output& output) {
  if (g_progressShown) {
    std::fputs("\r\033[K", output.err);
    g_progressShown = false;
  }
}

int CToolHost::MessageBox(HostWindow, const std::string& text, const std::string& title, unsigned) {
  {
    std::lock_guard lock(m_mutex);
    m_last = text;
  }
  if (title != LoadString(IDS_IO_ERROR_TITLE) && !m_output.silent) {
    std::lock_guard lock(ErrorStreamMutex());
    ClearProgressLine(m_output);
    std::fprintf(m_output.err, "meshcore: %s\n", text.c_str());
  }
  return answerOk;
}

std::string CToolHost::TakeLastMessage() {
  std::lock_guard lock(m_mutex);
  std::string last;
  last.swap(m_last);
  return last;
}

void InstallInterruptHandler() {
  g_interrupted = false;
  if (g_handlerInstalled)
    return;
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  g_handlerInstalled = sigaction(SIGINT, &action, &g_previousAction) == 0;
}

void RestoreInterruptHandler() {
  if (g_handlerInstalled) {
    sigaction(SIGINT, &g_previousAction, nullptr);
    g_handlerInstalled = false;
  }
}

bool WasInterrupted() {
  return g_interrupted.load();
}

bool RunCancellable(Output& output, const std::string& label, const std::function<void()>& work) {
  std::mutex mutex;
  std::condition_variable doneSignal;
  bool done = false;
  std::atomic<std::uint32_t> workerId{0};
  std::exception_ptr failure;

  std::thread worker([&] {
    workerId = GetCurrentThreadId32();
    try {
      work();
    } catch (...) {
      failure = std::current_exception();
    }
    ClearProgress(); // thread ids are reused: no fraction may outlive the work
    std::lock_guard lock(mutex);
    done = true;
    doneSignal.notify_all();
  });

  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  bool cancelSent = false;
  int frame = 0;
  {
    std::unique_lock lock(mutex);
    while (!done) {
      doneSignal.wait_for(lock, std::chrono::milliseconds(100));
      if (done)
        break;
      if (g_interrupted.load() && !cancelSent && workerId.load() != 0) {
        SetCancel(1, static_cast<int>(workerId.load()));
        cancelSent = true;
      }
      const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
      // Quick operations finish without any line drawn.
      if (output.progress && !output.silent && elapsed >= 0.3) {
        static const char kFrames[] = "|/-\\";
        // The share done, when the work reports one.
        const std::uint32_t id = workerId.load();
        const double fraction = id ? GetProgress(static_cast<int>(id)) : -1.0;
        char share[16] = "";
        if (fraction >= 0.0)
          std::snprintf(share, sizeof share, "  %3d%%", static_cast<int>(fraction * 100.0));
        std::lock_guard errLock(ErrorStreamMutex());
        std::fprintf(output.err, "\r%c %s%s  %.1fs\033[K", kFrames[frame++ % 4], label.c_str(),
                     share, elapsed);
        std::fflush(output.err);
        g_progressShown = true;
      }
    }
  }
  worker.join();
  {
    std::lock_guard errLock(ErrorStreamMutex());
    ClearProgressLine(output);
  }
  if (cancelSent)
    SetCancel(0, static_cast<int>(workerId.load())); // the entry outlives the thread otherwise
  if (failure)
    std::rethrow_exception(failure);
  return g_interrupted.load();
}

} // namespace meshcore::tool

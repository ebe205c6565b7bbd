#pragma once
// The meshcore command: shared pieces of its commands.

#include "meshcore/geometry/point_3d.h"
#include "meshcore/platform/host.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace meshcore {
class C3DScene;
}

namespace meshcore::tool {

// Exit statuses: scripts tell the failures apart by them.
enum ExitStatus : int {
  kExitOk = 0,
  kExitFailure = 1, // anything not listed below
  kExitUsage = 2,
  kExitCannotOpen = 3,
  kExitUnknownType = 4,
  kExitBadFormat = 5,
  kExitCancelled = 130, // as a shell reports a command stopped by Ctrl-C
};

// The exit status for an IO_FILE_RESULT code.
int ExitStatusForIoError(int ioError);

// Where the tool writes. Tests hand in files of their own.
struct Output {
  std::FILE* out = stdout;
  std::FILE* err = stderr;
  // Progress is drawn only on a terminal and never in silent mode.
  bool progress = false;
  bool silent = false;
  // The text of the last failure reported, and the codec's detail of it
  // (empty when it gave none).
  std::string lastError;
  std::string lastDetail;
};

// The tool's host: library messages go to standard error (one line each,
// without the progress line in their way); the profile stays the default one
// in the per-user folder. Messages titled as file-access failures are kept
// instead, because the tool reports those itself with the file's name.
class CToolHost : public CMeshcoreHost {
public:
  explicit CToolHost(Output& output) : m_output(output) {}
  int MessageBox(HostWindow parent, const std::string& text, const std::string& title,
                 unsigned icon) override;
  // The last message the library gave, shown or kept; empty when none.
  std::string TakeLastMessage();

private:
  Output& m_output;
  std::mutex m_mutex;
  std::string m_last;
};

// Serialises writes to standard error between the progress line and messages.
std::mutex& ErrorStreamMutex();
// Erases the progress line if one is drawn; call with ErrorStreamMutex held.
void ClearProgressLine(Output& output);

// Runs work on a worker thread. Meanwhile the calling thread draws a spinner
// with label and the elapsed time (terminal only) and turns Ctrl-C into a
// cancel request for the worker's thread. Returns true when Ctrl-C was pressed
// during the run (or before it).
bool RunCancellable(Output& output, const std::string& label, const std::function<void()>& work);
// Installs the Ctrl-C handler (once) and forgets earlier presses.
void InstallInterruptHandler();
void RestoreInterruptHandler();
bool WasInterrupted();

// Scene figures for `info`.
struct SceneStats {
  int nodes = 0;
  int polygonal = 0, curves = 0, patches = 0, groups = 0;
  long long points = 0, faces = 0;
  int materials = 0;
  int textureChannels = 0, colourChannels = 0;
  bool hasBox = false;
  C3DPoint boxMin, boxMax;
};
SceneStats CollectStats(C3DScene& scene);
void PrintStats(std::FILE* out, const std::string& file, const SceneStats& stats);
void PrintTree(std::FILE* out, C3DScene& scene);
// One JSON object (without a trailing newline); tree adds the node tree.
std::string StatsToJson(const std::string& file, const SceneStats& stats, C3DScene* treeOf);
std::string JsonString(const std::string& text);

// The demonstration scene: a few meshes in a group, texture and colour
// channels, and materials. The caller owns it.
C3DScene* BuildDemoScene();

// What `formats` tells of a registered type: read and write are what a codec
// of this build does; the registry's own declaration is kept apart.
struct FormatSupport {
  unsigned classCode = 0;
  bool read = false, write = false;
  bool registryRead = false, registryWrite = false;
};
FormatSupport GetFormatSupport(unsigned classCode);

// Reads a scene for a command: null with status set (and the failure
// reported) when it cannot.
using SceneReader = std::function<std::unique_ptr<C3DScene>(const std::string& file, int& status)>;
// `render IN OUT.png [options]`: args are the command's arguments and
// options in the order given.
int RunRender(Output& output, const std::vector<std::string>& args, const SceneReader& read);

// The whole command line; returns the exit status.
int RunTool(int argc, char** argv, Output& output);

} // namespace meshcore::tool

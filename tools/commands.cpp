// The command line of the meshcore tool and its commands.
#include "tools/tool.h"

#include "meshcore/formats/library.h"
#include "meshcore/formats/maya/maya_io.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_info.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/operations/merge_coplanar.h"
#include "meshcore/operations/scene_operations.h"
#include "meshcore/operations/subdivide.h"
#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/platform/version.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/scene.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string_view>
#include <unordered_set>

namespace meshcore::tool {

namespace {

namespace fs = std::filesystem;

constexpr unsigned kLightwaveClass = fileMakeClassCode("LIGT");

const char kUsage[] =
    "usage: meshcore [--version] [--help] <command> [options] [arguments]\n"
    "\n"
    "commands:\n"
    "  info FILE...      scene statistics of each file: nodes by kind, points, faces,\n"
    "                    materials, texture and colour channels, bounding box\n"
    "      --tree        also show the node tree with names and kinds\n"
    "      --json        a JSON array with one object per file\n"
    "  convert IN OUT    read IN and save it in the format that OUT's extension names\n"
    "      --weld TOL    merge the points of each object that lie within TOL (0 or more)\n"
    "      --merge-coplanar DEG\n"
    "                    merge neighbouring faces of one material whose normals differ\n"
    "                    by at most DEG degrees (0 to 180) into single polygons\n"
    "      --triangulate cut every face of more than three corners into triangles\n"
    "      --subdivide N subdivide every patch N times (0 to 8)\n"
    "      --subdivide-all N\n"
    "                    subdivide every mesh N times too, as if it were a patch\n"
    "                    (weld, merge-coplanar, triangulate and subdivide run in this\n"
    "                    order, each reporting what it changed on standard error;\n"
    "                    Lightwave files keep patches as their control mesh)\n"
    "  formats           the file types the library knows and what it reads and writes\n"
    "      --all         include the registry's image, audio and web types, and\n"
    "                    what the registry declares beside what the codecs do\n"
    "      --json        as JSON\n"
    "  render IN OUT.png draw IN into a PNG picture (z-buffer, one light, 2x2 antialiasing)\n"
    "      --size WxH    picture size in pixels (default 800x600, at most 4096 each)\n"
    "      --view V      iso (default), front, back, left, right, top or bottom\n"
    "      --up y|z      the scene's up axis (default: y for Lightwave, Wavefront and\n"
    "                    Maya files, z for the others)\n"
    "      --wire        also draw the polygon edges\n"
    "      --background RRGGBB\n"
    "                    background colour (default 30343C)\n"
    "  demo [DIR]        build a sample scene, save it as a Lightwave object (in DIR,\n"
    "                    kept, or in a temporary folder), read it back and describe it\n"
    "\n"
    "options of every command:\n"
    "  --silent          no progress and no library messages (errors are still shown)\n"
    "  --lang en|fr      language of the library's messages\n"
    "\n"
    "Ctrl-C cancels a running read or save.\n"
    "exit status: 0 success, 1 other failure, 2 usage, 3 cannot open, 4 unknown file\n"
    "type, 5 bad file format, 130 cancelled\n";

struct Options {
  std::string command;
  std::vector<std::string> args;
  bool tree = false;
  bool json = false;
  bool all = false;
  bool silent = false;
  std::string lang;
  // Geometry operations of convert.
  bool weld = false;
  float tolerance = 0.0f;
  bool mergeCoplanar = false;
  float mergeAngle = 0.0f; // degrees
  bool triangulate = false;
  int subdivideLevel = -1; // -1: not asked for
  bool subdivideAll = false;
  std::string convertOption; // the first such option met, for the error with other commands
};

// Subdividing stops short of this many faces: beyond it memory runs out
// before the result could be saved.
constexpr std::uint64_t kMaxSubdividedFaces = std::uint64_t{1} << 24;

// Reports one failure on standard error; returns status. A detail (where and
// why a codec gave up) follows the text in parentheses.
int Fail(Output& output, const std::string& file, const std::string& text, int status,
         const std::string& detail = {}) {
  std::lock_guard lock(ErrorStreamMutex());
  ClearProgressLine(output);
  output.lastError = text;
  output.lastDetail = detail;
  std::string line = file.empty() ? text : file + ": " + text;
  if (!detail.empty())
    line += " (" + detail + ")";
  std::fprintf(output.err, "meshcore: %s\n", line.c_str());
  return status;
}

int FailCancelled(Output& output, const std::string& file) {
  return Fail(output, file, CFileIo::GetIoErrorTxt(IO_FILE_CANCELLED), kExitCancelled);
}

int FailCannotOpen(Output& output, const std::string& file) {
  return Fail(output, {}, FormatPrompt(LoadString(IDP_FAILED_TO_OPEN_DOC), file), kExitCannotOpen);
}

// The library's text for the operation's error, or what the codec showed when
// the code has no text of its own (a file that could not be opened).
int FailIo(Output& output, CToolHost& host, const std::string& file, const CFileIo& io) {
  // A codec may fail without a code (AMAPI on a file of another kind): still a failure.
  const int status =
      io.GetIoError() == IO_FILE_OK ? int(kExitFailure) : ExitStatusForIoError(io.GetIoError());
  std::string text = io.GetIoErrorTxt();
  const std::string shown = host.TakeLastMessage();
  if (text.empty() && !shown.empty())
    return Fail(output, {}, shown, status);
  if (text.empty())
    return FailCannotOpen(output, file);
  return Fail(output, file, text, status, io.GetIoErrorDetail());
}

unsigned IoFlags(const Options& options, bool loading) {
  return (loading ? FILE_PARSER_LOADING : 0u) | (options.silent ? FILE_PARSER_SILENT : 0u);
}

bool IsReadableFile(const std::string& name) {
  std::error_code ec;
  return fs::is_regular_file(name, ec);
}

bool CanWrite(unsigned classCode) {
  return GetFormatSupport(classCode).write;
}

bool CanRead(unsigned classCode) {
  return GetFormatSupport(classCode).read;
}

// Reads file on a worker thread. Null with status set on failure.
std::unique_ptr<C3DScene> ReadScene(Output& output, CToolHost& host, const Options& options,
                                    const std::string& file, int& status) {
  status = kExitOk;
  if (!IsReadableFile(file)) {
    status = FailCannotOpen(output, file);
    return nullptr;
  }
  C3DIo io(file, IoFlags(options, true));
  std::unique_ptr<C3DScene> scene;
  const bool interrupted = RunCancellable(output, "reading " + CFileInfo(file).GetFileName(),
                                          [&] { scene = io.ReadScene(); });
  if (interrupted || io.GetIoError() == IO_FILE_CANCELLED) {
    status = FailCancelled(output, file);
    return nullptr;
  }
  if (!scene)
    status = FailIo(output, host, file, io);
  return scene;
}

// Saves scene on a worker thread; returns the exit status.
int SaveScene(Output& output, CToolHost& host, const Options& options, const std::string& file,
              C3DScene& scene) {
  C3DIo io(file, IoFlags(options, false));
  int result = 0;
  const bool interrupted = RunCancellable(output, "writing " + CFileInfo(file).GetFileName(),
                                          [&] { result = io.SaveScene(scene); });
  if (io.GetIoError() == IO_FILE_CANCELLED || (interrupted && result != 1))
    return FailCancelled(output, file);
  if (result != 1) {
    if (io.GetIoError() == IO_FILE_OK) // a codec that failed without saying why
      return Fail(output, file, CFileIo::GetIoErrorTxt(0), kExitFailure);
    return FailIo(output, host, file, io);
  }
  return kExitOk;
}

// The scene of the last file `info` described is left for the process exit to
// reclaim: freeing millions of records one by one would cost a good part of
// the whole run. Each call frees the one kept before, so a host that runs the
// tool in-process holds at most one; the pointer keeps it reachable.
void KeepUntilExit(std::unique_ptr<C3DScene> scene) {
  static C3DScene* kept = nullptr;
  delete kept;
  kept = scene.release();
}

int RunInfo(Output& output, CToolHost& host, const Options& options) {
  if (options.args.empty())
    return Fail(output, {}, "info needs at least one file (see meshcore --help)", kExitUsage);
  int status = kExitOk;
  std::vector<std::string> json;
  bool first = true;
  for (const std::string& file : options.args) {
    int fileStatus = kExitOk;
    std::unique_ptr<C3DScene> scene = ReadScene(output, host, options, file, fileStatus);
    if (fileStatus == kExitCancelled)
      return kExitCancelled; // the user wants out: the other files are not read
    if (!scene) {
      if (status == kExitOk)
        status = fileStatus;
      if (options.json)
        json.push_back("{\"file\": " + JsonString(file) +
                       ", \"error\": " + JsonString(output.lastError) +
                       ", \"detail\": " + JsonString(output.lastDetail) +
                       ", \"status\": " + std::to_string(fileStatus) + "}");
      continue;
    }
    const SceneStats stats = CollectStats(*scene);
    if (options.json) {
      json.push_back(StatsToJson(file, stats, options.tree ? scene.get() : nullptr));
      KeepUntilExit(std::move(scene));
      continue;
    }
    if (!first)
      std::fputc('\n', output.out);
    first = false;
    PrintStats(output.out, file, stats);
    if (options.tree)
      PrintTree(output.out, *scene);
    KeepUntilExit(std::move(scene));
  }
  if (options.json) {
    std::fputs("[", output.out);
    for (std::size_t i = 0; i < json.size(); ++i)
      std::fprintf(output.out, "%s\n  %s", i ? "," : "", json[i].c_str());
    std::fputs(json.empty() ? "]\n" : "\n]\n", output.out);
  }
  return status;
}

std::string Count(long long n, const char* what) {
  return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
}

// One line about an operation on standard error, unless silent.
void Report(Output& output, const std::string& text) {
  if (output.silent)
    return;
  std::lock_guard lock(ErrorStreamMutex());
  ClearProgressLine(output);
  std::fprintf(output.err, "%s\n", text.c_str());
}

// Faces that subdividing the scene's patches (and meshes with everyMesh) level
// times would give, each object counted once.
std::uint64_t EstimateSubdividedFaces(C3DScene& scene, int level, bool everyMesh) {
  const unsigned kinds = OBJECT_PATCH | (everyMesh ? OBJECT_POLYGONAL : 0u);
  std::unordered_set<const C3DBaseObject*> seen; // membership only
  std::uint64_t total = 0;
  C3DSceneNode* cursor = scene.GetFirstNode(nullptr);
  while (cursor) {
    const C3DBaseObject* object = nullptr;
    scene.GetNextNode(object, cursor, nullptr);
    if (object && (object->GetKindOf() & kinds) && seen.insert(object).second)
      total += EstimateLevel(object, static_cast<unsigned>(level));
    if (total >= kMaxSubdividedFaces)
      break;
  }
  return total;
}

// The geometry operations asked for, always in the order weld, merge-coplanar,
// triangulate, subdivide (each works best on what the one before left).
// Returns the exit status.
int ApplyOperations(Output& output, const Options& options, const std::string& file,
                    C3DScene& scene) {
  if (options.weld) {
    CWeldReport report;
    if (RunCancellable(output, "welding", [&] { WeldScene(scene, options.tolerance, report); }))
      return FailCancelled(output, file);
    Report(output, "weld: " + Count(report.points, "point") + " and " +
                       Count(report.faces, "face") + " removed from " +
                       Count(report.objects, "object"));
  }
  if (options.mergeCoplanar) {
    CMergeCoplanarReport report;
    if (RunCancellable(output, "merging coplanar faces",
                       [&] { MergeCoplanarScene(scene, options.mergeAngle, report); }) ||
        report.cancelled)
      return FailCancelled(output, file);
    Report(output, "merge-coplanar: " + Count(report.faces, "face") + " removed from " +
                       Count(report.objects, "object"));
  }
  if (options.triangulate) {
    CTriangulateReport report;
    if (RunCancellable(output, "triangulating", [&] { TriangulateScene(scene, report); }))
      return FailCancelled(output, file);
    std::string text = "triangulate: " + Count(report.faces, "face") + " cut into " +
                       Count(report.triangles, "triangle") + " in " +
                       Count(report.objects, "object");
    if (report.fans)
      text += " (" + std::to_string(report.fans) + " cut as a fan)";
    Report(output, text);
  }
  if (options.subdivideLevel >= 0) {
    const int level = options.subdivideLevel;
    const std::uint64_t estimate = EstimateSubdividedFaces(scene, level, options.subdivideAll);
    if (estimate >= kMaxSubdividedFaces)
      return Fail(output, file,
                  "subdividing " + std::to_string(level) + " times would make more than " +
                      std::to_string(kMaxSubdividedFaces) + " faces; choose a lower level",
                  kExitFailure);
    CSubdivideReport report;
    if (RunCancellable(output, "subdividing",
                       [&] { SubdivideScene(scene, level, options.subdivideAll, report); }))
      return FailCancelled(output, file);
    Report(output, std::string(options.subdivideAll ? "subdivide-all" : "subdivide") + ": level " +
                       std::to_string(level) + ", " + Count(report.objects, "object") + ", " +
                       Count(report.facesBefore, "face") + " became " +
                       std::to_string(report.facesAfter));
  }
  return kExitOk;
}

int RunConvert(Output& output, CToolHost& host, const Options& options) {
  if (options.args.size() != 2)
    return Fail(output, {}, "convert needs an input and an output file (see meshcore --help)",
                kExitUsage);
  const std::string& in = options.args[0];
  const std::string& out = options.args[1];
  // Known before a long read: can the output be written at all?
  if (!CanWrite(fileGetClass(CFileInfo(out).GetExtension())))
    return Fail(output, out, CFileIo::GetIoErrorTxt(IO_FILE_UNKNOWN_TYPE), kExitUnknownType);

  int status = kExitOk;
  std::unique_ptr<C3DScene> scene = ReadScene(output, host, options, in, status);
  if (!scene)
    return status;
  if (WasInterrupted())
    return FailCancelled(output, in);
  status = ApplyOperations(output, options, in, *scene);
  if (status != kExitOk)
    return status;
  status = SaveScene(output, host, options, out, *scene);
  if (status != kExitOk)
    return status;
  // A Maya file holds no shading unless its host adds the materials.
  if (fileGetClass(CFileInfo(out).GetExtension()) == fileMakeClassCode("MAYA")) {
    C3DIo io(out, IoFlags(options, false));
    if (!CMayaIo(io).AppendMaterials(out, scene.get()))
      return FailIo(output, host, out, io);
  }
  if (!options.silent)
    std::fprintf(output.out, "%s -> %s: %d nodes, %d points, %d faces, %d materials\n", in.c_str(),
                 out.c_str(), scene->GetNodeNbr(0), scene->GetPointNbr(), scene->GetFaceNbr(),
                 scene->GetMaterialNumber());
  return kExitOk;
}

int RunFormats(Output& output, const Options& options) {
  unsigned count = 0;
  CFileExt* types = fileGetRegisteredFiles(count);
  std::vector<const CFileExt*> shown;
  for (unsigned i = 0; i < count; ++i)
    if (options.all || types[i].GetKindOf() == FILE_KIND_SCENE)
      shown.push_back(&types[i]);
  auto yesNo = [](bool on, const char* yes, const char* no) { return on ? yes : no; };

  auto extensions = [](const CFileExt& type) {
    std::string list;
    for (const std::string& ext : fileSplitExtensionList(type.GetExtension()))
      list += (list.empty() ? "" : " ") + ext;
    return list;
  };
  if (options.json) {
    std::fputs("[", output.out);
    for (std::size_t i = 0; i < shown.size(); ++i) {
      const CFileExt& t = *shown[i];
      std::string exts;
      for (const std::string& ext : fileSplitExtensionList(t.GetExtension()))
        exts += (exts.empty() ? "" : ", ") + JsonString(ext);
      const FormatSupport support = GetFormatSupport(t.GetClass());
      // The registry's word is shown apart, and only on request: read and
      // write say what this build can do.
      const std::string registry =
          options.all ? std::string(", \"registry\": {\"read\": ") +
                            yesNo(support.registryRead, "true", "false") +
                            ", \"write\": " + yesNo(support.registryWrite, "true", "false") + "}"
                      : std::string();
      std::fprintf(output.out,
                   "%s\n  {\"class\": %s, \"description\": %s, \"extensions\": [%s], "
                   "\"read\": %s, \"write\": %s%s}",
                   i ? "," : "", JsonString(fileClassCodeToString(t.GetClass())).c_str(),
                   JsonString(t.GetDescription()).c_str(), exts.c_str(),
                   yesNo(support.read, "true", "false"), yesNo(support.write, "true", "false"),
                   registry.c_str());
    }
    std::fputs(shown.empty() ? "]\n" : "\n]\n", output.out);
  } else {
    // With --all a REGISTRY column tells what the type's entry declares (r, w),
    // which the host application may handle even where no codec here does.
    if (options.all)
      std::fprintf(output.out, "%-6s %-5s %-5s %-8s %-28s %s\n", "CLASS", "READ", "WRITE",
                   "REGISTRY", "EXTENSIONS", "DESCRIPTION");
    else
      std::fprintf(output.out, "%-6s %-5s %-5s %-28s %s\n", "CLASS", "READ", "WRITE", "EXTENSIONS",
                   "DESCRIPTION");
    for (const CFileExt* t : shown) {
      const FormatSupport support = GetFormatSupport(t->GetClass());
      const std::string cls = fileClassCodeToString(t->GetClass());
      if (options.all) {
        const std::string registry = std::string(yesNo(support.registryRead, "r", "-")) +
                                     yesNo(support.registryWrite, "w", "-");
        std::fprintf(output.out, "%-6s %-5s %-5s %-8s %-28s %s\n", cls.c_str(),
                     yesNo(support.read, "yes", "-"), yesNo(support.write, "yes", "-"),
                     registry.c_str(), extensions(*t).c_str(), t->GetDescription().c_str());
      } else {
        std::fprintf(output.out, "%-6s %-5s %-5s %-28s %s\n", cls.c_str(),
                     yesNo(support.read, "yes", "-"), yesNo(support.write, "yes", "-"),
                     extensions(*t).c_str(), t->GetDescription().c_str());
      }
    }
    if (options.all)
      std::fputs("\nREAD and WRITE: what this build's codecs do. REGISTRY: what the type's\n"
                 "entry declares (r read, w write), for the host application to handle.\n",
                 output.out);
  }
  fileFreeRegisteredFiles(types);
  return kExitOk;
}

int RunDemo(Output& output, CToolHost& host, const Options& options) {
  std::unique_ptr<C3DScene> scene(BuildDemoScene());
  if (!CanWrite(kLightwaveClass) || !CanRead(kLightwaveClass)) {
    std::fprintf(output.out,
                 "meshcore %s: this build has no Lightwave codec yet, so the demo scene is "
                 "described from memory.\n\n",
                 GetVersionString());
    PrintStats(output.out, "demo scene (in memory)", CollectStats(*scene));
    PrintTree(output.out, *scene);
    return kExitOk;
  }

  // Into DIR when given (and kept), else into a temporary folder removed at the end.
  std::error_code ec;
  fs::path dir;
  bool temporary = options.args.empty();
  if (!temporary) {
    dir = options.args[0];
    fs::create_directories(dir, ec);
  } else {
    std::string pattern = (fs::temp_directory_path(ec) / "meshcore-demo-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
      return Fail(output, pattern, "cannot create a temporary folder", kExitFailure);
    dir = pattern;
  }
  const std::string file = (dir / "demo.lwo").string();
  int status = SaveScene(output, host, options, file, *scene);
  std::unique_ptr<C3DScene> back;
  if (status == kExitOk)
    back = ReadScene(output, host, options, file, status);
  if (back) {
    std::fprintf(output.out,
                 "meshcore %s: built a scene in memory, saved it as a Lightwave object "
                 "(%ju bytes) and read it back:\n\n",
                 GetVersionString(), static_cast<std::uintmax_t>(fs::file_size(file, ec)));
    PrintStats(output.out, temporary ? "demo.lwo" : file, CollectStats(*back));
    PrintTree(output.out, *back);
  }
  if (temporary)
    fs::remove_all(dir, ec);
  return status;
}

// The whole of text as a number of type T, or false.
template <class T> bool ParseNumber(std::string_view text, T& value) {
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, value);
  return ec == std::errc() && ptr == end && !text.empty();
}

bool ParseArguments(int argc, char** argv, Options& options, std::string& error) {
  bool optionsEnded = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    // --name VALUE or --name=VALUE; false (with error set) when the value is missing.
    auto valueOf = [&](std::string_view name, const char* expected, std::string& value) {
      if (arg.size() > name.size() && arg.substr(name.size(), 1) == "=") {
        value = arg.substr(name.size() + 1);
        return true;
      }
      if (i + 1 >= argc) {
        error = std::string(name) + " needs " + expected;
        return false;
      }
      value = argv[++i];
      return true;
    };
    auto isOption = [&](std::string_view name) {
      return arg == name || (arg.size() > name.size() && arg.substr(0, name.size()) == name &&
                             arg[name.size()] == '=');
    };
    if (optionsEnded || arg.size() < 2 || arg.substr(0, 2) != "--") {
      if (options.command.empty())
        options.command = arg;
      else
        options.args.emplace_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
    } else if (arg == "--tree") {
      options.tree = true;
    } else if (arg == "--json") {
      options.json = true;
    } else if (arg == "--all") {
      options.all = true;
    } else if (arg == "--silent") {
      options.silent = true;
    } else if (arg == "--lang" || arg.substr(0, 7) == "--lang=") {
      std::string lang;
      if (arg == "--lang") {
        if (i + 1 >= argc) {
          error = "--lang needs en or fr";
          return false;
        }
        lang = argv[++i];
      } else {
        lang = arg.substr(7);
      }
      if (lang != "en" && lang != "fr") {
        error = "unknown language '" + lang + "' (en or fr)";
        return false;
      }
      options.lang = lang;
    } else if (isOption("--weld")) {
      std::string value;
      if (!valueOf("--weld", "a tolerance (a number of 0 or more)", value))
        return false;
      float tolerance = 0.0f;
      if (!ParseNumber(value, tolerance) || !std::isfinite(tolerance) || tolerance < 0.0f) {
        error = "invalid tolerance '" + value + "' for --weld (a number of 0 or more)";
        return false;
      }
      options.weld = true;
      options.tolerance = tolerance;
      options.convertOption = options.convertOption.empty() ? "--weld" : options.convertOption;
    } else if (isOption("--merge-coplanar")) {
      std::string value;
      if (!valueOf("--merge-coplanar", "an angle in degrees (0 to 180)", value))
        return false;
      float angle = 0.0f;
      if (!ParseNumber(value, angle) || !(angle >= 0.0f && angle <= 180.0f)) {
        error = "invalid angle '" + value + "' for --merge-coplanar (0 to 180 degrees)";
        return false;
      }
      options.mergeCoplanar = true;
      options.mergeAngle = angle;
      options.convertOption =
          options.convertOption.empty() ? "--merge-coplanar" : options.convertOption;
    } else if (arg == "--triangulate") {
      options.triangulate = true;
      options.convertOption =
          options.convertOption.empty() ? "--triangulate" : options.convertOption;
    } else if (isOption("--subdivide") || isOption("--subdivide-all")) {
      const bool all = isOption("--subdivide-all");
      const std::string name = all ? "--subdivide-all" : "--subdivide";
      std::string value;
      if (!valueOf(name, "a level (0 to 8)", value))
        return false;
      int level = -1;
      if (!ParseNumber(value, level) || level < 0 || level > kMaxPatchLevel) {
        error = "invalid level '" + value + "' for " + name + " (0 to 8)";
        return false;
      }
      if (options.subdivideLevel >= 0 && options.subdivideAll != all) {
        error = "--subdivide and --subdivide-all exclude each other";
        return false;
      }
      options.subdivideLevel = level;
      options.subdivideAll = all;
      options.convertOption = options.convertOption.empty() ? name : options.convertOption;
    } else if (arg == "--help" || arg == "--version") {
      if (options.command.empty())
        options.command = arg;
    } else if (options.command == "render") {
      options.args.emplace_back(arg); // render reads its own options
    } else {
      error = "unknown option '" + std::string(arg) + "'";
      return false;
    }
  }
  return true;
}

} // namespace

FormatSupport GetFormatSupport(unsigned classCode) {
  FormatSupport support;
  support.classCode = classCode;
  if (classCode == 0)
    return support;
  const unsigned properties = fileGetProperties(classCode);
  support.registryRead = (properties & (FILE_CAN_READ | FILE_CAN_READ_ALT)) != 0;
  support.registryWrite = (properties & (FILE_CAN_WRITE | FILE_CAN_WRITE_ALT)) != 0;
  // The registry describes types the host may handle itself; only a codec
  // registered here makes the library read or write them.
  const bool codec = fileHasCodec(classCode);
  support.read = codec && support.registryRead;
  support.write = codec && support.registryWrite;
  return support;
}

int RunTool(int argc, char** argv, Output& output) {
  Options options;
  std::string error;
  if (!ParseArguments(argc, argv, options, error)) {
    Fail(output, {}, error, kExitUsage);
    std::fputs(kUsage, output.err);
    return kExitUsage;
  }
  if (options.command.empty()) {
    std::fputs(kUsage, output.err);
    return kExitUsage;
  }
  if (!options.convertOption.empty() && options.command != "convert") {
    Fail(output, {}, options.convertOption + " is an option of convert only", kExitUsage);
    std::fputs(kUsage, output.err);
    return kExitUsage;
  }
  if (options.command == "--help" || options.command == "help") {
    std::fputs(kUsage, output.out);
    return kExitOk;
  }
  if (options.command == "--version" || options.command == "version") {
    std::fprintf(output.out, "meshcore %s\n", GetVersionString());
    return kExitOk;
  }
  output.silent = output.silent || options.silent;

  CToolHost host(output);
  SetMeshcoreHost(&host);
  if (!options.lang.empty())
    SetLanguage(options.lang);
  InitMeshcore();
  InstallInterruptHandler();

  int status = kExitOk;
  if (options.command == "info")
    status = RunInfo(output, host, options);
  else if (options.command == "convert")
    status = RunConvert(output, host, options);
  else if (options.command == "formats")
    status = RunFormats(output, options);
  else if (options.command == "demo")
    status = RunDemo(output, host, options);
  else if (options.command == "render")
    status = RunRender(output, options.args, [&](const std::string& file, int& fileStatus) {
      return ReadScene(output, host, options, file, fileStatus);
    });
  else {
    Fail(output, {}, "unknown command '" + options.command + "'", kExitUsage);
    std::fputs(kUsage, output.err);
    status = kExitUsage;
  }

  RestoreInterruptHandler();
  CloseMeshcore();
  SetMeshcoreHost(nullptr);
  std::fflush(output.out);
  return status;
}

} // namespace meshcore::tool

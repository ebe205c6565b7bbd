#include "meshcore/io/cancel.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/io/io_file.h"
#include "meshcore/platform/host.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/platform/thread_id.h"
#include "meshcore/scene/scene.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <thread>

using namespace meshcore;
namespace fs = std::filesystem;

namespace {

constexpr unsigned kTestClass = fileMakeClassCode("TSTC");
constexpr unsigned kReadOnlyClass = fileMakeClassCode("TSTR");
constexpr unsigned kOptionTag = fileMakeClassCode("OPT1");
constexpr unsigned kIoClassTag = fileMakeClassCode("IOCL");

// What the test codec does, chosen by the file's name so that threads can run
// different cases at once.
struct CodecLog {
  std::atomic<int> loadDialogs{0};
  std::atomic<unsigned> lastReadFlags{0xFFFFFFFF};
  std::atomic<int> lastOption{-1};
};
CodecLog g_log;

// Set by the codec of a "block" file once it runs, and released by the test.
std::atomic<int> g_blockedRunning{0};
std::atomic<bool> g_releaseBlocked{false};

bool NameHas(const std::string& name, const char* part) {
  return name.find(part) != std::string::npos;
}

class TestCodec : public C3DParser {
public:
  using C3DParser::C3DParser;
  int LoadOptionsDialog() override {
    ++g_log.loadDialogs;
    return 0; // dismissed: the read must go ahead anyway
  }
  C3DScene* Read(const std::string& name, unsigned flags) override {
    g_log.lastReadFlags = flags;
    int option = -1;
    GetCustomData()->GetInt(kOptionTag, option, -1);
    g_log.lastOption = option;
    if (NameHas(name, "throw"))
      throw std::runtime_error("broken");
    if (NameHas(name, "block")) {
      ++g_blockedRunning;
      while (!g_releaseBlocked.load()) {
        if (ShouldCancel()) {
          SetIoError(IO_FILE_CANCELLED);
          return nullptr;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    }
    return new C3DScene;
  }
  int Save(const std::string& name, C3DScene*, unsigned) override {
    IoFile file(1, 0);
    if (!file.OpenFile(name, 0)) {
      SetIoError(IO_FILE_CANT_OPEN);
      return 0;
    }
    file.WriteString(NameHas(name, "fail") || NameHas(name, "throw") ? "partial" : "new");
    file.CloseFile(); // committed: only the front end can still undo it
    if (NameHas(name, "throw"))
      throw std::runtime_error("broken");
    if (NameHas(name, "cancel") && ShouldCancel()) {
      SetIoError(IO_FILE_CANCELLED);
      return 0;
    }
    if (NameHas(name, "fail")) {
      SetIoError(IO_FILE_DISK_FULL);
      return 0;
    }
    return 1;
  }
};

class ReadOnlyCodec : public C3DParser {
public:
  using C3DParser::C3DParser;
  C3DScene* Read(const std::string&, unsigned) override { return new C3DScene; }
};

class RecordingHost : public CMeshcoreHost {
public:
  int MessageBox(HostWindow, const std::string& text, const std::string& title, unsigned) override {
    messages.push_back(title + ": " + text);
    return answerOk;
  }
  std::vector<std::string> messages;
};

struct HostGuard {
  explicit HostGuard(CMeshcoreHost* h) { SetMeshcoreHost(h); }
  ~HostGuard() { SetMeshcoreHost(nullptr); }
};

class Dispatch : public ::testing::Test {
protected:
  void SetUp() override {
    SetLanguage("en");
    CFileExt test("Test files", ".tstc", kTestClass, FILE_CAN_READ | FILE_CAN_WRITE | 0x4000);
    fileRegisterFile(test);
    CFileExt readOnly("Read-only test files", ".tstr", kReadOnlyClass, FILE_CAN_READ | 0x4000);
    fileRegisterFile(readOnly);
    fileRegisterCodec(kTestClass, [](CFileIo& io) { return std::make_unique<TestCodec>(io); });
    fileRegisterCodec(kReadOnlyClass,
                      [](CFileIo& io) { return std::make_unique<ReadOnlyCodec>(io); });
    m_dir = test::ScratchDir(
        "dispatch_" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    m_home.emplace("MESHCORE_HOME", (m_dir / "home").string());
  }
  void TearDown() override {
    m_home.reset();
    SetLanguage("");
  }
  std::string File(const std::string& name) const { return (m_dir / name).string(); }

  fs::path m_dir;
  std::optional<test::ScopedEnv> m_home;
};

std::string ReadAll(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), {});
}

int FileCount(const fs::path& dir) {
  int n = 0;
  for (const auto& e : fs::directory_iterator(dir))
    n += e.is_regular_file() ? 1 : 0;
  return n;
}

} // namespace

TEST_F(Dispatch, TypesWithoutCodecAnswerUnknownType) {
  C3DIo unregistered(File("model.xyz"),
                     FILE_PARSER_LOADING | FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  EXPECT_EQ(unregistered.Read(), nullptr);
  EXPECT_EQ(unregistered.GetIoError(), IO_FILE_UNKNOWN_TYPE);
  EXPECT_EQ(unregistered.GetParser(), nullptr);

  // A codec that only reads refuses to save through the base class.
  C3DScene scene;
  C3DIo readOnly(File("model.tstr"), FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  readOnly.ReportIoError("stale text");
  EXPECT_EQ(readOnly.Save(0, &scene), 0);
  EXPECT_EQ(readOnly.GetIoErrorTxt(), "Unknown file type"); // the stale text is gone
  EXPECT_FALSE(fs::exists(File("model.tstr")));
  EXPECT_EQ(scene.GetFilename(), "");
}

TEST_F(Dispatch, ReadAndSaveSequences) {
  RecordingHost host;
  HostGuard guard(&host);
  const std::string name = File("scene.tstc");

  C3DIo reader(name, FILE_PARSER_LOADING | FILE_PARSER_NO_PREFS);
  g_log.loadDialogs = 0;
  std::unique_ptr<C3DScene> scene(reader.Read(1, 0xFF));
  ASSERT_NE(scene, nullptr);
  EXPECT_EQ(scene->GetFilename(), name);
  EXPECT_EQ(g_log.lastReadFlags.load(), 0u); // the caller's flags stay with the front end
  EXPECT_EQ(g_log.loadDialogs.load(), 1);    // dismissed dialog, read went ahead
  EXPECT_EQ(reader.GetIoError(), IO_FILE_OK);
  ASSERT_NE(reader.GetParser(), nullptr);
  EXPECT_EQ(reader.GetParser()->GetParametersInfo(), "No parameters\n");

  reader.SetSilentMode(1);
  scene.reset(reader.Read(1));
  EXPECT_EQ(g_log.loadDialogs.load(), 1); // silent: no dialog

  // An exception from the codec is a bad format, reported unless silent.
  C3DIo thrower(File("throw.tstc"), FILE_PARSER_LOADING | FILE_PARSER_NO_PREFS);
  EXPECT_EQ(thrower.Read(), nullptr);
  EXPECT_EQ(thrower.GetIoError(), IO_FILE_BAD_FORMAT);
  ASSERT_EQ(host.messages.size(), 1u);
  EXPECT_EQ(host.messages[0], "File access failed: Bad file format");
  thrower.SetSilentMode(1);
  EXPECT_EQ(thrower.Read(), nullptr);
  EXPECT_EQ(host.messages.size(), 1u);

  // Saving: success stamps the name; an exception is swallowed without
  // touching the error code or telling the user.
  C3DScene out;
  C3DIo writer(File("out.tstc"), FILE_PARSER_NO_PREFS);
  EXPECT_EQ(writer.Save(0, &out), 1);
  EXPECT_EQ(out.GetFilename(), File("out.tstc"));
  EXPECT_EQ(ReadAll(File("out.tstc")), "new");
  C3DIo throwingWriter(File("throw_out.tstc"), FILE_PARSER_NO_PREFS);
  EXPECT_EQ(throwingWriter.Save(1, &out), 0);
  EXPECT_EQ(throwingWriter.GetIoError(), IO_FILE_OK);
  EXPECT_EQ(host.messages.size(), 1u);
}

TEST_F(Dispatch, ErrorTextsInBothLanguages) {
  struct Row {
    int code;
    const char* en;
    const char* fr;
  };
  const Row rows[] = {
      {IO_FILE_CANT_OPEN, "", ""},
      {IO_FILE_UNKNOWN_TYPE, "Unknown file type", "Type de fichier inconnu"},
      {IO_FILE_BAD_FORMAT, "Bad file format", "Mauvais format de fichier"},
      {IO_FILE_NO_MEMORY, "No enough memory", "Pas assez de mémoire"},
      {IO_FILE_DISK_FULL, "Disk full", "Disque plein"},
      {IO_FILE_ACCESS_DENIED, "Unauthorized access", "Accès non autorisé"},
      {IO_FILE_EMPTY, "An unknown error occurs during file access",
       "Une erreur inconnue s'est produite lors de l'accès au fichier"},
      {IO_FILE_CANT_SAVE_OPTIONS, "Can't save in this format with these options",
       "Enregistrement impossible dans ce format  avec ces options"},
      {IO_FILE_CANCELLED, "Operation canceled", "Opération interrompue"},
      {-10, "An unknown error occurs during file access",
       "Une erreur inconnue s'est produite lors de l'accès au fichier"},
      {IO_FILE_OK, "An unknown error occurs during file access",
       "Une erreur inconnue s'est produite lors de l'accès au fichier"},
  };
  CFileIo io(File("a.tstc"), FILE_PARSER_SILENT);
  for (const Row& row : rows) {
    io.SetIoError(row.code);
    SetLanguage("en");
    EXPECT_EQ(io.GetIoErrorTxt(), row.en) << row.code;
    SetLanguage("fr");
    EXPECT_EQ(io.GetIoErrorTxt(), row.fr) << row.code;
  }
  SetLanguage("en");

  // An override text wins until a codec failure clears it.
  RecordingHost host;
  HostGuard guard(&host);
  EXPECT_EQ(io.ReportIoError("Custom"), 1);
  EXPECT_TRUE(host.messages.empty()); // silent
  EXPECT_EQ(io.GetIoErrorTxt(), "Custom");
  io.SetSilentMode(0);
  io.ReportIoError("Shown");
  ASSERT_EQ(host.messages.size(), 1u);
  EXPECT_EQ(host.messages[0], "File access failed: Shown");
  C3DIo failing(File("missing.xyz"), FILE_PARSER_LOADING | FILE_PARSER_NO_PREFS);
  failing.ReportIoError("Custom");
  failing.Read();
  EXPECT_EQ(failing.GetIoErrorTxt(), "Unknown file type");
  EXPECT_EQ(host.messages.size(), 2u); // an unknown type is never reported by Read
}

TEST_F(Dispatch, ParametersKeptPerClassAndDirection) {
  const std::string prefs = CFileIo::GetIoPrefsFile();
  EXPECT_EQ(fs::path(prefs), m_dir / "home" / "meshcoreio.prefs");

  // Flag 8: nothing is written or read, and both calls still succeed.
  CFileIo noPrefs(File("a.tstc"), FILE_PARSER_NO_PREFS);
  CCustomData data;
  data.SetInt(kOptionTag, 1);
  EXPECT_EQ(noPrefs.SaveIoParameters(1, data, kTestClass), 1);
  EXPECT_FALSE(fs::exists(prefs));
  EXPECT_FALSE(data.HasData(kIoClassTag));

  CFileIo io(File("a.tstc"), 0);
  auto save = [&](int loading, unsigned classCode, int value) {
    CCustomData d;
    d.SetInt(kOptionTag, value);
    return io.SaveIoParameters(loading, d, classCode);
  };
  ASSERT_EQ(save(1, kTestClass, 11), 1);
  ASSERT_EQ(save(0, kTestClass, 12), 1);
  ASSERT_EQ(save(1, kReadOnlyClass, 21), 1);
  ASSERT_EQ(save(1, kTestClass, 13), 1); // replaces the first set
  auto load = [&](CFileIo& from, int loading, unsigned classCode) {
    CCustomData d;
    int value = -1;
    if (!from.LoadIoParameters(loading, d, classCode))
      return -2;
    unsigned storedClass = 0;
    d.GetUInt(kIoClassTag, storedClass);
    EXPECT_EQ(storedClass, classCode);
    d.GetInt(kOptionTag, value, -1);
    return value;
  };
  EXPECT_EQ(load(io, 1, kTestClass), 13);
  EXPECT_EQ(load(io, 0, kTestClass), 12);
  EXPECT_EQ(load(io, 1, kReadOnlyClass), 21);
  EXPECT_EQ(load(io, 0, kReadOnlyClass), -2);
  const auto stamp = fs::last_write_time(prefs);
  const std::string bytes = ReadAll(prefs);

  CCustomData untouched;
  untouched.SetInt(kOptionTag, 99);
  EXPECT_EQ(noPrefs.LoadIoParameters(1, untouched, kTestClass), 1);
  int value = 0;
  untouched.GetInt(kOptionTag, value);
  EXPECT_EQ(value, 99);
  EXPECT_EQ(noPrefs.SaveIoParameters(1, untouched, kTestClass), 1);
  EXPECT_EQ(ReadAll(prefs), bytes);
  EXPECT_EQ(fs::last_write_time(prefs), stamp);

  // The front end hands the stored set for its direction to the codec.
  C3DIo reader(File("scene.tstc"), FILE_PARSER_LOADING | FILE_PARSER_SILENT);
  std::unique_ptr<C3DScene>(reader.Read()).reset();
  EXPECT_EQ(g_log.lastOption.load(), 13);
  C3DIo noPrefsReader(File("scene.tstc"),
                      FILE_PARSER_LOADING | FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  std::unique_ptr<C3DScene>(noPrefsReader.Read()).reset();
  EXPECT_EQ(g_log.lastOption.load(), -1);
}

TEST_F(Dispatch, FailedSaveLeavesThePreviousFile) {
  C3DScene scene;
  auto saveAs = [&](const std::string& name) {
    C3DIo io(File(name), FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
    const int result = io.Save(0, &scene);
    return std::make_pair(result, io.GetIoError());
  };
  for (const char* name : {"fail.tstc", "throw.tstc", "cancel_fail.tstc"}) {
    std::ofstream(File(name)) << "old";
  }
  EXPECT_EQ(saveAs("fail.tstc"), std::make_pair(0, int(IO_FILE_DISK_FULL)));
  EXPECT_EQ(ReadAll(File("fail.tstc")), "old");
  EXPECT_EQ(saveAs("throw.tstc").first, 0);
  EXPECT_EQ(ReadAll(File("throw.tstc")), "old");

  // No file before: a failed save leaves none.
  EXPECT_EQ(saveAs("fail_new.tstc").first, 0);
  EXPECT_FALSE(fs::exists(File("fail_new.tstc")));

  // A codec that stops on the cancel request fails, and the old file stays; one
  // that finished writing before it looked has saved, and says so.
  std::ofstream(File("late.tstc")) << "old";
  SetCancel(1, 0);
  const auto cancelled = saveAs("cancel_fail.tstc");
  const auto late = saveAs("late.tstc");
  SetCancel(0, 0);
  EXPECT_EQ(cancelled, std::make_pair(0, int(IO_FILE_CANCELLED)));
  EXPECT_EQ(ReadAll(File("cancel_fail.tstc")), "old");
  EXPECT_EQ(late, std::make_pair(1, int(IO_FILE_OK)));
  EXPECT_EQ(ReadAll(File("late.tstc")), "new");
  EXPECT_EQ(FileCount(m_dir), 4); // no backups or temporaries left behind
}

TEST_F(Dispatch, CancelStopsOnlyTheNamedThread) {
  g_blockedRunning = 0;
  g_releaseBlocked = false;
  struct Worker {
    std::atomic<std::uint32_t> threadId{0};
    std::atomic<bool> done{false};
    int error = 0;
    bool gotScene = false;
    std::thread thread;
  };
  Worker workers[2];
  for (Worker& w : workers) {
    w.thread = std::thread([this, &w] {
      w.threadId = GetCurrentThreadId32();
      C3DIo io(File("block.tstc"), FILE_PARSER_LOADING | FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
      std::unique_ptr<C3DScene> scene(io.Read());
      w.gotScene = scene != nullptr;
      w.error = io.GetIoError();
      w.done = true;
    });
  }
  while (g_blockedRunning.load() < 2)
    std::this_thread::yield();

  EXPECT_EQ(SetCancel(1, static_cast<int>(workers[0].threadId.load())), 1);
  EXPECT_EQ(ShouldCancel(), 0); // the caller's own thread is not affected
  workers[0].thread.join();
  EXPECT_FALSE(workers[0].gotScene);
  EXPECT_EQ(workers[0].error, IO_FILE_CANCELLED);
  EXPECT_FALSE(workers[1].done.load()); // still reading

  g_releaseBlocked = true;
  workers[1].thread.join();
  EXPECT_TRUE(workers[1].gotScene);
  EXPECT_EQ(workers[1].error, IO_FILE_OK);
  EXPECT_EQ(SetCancel(0, static_cast<int>(workers[0].threadId.load())), 1);
  EXPECT_EQ(SetCancel(0, static_cast<int>(workers[0].threadId.load())), 0);

  // Thread id 0 names the caller.
  SetCancel(1, 0);
  EXPECT_EQ(ShouldCancel(), 1);
  int other = -1;
  std::thread([&] { other = ShouldCancel(); }).join();
  EXPECT_EQ(other, 0);
  SetCancel(0, 0);
  EXPECT_EQ(ShouldCancel(), 0);
}

TEST_F(Dispatch, NumberedSeries) {
  for (const char* name :
       {"walk001.tstc", "walk002.TSTC", "walk010.tstc", "walk7.tstc", "walk003.obj", "run001.tstc"})
    std::ofstream(File(name)) << "x";
  fs::create_directory(m_dir / "walk100.tstc");

  CFileIo io(File("walk002.TSTC"), FILE_PARSER_SILENT);
  std::vector<std::string> names;
  ASSERT_EQ(io.GetFileList(names, nullptr, nullptr, 1), 1);
  // Search order is by name; the list comes out reversed.
  EXPECT_EQ(names, (std::vector<std::string>{"walk7.tstc", "walk010.tstc", "walk002.TSTC",
                                             "walk001.tstc"}));
  names.clear();
  auto skipShort = [](const std::string& n, void*) {
    return n.find("walk7") == std::string::npos ? 1 : 0;
  };
  ASSERT_EQ(io.GetFileList(names, skipShort, nullptr, 0), 1);
  EXPECT_EQ(names.size(), 3u);
  EXPECT_EQ(names.back(), File("walk001.tstc"));
  names.clear();
  CFileIo none(File("jump01.tstc"), 0);
  EXPECT_EQ(none.GetFileList(names, nullptr, nullptr, 1), 0);

  char found[CFileIo::kMaxPath];
  ASSERT_EQ(io.FindMatchingFile(found, File("walk555.tstc").c_str(), nullptr), 1);
  EXPECT_EQ(std::string(found), File("walk001.tstc")); // first with three digits
  ASSERT_EQ(io.FindMatchingFile(found, File("walk555.tstc").c_str(), "obj"), 1);
  EXPECT_EQ(std::string(found), File("walk003.obj"));
  EXPECT_EQ(io.FindMatchingFile(found, File("walk55.tstc").c_str(), nullptr), 0);
}

TEST_F(Dispatch, AskingAboutAFormatWithoutAFile) {
  // The name is the bare main extension, which still names the type.
  CFileExt dialogs("Dialog test files", ".tstd", fileMakeClassCode("TSTD"),
                   FILE_CAN_READ | FILE_READ_DIALOG | FILE_WRITE_OPTIONS | 0x4000);
  fileRegisterFile(dialogs);
  CFileIo byClass(fileMakeClassCode("TSTD"), FILE_PARSER_LOADING);
  EXPECT_EQ(byClass.GetCompleteName(), ".tstd");
  TestCodec reading(byClass);
  EXPECT_EQ(reading.MustShowDialog(), IO_MUST_SHOW_DIALOG);
  byClass.SetFlag(FILE_PARSER_LOADING, 0);
  EXPECT_EQ(reading.MustShowDialog(), IO_NO_DIALOG); // options, but no dialog required
  EXPECT_EQ(CFileIo::HasDialog(fileMakeClassCode("TSTD"), 0), IO_HAS_OPTIONS);
}

#include "meshcore/io/io_file.h"

#include "meshcore/platform/exceptions.h"
#include "meshcore/platform/host.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>

using namespace meshcore;
namespace fs = std::filesystem;

namespace {

void WriteBytes(const fs::path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
}

std::string ReadBytes(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), {});
}

std::vector<std::string> Listing(const fs::path& dir) {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(dir))
    names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

class RecordingHost : public CMeshcoreHost {
public:
  HostWindow GetMainWindow() override { return window; }
  int MessageBox(HostWindow, const std::string& text, const std::string&, unsigned) override {
    messages.push_back(text);
    return answerOk;
  }
  void BeginWaitCursor(HostWindow) override { ++waits; }
  void EndWaitCursor(HostWindow) override { --waits; }

  HostWindow window = nullptr;
  std::vector<std::string> messages;
  int waits = 0;
};

struct HostGuard {
  explicit HostGuard(CMeshcoreHost* h) { SetMeshcoreHost(h); }
  ~HostGuard() { SetMeshcoreHost(nullptr); }
};

} // namespace

TEST(IoFile, BigEndianReadsAndWrites) {
  const fs::path dir = test::ScratchDir("io_file_endian");
  const std::string name = (dir / "values.bin").string();

  IoFile out;
  ASSERT_EQ(out.OpenFile(name, 0), 1);
  const float floats[3] = {1.0f, 2.0f, 3.0f};
  out.FileReverseWrite(floats, 3, 4);
  EXPECT_EQ(floats[0], 1.0f);           // the caller's values are not disturbed
  const std::uint32_t tag = 0x464F524D; // "FORM"
  out.FileReverseWrite(&tag, 4);
  EXPECT_EQ(tag, 0x464F524Du);
  out.WriteShort(0x0102);
  out.WriteInt(0x03040506);
  out.WriteChar('x');
  out.WriteFloat(1.0f);
  EXPECT_EQ(out.FileGetPosition(), 12u + 4 + 2 + 4 + 1 + 4);
  out.CloseFile();
  EXPECT_EQ(out.GetWriteError(), 0);

  const std::string bytes = ReadBytes(name);
  const std::string expected("\x3F\x80\x00\x00\x40\x00\x00\x00\x40\x40\x00\x00"
                             "FORM\x02\x01\x06\x05\x04\x03x\x00\x00\x80\x3F",
                             27);
  EXPECT_EQ(bytes, expected);

  for (int inMemory = 0; inMemory < 2; ++inMemory) {
    IoFile in(1, inMemory);
    ASSERT_EQ(in.OpenFile(name, 1), 1);
    float back[3] = {};
    EXPECT_EQ(in.FileReverseRead(back, 3, 4), 1);
    EXPECT_EQ(back[1], 2.0f);
    std::uint32_t id = 0;
    EXPECT_EQ(in.FileReverseRead(&id, 4), 1);
    EXPECT_EQ(id, tag);

    // A short read fails and reverses nothing.
    in.FileSeek(static_cast<std::uint64_t>(-3), 2);
    EXPECT_EQ(in.FileGetPosition(), 24u);
    std::uint8_t tail[4] = {9, 9, 9, 9};
    EXPECT_EQ(in.FileReverseRead(tail, 4), 0);
    EXPECT_EQ(tail[0], 0x00);
    EXPECT_EQ(tail[2], 0x3F);

    in.FileSeek(16, 0);
    in.FileSeek(2, 1);
    std::int32_t value = 0;
    EXPECT_EQ(in.FileRead(&value, 4), 1);
    EXPECT_EQ(value, 0x03040506);
    in.CloseFile();
  }
}

TEST(IoFile, WholeFileLoadingAndItsLimit) {
  const fs::path dir = test::ScratchDir("io_file_memory");
  const fs::path text = dir / "lines.txt";
  WriteBytes(text, "first\r\nsecond\nlast");

  IoFile memory(1, 1);
  ASSERT_EQ(memory.OpenFile(text.string(), 1), 1);
  std::string line;
  EXPECT_EQ(memory.ReadString(line), 0); // the disk file was consumed by the load
  char first[5];
  EXPECT_EQ(memory.FileRead(first, 5), 1);
  EXPECT_EQ(std::string(first, 5), "first");
  memory.CloseFile();

  IoFile disk;
  disk.SetTextMode();
  ASSERT_EQ(disk.OpenFile(text.string(), 1), 1);
  std::vector<std::string> lines;
  while (disk.ReadString(line))
    lines.push_back(line);
  EXPECT_EQ(lines, (std::vector<std::string>{"first", "second", "last"}));
  disk.CloseFile();

  // Sparse files: the limit itself still loads, one byte more reads from disk.
  const fs::path big = dir / "big.bin";
  WriteBytes(big, "");
  fs::resize_file(big, IoFile::kMaxInMemorySize);
  IoFile atLimit(1, 1);
  ASSERT_EQ(atLimit.OpenFile(big.string(), 1), 1);
  EXPECT_EQ(atLimit.IsInMemory(), 1);
  atLimit.CloseFile();

  fs::resize_file(big, IoFile::kMaxInMemorySize + 1);
  IoFile over(1, 1);
  ASSERT_EQ(over.OpenFile(big.string(), 1), 1);
  EXPECT_EQ(over.IsInMemory(), 0);
  over.CloseFile();
  fs::remove(big);
}

TEST(IoFile, SavingReplacesTheTargetOnlyWhenTheWriteSucceeds) {
  const fs::path dir = test::ScratchDir("io_file_save");
  const fs::path target = dir / "scene.txt";
  WriteBytes(target, "old contents");

  IoFile out;
  out.SetTextMode();
  ASSERT_EQ(out.OpenFile(target.string(), 0), 1);
  out.WriteString("new contents\n");
  EXPECT_EQ(ReadBytes(target), "old contents"); // nothing replaced before the close
  out.CloseFile();
  EXPECT_EQ(out.GetWriteError(), 0);
  EXPECT_EQ(ReadBytes(target), "new contents\n");
  EXPECT_EQ(Listing(dir), (std::vector<std::string>{"scene.txt"}));

  // A write error (here the process's file-size limit) keeps the old file and
  // leaves no temporary file behind.
  struct rlimit saved {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
  const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
  IoFile failing;
  ASSERT_EQ(failing.OpenFile(target.string(), 0), 1);
  struct rlimit small = saved;
  small.rlim_cur = 4096;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const std::vector<char> block(64 * 1024, 'z');
  for (int i = 0; i < 4; ++i)
    failing.FileWrite(block.data(), static_cast<unsigned>(block.size()));
  failing.CloseFile();
  setrlimit(RLIMIT_FSIZE, &saved);
  std::signal(SIGXFSZ, oldHandler);
  EXPECT_EQ(failing.GetWriteError(), CFileException::diskFull);
  EXPECT_EQ(ReadBytes(target), "new contents\n");
  EXPECT_EQ(Listing(dir), (std::vector<std::string>{"scene.txt"}));

  // A copy shares the open streams; closing one is enough.
  IoFile first;
  ASSERT_EQ(first.OpenFile((dir / "shared.bin").string(), 0), 1);
  {
    IoFile second(first);
    second.WriteInt(7);
    second.CloseFile();
  }
  EXPECT_EQ(ReadBytes(dir / "shared.bin").size(), 4u);
}

TEST(IoFile, OpenFailuresAreReportedOnceUnlessSilent) {
  RecordingHost host;
  HostGuard guard(&host);
  const fs::path dir = test::ScratchDir("io_file_errors");
  const std::string missing = (dir / "missing.lwo").string();

  IoFile silent;
  EXPECT_EQ(silent.OpenFile(missing, 1), 0);
  EXPECT_TRUE(host.messages.empty());

  IoFile loud(0, 0);
  EXPECT_EQ(loud.OpenFile(missing, 1), 0);
  ASSERT_EQ(host.messages.size(), 1u);
  EXPECT_NE(host.messages[0].find(missing), std::string::npos);
  EXPECT_EQ(host.messages[0].find("%1"), std::string::npos);

  host.messages.clear();
  EXPECT_EQ(loud.OpenFile((dir / "no" / "such.lwo").string(), 0), 0);
  EXPECT_EQ(host.messages.size(), 1u);

  // Reading and writing failures name different prompts.
  const CFileException denied(CFileException::accessDenied);
  loud.OpenFile(missing, 1);
  host.messages.clear();
  loud.ReportError(&denied);
  const CUserException cancelled;
  loud.ReportError(&cancelled);
  ASSERT_EQ(host.messages.size(), 1u);
  const std::string readDenied = host.messages[0];
  loud.OpenFile((dir / "no" / "such.lwo").string(), 0);
  host.messages.clear();
  loud.ReportError(&denied);
  ASSERT_EQ(host.messages.size(), 1u);
  EXPECT_NE(host.messages[0], readDenied);

  // The wait cursor runs from open to close, with a main window and not silent.
  host.window = reinterpret_cast<HostWindow>(&host);
  WriteBytes(dir / "present.bin", "abc");
  ASSERT_EQ(loud.OpenFile((dir / "present.bin").string(), 1), 1);
  EXPECT_EQ(host.waits, 1);
  loud.CloseFile();
  EXPECT_EQ(host.waits, 0);
  IoFile quiet;
  ASSERT_EQ(quiet.OpenFile((dir / "present.bin").string(), 1), 1);
  EXPECT_EQ(host.waits, 0);
}

TEST(IoFile, DirectorySearch) {
  const fs::path dir = test::ScratchDir("io_file_find");
  for (const char* name : {"abc1.lwo", "abc2.LWO", "abc3.lwox", "other.lwo", "x.obj", "y.objx"})
    WriteBytes(dir / name, "");
  fs::create_directories(dir / "abcdir.lwo");

  IoFile finder;
  std::string base = dir.string() + "/";
  ASSERT_EQ(finder.FindFileOpen((base + "abc.lwo").c_str(), nullptr), 1);
  std::vector<std::string> found;
  std::string name;
  int matches = -1;
  while (finder.FindFileNext(name, matches, 1)) {
    EXPECT_EQ(matches, 1);
    found.push_back(name);
  }
  EXPECT_EQ(found, (std::vector<std::string>{"abc1.lwo", "abc2.LWO", "abcdir.lwo"}));
  finder.FindFileClose();

  // A folder with a filter: the extension is checked on each result.
  ASSERT_EQ(finder.FindFileOpen(base.c_str(), "*.OBJ"), 1);
  std::vector<std::pair<std::string, int>> results;
  while (finder.FindFileNext(name, matches, 0))
    results.emplace_back(name, matches);
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0], std::make_pair(base + "x.obj", 1));

  // No filter: everything but "." and "..", folders with a trailing separator.
  ASSERT_EQ(finder.FindFileOpen(base.c_str(), nullptr), 1);
  found.clear();
  while (finder.FindFileNext(name, matches, 0)) {
    EXPECT_EQ(matches, 1);
    found.push_back(name);
  }
  EXPECT_EQ(found.size(), 7u);
  EXPECT_NE(std::find(found.begin(), found.end(), base + "abcdir.lwo/"), found.end());

  EXPECT_EQ(finder.FindFileOpen((base + "zzz.lwo").c_str(), nullptr), 0);
  EXPECT_EQ(finder.FindFileNext(name, matches, 0), 0);

  EXPECT_TRUE(CFileFinder::Matches("Frame01.LWO", "frame*.lwo"));
  EXPECT_TRUE(CFileFinder::Matches("a.b.c", "a*c"));
  EXPECT_FALSE(CFileFinder::Matches("frame.lwox", "frame*.lwo"));
  EXPECT_TRUE(CFileFinder::Matches("ab", "a?"));
  EXPECT_FALSE(CFileFinder::Matches("a", "a?"));
}

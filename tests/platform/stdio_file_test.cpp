#include "meshcore/platform/archive.h"
#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/exceptions.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <sys/resource.h>

namespace meshcore {

namespace fs = std::filesystem;

namespace {

std::string Slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void Put(const fs::path& p, const std::string& text) {
  std::ofstream(p, std::ios::binary) << text;
}

std::size_t FileCount(const fs::path& dir) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(dir), {}));
}

} // namespace

TEST(StdioFile, WritesReplaceTheTargetOnlyOnClose) {
  const fs::path dir = test::ScratchDir("stdio_commit");
  const fs::path target = dir / "model.bin";
  Put(target, "original");

  {
    CStdioFile f;
    ASSERT_TRUE(f.Open(target.string(), CStdioFile::modeWrite));
    CArchive ar(&f, CArchive::store);
    ar << std::string("new content") << std::uint32_t{7};
    ar.Flush();
    EXPECT_EQ(Slurp(target), "original"); // not yet committed
    f.Close();
  }
  {
    CStdioFile f;
    ASSERT_TRUE(f.Open(target.string(), CStdioFile::modeRead));
    EXPECT_EQ(f.GetLength(), 16u);
    CArchive ar(&f, CArchive::load);
    std::string s;
    std::uint32_t v = 0;
    ar >> s >> v;
    EXPECT_EQ(s, "new content");
    EXPECT_EQ(v, 7u);
    EXPECT_EQ(ar.Remaining(), 0u);
    EXPECT_THROW(ar >> v, CArchiveException);
  }
  // Abandoned writes (Abort, or destruction without Close) leave the target alone.
  {
    CStdioFile f;
    ASSERT_TRUE(f.Open(target.string(), CStdioFile::modeWrite));
    f.Write("xx", 2);
    f.Abort();
  }
  {
    CStdioFile f;
    ASSERT_TRUE(f.Open(target.string(), CStdioFile::modeWrite));
    f.Write("yy", 2);
  }
  EXPECT_EQ(Slurp(target).size(), 16u);
  EXPECT_EQ(FileCount(dir), 1u); // no temporary file left over
}

TEST(StdioFile, FailedWriteLeavesTheTargetIntact) {
  const fs::path dir = test::ScratchDir("stdio_fail");
  const fs::path target = dir / "scene.bin";
  Put(target, "keep me");

  // Make the write fail as on a full disk: a small file size limit.
  auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit old{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
  rlimit small = old;
  small.rlim_cur = 4096;
  int cause = -1;
  {
    CStdioFile f;
    ASSERT_TRUE(f.Open(target.string(), CStdioFile::modeWrite));
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const std::string block(1 << 16, 'z');
    try {
      f.Write(block.data(), block.size());
      f.Close();
    } catch (const CFileException& e) {
      cause = e.m_cause;
    }
    ::setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ(f.GetWriteError(), CFileException::diskFull);
  }
  std::signal(SIGXFSZ, oldHandler);
  EXPECT_EQ(cause, CFileException::diskFull);
  EXPECT_EQ(Slurp(target), "keep me");
  EXPECT_EQ(FileCount(dir), 1u);
}

TEST(StdioFile, OpenFailuresGiveCauses) {
  const fs::path dir = test::ScratchDir("stdio_open");
  CStdioFile f;
  int cause = -1;
  EXPECT_FALSE(f.Open((dir / "missing.bin").string(), CStdioFile::modeRead, &cause));
  EXPECT_EQ(cause, CFileException::fileNotFound);
  EXPECT_FALSE(f.Open((dir / "no" / "such.bin").string(), CStdioFile::modeWrite, &cause));
  EXPECT_EQ(cause, CFileException::badPath);
  EXPECT_FALSE(f.Open(dir.string(), CStdioFile::modeRead, &cause));
  EXPECT_EQ(cause, CFileException::accessDenied);
  EXPECT_FALSE(f.IsOpen());

  Put(dir / "lines.txt", "one\r\ntwo\nthree");
  ASSERT_TRUE(f.Open((dir / "lines.txt").string(), CStdioFile::modeRead));
  std::string line;
  std::string all;
  while (f.ReadString(line))
    all += line + "|";
  EXPECT_EQ(all, "one|two|three|");
  EXPECT_THROW(f.Write("x", 1), CFileException);
}

TEST(MemFile, ReadWriteSeek) {
  CMemFile mem;
  mem.Write("abcdef", 6);
  mem.Seek(2);
  mem.Write("XY", 2);
  EXPECT_EQ(mem.Remaining(), 2u);
  char buf[8] = {};
  mem.Seek(0);
  EXPECT_EQ(mem.Read(buf, 8), 6u);
  EXPECT_EQ(std::string(buf, 6), "abXYef");
  EXPECT_THROW(mem.Seek(7), CFileException);
  EXPECT_EQ(mem.Detach().size(), 6u);
  EXPECT_EQ(mem.Remaining(), 0u);
}

} // namespace meshcore

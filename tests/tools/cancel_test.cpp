// Ctrl-C during the tool's reads and saves, run in-process against a codec that
// waits for the cancel request, so that the timing is the test's own.
#include "tests/tools/run_in_process.h"
#include "tools/tool.h"

#include "meshcore/io/cancel.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/io/io_file.h"
#include "meshcore/io/parser_3d.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/scene.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

using namespace meshcore;
namespace fs = std::filesystem;

namespace {

constexpr unsigned kSlowClass = fileMakeClassCode("SLOW");

// Presses Ctrl-C, then works until this thread is asked to stop (10 s at most).
bool InterruptAndWait() {
  std::raise(SIGINT);
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (std::chrono::steady_clock::now() < until) {
    if (ShouldCancel())
      return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return false;
}

class SlowCodec : public C3DParser {
public:
  using C3DParser::C3DParser;
  C3DScene* Read(const std::string& name, unsigned) override {
    if (name.find("waiting") != std::string::npos && InterruptAndWait()) {
      SetIoError(IO_FILE_CANCELLED);
      return nullptr;
    }
    auto* scene = new C3DScene;
    scene->AddNode(nullptr, new C3DSceneNode(new C3DGroup, 0));
    return scene;
  }
  int Save(const std::string& name, C3DScene*, unsigned) override {
    IoFile file(1, 0);
    if (!file.OpenFile(name, 0)) {
      SetIoError(IO_FILE_CANT_OPEN);
      return 0;
    }
    file.WriteString("partial");
    file.CloseFile();
    if (InterruptAndWait()) {
      SetIoError(IO_FILE_CANCELLED);
      return 0;
    }
    return 1;
  }
};

using test::Captured;
using test::RunInProcess;

class ToolCancel : public ::testing::Test {
protected:
  void SetUp() override {
    m_dir = test::ScratchDir("tool_cancel");
    m_home.emplace("MESHCORE_HOME", (m_dir / "home").string());
    CFileExt slow("Slow test files", ".slow", kSlowClass,
                  FILE_CAN_READ | FILE_CAN_WRITE | FILE_KIND_SCENE);
    fileRegisterFile(slow);
    fileRegisterCodec(kSlowClass, [](CFileIo& io) { return std::make_unique<SlowCodec>(io); });
    std::ofstream(File("waiting.slow")) << "x";
    std::ofstream(File("quick.slow")) << "x";
  }
  void TearDown() override { SetLanguage(""); }
  std::string File(const std::string& name) const { return (m_dir / name).string(); }

  fs::path m_dir;
  std::optional<test::ScopedEnv> m_home;
};

} // namespace

TEST_F(ToolCancel, CtrlCStopsARead) {
  const Captured c =
      RunInProcess({"info", "--lang", "en", File("waiting.slow"), File("quick.slow")});
  EXPECT_EQ(c.status, 130);
  EXPECT_NE(c.err.find("waiting.slow: Operation canceled"), std::string::npos) << c.err;
  EXPECT_TRUE(c.out.empty()) << c.out; // the files after the cancelled one are not read
  EXPECT_EQ(ShouldCancel(), 0);

  // The next run starts afresh: the earlier Ctrl-C is forgotten.
  const Captured next = RunInProcess({"info", File("quick.slow")});
  EXPECT_EQ(next.status, 0) << next.err;
  EXPECT_NE(next.out.find("nodes      1"), std::string::npos);
}

TEST_F(ToolCancel, CtrlCDuringASaveLeavesNoOutput) {
  std::ofstream(File("old.slow")) << "old";
  const Captured over =
      RunInProcess({"convert", "--lang", "fr", File("quick.slow"), File("old.slow")});
  EXPECT_EQ(over.status, 130);
  EXPECT_NE(over.err.find("old.slow: Opération interrompue"), std::string::npos) << over.err;
  std::ifstream in(File("old.slow"));
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "old");

  const Captured fresh = RunInProcess({"convert", File("quick.slow"), File("new.slow")});
  EXPECT_EQ(fresh.status, 130);
  EXPECT_FALSE(fs::exists(File("new.slow")));
  int files = 0;
  for (const auto& e : fs::directory_iterator(m_dir))
    files += e.is_regular_file() ? 1 : 0;
  EXPECT_EQ(files, 3); // waiting, quick and old: no temporaries or backups
}

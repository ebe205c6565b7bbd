// What the tool promises about file types, and how it shows a codec's account
// of a failure; run in-process so that test codecs can be registered.
#include "tests/tools/run_in_process.h"
#include "tools/tool.h"

#include "meshcore/formats/library.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/io/parser_3d.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/scene.h"
#include "tests/support/mesh_fixtures.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace meshcore;
namespace fs = std::filesystem;

namespace {

constexpr unsigned kDetailClass = fileMakeClassCode("DTLC");

// Fails every read, with a detail when the file's name asks for one.
class DetailCodec : public C3DParser {
public:
  using C3DParser::C3DParser;
  C3DScene* Read(const std::string& name, unsigned) override {
    if (name.find("detailed") != std::string::npos)
      SetIoError(IO_FILE_BAD_FORMAT, "PTAG at byte 1234: polygon 70000 of 512");
    else
      SetIoError(IO_FILE_BAD_FORMAT);
    return nullptr;
  }
};

using test::Captured;
using test::RunInProcess;

// A scene of one triangle, enough for any writer.
std::unique_ptr<C3DScene> Triangle() {
  auto scene = std::make_unique<C3DScene>();
  auto object = test::MakeMesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}});
  scene->AddNode(nullptr, new C3DSceneNode(object.release(), 0));
  return scene;
}

class ToolFormats : public ::testing::Test {
protected:
  void SetUp() override {
    m_dir = test::ScratchDir(std::string("tool_formats_") +
                             ::testing::UnitTest::GetInstance()->current_test_info()->name());
    m_home.emplace("MESHCORE_HOME", (m_dir / "home").string());
  }
  void TearDown() override { SetLanguage(""); }
  std::string File(const std::string& name) const { return (m_dir / name).string(); }

  fs::path m_dir;
  std::optional<test::ScopedEnv> m_home;
};

} // namespace

// Every type of the library's own table that the tool calls readable or
// writable has a codec that really does it: the tool never promises what it
// cannot do.
TEST_F(ToolFormats, ListedTypesHaveACodecThatDoesIt) {
  InitMeshcore();
  unsigned count = 0;
  CFileExt* types = fileGetRegisteredFiles(count);
  ASSERT_GT(count, 0u);
  int probed = 0;
  for (unsigned i = 0; i < count; ++i) {
    const CFileExt& type = types[i];
    // Types that tests register for codecs of their own are not the library's.
    if (type.GetLoader() != FILE_CLASS_LIBRARY && type.GetSaver() != FILE_CLASS_LIBRARY)
      continue;
    const tool::FormatSupport support = tool::GetFormatSupport(type.GetClass());
    const std::string cls = fileClassCodeToString(type.GetClass());
    EXPECT_TRUE(!support.read || support.registryRead) << cls;
    EXPECT_TRUE(!support.write || support.registryWrite) << cls;
    if (!support.read && !support.write) {
      EXPECT_FALSE(fileHasCodec(type.GetClass()) && (support.registryRead || support.registryWrite))
          << cls;
      continue;
    }
    const std::string ext = fileGetMainExtension(type.GetClass());
    if (support.write) {
      ++probed;
      auto scene = Triangle();
      C3DIo io(File("probe" + ext), FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
      const int result = io.SaveScene(*scene);
      EXPECT_NE(io.GetIoError(), IO_FILE_UNKNOWN_TYPE) << cls << " is listed as writable";
      EXPECT_EQ(result, 1) << cls << ": " << io.GetIoErrorTxt();
    }
    if (support.read) {
      ++probed;
      // Whatever the file holds, a reader answers with a scene or an error of
      // its own; the default answer of a codec that cannot read is neither.
      std::ofstream(File("junk" + ext)) << "not a file of this type\n";
      C3DIo io(File("junk" + ext), FILE_PARSER_LOADING | FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
      std::unique_ptr<C3DScene> scene = io.ReadScene();
      // A reader may answer a file of another kind with nothing and leave the
      // code as it was (AMAPI does), as long as it says why.
      EXPECT_TRUE(scene ||
                  (io.GetIoError() != IO_FILE_OK && io.GetIoError() != IO_FILE_UNKNOWN_TYPE) ||
                  !io.GetIoErrorDetail().empty())
          << cls << " is listed as readable";
    }
  }
  fileFreeRegisteredFiles(types);
  EXPECT_GT(probed, 0);

  // The listing says the same, and keeps the registry's word apart.
  const Captured json = RunInProcess({"formats", "--json", "--all"});
  ASSERT_EQ(json.status, 0) << json.err;
  const Captured plain = RunInProcess({"formats", "--json"});
  EXPECT_EQ(plain.out.find("\"registry\""), std::string::npos);
  for (const unsigned code :
       {fileMakeClassCode("LIGT"), fileMakeClassCode("VRML"), fileMakeClassCode("MAYA"),
        fileMakeClassCode("3DST"), fileMakeClassCode("AMAP")}) {
    const std::string cls = fileClassCodeToString(code);
    const std::size_t at = json.out.find("\"class\": \"" + cls + "\"");
    ASSERT_NE(at, std::string::npos) << cls;
    const std::string line = json.out.substr(at, json.out.find('\n', at) - at);
    const tool::FormatSupport s = tool::GetFormatSupport(code);
    const auto b = [](bool on) { return on ? std::string("true") : std::string("false"); };
    EXPECT_NE(line.find("\"read\": " + b(s.read) + ", \"write\": " + b(s.write) +
                        ", \"registry\": {\"read\": " + b(s.registryRead) +
                        ", \"write\": " + b(s.registryWrite) + "}"),
              std::string::npos)
        << line;
    if (!fileHasCodec(code)) {
      EXPECT_NE(line.find("\"read\": false, \"write\": false"), std::string::npos) << line;
    }
  }
  const Captured text = RunInProcess({"formats", "--all"});
  EXPECT_NE(text.out.find("REGISTRY"), std::string::npos);
  EXPECT_EQ(RunInProcess({"formats"}).out.find("REGISTRY"), std::string::npos);
}

TEST_F(ToolFormats, FailuresShowTheCodecsDetail) {
  CFileExt type("Detail test files", ".dtlc", kDetailClass,
                FILE_CAN_READ | FILE_CAN_WRITE | FILE_KIND_SCENE);
  fileRegisterFile(type);
  fileRegisterCodec(kDetailClass, [](CFileIo& io) { return std::make_unique<DetailCodec>(io); });
  std::ofstream(File("detailed.dtlc")) << "x";
  std::ofstream(File("plain.dtlc")) << "x";

  const Captured c =
      RunInProcess({"info", "--lang", "en", File("detailed.dtlc"), File("plain.dtlc")});
  EXPECT_EQ(c.status, 5);
  EXPECT_NE(
      c.err.find("detailed.dtlc: Bad file format (PTAG at byte 1234: polygon 70000 of 512)\n"),
      std::string::npos)
      << c.err;
  EXPECT_NE(c.err.find("plain.dtlc: Bad file format\n"), std::string::npos) << c.err;

  const Captured json =
      RunInProcess({"info", "--json", "--lang", "en", File("detailed.dtlc"), File("plain.dtlc")});
  EXPECT_NE(json.out.find("\"error\": \"Bad file format\", \"detail\": \"PTAG at byte 1234: "
                          "polygon 70000 of 512\", \"status\": 5"),
            std::string::npos)
      << json.out;
  EXPECT_NE(json.out.find("\"error\": \"Bad file format\", \"detail\": \"\", \"status\": 5"),
            std::string::npos)
      << json.out;
  fileRegisterCodec(kDetailClass, {});
}

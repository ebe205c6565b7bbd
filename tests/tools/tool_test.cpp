// The meshcore command as users run it: a separate process, its output and status.
#include "meshcore/formats/library.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/object_creator.h"
#include "meshcore/scene/scene.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct ToolRun {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs the tool through the shell as a user would; standard error goes to a
// file so that neither stream can fill up and block the other.
ToolRun RunTool(const std::vector<std::string>& args) {
  const fs::path errFile =
      fs::temp_directory_path() / ("meshcore_tool_err_" + std::to_string(getpid()));
  std::string command = MESHCORE_TOOL_PATH;
  for (const std::string& a : args)
    command += " '" + a + "'"; // no argument of these tests holds a quote
  command += " 2>" + errFile.string();
  ToolRun run;
  std::FILE* pipe = popen(command.c_str(), "r");
  if (!pipe)
    return run;
  for (int c; (c = std::fgetc(pipe)) != EOF;)
    run.out += static_cast<char>(c);
  const int raw = pclose(pipe);
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 1000 + WTERMSIG(raw);
  std::ifstream in(errFile);
  run.err.assign(std::istreambuf_iterator<char>(in), {});
  fs::remove(errFile);
  return run;
}

class Tool : public ::testing::Test {
protected:
  void SetUp() override {
    m_dir = meshcore::test::ScratchDir(
        std::string("tool_") + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    // Never the user's own folder, and messages in English whatever the machine says.
    m_home.emplace("MESHCORE_HOME", (m_dir / "home").string());
    m_lang.emplace("LANG", "C");
    m_all.emplace("LC_ALL", std::nullopt);
    m_messages.emplace("LC_MESSAGES", std::nullopt);
  }
  std::string File(const std::string& name) const { return (m_dir / name).string(); }
  static std::string Sample(const std::string& name) {
    return std::string(MESHCORE_SAMPLES_DIR) + "/lightwave/" + name;
  }

  fs::path m_dir;
  std::optional<meshcore::test::ScopedEnv> m_home, m_lang, m_all, m_messages;
};

using Corners = std::vector<std::array<float, 3>>;

// Saves scene as a Lightwave object through the library, started as the tool starts it.
bool SaveLightwave(meshcore::C3DScene& scene, const std::string& file) {
  meshcore::InitMeshcore();
  meshcore::C3DIo io(file, meshcore::FILE_PARSER_SILENT);
  return io.Save(0, &scene) == 1;
}

// Adds a node whose object has one face per entry of faces, each with corners of its own.
void AddLooseFaces(meshcore::C3DScene& scene, meshcore::C3DBaseObject* object,
                   const std::vector<Corners>& faces) {
  meshcore::C3DPointList& points = *object->GetPointList();
  meshcore::C3DFaceList& list = *object->GetFaceList();
  list.SetSize(static_cast<int>(faces.size()));
  for (std::size_t f = 0; f < faces.size(); ++f) {
    list[static_cast<int>(f)].SetSize(static_cast<int>(faces[f].size()));
    for (std::size_t k = 0; k < faces[f].size(); ++k) {
      const int i = points.GetSize();
      points.SetSize(i + 1);
      points[i] = meshcore::C3DPoint(faces[f][k][0], faces[f][k][1], faces[f][k][2]);
      list[static_cast<int>(f)][static_cast<int>(k)] = i;
    }
  }
  scene.AddNode(nullptr, new meshcore::C3DSceneNode(object, 0));
}

// Face and point counts of the meshes and patches of a file, and whether all
// their faces are triangles.
struct Geometry {
  int points = 0, faces = 0;
  bool triangles = true;
};
Geometry ReadGeometry(const std::string& file) {
  meshcore::C3DIo io(file, meshcore::FILE_PARSER_LOADING | meshcore::FILE_PARSER_SILENT);
  std::unique_ptr<meshcore::C3DScene> scene(io.Read());
  Geometry g;
  if (!scene)
    return {-1, -1, false};
  meshcore::C3DSceneNode* cursor = scene->GetFirstNode(nullptr);
  while (cursor) {
    const meshcore::C3DBaseObject* object = nullptr;
    scene->GetNextNode(object, cursor, nullptr);
    if (!object || !object->GetFaceList())
      continue;
    g.points += object->GetPointNbr();
    g.faces += object->GetFaceNbr();
    for (int f = 0; f < object->GetFaceNbr(); ++f)
      g.triangles = g.triangles && (*object->GetFaceList())[f].GetSize() == 3;
  }
  return g;
}

} // namespace

TEST_F(Tool, VersionHelpAndUsage) {
  // --version is checked by ctest's tool_version.
  ToolRun help = RunTool({"--help"});
  EXPECT_EQ(help.status, 0);
  for (const char* word :
       {"info", "convert", "formats", "demo", "--json", "--tree", "130", "--weld TOL",
        "--triangulate", "--subdivide N", "--subdivide-all N", "--merge-coplanar DEG"})
    EXPECT_NE(help.out.find(word), std::string::npos) << word;

  EXPECT_EQ(RunTool({}).status, 2);
  ToolRun bad = RunTool({"frobnicate"});
  EXPECT_EQ(bad.status, 2);
  EXPECT_NE(bad.err.find("unknown command 'frobnicate'"), std::string::npos);
  EXPECT_EQ(RunTool({"info", "--lang", "de", "x.lwo"}).status, 2);
  EXPECT_EQ(RunTool({"info"}).status, 2);
  EXPECT_EQ(RunTool({"convert", "only-one.lwo"}).status, 2);
}

TEST_F(Tool, FormatsTellWhatCanBeReadAndWritten) {
  ToolRun text = RunTool({"formats"});
  ASSERT_EQ(text.status, 0);
  auto line = [&](const std::string& cls) {
    const std::size_t at = text.out.find("\n" + cls + " ");
    return at == std::string::npos ? std::string()
                                   : text.out.substr(at + 1, text.out.find('\n', at + 1) - at - 1);
  };
  EXPECT_NE(line("LIGT").find("yes   yes"), std::string::npos) << line("LIGT");
  EXPECT_NE(line("LIGT").find(".lwo"), std::string::npos);
  EXPECT_NE(line("VRML"), "");
  EXPECT_EQ(text.out.find("Photoshop"), std::string::npos); // only 3D types by default
  EXPECT_NE(RunTool({"formats", "--all"}).out.find("Photoshop"), std::string::npos);

  ToolRun json = RunTool({"formats", "--json"});
  ASSERT_EQ(json.status, 0);
  EXPECT_NE(json.out.find("\"class\": \"LIGT\""), std::string::npos);
  EXPECT_NE(json.out.find("\"read\": true, \"write\": true"), std::string::npos);
  EXPECT_EQ(json.out.front(), '[');
}

TEST_F(Tool, InfoDescribesScenes) {
  ToolRun text = RunTool({"info", "--tree", Sample("hierarchy.lwo")});
  ASSERT_EQ(text.status, 0) << text.err;
  for (const char* part :
       {"nodes      8 (4 polygonal", "points     290", "faces      306", "materials  3", "bbox",
        "RootOfHierarchy [group]", "GrandChildOfRoot0 [polygonal, 8 points, 6 faces]"})
    EXPECT_NE(text.out.find(part), std::string::npos) << part << "\n" << text.out;

  ToolRun json = RunTool({"info", "--json", Sample("boxuv.lwo"), Sample("CellShader.lwo")});
  ASSERT_EQ(json.status, 0) << json.err;
  for (const char* key : {"\"file\"", "\"nodes\"", "\"points\": 24", "\"faces\": 6",
                          "\"materials\": 1", "\"channels\": {\"texture\": 1",
                          "\"bbox\": {\"min\": "
                          "[-0.5, -0.5, -0.5], \"max\": [0.5, 0.5, 0.5]}"})
    EXPECT_NE(json.out.find(key), std::string::npos) << key << "\n" << json.out;
  EXPECT_EQ(json.out.front(), '[');
  EXPECT_NE(json.out.find("},\n  {\"file\""), std::string::npos); // one object per file
  EXPECT_TRUE(json.err.empty()) << json.err;
}

TEST_F(Tool, ErrorsHaveTheirOwnStatus) {
  std::ofstream(File("garbage.lwo")) << "definitely not a Lightwave object";
  std::ofstream(File("notes.xyz")) << "text";

  ToolRun missing = RunTool({"info", File("missing.lwo")});
  EXPECT_EQ(missing.status, 3);
  EXPECT_NE(missing.err.find("missing.lwo"), std::string::npos);
  ToolRun unknown = RunTool({"info", File("notes.xyz")});
  EXPECT_EQ(unknown.status, 4);
  EXPECT_NE(unknown.err.find("notes.xyz: Unknown file type"), std::string::npos) << unknown.err;
  ToolRun bad = RunTool({"info", File("garbage.lwo")});
  EXPECT_EQ(bad.status, 5);
  EXPECT_NE(bad.err.find("garbage.lwo: Bad file format"), std::string::npos) << bad.err;
  EXPECT_TRUE(bad.out.empty());

  // A damaged file: the library's text, then the codec's account of where it
  // gave up when it has one.
  {
    std::ifstream in(Sample("hierarchy.lwo"), std::ios::binary);
    std::string bytes(std::istreambuf_iterator<char>(in), {});
    bytes.resize(bytes.size() * 3 / 5);
    std::ofstream(File("damaged.lwo"), std::ios::binary) << bytes;
  }
  meshcore::InitMeshcore();
  meshcore::C3DIo io(File("damaged.lwo"),
                     meshcore::FILE_PARSER_LOADING | meshcore::FILE_PARSER_SILENT);
  EXPECT_FALSE(io.ReadScene());
  const std::string detail = io.GetIoErrorDetail();
  EXPECT_EQ(detail, "FORM at byte 4: size 13382 but the file has 8026 bytes after it");
  ToolRun damaged = RunTool({"info", File("damaged.lwo")});
  EXPECT_EQ(damaged.status, 5);
  const std::string expected =
      "damaged.lwo: Bad file format" + (detail.empty() ? "" : " (" + detail + ")") + "\n";
  EXPECT_NE(damaged.err.find(expected), std::string::npos) << damaged.err;

  // Every file is tried; the first failure decides the status; JSON still lists each.
  ToolRun mixed = RunTool({"info", "--json", File("garbage.lwo"), Sample("boxuv.lwo")});
  EXPECT_EQ(mixed.status, 5);
  EXPECT_NE(mixed.out.find("\"error\": \"Bad file format\""), std::string::npos);
  EXPECT_NE(mixed.out.find("\"points\": 24"), std::string::npos);
}

TEST_F(Tool, ConvertFollowsTheOutputExtension) {
  ToolRun ok = RunTool({"convert", Sample("hierarchy.lwo"), File("copy.lwo")});
  ASSERT_EQ(ok.status, 0) << ok.err;
  EXPECT_NE(ok.out.find("290 points, 306 faces"), std::string::npos) << ok.out;
  ToolRun back = RunTool({"info", "--json", File("copy.lwo")});
  EXPECT_NE(back.out.find("\"points\": 290, \"faces\": 306, \"materials\": 3"), std::string::npos)
      << back.out;
  EXPECT_TRUE(RunTool({"convert", "--silent", Sample("boxuv.lwo"), File("quiet.lwo")}).out.empty());

  // No codec writes these: refused before reading, and nothing is created.
  ToolRun noWriter = RunTool({"convert", Sample("boxuv.lwo"), File("out.lws")});
  EXPECT_EQ(noWriter.status, 4);
  EXPECT_NE(noWriter.err.find("out.lws: Unknown file type"), std::string::npos);
  EXPECT_FALSE(fs::exists(File("out.lws")));
  EXPECT_EQ(RunTool({"convert", File("missing.lwo"), File("out.lwo")}).status, 3);
  EXPECT_FALSE(fs::exists(File("out.lwo")));
}

TEST_F(Tool, DemoSavesAndReadsBackItsScene) {
  ToolRun demo = RunTool({"demo", File("demo")});
  ASSERT_EQ(demo.status, 0) << demo.err;
  EXPECT_NE(demo.out.find("read it back"), std::string::npos);
  EXPECT_NE(demo.out.find("3 polygonal"), std::string::npos) << demo.out;
  EXPECT_NE(demo.out.find("channels   1 texture, 1 colour"), std::string::npos) << demo.out;
  EXPECT_TRUE(fs::exists(File("demo/demo.lwo")));
  // Without a folder the file goes to a temporary folder, named only by its file name.
  ToolRun temp = RunTool({"demo"});
  EXPECT_EQ(temp.status, 0);
  EXPECT_NE(temp.out.find("\ndemo.lwo\n"), std::string::npos) << temp.out;
}

TEST_F(Tool, ConvertWeldsTriangulatesAndSubdivides) {
  // Two quads and a pentagon side by side, each with corners of its own (one a
  // little off), and a separate one-quad patch.
  meshcore::C3DObjectCreator creator;
  {
    meshcore::C3DScene scene;
    AddLooseFaces(scene, creator.GetNewPolygonalObject(),
                  {{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}},
                   {{1.0002f, 0, 0}, {2, 0, 0}, {2, 1, 0}, {1, 1, 0}},
                   {{2, 0, 0}, {3, 0, 0}, {3.5f, 0.5f, 0}, {3, 1, 0}, {2, 1, 0}}});
    AddLooseFaces(scene, creator.GetNewPatchObject(),
                  {{{0, 0, 5}, {1, 0, 5}, {1, 1, 5}, {0, 1, 5}}});
    ASSERT_TRUE(SaveLightwave(scene, File("in.lwo")));
  }
  const Geometry in = ReadGeometry(File("in.lwo"));
  ASSERT_EQ(in.points, 17);
  ASSERT_FALSE(in.triangles);

  // Whatever the order on the command line, welding comes first.
  ToolRun run =
      RunTool({"convert", "--triangulate", "--weld", "0.001", File("in.lwo"), File("out.lwo")});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "weld: 4 points and 0 faces removed from 1 object\n"
                     "triangulate: 4 faces cut into 9 triangles in 2 objects\n");
  Geometry out = ReadGeometry(File("out.lwo"));
  EXPECT_TRUE(out.triangles);
  EXPECT_EQ(out.points, 9 + 4);
  EXPECT_EQ(out.faces, 7 + 2);

  // Patches alone by default (a Lightwave file keeps their control mesh), or
  // every mesh; --silent keeps the reports back.
  run = RunTool({"convert", "--subdivide=2", File("in.lwo"), File("patch.lwo")});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "subdivide: level 2, 1 object, 1 face became 16\n");
  EXPECT_EQ(ReadGeometry(File("patch.lwo")).faces, 3 + 1);
  run = RunTool({"convert", "--silent", "--triangulate", "--subdivide-all", "1", File("in.lwo"),
                 File("all.lwo")});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  out = ReadGeometry(File("all.lwo"));
  EXPECT_EQ(out.faces, 7 * 4 + 2);
  EXPECT_TRUE(out.triangles);
}

TEST_F(Tool, ConvertOperationArgumentsAreChecked) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> bad = {
      {{"--weld", "-1"}, "invalid tolerance '-1' for --weld"},
      {{"--weld", "1e3x"}, "invalid tolerance '1e3x'"},
      {{"--weld=inf"}, "invalid tolerance 'inf'"},
      {{"--subdivide", "9"}, "invalid level '9' for --subdivide (0 to 8)"},
      {{"--subdivide-all", "2.5"}, "invalid level '2.5' for --subdivide-all"},
      {{"--subdivide", "1", "--subdivide-all", "1"}, "exclude each other"},
      {{"--merge-coplanar", "181"}, "invalid angle '181' for --merge-coplanar (0 to 180"},
      {{"--merge-coplanar=-1"}, "invalid angle '-1'"},
      {{"--merge-coplanar", "nan"}, "invalid angle 'nan'"},
      // A value missing at the end of the line.
      {{"a.lwo", "b.lwo", "--weld"}, "--weld needs a tolerance"},
      {{"a.lwo", "b.lwo", "--merge-coplanar"}, "--merge-coplanar needs an angle in degrees"},
  };
  for (const auto& [options, message] : bad) {
    std::vector<std::string> args = {"convert"};
    args.insert(args.end(), options.begin(), options.end());
    if (options[0] != "a.lwo")
      args.insert(args.end(), {"a.lwo", "b.lwo"});
    const ToolRun run = RunTool(args);
    EXPECT_EQ(run.status, 2) << options.back();
    EXPECT_NE(run.err.find(message), std::string::npos) << run.err;
  }
  for (const char* option : {"--triangulate", "--merge-coplanar"}) {
    const ToolRun elsewhere = RunTool({"info", option, "5", "a.lwo"});
    EXPECT_EQ(elsewhere.status, 2);
    EXPECT_NE(elsewhere.err.find(std::string(option) + " is an option of convert only"),
              std::string::npos)
        << elsewhere.err;
  }

  // A level whose result could not be held is refused before any work, and
  // nothing is written: 272 quads times 4^8 is past the limit.
  {
    meshcore::C3DScene scene;
    std::vector<Corners> quads;
    for (int y = 0; y < 16; ++y)
      for (int x = 0; x < 17; ++x) {
        const float fx = static_cast<float>(x), fy = static_cast<float>(y);
        quads.push_back({{fx, fy, 0}, {fx + 1, fy, 0}, {fx + 1, fy + 1, 0}, {fx, fy + 1, 0}});
      }
    meshcore::C3DObjectCreator creator;
    AddLooseFaces(scene, creator.GetNewPolygonalObject(), quads);
    ASSERT_TRUE(SaveLightwave(scene, File("grid.lwo")));
  }
  const ToolRun huge =
      RunTool({"convert", "--subdivide-all", "8", File("grid.lwo"), File("huge.lwo")});
  EXPECT_EQ(huge.status, 1);
  EXPECT_NE(huge.err.find("choose a lower level"), std::string::npos) << huge.err;
  EXPECT_FALSE(fs::exists(File("huge.lwo")));
}

TEST_F(Tool, ConvertMergesCoplanarFacesAfterWeldingAndBeforeTriangulating) {
  // A unit cube of twelve triangles, each with corners of its own.
  {
    const std::vector<std::array<int, 4>> sides = {{0, 4, 6, 2}, {1, 3, 7, 5}, {0, 1, 5, 4},
                                                   {2, 6, 7, 3}, {0, 2, 3, 1}, {4, 5, 7, 6}};
    auto corner = [](int i) {
      return std::array<float, 3>{float(i & 1), float((i >> 1) & 1), float((i >> 2) & 1)};
    };
    std::vector<Corners> triangles;
    for (const auto& q : sides) {
      triangles.push_back({corner(q[0]), corner(q[1]), corner(q[2])});
      triangles.push_back({corner(q[0]), corner(q[2]), corner(q[3])});
    }
    meshcore::C3DScene scene;
    meshcore::C3DObjectCreator creator;
    AddLooseFaces(scene, creator.GetNewPolygonalObject(), triangles);
    ASSERT_TRUE(SaveLightwave(scene, File("cube.lwo")));
  }
  // Loose corners share no edge: merging alone changes nothing.
  ToolRun run = RunTool({"convert", "--merge-coplanar", "1", File("cube.lwo"), File("same.lwo")});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "merge-coplanar: 0 faces removed from 0 objects\n");
  EXPECT_EQ(ReadGeometry(File("same.lwo")).faces, 12);

  run = RunTool(
      {"convert", "--merge-coplanar=1", "--weld", "0.001", File("cube.lwo"), File("quads.lwo")});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "weld: 28 points and 0 faces removed from 1 object\n"
                     "merge-coplanar: 6 faces removed from 1 object\n");
  const Geometry quads = ReadGeometry(File("quads.lwo"));
  EXPECT_EQ(quads.faces, 6);
  EXPECT_EQ(quads.points, 8);
  EXPECT_FALSE(quads.triangles);

  // Triangulating comes after: the quads are cut again.
  run = RunTool({"convert", "--triangulate", "--merge-coplanar", "1", "--weld", "0.001",
                 File("cube.lwo"), File("again.lwo")});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.err.find("merge-coplanar: 6 faces removed from 1 object\n"
                         "triangulate: 6 faces cut into 12 triangles in 1 object\n"),
            std::string::npos)
      << run.err;
  const Geometry again = ReadGeometry(File("again.lwo"));
  EXPECT_EQ(again.faces, 12);
  EXPECT_TRUE(again.triangles);
}

// Start and end of the library as a host sees them.
#include "meshcore/formats/library.h"

#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/platform/host.h"
#include "meshcore/scene/global_settings.h"
#include "meshcore/scene/preferences.h"
#include "meshcore/scene/scene_settings.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

using namespace meshcore;
namespace fs = std::filesystem;

namespace {

class ProfileHost : public CMeshcoreHost {
public:
  int GetProfileInt(const std::string& section, const std::string& key, int def) override {
    ++reads;
    auto it = values.find(section + "/" + key);
    return it == values.end() ? def : it->second;
  }
  std::map<std::string, int> values;
  int reads = 0;
};

} // namespace

TEST(Library, InitAndCloseRunOnceEach) {
  const fs::path dir = test::ScratchDir("library_lifecycle");
  test::ScopedEnv home("MESHCORE_HOME", dir.string());
  ProfileHost host;
  host.values["Render/smooth"] = 45;
  host.values["Render/patchlevel"] = 2;
  SetMeshcoreHost(&host);
  C3DPreferences& prefs = C3DPreferences::Get3DPreferences();
  prefs.Reset();

  // Closing before starting saves nothing.
  if (!IsMeshcoreInitialized()) {
    CloseMeshcore();
    EXPECT_FALSE(fs::exists(C3DPreferences::GetPreferencesFile()));
  }

  C3DPreferences seed;
  seed.SetLWPaths({"/content"});
  ASSERT_EQ(seed.Save(), 1);

  InitMeshcore();
  EXPECT_EQ(IsMeshcoreInitialized(), 1);
  EXPECT_FLOAT_EQ(GetGlobalSmoothAngle(), SmoothDegreesToRadians(45));
  EXPECT_EQ(GetGlobalPatchLevel(), 2u);
  EXPECT_EQ(prefs.GetLWPaths(), std::vector<std::string>{"/content"});
  EXPECT_TRUE(fileHasCodec(fileMakeClassCode("LIGT")));
  EXPECT_NE(fileGetClass(".lwo"), 0u);

  // A second start reads nothing again.
  const int reads = host.reads;
  seed.SetLWPaths({"/elsewhere"});
  ASSERT_EQ(seed.Save(), 1);
  InitMeshcore();
  EXPECT_EQ(host.reads, reads);
  EXPECT_EQ(prefs.GetLWPaths(), std::vector<std::string>{"/content"});

  prefs.SetTexturePaths({"/textures"});
  CloseMeshcore();
  EXPECT_EQ(IsMeshcoreInitialized(), 0);
  C3DPreferences saved;
  saved.Init();
  EXPECT_EQ(saved.GetTexturePaths(), std::vector<std::string>{"/textures"});
  EXPECT_EQ(saved.GetLWPaths(), std::vector<std::string>{"/content"});

  fs::remove(C3DPreferences::GetPreferencesFile());
  CloseMeshcore(); // already closed: nothing written
  EXPECT_FALSE(fs::exists(C3DPreferences::GetPreferencesFile()));

  SetMeshcoreHost(nullptr);
  SetGlobalSmoothAngleValue(SmoothDegreesToRadians(kDefaultSmoothDegrees));
  SetGlobalPatchLevelValue(kDefaultPatchLevel);
  prefs.Reset();
}

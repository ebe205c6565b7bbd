#include "meshcore/scene/preferences.h"

#include "meshcore/platform/host.h"
#include "meshcore/scene/global_settings.h"
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
    auto it = values.find(section + "/" + key);
    return it == values.end() ? def : it->second;
  }
  bool WriteProfileInt(const std::string& section, const std::string& key, int value) override {
    values[section + "/" + key] = value;
    return true;
  }
  std::map<std::string, int> values;
};

struct HostGuard {
  explicit HostGuard(CMeshcoreHost* h) { SetMeshcoreHost(h); }
  ~HostGuard() {
    SetMeshcoreHost(nullptr);
    SetGlobalSmoothAngleValue(SmoothDegreesToRadians(kDefaultSmoothDegrees));
    SetGlobalPatchLevelValue(kDefaultPatchLevel);
  }
};

} // namespace

TEST(Preferences, PathListsSurviveSaveAndLoad) {
  const fs::path dir = test::ScratchDir("preferences");
  test::ScopedEnv home("MESHCORE_HOME", (dir / "user").string());
  const std::string file = C3DPreferences::GetPreferencesFile();
  EXPECT_EQ(fs::path(file), dir / "user" / "3dprefs.prefs");

  // No file yet: both lists empty, nothing created by loading.
  C3DPreferences first;
  first.Init();
  EXPECT_TRUE(first.GetTexturePaths().empty());
  EXPECT_FALSE(fs::exists(file));

  first.SetTexturePaths({"/textures", "/more textures/é"});
  first.SetLWPaths({"/lw/content"});
  first.GetStore().SetInt(0x484F5354, 7); // a host's own record rides along
  ASSERT_EQ(first.Save(), 1);             // creates the per-user folder
  ASSERT_TRUE(fs::exists(file));

  // The file is a preferences file with the library's tags.
  CCustomData raw;
  ASSERT_EQ(raw.LoadFromPrefs(file, 0x33445657, 0x50524546), 1);
  std::vector<std::string> paths;
  ASSERT_EQ(raw.GetStringArray(0x54585450, paths), 1);
  EXPECT_EQ(paths, (std::vector<std::string>{"/textures", "/more textures/é"}));
  ASSERT_EQ(raw.GetStringArray(0x4C575650, paths), 1);
  EXPECT_EQ(paths, (std::vector<std::string>{"/lw/content"}));

  C3DPreferences second;
  second.Init();
  int value = 0;
  EXPECT_EQ(second.GetStore().GetInt(0x484F5354, value), 1);

  // Init reads once: a changed file is not seen again, and a setter replaces the list.
  first.SetLWPaths({});
  ASSERT_EQ(first.Save(), 1);
  second.Init();
  EXPECT_EQ(second.GetLWPaths().size(), 1u);
  second.Reset();
  second.Init();
  EXPECT_TRUE(second.GetLWPaths().empty());
  EXPECT_EQ(second.GetTexturePaths().size(), 2u);
}

TEST(Preferences, GlobalSettingsUseTheProfile) {
  ProfileHost host;
  HostGuard guard(&host);

  LoadGlobalSettingsFromProfile(); // nothing stored: the defaults
  EXPECT_FLOAT_EQ(GetGlobalSmoothAngle(), 0.5235988f);
  EXPECT_EQ(GetGlobalPatchLevel(), 1u);
  EXPECT_TRUE(host.values.empty()); // reading writes nothing

  StoreGlobalSmoothAngle(0.7853982f);
  EXPECT_EQ(host.values["Render/smooth"], 45);
  StoreGlobalSmoothAngle(0.8f); // 45.8 degrees: truncated
  EXPECT_EQ(host.values["Render/smooth"], 45);
  // Whole degrees that went through float radians keep their value.
  for (int degrees : {1, 29, 177}) {
    StoreGlobalSmoothAngle(SmoothDegreesToRadians(degrees));
    EXPECT_EQ(host.values["Render/smooth"], degrees);
  }
  host.values["Render/smooth"] = 60;
  host.values["Render/patchlevel"] = 4;
  LoadGlobalSettingsFromProfile();
  EXPECT_FLOAT_EQ(GetGlobalSmoothAngle(), 60 * 3.1415927f / 180);
  EXPECT_EQ(GetGlobalPatchLevel(), 4u);
}

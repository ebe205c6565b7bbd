#include "meshcore/platform/host.h"
#include "meshcore/platform/user_paths.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace meshcore {

namespace fs = std::filesystem;

TEST(UserPaths, FollowTheEnvironment) {
  test::ScopedEnv xdg("XDG_CONFIG_HOME", "/x/config");
  test::ScopedEnv home("HOME", "/home/u");
  for (const char* value : {"/tmp/mh", "/tmp/mh/"}) {
    test::ScopedEnv mh("MESHCORE_HOME", value);
    EXPECT_EQ(GetUserPreferencesPath(), "/tmp/mh/");
  }
  test::ScopedEnv mh("MESHCORE_HOME", std::nullopt);
  EXPECT_EQ(GetUserPreferencesPath(), "/x/config/meshcore/");
  test::ScopedEnv noXdg("XDG_CONFIG_HOME", std::nullopt);
  EXPECT_EQ(GetUserPreferencesPath(), "/home/u/.config/meshcore/");
}

TEST(Host, DefaultProfileRoundTrip) {
  const fs::path dir = test::ScratchDir("profile") / "nested";
  test::ScopedEnv mh("MESHCORE_HOME", dir.string());
  CMeshcoreHost& host = GetMeshcoreHost();

  EXPECT_EQ(host.GetProfileInt("Render", "smooth", 30), 30);
  EXPECT_FALSE(fs::exists(dir)); // created on first write only
  EXPECT_TRUE(host.WriteProfileInt("Render", "smooth", 45));
  EXPECT_TRUE(host.WriteProfileInt("Render", "patchlevel", -2));
  EXPECT_TRUE(host.WriteProfileString("settings", "last type", "LIGT"));
  EXPECT_TRUE(host.WriteProfileString("settings", "multi", "a\\b\nc"));
  EXPECT_TRUE(host.WriteProfileInt("Render", "smooth", 46)); // overwrite
  EXPECT_FALSE(host.WriteProfileString("settings", "bad=key", "x"));

  EXPECT_EQ(host.GetProfileInt("Render", "smooth", 30), 46);
  EXPECT_EQ(host.GetProfileInt("Render", "patchlevel", 1), -2);
  EXPECT_EQ(host.GetProfileString("settings", "last type", ""), "LIGT");
  EXPECT_EQ(host.GetProfileString("settings", "multi", ""), "a\\b\nc");
  EXPECT_EQ(host.GetProfileString("settings", "absent", "dflt"), "dflt");
  EXPECT_EQ(host.GetProfileInt("settings", "last type", 9), 9); // not a number

  std::ifstream in(dir / "profile.ini", std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  EXPECT_EQ(ss.str(), "[Render]\npatchlevel=-2\nsmooth=46\n\n"
                      "[settings]\nlast type=LIGT\nmulti=a\\\\b\\nc\n\n");
}

TEST(Host, InstallAndRestore) {
  struct Recorder : CMeshcoreHost {
    int MessageBox(HostWindow, const std::string& text, const std::string& title,
                   unsigned icon) override {
      last = title + "|" + text + "|" + std::to_string(icon);
      return answerCancel;
    }
    std::string last;
  } recorder;

  CMeshcoreHost& def = GetMeshcoreHost();
  // Without an application, questions get the harmless answer.
  EXPECT_EQ(def.MessageBox(nullptr, "text", "title", CMeshcoreHost::iconExclamation),
            CMeshcoreHost::answerOk);

  SetMeshcoreHost(&recorder);
  EXPECT_EQ(GetMeshcoreHost().MessageBox(nullptr, "Disk full", "File access failed", 0x30),
            CMeshcoreHost::answerCancel);
  EXPECT_EQ(recorder.last, "File access failed|Disk full|48");
  SetMeshcoreHost(nullptr);
  EXPECT_EQ(&GetMeshcoreHost(), &def);
}

} // namespace meshcore

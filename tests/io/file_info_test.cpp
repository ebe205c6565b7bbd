#include "meshcore/io/file_info.h"

#include <gtest/gtest.h>

using namespace meshcore;

TEST(FileInfo, SplitsNamesWithEitherSeparator) {
  const CFileInfo info("C:\\models\\cars/frame012.LWO");
  EXPECT_EQ(info.GetCompleteName(), "C:/models/cars/frame012.LWO");
  EXPECT_EQ(info.GetDirectory(), "/models/cars/");
  EXPECT_EQ(info.GetPath(), "C:/models/cars/");
  EXPECT_EQ(info.GetExtension(), ".LWO");
  EXPECT_TRUE(info.IsExtension("lwo"));
  EXPECT_FALSE(info.IsExtension(".lw"));

  const CFileInfo bare("scene.tar.gz");
  EXPECT_EQ(bare.GetExtension(), ".gz");
  EXPECT_EQ(bare.GetNameWithoutExt(), "scene.tar");

  const CFileInfo folder("/tmp/models/");
  EXPECT_EQ(folder.GetFileName(), "");

  const CFileInfo hidden("/home/u/.profile");
  EXPECT_EQ(hidden.GetExtension(), "");

  const CFileInfo driveOnly("D:texture.png");
  EXPECT_EQ(driveOnly.GetDrive(), "D:");
  EXPECT_EQ(driveOnly.GetFileName(), "texture.png");
}

TEST(FileInfo, EditsAndNumberedSeries) {
  CFileInfo info("/data/walk007.lwo");
  info.SetExtension("");
  EXPECT_EQ(info.GetCompleteName(), "/data/walk007");
  info.SetExtension(".lws");
  info.SetPath("out");
  EXPECT_EQ(info.GetCompleteName(), "out/walk007.lws");
  info.SetFileName("run12.lws");
  EXPECT_EQ(info.GetCompleteName(), "out/run12.lws");

  std::string prefix, digits;
  EXPECT_EQ(info.GetDigitInfo(prefix, digits), 2);
  EXPECT_EQ(prefix, "run");
  EXPECT_EQ(digits, "12");
  EXPECT_EQ(CFileInfo::GetDigitInfo("plain", prefix, digits), 0);
  EXPECT_EQ(CFileInfo::GetDigitInfo("0042", prefix, digits), 4);
  EXPECT_EQ(prefix, "");

  std::string dir = "a/b";
  fileSlashTerminate(dir);
  fileSlashTerminate(dir);
  EXPECT_EQ(dir, "a/b/");
}

#include "meshcore/io/file_registry.h"

#include <gtest/gtest.h>

using namespace meshcore;

namespace {

constexpr unsigned Code(const char (&s)[5]) {
  return fileMakeClassCode(s);
}

// Every test starts from the built-in table alone.
class FileRegistry : public ::testing::Test {
protected:
  void SetUp() override {
    fileResetRegistry();
    fileRegisterBuiltinTypes();
  }
  void TearDown() override { fileResetRegistry(); }
};

} // namespace

TEST_F(FileRegistry, BuiltinLookups) {
  EXPECT_EQ(Code("WVFT"), 0x57564654u);
  EXPECT_EQ(fileGetClass(".OBJ"), Code("WVFT"));
  EXPECT_EQ(fileGetClass(".xyz"), 0u);
  EXPECT_EQ(fileGetMainExtension(std::string(".LWM")), ".lwo");
  std::vector<std::string> exts{"keep"};
  EXPECT_EQ(fileGetExtensionArray(Code("LIGT"), exts), 5);
  EXPECT_EQ(exts, (std::vector<std::string>{"keep", ".lwo", ".lwb", ".lw", ".lwm"}));
  EXPECT_EQ(fileGetKindOf(".htm"), 0x23000u);
  EXPECT_EQ(fileGetLoader(".ma"), FILE_CLASS_UNKNOWN);
  EXPECT_EQ(fileGetSaver(".ma"), FILE_CLASS_LIBRARY);
  EXPECT_EQ(fileGetLoader(".qel"), FILE_CLASS_LIBRARY); // 0x8 counts as writable,
  EXPECT_EQ(fileGetSaver(".qel"), FILE_CLASS_LIBRARY);  // 0x1 as readable

  CFileExt ext;
  EXPECT_EQ(fileGetFileExt(".Mp2", ext), 1);
  EXPECT_EQ(ext.GetClass(), Code("AIMG"));
  EXPECT_EQ(ext.GetDescription(), "MP3 - MPEG Audio files");
  EXPECT_EQ(fileGetExtensionInfo(Code("NONE"), ext), 0);
  EXPECT_EQ(ext.GetClass(), Code("AIMG")); // untouched

  unsigned count = 0;
  CFileExt* files = fileGetRegisteredFiles(count);
  ASSERT_EQ(count, 25u);
  EXPECT_EQ(files[0].GetDescription(), "3DS - 3D Studio files");
  for (unsigned i = 1; i < count; ++i) {
    std::string a = files[i - 1].GetDescription(), b = files[i].GetDescription();
    for (auto* s : {&a, &b})
      for (char& c : *s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_LE(a, b);
  }
  fileFreeRegisteredFiles(files);

  std::vector<std::string> writable;
  EXPECT_EQ(fileGetExtensionArrayByProperty(FILE_KIND_SCENE | FILE_CAN_WRITE, writable, 1), 7);
  EXPECT_EQ(writable.front(), ".lwo");
  std::vector<std::string> all;
  fileGetExtensionArrayByProperty(FILE_KIND_SCENE | FILE_CAN_WRITE, all, 0);
  EXPECT_EQ(all.size(), 11u); // .lwo .lwb .lw .lwm .ma .3ds .obj .dxf .wrl .cob .scn
}

TEST_F(FileRegistry, RegistrationNormalisesAndMerges) {
  CFileExt jpeg("Jpeg images", ".bmp|.JPG", Code("JPEG"), 0x1011);
  fileRegisterFile(jpeg);
  EXPECT_EQ(jpeg.GetExtension(), ".jpg|.bmp");
  EXPECT_EQ(jpeg.GetDescription(), "JPG - Jpeg images");
  EXPECT_EQ(fileGetClass(".BMP"), Code("JPEG"));

  // A new type that shares ".obj" joins the Wavefront class and inherits its
  // loader and saver with their capability bits.
  CFileExt obj("My objects", ".OBJX|.obj", Code("MINE"), 0x4000);
  fileRegisterFile(obj);
  EXPECT_EQ(obj.GetClass(), Code("WVFT"));
  EXPECT_EQ(obj.GetLoader(), FILE_CLASS_LIBRARY);
  EXPECT_EQ(obj.GetSaver(), FILE_CLASS_LIBRARY);
  EXPECT_EQ(obj.GetContents(), 0x4013u);
  EXPECT_EQ(fileGetClass(".c4d"), Code("WVFT"));
  CFileExt stored;
  ASSERT_EQ(fileGetExtensionInfo(Code("WVFT"), stored), 1);
  EXPECT_EQ(stored.GetDescription(), "OBJX - My objects");
  EXPECT_EQ(fileGetExtensionInfo(Code("MINE"), stored), 0);

  // A host's own loader is kept.
  CFileExt host("Host scenes", ".dxf", Code("HOST"), 0x4000, Code("APPL"));
  fileRegisterFile(host);
  EXPECT_EQ(host.GetLoader(), Code("APPL"));
  EXPECT_EQ(host.GetSaver(), FILE_CLASS_LIBRARY);

  // The first registration fills the empty registry with the built-in types.
  fileResetRegistry();
  CFileExt first("First", ".fst", Code("FRST"), 0);
  fileRegisterFile(first);
  unsigned count = 0;
  CFileExt* files = fileGetRegisteredFiles(count);
  EXPECT_EQ(count, 26u);
  fileFreeRegisteredFiles(files);
}

TEST_F(FileRegistry, FilterTextAndExtensionLists) {
  CFileExt types[2];
  fileGetExtensionInfo(Code("LIGT"), types[0]);
  fileGetExtensionInfo(Code("VRML"), types[1]);
  EXPECT_EQ(fileGetFilterText(types, 2, true),
            "LWO - Lightwave Object files (.lwo, .lwb, .lw, .lwm)|*.lwo;*.lwb;*.lw;*.lwm|"
            "WRL - VRML files (.wrl)|*.wrl|"
            "All files type (*.lwo; *.wrl; ...)|*.lwo; *.wrl; ||");
  EXPECT_EQ(fileGetFilterText(types + 1, 1, true), "WRL - VRML files (.wrl)|*.wrl||");

  EXPECT_EQ(fileSplitExtensionList("a||b"), (std::vector<std::string>{"a", "", "b"}));
  EXPECT_EQ(fileSplitExtensionList(".x|.y", true), (std::vector<std::string>{"*.x", "*.y"}));
  EXPECT_EQ(fileCleanExtensionList(" *.OBJ|lwo||.obj |*.*|."), ".obj|.lwo|.*");
  CHashTable<std::string> set;
  EXPECT_EQ(fileGetHashFromExtensionList("OBJ|.Lwo", set), 2);
  EXPECT_EQ(set.IsFound(".obj"), 1);
  EXPECT_EQ(set.IsFound(".lwo"), 1);
  EXPECT_EQ(set.GetCount(), 2);
}

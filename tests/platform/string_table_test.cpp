#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

namespace meshcore {

namespace {

struct LanguageGuard {
  ~LanguageGuard() { SetLanguage("en"); }
};

} // namespace

TEST(StringTable, BothLanguages) {
  LanguageGuard guard;
  SetLanguage("en");
  EXPECT_EQ(LoadString(123456), "");

  SetLanguage("fr_FR.UTF-8");
  EXPECT_EQ(GetLanguage(), "fr");
  EXPECT_EQ(LoadString(9168), "Objet polygonal");
  EXPECT_EQ(LoadString(1004), "Default material"); // never translated
  EXPECT_EQ(LoadString(1022), "Matière sans nom");
  EXPECT_EQ(LoadString(IDS_RGB_FORMAT), "R : % d\tV : %d\tB : %d");

  // Every file prompt takes the file name in both languages.
  for (const char* lang : {"en", "fr"}) {
    SetLanguage(lang);
    for (unsigned id : {IDP_INVALID_FILENAME, IDP_FAILED_TO_OPEN_DOC, IDP_FAILED_INVALID_FORMAT,
                        IDP_FAILED_INVALID_PATH, IDP_FAILED_DISK_FULL, IDP_FAILED_ACCESS_READ,
                        IDP_FAILED_ACCESS_WRITE}) {
      const std::string text = LoadString(id);
      EXPECT_NE(text.find("%1"), std::string::npos) << lang << " " << id;
      EXPECT_NE(FormatPrompt(text, "a.lwo").find("a.lwo"), std::string::npos);
    }
  }
}

TEST(StringTable, DefaultLanguageComesFromTheEnvironment) {
  LanguageGuard guard;
  test::ScopedEnv all("LC_ALL", std::nullopt);
  test::ScopedEnv messages("LC_MESSAGES", "fr_CA.UTF-8");
  test::ScopedEnv lang("LANG", "en_US.UTF-8");
  SetLanguage("");
  EXPECT_EQ(GetLanguage(), "fr");
  {
    test::ScopedEnv all2("LC_ALL", "C"); // the first one set wins, even if not French
    SetLanguage("");
    EXPECT_EQ(GetLanguage(), "en");
  }
  test::ScopedEnv messages2("LC_MESSAGES", std::nullopt);
  SetLanguage("");
  EXPECT_EQ(GetLanguage(), "en");
}

} // namespace meshcore

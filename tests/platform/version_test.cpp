#include "meshcore/platform/version.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

TEST(Version, HasThreeNumbers) {
  std::string v = meshcore::GetVersionString();
  EXPECT_EQ(2, std::count(v.begin(), v.end(), '.'));
}

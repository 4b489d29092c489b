#include "RecordFilter.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using KelvikCtl::CRecordFilter;
using KelvikCtl::IsOfModule;

bool IsNet(const std::string& line) {
  return IsOfModule(line.data(), line.size(), "net");
}

TEST(RecordFilter, TheModuleIsTheFieldBehindTimeAndThreadId) {
  for (const char* const line :
       {"[net][rx] x", "[net] x", "[net]", "[12][net][rx] x", "2024-03-15 08:30:00.123 [net][rx] x",
        "2024-03-15 08:30:00.123 [4711][NET][rx] [main.c main 5] x"}) {
    EXPECT_TRUE(IsNet(line)) << line;
  }
  for (const char* const line :
       {"", "[", "[net", "net", "[nets] x", "[ne] x", "[rx][net] x", "[12a][net] x", "[][net] x",
        "[1][2][net] x", "2024-03-15 08:30:00.123 [rx] [net] x", "2024-03-15 08:30:00.12 [net] x",
        "2024-03-15 08:30:00.123 x [net]", "2024-03-15 08:30:00.123", " [net] x"}) {
    EXPECT_FALSE(IsNet(line)) << line;
  }
}

TEST(RecordFilter, AModuleMayBeANumberOrHoldABracket) {
  EXPECT_TRUE(IsOfModule("[12][rx] x", 10, "12"));
  EXPECT_TRUE(IsOfModule("[a]b][rx] x", 11, "a]b"));
  EXPECT_TRUE(IsOfModule("[7][12] x", 9, "12"));
}

TEST(RecordFilter, ALineThatBeginsNoRecordBelongsToTheOneBefore) {
  CRecordFilter filter("net", "");
  const auto passes = [&filter](const std::string& line) {
    return filter.Passes(line.data(), line.size());
  };
  EXPECT_FALSE(passes("the end of a record"));
  EXPECT_TRUE(passes("[net] x"));
  EXPECT_TRUE(passes("more of it"));
  EXPECT_TRUE(passes(""));
  EXPECT_FALSE(passes("2024-03-15 08:30:00.123 x"));
  EXPECT_FALSE(passes("more of that"));
  EXPECT_TRUE(passes("[net] x"));
  filter.Reset();
  EXPECT_FALSE(passes("more of another file"));
}

TEST(RecordFilter, TextIsLookedForAsItStands) {
  CRecordFilter filter("", "a.b");
  EXPECT_TRUE(filter.Passes("xa.bx", 5));
  EXPECT_FALSE(filter.Passes("xA.bx", 5));
  EXPECT_FALSE(filter.Passes("xacbx", 5));
  CRecordFilter all("", "");
  EXPECT_TRUE(all.Passes("", 0));
}

}  // namespace

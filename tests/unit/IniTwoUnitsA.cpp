// IniFile.h comes first and alone here, and stands in a second translation unit of the program as
// well: everything in it must be inline.

#include "IniFile.h"

#include <gtest/gtest.h>

#include "IniTwoUnits.h"

TEST(IniHeader, TwoTranslationUnitsShareADocument) {
  xini_file_t doc("");
  doc["unit"]["key"] = "shared";
  doc["unit"]["gone"] = "soon";
  EXPECT_EQ("shared", ValueSeenByOtherUnit(doc));
  EXPECT_EQ(nullptr, doc["unit"].find_knode("gone"));
}

// Lines of an INI document one by one: string functions, recognisers, names, values.

#include <gtest/gtest.h>
#include <signal.h>

#include <climits>
#include <clocale>
#include <locale>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "ChildProcess.h"
#include "IniTools.h"

namespace Kelvik {
namespace {

const char kBlanks[] = " \t\n\r\f\v";

// An owner that shows whether it was told of a change.
class CFlagOwner : public xini_node_t {
 public:
  CFlagOwner() : xini_node_t(XINI_NTYPE_FILE, nullptr) {}
  std::ostream& operator>>(std::ostream& stream) const override { return stream; }
  bool is_dirty() const override { return m_IsDirty; }
  void set_dirty(bool dirty) override { m_IsDirty = dirty; }

 private:
  bool m_IsDirty = false;
};

// A node that knows nothing of strings.
class CTwoLines : public xini_node_t {
 public:
  CTwoLines() : xini_node_t(XINI_NTYPE_COMMENT, nullptr) {}
  std::ostream& operator>>(std::ostream& stream) const override { return stream << "; a\n; b\n"; }
};

// A node whose stream finds no memory for all of its line.
class CTornLine : public xini_node_t {
 public:
  CTornLine() : xini_node_t(XINI_NTYPE_COMMENT, nullptr) {}
  std::ostream& operator>>(std::ostream& stream) const override {
    stream << "; half";
    stream.setstate(std::ios::badbit);
    return stream << " lost\n";
  }
};

std::unique_ptr<xini_keyvalue_t> MakeKey(const std::string& line, xini_node_t* owner = nullptr) {
  return std::unique_ptr<xini_keyvalue_t>(xini_keyvalue_t::try_create(line, owner));
}

TEST(IniNode, TypesHaveTheirValues) {
  EXPECT_EQ(0u, XINI_NTYPE_FILE);
  EXPECT_EQ(0x100u, XINI_NTYPE_NILLINE);
  EXPECT_EQ(0x200u, XINI_NTYPE_COMMENT);
  EXPECT_EQ(0x300u, XINI_NTYPE_SECTION);
  EXPECT_EQ(0x400u, XINI_NTYPE_KEYVALUE);
  static_assert(sizeof(decltype(xini_nilline_t(nullptr).ntype())) == 4, "32 bits");
  EXPECT_EQ(XINI_NTYPE_NILLINE, xini_nilline_t(nullptr).ntype());
  EXPECT_EQ(XINI_NTYPE_SECTION, xini_section_t(nullptr).ntype());
  EXPECT_EQ(XINI_NTYPE_FILE, xini_file_t("").ntype());
}

TEST(IniNode, TextOfANodeIsWhatItWritesToAStream) {
  static_assert(std::is_abstract<xini_node_t>::value, "each node says what it writes");
  std::string text = "#\n";
  CTwoLines().append_to(text);
  xini_nilline_t(nullptr).append_to(text);
  MakeKey("a = b")->append_to(text);
  EXPECT_EQ("#\n; a\n; b\n\na=b\n", text);
}

TEST(IniNode, HalfATextIsNeverSaved) {
  const CTempDir folder;
  const std::string path = folder.File("half.ini");
  ASSERT_TRUE(WriteFile(path, "[a]\nk=1\n"));
  {
    xini_file_t doc(path);
    doc["a"]["k"] = "2";
    ASSERT_TRUE(doc["a"].push_node(new CTornLine));
    EXPECT_THROW(doc.dump(path), std::bad_alloc);
  }
  EXPECT_EQ("[a]\nk=1\n", ReadFile(path));
}

TEST(IniNode, DirtyFlagIsTheOwners) {
  xini_nilline_t alone(nullptr);
  EXPECT_FALSE(alone.is_dirty());
  alone.set_dirty(true);
  EXPECT_FALSE(alone.is_dirty());

  CFlagOwner owner;
  xini_nilline_t owned(&owner);
  EXPECT_FALSE(owned.is_dirty());
  owned.set_dirty(true);
  EXPECT_TRUE(owner.is_dirty());
  EXPECT_TRUE(owned.is_dirty());
  owned.set_dirty(false);
  EXPECT_FALSE(owner.is_dirty());
}

TEST(IniNode, NodeWithoutChildrenRenamesNothing) {
  xini_nilline_t node(nullptr);
  EXPECT_FALSE(node.rename_nsub(&node, "x"));
}

TEST(IniNode, SingleLineHoldsNoLineEnd) {
  EXPECT_TRUE(xini_node_t::is_sline(""));
  EXPECT_TRUE(xini_node_t::is_sline("a b\tc\v\f"));
  EXPECT_FALSE(xini_node_t::is_sline("a\nb"));
  EXPECT_FALSE(xini_node_t::is_sline("a\r"));
  EXPECT_FALSE(xini_node_t::is_sline(std::string("a\0\n", 3)));
}

TEST(IniNode, TrimmedIsJudgedByTheFirstBlankAlone) {
  const struct {
    const char* m_Text;
    bool m_IsTrimmed;
  } cases[] = {
      {"", true},      {"a", true},     {"ab", true},   {"a b", true},    {"a b ", true},
      {"a ", false},   {" a", false},   {" ", false},   {"  ", false},    {"a\t", false},
      {"\na", false},  {"a\rb", true},  {"a\v", false}, {"\f", false},    {"a  ", true},
      {" a b", false}, {"ab\t", false}, {"a\nb", true}, {"\xA0 x", true}, {"\xA0", true},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(item.m_IsTrimmed, xini_node_t::is_xtrim(item.m_Text)) << Visible(item.m_Text);
    EXPECT_EQ(item.m_IsTrimmed, xini_node_t::is_xtrim(item.m_Text, kBlanks))
        << Visible(item.m_Text);
  }
  EXPECT_FALSE(xini_node_t::is_xtrim("[a", "[]"));
  EXPECT_FALSE(xini_node_t::is_xtrim("a]", "[]"));
  EXPECT_TRUE(xini_node_t::is_xtrim("a[]", "[]"));
  EXPECT_TRUE(xini_node_t::is_xtrim(" a ", "[]"));
}

TEST(IniNode, TrimTakesTheSetFromBothEnds) {
  const struct {
    const char* m_Text;
    const char* m_Trimmed;
  } cases[] = {{"", ""},       {" \t\n\r\f\v", ""},      {" a ", "a"},
               {"a b", "a b"}, {"\v\fa\tb\r\n", "a\tb"}, {"\xC2\xA0", "\xC2\xA0"}};
  for (const auto& item : cases) {
    EXPECT_EQ(item.m_Trimmed, xini_node_t::trim_xstr(item.m_Text)) << Visible(item.m_Text);
    EXPECT_EQ(item.m_Trimmed, xini_node_t::trim_xstr(item.m_Text, kBlanks)) << Visible(item.m_Text);
  }
  EXPECT_EQ(" a ", xini_node_t::trim_xstr("[ a ]", "[]"));
  EXPECT_EQ("", xini_node_t::trim_xstr("[[]]", "[]"));
  EXPECT_EQ(std::string("\0a\0", 3), xini_node_t::trim_xstr(std::string(" \0a\0 ", 5)));
}

TEST(IniNode, CompareFoldsOnlyAsciiLetters) {
  const struct {
    const char* m_Left;
    const char* m_Right;
    int m_Difference;
  } cases[] = {
      {"", "", 0},
      {"Name", "NAME", 0},
      {"a", "b", -1},
      {"B", "a", 1},
      {"a[", "A{", '[' - '{'},
      {"@", "`", '@' - '`'},
      {"Z", "[", 'z' - '['},
      {"ab", "a", 'b'},
      {"a", "ab", -'b'},
      {"\xC4", "\xE4", 0xC4 - 0xE4},
      // Taken as signed chars, a byte above 0x7F stands before the end of a text.
      {"a", "a\xFF", 1},
      {"\x80", "\x7F", -128 - 127},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(item.m_Difference, xini_node_t::xstr_icmp(item.m_Left, item.m_Right))
        << item.m_Left << " and " << item.m_Right;
    EXPECT_EQ(item.m_Difference < 0, xini_node_t::xstr_icmp_t()(item.m_Left, item.m_Right));
  }
}

TEST(IniNode, CompareTakesNulls) {
  const char* text = "x";
  EXPECT_EQ(0, xini_node_t::xstr_icmp(nullptr, nullptr));
  EXPECT_EQ(0, xini_node_t::xstr_icmp(text, text));
  EXPECT_EQ(-1, xini_node_t::xstr_icmp(nullptr, text));
  EXPECT_EQ(1, xini_node_t::xstr_icmp(text, nullptr));
  EXPECT_EQ(-1, xini_node_t::xstr_icmp(nullptr, ""));
}

TEST(IniNode, EmptyLineWritesALineEnd) {
  EXPECT_EQ("\n", Written(xini_nilline_t(nullptr)));
}

TEST(IniComment, OnlyTheFirstCharacterCounts) {
  for (const char* line : {";x", "#x", ";", "#", "; a = b", "#[a]"}) {
    const std::unique_ptr<xini_comment_t> node(xini_comment_t::try_create(line, nullptr));
    ASSERT_NE(nullptr, node) << line;
    EXPECT_EQ(XINI_NTYPE_COMMENT, node->ntype());
    EXPECT_EQ(std::string(line) + "\n", Written(*node));
  }
  for (const char* line : {"", "a;b", "[;]", "k=v ;no", "k=#"}) {
    EXPECT_EQ(nullptr, xini_comment_t::try_create(line, nullptr)) << line;
  }
}

TEST(IniSection, NameEndsAtTheFirstBracket) {
  const struct {
    const char* m_Line;
    const char* m_Name;
  } cases[] = {{"[a]", "a"},
               {"[ name ] trailing", "name"},
               {"[]", ""},
               {"[ \t ]", ""},
               {"[a]b]", "a"},
               {"[a]=b", "a"},
               {"[[a]", "[a"},
               {"[a b]", "a b"},
               {"[a=b]", "a=b"},
               {"[;a]", ";a"},
               {"[a\xC3\xA4]", "a\xC3\xA4"},
               {"[a ; x] y", "a ; x"}};
  for (const auto& item : cases) {
    const std::unique_ptr<xini_section_t> node(xini_section_t::try_create(item.m_Line, nullptr));
    ASSERT_NE(nullptr, node) << item.m_Line;
    EXPECT_EQ(XINI_NTYPE_SECTION, node->ntype());
    EXPECT_EQ(item.m_Name, node->sname());
    EXPECT_FALSE(node->has_end_nilline());
    const std::string header = "[" + std::string(item.m_Name) + "]\n";
    EXPECT_EQ(node->sname().empty() ? "" : header, Written(*node));
  }
  for (const char* line : {"", "[", "[abc", "a[b]", "]a["}) {
    EXPECT_EQ(nullptr, xini_section_t::try_create(line, nullptr)) << line;
  }
}

TEST(IniSection, NameIsASingleLine) {
  EXPECT_TRUE(xini_section_t::check_sname(""));
  EXPECT_TRUE(xini_section_t::check_sname("a b"));
  EXPECT_TRUE(xini_section_t::check_sname("a]=;#b"));
  EXPECT_FALSE(xini_section_t::check_sname("a\nb"));
  EXPECT_FALSE(xini_section_t::check_sname("a\rb"));
}

TEST(IniKey, LineIsSplitAtTheFirstEqualsSign) {
  const struct {
    const char* m_Line;
    const char* m_Name;
    const char* m_Value;
  } cases[] = {{"k=", "k", ""},           {"k = a=b", "k", "a=b"},
               {"a = b", "a", "b"},       {"[a=b", "[a", "b"},
               {"a b=c d", "a b", "c d"}, {"k=;v#w", "k", ";v#w"},
               {"k==", "k", "="},         {"k=[x]", "k", "[x]"},
               {"]k=v", "]k", "v"},       {"a[b]=c", "a[b]", "c"},
               {"k=\ta\fb", "k", "a\fb"}, {"\xC3\xA4=\xC3\xB6", "\xC3\xA4", "\xC3\xB6"}};
  for (const auto& item : cases) {
    const auto node = MakeKey(item.m_Line);
    ASSERT_NE(nullptr, node) << item.m_Line;
    EXPECT_EQ(XINI_NTYPE_KEYVALUE, node->ntype());
    EXPECT_EQ(item.m_Name, node->kname());
    EXPECT_EQ(item.m_Value, node->value());
    EXPECT_EQ(std::string(item.m_Name) + "=" + item.m_Value + "\n", Written(*node));
  }
  for (const char* line : {"", "=v", "=", "abc", "[abc", "a;b=c", "#a=b", "[a]=b", "a#=b"}) {
    EXPECT_EQ(nullptr, MakeKey(line)) << line;
  }
}

TEST(IniKey, NamesAreChecked) {
  for (const char* name : {"a", "a b", "a[b]", "[a", "]", "\xC3\xA4", "a\tb", "a b c"}) {
    EXPECT_TRUE(xini_keyvalue_t::check_kname(name)) << name;
  }
  for (const char* name : {"", "a;", "#", "a#b", "a=b", "=", "a\rb", "a\nb", "[a]", "[]", "[a]b"}) {
    EXPECT_FALSE(xini_keyvalue_t::check_kname(name)) << Visible(name);
  }
}

TEST(IniKey, ValueIsTheFirstLineTrimmed) {
  const struct {
    const char* m_Text;
    const char* m_Value;
  } cases[] = {{"x\ny", "x"},
               {" y ", "y"},
               {"x\ry", "x"},
               {"\nx", ""},
               {"", ""},
               {" \t ", ""},
               {"a b = c;d", "a b = c;d"},
               {" x \n y", "x"}};
  const auto key = MakeKey("k=start");
  for (const auto& item : cases) {
    EXPECT_EQ(key.get(), &(*key = item.m_Text));
    EXPECT_EQ(item.m_Value, key->value()) << Visible(item.m_Text);
  }
  *key = "x";
  *key = static_cast<const char*>(nullptr);
  EXPECT_EQ("", key->value());
}

TEST(IniKey, ValueMayBeSetToItself) {
  const auto key = MakeKey("k=a value that is too long for a small string");
  *key = key->value().c_str() + 2;
  EXPECT_EQ("value that is too long for a small string", key->value());
}

TEST(IniKey, OnlyADifferentValueMarksTheDocument) {
  CFlagOwner owner;
  const auto key = MakeKey("k=v", &owner);
  *key = "v";
  key->invk_set_value("v");
  *key = " v \nrest";
  EXPECT_FALSE(owner.is_dirty());
  key->invk_set_value("V");
  EXPECT_TRUE(owner.is_dirty());
  owner.set_dirty(false);
  key->invk_set_value(std::string("V\0", 2));
  EXPECT_TRUE(owner.is_dirty());
  EXPECT_EQ(2u, key->value().size());
  owner.set_dirty(false);
  key->set_nvalue<int>(5);
  EXPECT_TRUE(owner.is_dirty());
  owner.set_dirty(false);
  key->set_nvalue<int>(5);
  EXPECT_FALSE(owner.is_dirty());
}

TEST(IniKey, NumbersAreReadLikeAStreamDoes) {
  const struct {
    const char* m_Text;
    int m_Number;
  } cases[] = {{"-5", -5},
               {"", -1},
               {"abc", -1},
               {"12abc", 12},
               {"0", 0},
               {"+7", 7},
               {"007", 7},
               {"0x10", 0},
               {"2147483647", INT_MAX},
               {"2147483648", -1},
               {"-2147483648", INT_MIN},
               {"-2147483649", -1},
               {"1,000", 1},
               {"1.5", 1},
               {"-", -1},
               {"- 5", -1},
               {"99999999999999999999", -1},
               {"3 4", 3}};
  for (const auto& item : cases) {
    const auto key = MakeKey(std::string("k=") + item.m_Text);
    ASSERT_NE(nullptr, key);
    EXPECT_EQ(item.m_Number, key->get_nvalue<int>()) << item.m_Text;
  }
  const auto key = MakeKey("k=");
  key->invk_set_value(" \t 42");
  EXPECT_EQ(42, key->get_nvalue<int>());
}

TEST(IniKey, NumbersAreWrittenPlainly) {
  const auto key = MakeKey("k=");
  for (const int number : {0, 1, -1, 1234567, INT_MAX, INT_MIN}) {
    key->set_nvalue<int>(number);
    EXPECT_EQ(std::to_string(number), key->value());
    EXPECT_EQ(number, key->get_nvalue<int>());
  }
}

// Groups digits in threes and writes a comma for the point.
class CGroupingFacet : public std::numpunct<char> {
 protected:
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
  char do_decimal_point() const override { return ','; }
};

TEST(IniKey, NumbersDoNotFollowTheGlobalLocale) {
  const std::locale old =
      std::locale::global(std::locale(std::locale::classic(), new CGroupingFacet));
  const auto key = MakeKey("k=");
  key->set_nvalue<int>(1234567);
  const std::string text = key->value();
  key->invk_set_value("1.234");
  const int number = key->get_nvalue<int>();
  std::locale::global(old);
  EXPECT_EQ("1234567", text);
  EXPECT_EQ(1, number);
}

// What a program must not do, each in a child; args[0] is the row of kViolations.
const struct {
  const char* m_Text;
  void (*m_Violate)();
} kViolations[] = {
    {"is_xtrim(xstr_line)", [] { xini_comment_t::try_create(" ;x", nullptr); }},
    {"is_sline(xstr_line)", [] { xini_comment_t::try_create(";a\nb", nullptr); }},
    {"is_xtrim(xstr_line)", [] { xini_section_t::try_create("[a] ", nullptr); }},
    {"is_sline(xstr_line)", [] { xini_section_t::try_create("[a\rb]", nullptr); }},
    {"is_xtrim(xstr_line)", [] { xini_keyvalue_t::try_create("k= ", nullptr); }},
    {"is_sline(xstr_line)", [] { xini_keyvalue_t::try_create("k=a\nb", nullptr); }},
    {"is_xtrim(xstr_name)", [] { xini_keyvalue_t::check_kname(" k"); }},
    {"is_xtrim(xstr_name)", [] { xini_section_t::check_sname("s "); }},
    {"xini_section_t::check_sname(xstr_name)", [] { xini_file_t("")["a\nb"]; }},
    {"xini_section_t::check_sname(xstr_name)", [] { xini_file_t("")["a]\nb"]; }},
    {"xini_keyvalue_t::check_kname(xstr_nkey)", [] { xini_file_t("")["a"][""]; }},
    {"xini_keyvalue_t::check_kname(xstr_nkey)", [] { xini_file_t("")["a"]["k=v"]; }},
    {"xini_keyvalue_t::check_kname(xstr_nkey)", [] { xini_file_t("")["a"]["k\nv"]; }},
    {"xini_keyvalue_t::check_kname(xstr_nkey)", [] { xini_file_t("")["a"]["[k]"]; }},
    {"XINI_NTYPE_KEYVALUE == xnsub_ptr->ntype()",
     [] {
       xini_file_t doc("");
       doc["a"].rename_nsub(&doc["b"], "c");
     }},
    {"XINI_NTYPE_SECTION == xnsub_ptr->ntype()",
     [] {
       xini_file_t doc("");
       doc.rename_nsub(&doc["a"]["k"], "c");
     }},
};

CHILD_CASE(Violate) {
  kViolations[std::stoul(args.at(0))].m_Violate();
  return 0;
}

TEST(IniChecks, ViolatedPreconditionPrintsItsTextAndAborts) {
  for (std::size_t row = 0; row < sizeof(kViolations) / sizeof(kViolations[0]); ++row) {
    const tagChildResult result = RunChild("Violate", {std::to_string(row)});
    EXPECT_EQ(SIGABRT, result.m_Signal) << row;
    const std::string quoted = std::string("`") + kViolations[row].m_Text + "'";
    EXPECT_NE(std::string::npos, result.m_Errors.find(quoted)) << row << ": " << result.m_Errors;
  }
}

}  // namespace
}  // namespace Kelvik

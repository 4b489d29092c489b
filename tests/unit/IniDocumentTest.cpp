// Whole INI documents: what a load and a save make of a file, lookups, changes, the changed flag.
// Saving itself is tested in IniSaveTest.cpp.

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>

#include "IniTools.h"

namespace Kelvik {
namespace {

struct tagResave {
  const char* m_Fact;
  std::string m_Loaded;
  std::string m_Saved;
};

// In place of the record's bytes, some of which have no value.
void PrintTo(const tagResave& resave, std::ostream* out) {
  *out << resave.m_Fact;
}

class IniResave : public testing::TestWithParam<tagResave> {};

TEST_P(IniResave, GivesTheExpectedBytesAndThenNoOthers) {
  const std::string saved = Resaved(GetParam().m_Loaded);
  EXPECT_EQ(Visible(GetParam().m_Saved), Visible(saved)) << GetParam().m_Fact;
  EXPECT_EQ(Visible(saved), Visible(Resaved(saved))) << GetParam().m_Fact;
}

const tagResave kResaves[] = {
    {"comment behind a key stays, sections are set apart", "; top\n\n[a]\nk=1\n; note\n[b]\nx=2\n",
     "; top\n\n[a]\nk=1\n; note\n\n[b]\nx=2\n"},
    {"comment block behind an empty line goes with the next header", "[a]\nk=1\n\n; about b\n[b]\n",
     "[a]\nk=1\n\n; about b\n[b]\n"},
    {"comment block with an empty line behind it goes as well", "[a]\nk=1\n\n; b\n\n[b]\n",
     "[a]\nk=1\n\n; b\n\n[b]\n"},
    {"preamble of comments alone", "; a\n# b\n[s]\nk=1\n", "; a\n# b\n[s]\nk=1\n"},
    {"unnamed section keeps its keys", "k=1\n[s]\nk=2\n", "k=1\n\n[s]\nk=2\n"},
    {"unnamed section alone", "k = 1\nl =2", "k=1\nl=2\n"},
    {"repeated section is merged into the first", "[A]\nx=1\n[b]\n[a]\ny=2\n",
     "[A]\nx=1\n\ny=2\n\n[b]\n"},
    {"same header twice in a row", "[a]\nx=1\n[A]\ny=2\n", "[a]\nx=1\ny=2\n"},
    {"same header twice with a comment between", "[a]\nx=1\n\n; c\n[a]\ny=2\n",
     "[a]\nx=1\n\n; c\ny=2\n"},
    {"comment block moves with a repeated header", "[a]\nx=1\n[b]\ny=2\n\n; c\n[a]\nz=3\n",
     "[a]\nx=1\n\n; c\n\nz=3\n\n[b]\ny=2\n\n"},
    {"comment block moves on from merge to merge", "[a]\nx=1\n[b]\ny=2\n\n; c\n[a]\n[b]\n[c]\n",
     "[a]\nx=1\n\n[b]\ny=2\n\n; c\n\n[c]\n"},
    {"comment behind a key stays in a merge", "[a]\nx=1\n[b]\ny=2\n; c\n[a]\nz=3\n",
     "[a]\nx=1\n\nz=3\n\n[b]\ny=2\n; c\n"},
    {"first of the same keys wins", "k=1\nK=2\n[a]\nk=3\nk=4\n", "k=1\n\n[a]\nk=3\n"},
    {"merged section keeps its first keys", "[a]\nk=1\n[b]\n[A]\nK=2\nl=3\n",
     "[a]\nk=1\n\nl=3\n\n[b]\n"},
    {"empty header means the unnamed section", "[a]\nx=1\n[]\nk=2\n", "\nk=2\n\n[a]\nx=1\n"},
    {"lines that fit no kind are dropped", "x=1\nabc\n=v\n[abc\na;b=c\n[b]\n", "x=1\n\n[b]\n"},
    {"a key may begin with a bracket", "[a=b\n[s]\n[c=d\n", "[a=b\n\n[s]\n[c=d\n"},
    {"a header with a value is a header", "[a]=b\n", "[a]\n"},
    {"rest of a header line is lost", "[ name ] trailing\n", "[name]\n"},
    {"blanks around names and values are lost", "  [a]\n\t k \t=\v v \f\n", "[a]\nk=v\n"},
    {"indented comment", "   ; c\n[a]\n \t#d\n", "; c\n[a]\n#d\n"},
    {"carriage returns before line ends are lost", "[a]\r\nk=1\r\n\r\nl=2\r\r\n",
     "[a]\nk=1\n\nl=2\n"},
    {"carriage return inside a line ends it", "[a]\rk=1\r\r; c\rl=2", "[a]\nk=1\n\n; c\nl=2\n"},
    {"carriage return ends a dropped line too", "abc\rk=1\n=\r[a]", "k=1\n\n[a]\n"},
    {"outer carriage returns are blanks", "\r\r\rk=1\r\r\n\r\n", "k=1\n\n"},
    {"empty lines at the end stay", "k=1\n\n\n", "k=1\n\n\n"},
    {"last line of blanks without line end", "k=1\n  \t", "k=1\n"},
    {"last header without line end", "[a]", "[a]\n"},
    {"byte-order mark", "\xEF\xBB\xBF[a]\nk=1\n", "\xEF\xBB\xBF[a]\nk=1\n"},
    {"foreign bytes at the start", "\xFF\xFE\x80k=1\n", "\xFF\xFE\x80k=1\n"},
    {"file of a byte-order mark alone", "\xEF\xBB\xBF", "\xEF\xBB\xBF"},
    {"empty file", "", "\xFF"},
    {"file of the empty file's head", "\xFF", "\xFF"},
    {"empty line alone", "\n", "\n"},
    {"nothing kept is one empty line, not an empty file", "abc\n=v", "\n"},
    {"a first line of foreign bytes is kept from the head", " \xC3\xA4=1\n", "\n\xC3\xA4=1\n"},
    {"behind a head as well", "\xEF\xBB\xBF \xC3\xA4=1\n", "\xEF\xBB\xBF\n\xC3\xA4=1\n"},
    {"foreign bytes inside", "[\xC3\xA4]\n\xC3\xB6=\xFF\n", "[\xC3\xA4]\n\xC3\xB6=\xFF\n"},
    {"NUL bytes", std::string("[a\0b]\nk\0=\0v\n;\0\n", 15),
     std::string("[a\0b]\nk\0=\0v\n;\0\n", 15)},
    {"names count up to a NUL", std::string("k\0a=1\nk\0b=2\n", 12), std::string("k\0a=1\n", 6)},
    {"NUL byte first", std::string("\0k=1\n", 5), std::string("\0k=1\n", 5)},
    {"empty lines before a header go with it", "k=1\n\n\n[a]\n", "k=1\n\n\n[a]\n"},
    {"preamble of an empty line", "\n[a]\n", "\n[a]\n"},
};
INSTANTIATE_TEST_SUITE_P(Table, IniResave, testing::ValuesIn(kResaves));

class IniDocument : public testing::Test {
 protected:
  std::string Load(const std::string& bytes) {
    EXPECT_TRUE(WriteFile(Path(), bytes));
    return Path();
  }
  std::string Path() const { return m_Folder.File("app.ini"); }
  std::string Bytes() const { return ReadFile(Path()); }

  CTempDir m_Folder;
};

TEST_F(IniDocument, MissingFileIsAnEmptyCleanDocument) {
  {
    xini_file_t doc(Path());
    EXPECT_FALSE(doc.is_dirty());
    EXPECT_EQ(nullptr, doc.find_sect(""));
    EXPECT_EQ("", Written(doc));
  }
  EXPECT_FALSE(Exists(Path()));
}

TEST_F(IniDocument, LookupsAloneSaveNothing) {
  {
    xini_file_t doc(Path());
    EXPECT_EQ("", doc["net"]["ip"].value());
    EXPECT_EQ(-1, doc["net"]["ip"].get_nvalue<int>());
    doc["net"]["ip"] = "";
    EXPECT_FALSE(doc.is_dirty());
  }
  EXPECT_FALSE(Exists(Path()));
}

TEST_F(IniDocument, ValueThatIsSetIsSavedByTheDestructor) {
  {
    xini_file_t doc(Path());
    doc["net"]["ip"] = "1";
    EXPECT_TRUE(doc.is_dirty());
    EXPECT_TRUE(doc["net"].is_dirty());
    EXPECT_TRUE(doc["net"]["ip"].is_dirty());
  }
  EXPECT_EQ("[net]\nip=1\n", Bytes());
}

TEST_F(IniDocument, LoadedDocumentIsClean) {
  xini_file_t doc(Load("[a]\nk=1\n[b]\n[a]\nk=2\n"));
  EXPECT_FALSE(doc.is_dirty());
  doc.release();
  EXPECT_EQ("[a]\nk=1\n[b]\n[a]\nk=2\n", Bytes());
}

TEST_F(IniDocument, LookupTrimsBracketsAndBlanksAndIgnoresCase) {
  xini_file_t doc(Path());
  xini_section_t* net = &doc["net"];
  for (const char* name : {"[net]", " NET ", "Net", "[[ net ]]", "]net[", "\tnet\r\n"}) {
    EXPECT_EQ(net, &doc[name]) << name;
  }
  xini_keyvalue_t* ip = &doc["net"]["ip"];
  EXPECT_EQ(ip, &doc["net"][" IP\n"]);
  EXPECT_NE(ip, &doc["net"]["[ip"]);
}

TEST_F(IniDocument, FindTakesTheNameAsItIs) {
  xini_file_t doc(Load("[net]\nip=1\n"));
  ASSERT_NE(nullptr, doc.find_sect("NET"));
  EXPECT_EQ(nullptr, doc.find_sect(" net"));
  EXPECT_EQ(nullptr, doc.find_sect("[net]"));
  EXPECT_EQ(nullptr, doc.find_sect("ne"));
  ASSERT_NE(nullptr, doc.find_sect(""));
  const xini_section_t& net = doc["net"];
  ASSERT_NE(nullptr, net.find_knode("Ip"));
  EXPECT_EQ("1", net.find_knode("Ip")->value());
  EXPECT_EQ("ip", net.find_knode("IP")->kname());
  EXPECT_EQ(nullptr, net.find_knode("ip "));
  EXPECT_EQ("net", net.sname());
}

TEST_F(IniDocument, NameWithAnInnerBracketMeetsTheOneInTheFile) {
  {
    xini_file_t doc(Load("[a]b]\nk=1\n[c[]d]\nk=2\n"));
    EXPECT_EQ("1", doc["a]b"]["k"].value());
    EXPECT_EQ("1", doc["[a ] b]"]["k"].value());
    EXPECT_EQ("2", doc["c[]d"]["k"].value());
    EXPECT_EQ(&doc["x]y"], &doc["x]y"]);
    EXPECT_EQ(&doc["x]y"], &doc["x"]);
    doc["x]y"]["k"] = "3";
  }
  xini_file_t doc(Path());
  EXPECT_EQ("3", doc["x]y"]["k"].value());
  EXPECT_EQ(nullptr, doc.find_sect("x]y"));
}

TEST_F(IniDocument, SectionByLookupComesLastWithoutMovingComments) {
  xini_file_t doc(Load("[a]\nk=1\n\n; end\n"));
  doc["b"]["x"] = "2";
  EXPECT_EQ("[a]\nk=1\n\n; end\n\n[b]\nx=2\n", SavedBytes(doc, m_Folder));
}

TEST_F(IniDocument, KeyByLookupComesLastBehindCommentsAndEmptyLines) {
  xini_file_t doc(Load("[a]\nk=1\n; c\n\n"));
  doc["a"]["x"] = "2";
  EXPECT_EQ("[a]\nk=1\n; c\n\nx=2\n", SavedBytes(doc, m_Folder));
}

TEST_F(IniDocument, AbsentKeyStandsWithAnEmptyValueOnceSaved) {
  {
    xini_file_t doc(Load("[a]\nk=1\n"));
    EXPECT_EQ(-1, doc["a"]["absent"].get_nvalue<int>());
    doc["a"]["k"] = "2";
  }
  EXPECT_EQ("[a]\nk=2\nabsent=\n", Bytes());
}

TEST_F(IniDocument, UnnamedSectionByLookupComesFirst) {
  {
    xini_file_t doc(Path());
    doc["a"]["x"] = "1";
    doc[""]["k"] = "2";
    doc["[]"]["l"] = "3";
  }
  EXPECT_EQ("k=2\nl=3\n\n[a]\nx=1\n", Bytes());
  xini_file_t again(Path());
  EXPECT_EQ("2", again[""]["k"].value());
}

TEST_F(IniDocument, SaveKeepsNewSectionsApart) {
  xini_file_t doc(Path());
  doc["a"];
  doc["b"]["k"] = "1";
  doc["c"];
  EXPECT_EQ("[a]\n\n[b]\nk=1\n\n[c]\n", SavedBytes(doc, m_Folder));
}

TEST_F(IniDocument, RemovedKeyIsGone) {
  xini_file_t doc(Load("[a]\nk=1\n; c\nl=2\n"));
  EXPECT_FALSE(doc["a"].key_remove("m"));
  EXPECT_FALSE(doc.is_dirty());
  EXPECT_TRUE(doc["a"].key_remove(" K\t"));
  EXPECT_TRUE(doc.is_dirty());
  EXPECT_EQ(nullptr, doc["a"].find_knode("k"));
  EXPECT_FALSE(doc["a"].key_remove("k"));
  doc["a"]["k"] = "3";
  EXPECT_EQ("[a]\n; c\nl=2\nk=3\n", SavedBytes(doc, m_Folder));
}

TEST_F(IniDocument, CommentBlockMovesOnceTheKeyAboveItIsRemoved) {
  xini_file_t doc(Load("[s]\n[a]\n\nk=1\n; c\n"));
  std::list<xini_node_t*> out;
  EXPECT_EQ(0u, doc["a"].pop_tail_comment(out, false));
  EXPECT_TRUE(doc["a"].key_remove("k"));
  EXPECT_EQ(1u, doc["a"].pop_tail_comment(out, false));
  EXPECT_EQ("[s]\n\n[a]\n\n", SavedBytes(doc, m_Folder));
  ASSERT_EQ(1u, out.size());
  EXPECT_EQ("; c\n", Written(*out.front()));
  delete out.front();
}

TEST_F(IniDocument, KeyIsRenamed) {
  xini_file_t doc(Load("[a]\nk=1\nl=2\n[b]\nk=3\n"));
  xini_section_t& a = doc["a"];
  xini_keyvalue_t* k = a.find_knode("k");
  EXPECT_TRUE(a.rename_nsub(k, "K"));
  EXPECT_EQ("k", k->kname());
  EXPECT_FALSE(a.rename_nsub(k, "L"));
  EXPECT_FALSE(a.rename_nsub(nullptr, "x"));
  EXPECT_FALSE(a.rename_nsub(doc["b"].find_knode("k"), "x"));
  EXPECT_FALSE(doc.is_dirty());
  EXPECT_TRUE(a.rename_nsub(k, " New "));
  EXPECT_TRUE(doc.is_dirty());
  EXPECT_EQ(" New ", k->kname());
  EXPECT_EQ(k, a.find_knode(" nEW "));
  EXPECT_EQ(nullptr, a.find_knode("k"));
  EXPECT_EQ("[a]\n New =1\nl=2\n\n[b]\nk=3\n", SavedBytes(doc, m_Folder));
}

TEST_F(IniDocument, SectionIsRenamed) {
  xini_file_t doc(Load("[a]\nk=1\n[b]\n"));
  xini_section_t* a = doc.find_sect("a");
  xini_file_t other("");
  EXPECT_TRUE(doc.rename_nsub(a, "A"));
  EXPECT_EQ("a", a->sname());
  EXPECT_FALSE(doc.rename_nsub(a, "B"));
  EXPECT_FALSE(doc.rename_nsub(nullptr, "x"));
  EXPECT_FALSE(doc.rename_nsub(&other["a"], "x"));
  EXPECT_FALSE(doc.is_dirty());
  EXPECT_TRUE(doc.rename_nsub(a, "c d"));
  EXPECT_TRUE(doc.is_dirty());
  EXPECT_EQ(a, &doc["C D"]);
  EXPECT_EQ(nullptr, doc.find_sect("a"));
  EXPECT_EQ("[c d]\nk=1\n\n[b]\n", SavedBytes(doc, m_Folder));
  EXPECT_TRUE(doc.rename_nsub(a, " New "));
  EXPECT_EQ(" New ", a->sname());
  EXPECT_EQ(a, doc.find_sect(" nEW "));
}

TEST_F(IniDocument, StreamIsAppendedToTheLastSection) {
  xini_file_t doc(Load("[a]\nk=1\n"));
  std::istringstream first("l=2\n[b]\n; c");
  EXPECT_EQ(&doc, &(doc << first));
  EXPECT_TRUE(doc.is_dirty());
  EXPECT_EQ("[a]\nk=1\n\nl=2\n\n[b]\n; c\n", Written(doc));
  std::istringstream second("x=1\n");
  doc << second;
  EXPECT_EQ("[a]\nk=1\n\nl=2\n\n[b]\n; c\n\nx=1\n", Written(doc));
}

TEST_F(IniDocument, StreamThatAddsNothingLeavesTheDocumentClean) {
  xini_file_t doc(Load("[a]\nk=1\n"));
  std::istringstream stream("abc\n[A]\nK=2\n");
  doc << stream;
  EXPECT_FALSE(doc.is_dirty());
  xini_file_t empty("");
  std::istringstream line("; c");
  empty << line;
  EXPECT_TRUE(empty.is_dirty());
  EXPECT_EQ("; c\n", Written(empty));
}

TEST_F(IniDocument, LoadSavesAChangedDocumentToItsOldPathFirst) {
  const std::string other = m_Folder.File("other.ini");
  ASSERT_TRUE(WriteFile(other, "[b]\nx=1\n"));
  xini_file_t doc(Path());
  doc["a"]["k"] = "1";
  EXPECT_TRUE(doc.load(other));
  EXPECT_EQ("[a]\nk=1\n", Bytes());
  EXPECT_FALSE(doc.is_dirty());
  EXPECT_EQ(nullptr, doc.find_sect("a"));
  EXPECT_EQ("1", doc["b"]["x"].value());
  EXPECT_FALSE(doc.load(""));
  EXPECT_EQ("", Written(doc));
  EXPECT_EQ("[b]\nx=1\n", ReadFile(other));
}

TEST_F(IniDocument, FailedLoadKeepsThePathForALaterSave) {
  {
    xini_file_t doc("");
    EXPECT_FALSE(doc.load(Path()));
    doc["a"]["k"] = "1";
  }
  EXPECT_EQ("[a]\nk=1\n", Bytes());
}

TEST_F(IniDocument, ReleaseEmptiesAndUnbindsTheDocument) {
  xini_file_t doc(Load("\xEF\xBB\xBF[a]\nk=1\n"));
  doc["a"]["k"] = "2";
  doc.release();
  EXPECT_EQ("\xEF\xBB\xBF[a]\nk=2\n", Bytes());
  EXPECT_FALSE(doc.is_dirty());
  EXPECT_EQ("", Written(doc));
  ASSERT_EQ(0, unlink(Path().c_str()));
  doc["b"]["k"] = "3";
  doc.release();
  EXPECT_EQ(1u, doc.dump(m_Folder.File("empty.ini")) ? ListFolder(m_Folder.Path()).size() : 0);
}

TEST_F(IniDocument, DumpNeitherLooksAtNorClearsTheChangedFlag) {
  xini_file_t doc(Load("[a]\nk=1\n"));
  EXPECT_TRUE(doc.dump(m_Folder.File("copy.ini")));
  EXPECT_FALSE(doc.is_dirty());
  doc["a"]["k"] = "2";
  EXPECT_TRUE(doc.dump(m_Folder.File("copy.ini")));
  EXPECT_TRUE(doc.is_dirty());
  EXPECT_EQ("[a]\nk=2\n", ReadFile(m_Folder.File("copy.ini")));
  doc.set_dirty(false);
  doc.release();
  EXPECT_EQ("[a]\nk=1\n", Bytes());
}

TEST_F(IniDocument, SaveThatFailsLosesTheChangeSilently) {
  xini_file_t doc(m_Folder.File("no/such/folder.ini"));
  doc["a"]["k"] = "1";
  EXPECT_FALSE(doc.dump(m_Folder.File("no/such/folder.ini")));
  doc.release();
  EXPECT_FALSE(doc.is_dirty());
  EXPECT_TRUE(ListFolder(m_Folder.Path()).empty());
}

TEST_F(IniDocument, FolderIsNoDocument) {
  {
    xini_file_t doc(m_Folder.Path());
    EXPECT_EQ("", Written(doc));
    EXPECT_FALSE(doc.load(m_Folder.Path()));
    EXPECT_FALSE(doc.dump(m_Folder.Path()));
    doc["a"]["k"] = "1";
  }
  EXPECT_TRUE(ListFolder(m_Folder.Path()).empty());
}

TEST_F(IniDocument, PathMayBeGivenFromTheDocumentItself) {
  xini_file_t doc(Load("path=" + Path() + "\n"));
  EXPECT_TRUE(doc.load(doc[""]["path"].value()));
  EXPECT_EQ(Path(), doc[""]["path"].value());
}

// Gives `m_Text` and then fails, as a disk does.
class CFailingBuffer : public std::streambuf {
 public:
  explicit CFailingBuffer(std::string text) : m_Text(std::move(text)) {
    setg(&m_Text[0], &m_Text[0], &m_Text[0] + m_Text.size());
  }

 protected:
  int_type underflow() override { throw std::runtime_error("I/O error"); }

 private:
  std::string m_Text;
};

TEST_F(IniDocument, ParsingEndsAtTheFirstFailureOfTheStream) {
  CFailingBuffer buffer("k=1\nl=2\ntorn");
  std::istream stream(&buffer);
  xini_file_t doc("");
  doc << stream;
  EXPECT_TRUE(stream.bad());
  EXPECT_EQ("k=1\nl=2\n", Written(doc));

  std::istringstream failed("k=1\n");
  failed.setstate(std::ios::failbit);
  xini_file_t other("");
  other << failed;
  EXPECT_EQ("", Written(other));
}

TEST_F(IniDocument, ExceptionOfTheStreamLeavesTheDocumentUsable) {
  CFailingBuffer buffer("k=1\nl=2\ntorn");
  std::istream stream(&buffer);
  stream.exceptions(std::ios::badbit);
  xini_file_t doc("");
  EXPECT_THROW(doc << stream, std::runtime_error);
  EXPECT_EQ("2", doc[""]["l"].value());
}

TEST_F(IniDocument, PushedNodesAreJudged) {
  xini_section_t section(nullptr);
  EXPECT_FALSE(section.has_end_nilline());
  EXPECT_FALSE(section.push_node(nullptr));
  const std::unique_ptr<xini_section_t> other(xini_section_t::try_create("[b]", nullptr));
  EXPECT_FALSE(section.push_node(other.get()));
  EXPECT_TRUE(section.push_node(xini_keyvalue_t::try_create("k=1", nullptr)));
  const std::unique_ptr<xini_keyvalue_t> same(xini_keyvalue_t::try_create("K=2", nullptr));
  EXPECT_FALSE(section.push_node(same.get()));
  EXPECT_TRUE(section.push_node(xini_comment_t::try_create("; c", nullptr)));
  EXPECT_FALSE(section.has_end_nilline());
  EXPECT_TRUE(section.push_node(new xini_nilline_t(nullptr)));
  EXPECT_TRUE(section.has_end_nilline());
  EXPECT_EQ("k=1\n; c\n\n", Written(section));
}

TEST_F(IniDocument, TailCommentsGoBeforeOrBehindTheOthers) {
  xini_section_t section(nullptr);
  std::list<xini_node_t*> out;
  EXPECT_EQ(0u, section.pop_tail_comment(out, true));
  for (const char* text : {"; 1", "; 2", "", "; 3", "", ""}) {
    EXPECT_TRUE(section.push_node(*text == '\0'
                                      ? static_cast<xini_node_t*>(new xini_nilline_t(nullptr))
                                      : xini_comment_t::try_create(text, nullptr)));
  }
  EXPECT_EQ(1u, section.pop_tail_comment(out, true));   // the last empty line
  EXPECT_EQ(2u, section.pop_tail_comment(out, true));   // "; 3" and its empty line
  EXPECT_EQ(3u, section.pop_tail_comment(out, false));  // the rest
  EXPECT_EQ(0u, section.pop_tail_comment(out, false));
  EXPECT_EQ("", Written(section));
  std::string text;
  for (const xini_node_t* node : out) {
    text += Written(*node);
    delete node;
  }
  EXPECT_EQ("; 3\n\n\n; 1\n; 2\n\n", text);
}

}  // namespace
}  // namespace Kelvik

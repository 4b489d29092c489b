#include "FocusName.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "RealClock.h"
#include "Rounds.h"

namespace Kelvik {
namespace {

TEST(FocusName, FreshOneMatchesNothing) {
  const CFocusName focus;
  EXPECT_FALSE(focus.IsSet());
  EXPECT_FALSE(focus.Matches("net"));
  EXPECT_FALSE(focus.Matches(""));
  EXPECT_FALSE(focus.Matches(nullptr));
}

TEST(FocusName, MatchesItsNameInAnyLetterCase) {
  CFocusName focus;
  focus.Set("Net");
  EXPECT_TRUE(focus.IsSet());
  for (const char* name : {"Net", "net", "NET", "nET"})
    EXPECT_TRUE(focus.Matches(name)) << name;
  for (const char* name : {"", "ne", "nets", "xNet", "disk"}) {
    EXPECT_FALSE(focus.Matches(name)) << name;
  }
  EXPECT_FALSE(focus.Matches(nullptr));
}

TEST(FocusName, TakesACopyAndTheLastOneCounts) {
  CFocusName focus;
  std::string name = "net";
  focus.Set(name.c_str());
  name = "mem";
  EXPECT_TRUE(focus.Matches("net"));
  focus.Set("disk");
  EXPECT_TRUE(focus.Matches("disk"));
  EXPECT_FALSE(focus.Matches("net"));
}

TEST(FocusName, NameMayHaveAnyLength) {
  CFocusName focus;
  for (size_t length : {1u, 15u, 16u, 255u, 256u, 100000u}) {
    const std::string name(length, 'n');
    focus.Set(name.c_str());
    EXPECT_TRUE(focus.Matches(name.c_str()));
    EXPECT_FALSE(focus.Matches((name + "n").c_str()));
  }
}

TEST(FocusName, NullEmptyAndClearUnsetIt) {
  CFocusName focus;
  focus.Set("net");
  focus.Set(nullptr);
  EXPECT_FALSE(focus.IsSet());
  focus.Set("net");
  focus.Set("");
  EXPECT_FALSE(focus.IsSet());
  EXPECT_FALSE(focus.Matches(""));
  focus.Set("net");
  focus.Clear();
  focus.Clear();
  EXPECT_FALSE(focus.IsSet());
  EXPECT_FALSE(focus.Matches("net"));
}

TEST(FocusName, CopyStartsEmptyAndAssignmentChangesNothing) {
  CFocusName focus;
  focus.Set("net");
  const CFocusName copy(focus);
  EXPECT_FALSE(copy.IsSet());
  focus = copy;
  EXPECT_TRUE(focus.Matches("net"));
}

// Every name that is ever set has one letter all through: a mixture of two would match none, and a
// name that was freed under its reader is the sanitizers' business.
TEST(FocusName, ReadersSeeOneWholeNameWhileWritersReplaceIt) {
  const std::string first(40, 'a');
  const std::string second(4000, 'b');
  CFocusName focus;
  std::atomic<bool> done(false);
  std::atomic<int> matches(0);
  std::vector<std::thread> readers;
  for (const std::string* mine : {&first, &second, &first}) {
    readers.emplace_back([&, mine] {
      while (!done) {
        if (focus.Matches(mine->c_str())) ++matches;
        EXPECT_FALSE(focus.Matches("c"));
      }
    });
  }
  std::vector<std::thread> writers;
  for (int writer = 0; writer < 2; ++writer) {
    writers.emplace_back([&] {
      for (int round = 0; round < Rounds() * 200; ++round) {
        focus.Set(first.c_str());
        focus.Set(second.c_str());
        if (round % 16 == 0) focus.Clear();
      }
    });
  }
  for (std::thread& writer : writers)
    writer.join();
  // The last words of both writers: whoever came last, a name is set and found.
  focus.Set(first.c_str());
  const int before = matches;
  while (matches == before)
    std::this_thread::yield();
  done = true;
  for (std::thread& reader : readers)
    reader.join();
  EXPECT_TRUE(focus.Matches(first.c_str()));
}

}  // namespace
}  // namespace Kelvik

#include "LogPlace.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "Rounds.h"

namespace Kelvik {
namespace {

uint32_t s_Now = 0;

uint32_t Now() {
  return __atomic_load_n(&s_Now, __ATOMIC_RELAXED);
}

// What each call of a row is answered: '.' passed over, else the number that was passed over.
std::string AskNth(tagKelvikPlace& place, uint32_t n, int calls) {
  std::string answers;
  for (int i = 0; i < calls; ++i) {
    uint32_t passedOver = 12345;
    answers += TakeNth(place, n, passedOver) ? std::to_string(passedOver) : ".";
  }
  return answers;
}

constexpr int kThreads = 4;

struct tagAnswers {
  uint32_t m_Taken = 0;
  uint32_t m_Told = 0;  // the sum of what was passed over
};

// Asks so often on each of kThreads threads at once; ask gets the thread's number. The sum of all.
template <class tAsk>
tagAnswers AskTogether(int calls, tAsk ask) {
  tagAnswers answers[kThreads];
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&own = answers[t], &ask, calls, t] {
      for (int i = 0; i < calls; ++i) {
        uint32_t passedOver = 0;
        if (!ask(t, passedOver)) continue;
        ++own.m_Taken;
        own.m_Told += passedOver;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  tagAnswers sum;
  for (const tagAnswers& own : answers) {
    sum.m_Taken += own.m_Taken;
    sum.m_Told += own.m_Told;
  }
  return sum;
}

TEST(LogPlace, FirstAndEveryNthCallIsTakenWithTheCountBetween) {
  struct {
    uint32_t m_N;
    const char* m_Answers;
  } const kRows[] = {{0, "00000000"},
                     {1, "00000000"},
                     {2, "0.1.1.1."},
                     {3, "0..2..2."},
                     {0xFFFFFFFFu, "0......."}};
  for (const auto& row : kRows) {
    tagKelvikPlace place = {};
    EXPECT_EQ(row.m_Answers, AskNth(place, row.m_N, 8)) << row.m_N;
  }
}

TEST(LogPlace, StepThatChangesCountsWhatWasReallyPassedOver) {
  tagKelvikPlace place = {};
  EXPECT_EQ("0.....", AskNth(place, 100, 6));
  EXPECT_EQ("5.1", AskNth(place, 2, 3)) << "five were passed over, though the step is two now";
  EXPECT_EQ("0", AskNth(place, 1, 1));
}

TEST(LogPlace, NothingIsCountedTwiceOrNotAtAllByManyThreads) {
  const int calls = 2000 * Rounds();
  constexpr uint32_t kStep = 7;
  tagKelvikPlace place = {};
  const tagAnswers sum = AskTogether(calls, [&place](int, uint32_t& passedOver) {
    if (!TakeNth(place, kStep, passedOver)) return false;
    EXPECT_TRUE(passedOver == kStep - 1 || passedOver == 0) << passedOver;
    return true;
  });
  const auto all = static_cast<uint32_t>(kThreads * calls);
  EXPECT_EQ((all + kStep - 1) / kStep, sum.m_Taken);
  EXPECT_EQ(all, sum.m_Taken + sum.m_Told + (place.m_Count - 1)) << "taken, told, and not told yet";
}

TEST(LogPlace, CallIsTakenWhenTheIntervalIsOver) {
  struct {
    uint32_t m_Now;
    const char* m_Answer;
  } const kRows[] = {{0, "0"},      {0, "."},      {99, "."},         {101, "2"},
                     {101, "."},    {200, "."},    {201, "2"},        {301, "0"},
                     {100000, "0"}, {100099, "."}, {0xFFFFFFF0u, "1"}};
  tagKelvikPlace place = {};
  for (const auto& row : kRows) {
    s_Now = row.m_Now;
    uint32_t passedOver = 0;
    EXPECT_EQ(row.m_Answer, TakeDue(place, Now, 100, passedOver) ? std::to_string(passedOver) : ".")
        << row.m_Now;
  }
}

TEST(LogPlace, ClockThatWrapsDoesNotStopThePlace) {
  tagKelvikPlace place = {};
  uint32_t passedOver = 0;
  s_Now = 0xFFFFFFF0u;
  EXPECT_TRUE(TakeDue(place, Now, 100, passedOver));
  s_Now = 0x10;  // 32 ms later
  EXPECT_FALSE(TakeDue(place, Now, 100, passedOver));
  s_Now = 0x60;
  EXPECT_TRUE(TakeDue(place, Now, 100, passedOver));
  EXPECT_EQ(1u, passedOver);
}

TEST(LogPlace, IntervalOfNoLengthTakesEveryCallOfOneThread) {
  tagKelvikPlace place = {};
  s_Now = 5;
  for (int i = 0; i < 3; ++i) {
    uint32_t passedOver = 1;
    EXPECT_TRUE(TakeDue(place, Now, 0, passedOver));
    EXPECT_EQ(0u, passedOver);
  }
}

TEST(LogPlace, WhatManyThreadsPassOverInTimeIsToldOnce) {
  const int calls = 2000 * Rounds();
  tagKelvikPlace place = {};
  s_Now = 1;
  const tagAnswers sum = AskTogether(calls, [&place](int thread, uint32_t& passedOver) {
    // The clock of all goes on with the work of one.
    if (thread == 0) __atomic_fetch_add(&s_Now, 1, __ATOMIC_RELAXED);
    return TakeDue(place, Now, 10, passedOver);
  });
  EXPECT_EQ(static_cast<uint32_t>(kThreads * calls), sum.m_Taken + sum.m_Told + place.m_Count);
  EXPECT_GE(sum.m_Taken, 1u);
  EXPECT_LE(sum.m_Taken, static_cast<uint32_t>(calls) / 10 + 1) << "never two in one interval";
}

TEST(LogPlace, NoteNamesTheNumber) {
  struct {
    uint32_t m_Number;
    const char* m_Note;
  } const kRows[] = {{0, ""},
                     {1, "(1 passed over) "},
                     {99, "(99 passed over) "},
                     {10000, "(10000 passed over) "},
                     {0xFFFFFFFFu, "(4294967295 passed over) "}};
  for (const auto& row : kRows) {
    char note[KELVIK_PASSED_OVER_BYTES];
    std::memset(note, 'x', sizeof(note));
    WritePassedOver(note, row.m_Number);
    EXPECT_STREQ(row.m_Note, note);
  }
}

}  // namespace
}  // namespace Kelvik

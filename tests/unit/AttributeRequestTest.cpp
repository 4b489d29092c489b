// Which requests are refused and in what order they are checked, those for a module, and many
// threads.

#include "AttributeRequest.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "AttributeRequestTools.h"
#include "ChildProcess.h"
#include "Kelvik.h"
#include "PrintedText.h"
#include "Rounds.h"

namespace Kelvik {
namespace {

// What the terminal shows of a report; the date-time is switched off.
std::string Report(const char* source, const char* function, int line, const char* message,
                   int number) {
  return "\033[33m[Kelvik][Internal] " + std::string(source) + " " + function + " " +
         std::to_string(line) + " " + message + " : " + std::to_string(number) + "\n\033[0m";
}

// --- Rejected requests ---

struct tagBadRequest {
  int m_Kind;
  int m_Option;
  const void* m_Value;
  int m_Length;
  const char* m_Message;  // null: silent
  int m_Number;
  int m_PlainLine;
  int m_PrefixedLine;
};

const tagBadRequest kBadRequests[] = {
    // Kind 1: the value is looked at first, and silently.
    {1, 0, kText, 3, nullptr, 0, 0, 0},
    {1, 1, kText, 0, nullptr, 0, 0, 0},
    {1, 2, kText, -1, nullptr, 0, 0, 0},
    {1, 2, nullptr, 4, nullptr, 0, 0, 0},
    {1, 3, kText, 3, nullptr, 0, 0, 0},
    {1, -1, nullptr, 0, nullptr, 0, 0, 0},
    {1, 3, kText, 4, "option invalid", 3, 339, 330},
    {1, -1, kText, 1, "option invalid", -1, 339, 330},
    {1, INT_MAX, kText, 8, "option invalid", INT_MAX, 339, 330},
    // Kind 2: the option is looked at first.
    {2, 0, kText, 4, "option invalid", 0, 347, 338},
    {2, 6, kText, 4, "option invalid", 6, 347, 338},
    {2, -1, kText, 4, "option invalid", -1, 347, 338},
    {2, INT_MIN, nullptr, 0, "option invalid", INT_MIN, 347, 338},
    {2, 6, kText, 3, "option invalid", 6, 347, 338},
    {2, 1, kText, 3, "value invalid", 3, 355, 346},
    {2, 5, kText, 0, "value invalid", 0, 355, 346},
    {2, 5, nullptr, 4, "value invalid", 4, 355, 346},
    // Kind 3: each option has its own check.
    {3, 0, kText, 3, "value invalid", 3, 376, 367},
    {3, 0, nullptr, 1, "value invalid", 1, 376, 367},
    {3, 1, kText, 0, "value invalid", 0, 385, 376},
    {3, 1, kText, -7, "value invalid", -7, 385, 376},
    {3, 1, kText, 257, "value invalid", 257, 385, 376},
    {3, 1, nullptr, 5, "value invalid", 5, 385, 376},
    {3, 3, kText, 0, "value invalid", 0, 407, 398},
    {3, 3, kText, 257, "value invalid", 257, 407, 398},
    {3, 3, nullptr, 5, "value invalid", 5, 407, 398},
    {3, 4, kText, 0, "value invalid", 0, 421, 412},
    {3, 4, kText, 257, "value invalid", 257, 421, 412},
    {3, 4, nullptr, 5, "value invalid", 5, 421, 412},
    {3, 5, kText, 3, "value invalid", 3, 434, 425},
    {3, 5, nullptr, 1, "value invalid", 1, 434, 425},
    {3, 6, kText, 5, "value invalid", 5, 446, 437},
    {3, 6, nullptr, 1, "value invalid", 1, 446, 437},
    {3, 7, kText, 0, "value invalid", 0, 455, 446},
    {3, 7, nullptr, 4, "value invalid", 4, 455, 446},
    {3, 8, kText, -1, "value invalid", -1, 466, 457},
    {3, 8, nullptr, 4, "value invalid", 4, 466, 457},
    {3, 9, kText, INT_MIN, "value invalid", INT_MIN, 477, 468},
    {3, 9, nullptr, 4, "value invalid", 4, 477, 468},
    {3, 10, kText, 4, "option invalid", 10, 489, 480},
    {3, -1, nullptr, 0, "option invalid", -1, 489, 480},
    // Other kinds.
    {0, 0, kText, 1, "attribute invalid", 0, 507, 498},
    {5, 1, kText, 4, "attribute invalid", 5, 507, 498},
    {-1, 1, kText, 4, "attribute invalid", -1, 507, 498},
    {INT_MIN, 0, nullptr, 0, "attribute invalid", INT_MIN, 507, 498},
};

void RejectAll(const tagRequestShell& shell, const char* source, const char* function,
               int tagBadRequest::*line) {
  CPrintedText printed;
  SwitchDateTimeOff();
  const tagAttribute before = Copy();
  for (const tagBadRequest& bad : kBadRequests) {
    SCOPED_TRACE(testing::Message() << source << " kind " << bad.m_Kind << " option "
                                    << bad.m_Option << " length " << bad.m_Length);
    EXPECT_EQ(eResultInvalid,
              RequestAttribute(shell, bad.m_Kind, bad.m_Option, bad.m_Value, bad.m_Length));
    EXPECT_EQ(bad.m_Message == nullptr
                  ? ""
                  : Report(source, function, bad.*line, bad.m_Message, bad.m_Number),
              printed.Take());
    EXPECT_TRUE(Equal(before, Copy()));
  }
}

CHILD_CASE(RejectBadRequests) {
  RejectAll(kPlainRequestShell, "Kelvik", "SetAttribute", &tagBadRequest::m_PlainLine);
  RejectAll(kPrefixedRequestShell, "KelvikForC", "Kelvik_SetAttribute",
            &tagBadRequest::m_PrefixedLine);
  return 0;
}

TEST(AttributeRequest, BadRequestIsReportedAndChangesNothing) {
  EXPECT_TRUE(Succeeded(RunChild("RejectBadRequests")));
}

CHILD_CASE(RejectWithErrorsOff) {
  CPrintedText printed;
  const char off = 0;
  EXPECT_EQ(0, RequestAttribute(kPlainRequestShell, 2, 4, &off, 1));
  for (const tagBadRequest& bad : kBadRequests) {
    EXPECT_EQ(3, RequestAttribute(kPlainRequestShell, bad.m_Kind, bad.m_Option, bad.m_Value,
                                  bad.m_Length));
  }
  EXPECT_EQ(3, RequestAttributeByModule(kPlainRequestShell, 2, 6, &off, 1, "net"));
  EXPECT_EQ("", printed.Take());
  return 0;
}

TEST(AttributeRequest, ReportPassesTheLevelMask) {
  EXPECT_TRUE(Succeeded(RunChild("RejectWithErrorsOff")));
}

// --- The reserved kind ---

CHILD_CASE(ReservedKind) {
  CPrintedText printed;
  const tagAttribute before = Copy();
  for (const tagRequestShell* shell : {&kPlainRequestShell, &kPrefixedRequestShell}) {
    EXPECT_EQ(0, RequestAttribute(*shell, 4, 0, &kOn, 4));
    EXPECT_EQ(0, RequestAttribute(*shell, 4, -1, nullptr, -1));
  }
  EXPECT_TRUE(Equal(before, Copy()));
  EXPECT_EQ("", printed.Take());
  return 0;
}

TEST(AttributeRequest, ReservedKindIsAcceptedWithoutEffect) {
  EXPECT_TRUE(Succeeded(RunChild("ReservedKind")));
}

// --- Requests for a module ---

struct tagBadModuleRequest {
  int m_Kind;
  int m_Option;
  const void* m_Value;
  int m_Length;
  const char* m_Module;
  int m_Result;
  const char* m_Message;  // null: silent
  int m_Number;
  int m_PlainLine;
};

const tagBadModuleRequest kBadModuleRequests[] = {
    // In the order of testing: module, kind, option, value.
    {2, 1, kText, 1, nullptr, 3, nullptr, 0, 0},
    {2, 1, kText, 1, "", 3, nullptr, 0, 0},
    {1, 9, nullptr, 0, nullptr, 3, nullptr, 0, 0},
    {2, 9, kText, 3, "", 3, nullptr, 0, 0},
    {1, 0, kText, 1, "net", 0, nullptr, 0, 0},
    {1, 9, nullptr, 0, "net", 0, nullptr, 0, 0},
    {3, 0, kText, 1, "net", 0, nullptr, 0, 0},
    {9, 9, kText, 3, "net", 0, nullptr, 0, 0},
    {2, 0, kText, 1, "net", 3, "option invalid", 0, 261},
    {2, 6, kText, 3, "net", 3, "option invalid", 6, 261},
    {2, -1, nullptr, 0, "net", 3, "option invalid", -1, 261},
    {2, 1, kText, 3, "net", 3, "value invalid", 3, 269},
    {2, 5, nullptr, 4, "net", 3, "value invalid", 4, 269},
    {2, 5, kText, 0, "net", 3, "value invalid", 0, 269},
};

CHILD_CASE(RejectBadModuleRequests) {
  CPrintedText printed;
  SwitchDateTimeOff();
  EXPECT_EQ(0, Context().InsertModuleName("net", nullptr));
  const tagAttribute global = Copy();
  const tagAttribute module = *Context().GetAttribute("net");
  for (const tagBadModuleRequest& bad : kBadModuleRequests) {
    SCOPED_TRACE(testing::Message() << "kind " << bad.m_Kind << " option " << bad.m_Option);
    EXPECT_EQ(bad.m_Result, RequestAttributeByModule(kPlainRequestShell, bad.m_Kind, bad.m_Option,
                                                     bad.m_Value, bad.m_Length, bad.m_Module));
    EXPECT_EQ(bad.m_Message == nullptr ? ""
                                       : Report("Kelvik", "SetAttributeByModule", bad.m_PlainLine,
                                                bad.m_Message, bad.m_Number),
              printed.Take());
    EXPECT_EQ(bad.m_Result,
              RequestAttributeByModule(kPrefixedRequestShell, bad.m_Kind, bad.m_Option, bad.m_Value,
                                       bad.m_Length, bad.m_Module));
    EXPECT_EQ(bad.m_Message == nullptr ? ""
                                       : Report("KelvikForC", "Kelvik_SetAttributeByModule",
                                                bad.m_PlainLine - 2, bad.m_Message, bad.m_Number),
              printed.Take());
    EXPECT_TRUE(Equal(global, Copy()));
    EXPECT_TRUE(Equal(module, *Context().GetAttribute("net")));
  }
  return 0;
}

TEST(AttributeRequestByModule, RequestIsCheckedInOrder) {
  EXPECT_TRUE(Succeeded(RunChild("RejectBadModuleRequests")));
}

CHILD_CASE(SwitchModuleLevels) {
  const uint64_t on = 1;
  const char off = 0;
  EXPECT_EQ(0, Context().InsertModuleName("net", nullptr));
  EXPECT_EQ(0, Context().InsertModuleName("zone", nullptr));
  const tagAttribute global = Copy();
  // "n" stands in both names; the first in the order of names counts. Letter case is ignored.
  for (const char* name : {"net", "n", "NE", "T"}) {
    for (int level = 1; level <= 5; ++level) {
      tagAttribute expected = *Context().GetAttribute("net");
      expected.m_LevelMask = static_cast<uint8_t>(expected.m_LevelMask | 1 << level);
      EXPECT_EQ(0, RequestAttributeByModule(kPlainRequestShell, 2, level, &on, 8, name));
      EXPECT_TRUE(Equal(expected, *Context().GetAttribute("net"))) << name << level;
      expected.m_LevelMask = static_cast<uint8_t>(expected.m_LevelMask & ~(1 << level));
      EXPECT_EQ(0, RequestAttributeByModule(kPrefixedRequestShell, 2, level, &off, 1, name));
      EXPECT_TRUE(Equal(expected, *Context().GetAttribute("net"))) << name << level;
    }
  }
  EXPECT_TRUE(Equal(global, Copy()));
  EXPECT_TRUE(Equal(global, *Context().GetAttribute("zone")));
  return 0;
}

TEST(AttributeRequestByModule, LevelGoesToTheFirstModuleWhoseNameContainsTheArgument) {
  EXPECT_TRUE(Succeeded(RunChild("SwitchModuleLevels")));
}

CHILD_CASE(SwitchUnknownModule) {
  const char on = 1;
  EXPECT_EQ(0, Context().InsertModuleName("net", nullptr));
  const tagAttribute module = *Context().GetAttribute("net");
  EXPECT_EQ(0, RequestAttributeByModule(kPlainRequestShell, 2, 1, &on, 1, "network"));
  EXPECT_EQ(0x32, Context().GetAttribute()->m_LevelMask);
  EXPECT_TRUE(Equal(module, *Context().GetAttribute("net")));
  EXPECT_EQ(Context().GetAttribute(), Context().GetAttribute("network"));
  EXPECT_EQ(1u, Context().m_ModuleAttribute.size());
  return 0;
}

TEST(AttributeRequestByModule, UnknownModuleChangesTheGlobalMask) {
  EXPECT_TRUE(Succeeded(RunChild("SwitchUnknownModule")));
}

// --- Threads ---

CHILD_CASE(RequestWhileLogging) {
  std::atomic<bool> done{false};
  Context().GetAttribute()->m_OutputConsole = 0;
  EXPECT_EQ(0, Context().InsertModuleName("net", nullptr));
  std::vector<std::thread> loggers;
  for (int i = 0; i < 2; ++i) {
    loggers.emplace_back([&done] {
      while (!done) {
        const int result = KLog(eLogLevelInfo, "net", "rx", "text\n");
        EXPECT_TRUE(result == eResultSuccess || result == eResultDisabled) << result;
      }
    });
  }
  std::vector<std::thread> setters;
  for (int level = 1; level <= 5; ++level) {
    setters.emplace_back([level] {
      for (int round = 0; round < Rounds() * 50; ++round) {
        const int value = round % 2;
        RequestAttribute(kPlainRequestShell, 2, level, &value, 4);
        RequestAttributeByModule(kPrefixedRequestShell, 2, level, &value, 4, "net");
        RequestAttribute(kPlainRequestShell, 3, 0, &value, 4);
        RequestAttribute(kPlainRequestShell, 3, 1, value == 0 ? "/tmp/a/" : "/tmp/bb/", 8);
        RequestAttribute(kPlainRequestShell, 3, 7, &round, 4);
        RequestAttribute(kPlainRequestShell, 3, 4, value == 0 ? "net" : "false", 5);
      }
      const int on = 1;
      RequestAttribute(kPlainRequestShell, 2, level, &on, 4);
      RequestAttributeByModule(kPrefixedRequestShell, 2, level, &on, 4, "net");
    });
  }
  for (std::thread& setter : setters)
    setter.join();
  done = true;
  for (std::thread& logger : loggers)
    logger.join();
  // No thread's bit was lost to another's.
  EXPECT_EQ(0x3e, Context().GetAttribute()->m_LevelMask & 0x3e);
  EXPECT_EQ(0x3e, Context().GetAttribute("net")->m_LevelMask & 0x3e);
  return 0;
}

TEST(AttributeRequest, LevelsSwitchedByManyThreadsKeepTheirBits) {
  EXPECT_TRUE(Succeeded(RunChild("RequestWhileLogging", {}, 30000)));
}

}  // namespace
}  // namespace Kelvik

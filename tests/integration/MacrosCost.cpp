// One row's work so many times, for callgrind: MacrosCost ROW CALLS. Levels are off in all rows but
// "made" and "made-call", which go nowhere: no output is on.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Kelvik.hpp"

namespace {

// Volatile, or clang works the dump out as it compiles.
const volatile unsigned char kPacket[16] = {0x45, 0x00, 0x05, 0xdc, 0x1c, 0x46, 0x40, 0x00,
                                            0x40, 0x06, 0xb1, 0xe6, 0xc0, 0xa8, 0x00, 0x11};

__attribute__((noinline)) const char* Dump(char* text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  char* at = text;
  for (const volatile unsigned char& each : kPacket) {
    const unsigned byte = each;
    *at++ = kDigits[byte >> 4];
    *at++ = kDigits[byte & 15];
    *at++ = ' ';
  }
  *at = '\0';
  return text;
}

char s_Text[64];

struct tagRow {
  const char* m_Name;
  void (*m_Call)(int i);
};

const tagRow kRows[] = {
    {"call", [](int i) { KLog(eLogLevelDebug, "net", "rx", "packet %d\n", i); }},
    {"macro", [](int i) { KELVIK_DEBUG("net", "rx", "packet %d\n", i); }},
    {"macro-at", [](int i) { KELVIK_DEBUG_AT("net", "rx", "packet %d\n", i); }},
    {"macro-every", [](int i) { KELVIK_DEBUG_EVERY_N(10, "net", "rx", "packet %d\n", i); }},
    {"macro-view",
     [](int i) { KELVIK_DEBUG(std::string_view("network", 3), "rx", "packet %d\n", i); }},
    {"call-dump",
     [](int i) { KLog(eLogLevelDebug, "net", "rx", "packet %d: %s\n", i, Dump(s_Text)); }},
    {"macro-dump", [](int i) { KELVIK_DEBUG("net", "rx", "packet %d: %s\n", i, Dump(s_Text)); }},
    {"made-call", [](int i) { KLog(eLogLevelError, "net", "rx", "packet %d\n", i); }},
    {"made", [](int i) { KELVIK_ERROR("net", "rx", "packet %d\n", i); }},
};

}  // namespace

int main(int argc, char** argv) {
  const char off = 0;
  SetAttribute(eAttributeOutput, eOutputTerminal, &off, sizeof(off));
  registerModule("net", "V1");
  for (const tagRow& row : kRows) {
    if (argc < 2) {
      std::puts(row.m_Name);
    } else if (argc == 3 && std::strcmp(row.m_Name, argv[1]) == 0) {
      const int calls = std::atoi(argv[2]);
      for (int i = 0; i < calls; ++i)
        row.m_Call(i);
      return 0;
    }
  }
  return argc < 2 ? 0 : 64;
}

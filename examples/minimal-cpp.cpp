// The least that a C++ program does to log. The macros work out an argument only when its record is
// made, and take names as std::string_view, without a copy on the heap.
//
//   c++ -std=c++17 minimal-cpp.cpp -o minimal-cpp $(pkg-config --cflags --libs kelvik)
//   ./minimal-cpp
//
// Prints, with the moment in front of each line
//   [eth0][link] up at 100 Mbit/s
//   [eth1][link] no carrier
//   [poll][wait] round 0
//   [poll][wait] (3 passed over) round 4
//   1 argument was worked out
#include <Kelvik.hpp>
#include <cstdio>
#include <string>
#include <string_view>

namespace {

int s_WorkedOut = 0;

int Speed() {
  ++s_WorkedOut;
  return 100;
}

}  // namespace

int main() {
  const char on = 1;
  Kelvik_SetAttribute(eAttributeLevel, eLogLevelInfo, &on, sizeof(on));
  Kelvik_Initialize();

  // Parts of one text: nothing ends them with a NUL.
  const std::string line = "eth0 eth1";
  const std::string_view first = std::string_view(line).substr(0, 4);
  const std::string_view second = std::string_view(line).substr(5);

  KELVIK_INFO(first, "link", "up at %d Mbit/s\n", Speed());
  KELVIK_DEBUG(first, "link", "debug is off: %d Mbit/s\n", Speed());
  KELVIK_ERROR(second, "link", "no carrier\n");
  for (int round = 0; round < 6; ++round)
    KELVIK_INFO_EVERY_N(4, "poll", "wait", "round %d\n", round);

  std::printf("%d argument was worked out\n", s_WorkedOut);
  return 0;
}

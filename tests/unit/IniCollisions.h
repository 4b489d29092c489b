// Names that the INI library's table of names cannot tell apart: all of one hash.

#ifndef KELVIK_INICOLLISIONS_H_
#define KELVIK_INICOLLISIONS_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Kelvik {

// Six letters, others for every number.
inline std::string Ending(uint32_t number) {
  std::string letters;
  for (uint64_t rest = number * 11400714819323198485u; letters.size() < 6; rest /= 26)
    letters += static_cast<char>('a' + rest % 26);
  return letters;
}

// 2^levels different names of equal length and equal FNV-1a value: at each level two endings that
// lead from one value to the same next one. Two of so many random values are often equal.
inline std::vector<std::string> CollidingNames(int levels) {
  constexpr uint32_t kEndings = 120000;
  std::vector<std::string> names = {""};
  uint32_t value = 2166136261u;
  uint32_t first = 0;
  while (names.size() < std::size_t{1} << levels) {
    std::vector<std::pair<uint32_t, uint32_t>> endings;  // the next value and the ending's number
    for (uint32_t number = first; number < first + kEndings; ++number) {
      uint32_t next = value;
      for (const char letter : Ending(number))
        next = (next ^ static_cast<unsigned char>(letter)) * 16777619u;
      endings.emplace_back(next, number);
    }
    first += kEndings;
    std::sort(endings.begin(), endings.end());
    auto same = endings.begin();
    while (same + 1 != endings.end() &&
           (same->first != (same + 1)->first || Ending(same->second) == Ending((same + 1)->second)))
      ++same;
    if (same + 1 == endings.end()) continue;
    value = same->first;
    std::vector<std::string> longer;
    for (const std::string& name : names) {
      longer.push_back(name + Ending(same->second));
      longer.push_back(name + Ending((same + 1)->second));
    }
    names.swap(longer);
  }
  return names;
}

}  // namespace Kelvik

#endif  // KELVIK_INICOLLISIONS_H_

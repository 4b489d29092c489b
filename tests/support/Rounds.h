// How often the long loops go round: the environment's KELVIK_ROUNDS, 20 without it. Everyday runs
// use the default, the soak hundreds.

#ifndef KELVIK_ROUNDS_H_
#define KELVIK_ROUNDS_H_

#include <cstdlib>

namespace Kelvik {

inline int Rounds() {
  const char* text = std::getenv("KELVIK_ROUNDS");
  const long rounds = text == nullptr ? 20 : std::strtol(text, nullptr, 10);
  return rounds < 1 ? 1 : (rounds > 1000000 ? 1000000 : static_cast<int>(rounds));
}

}  // namespace Kelvik

#endif  // KELVIK_ROUNDS_H_

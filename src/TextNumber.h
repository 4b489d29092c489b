// A decimal number at the start of a text.
#ifndef KELVIK_TEXTNUMBER_H_
#define KELVIK_TEXTNUMBER_H_

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace Kelvik {

// As atoi: leading white space, a sign, digits; 0 when there are none. A number past the range of
// int, where atoi leaves the result undefined, gives INT_MAX or INT_MIN. errno is left as it was.
inline int ParseInt(const char* text) {
  const int savedErrno = errno;
  const long value = std::strtol(text, nullptr, 10);
  errno = savedErrno;
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

}  // namespace Kelvik

#endif  // KELVIK_TEXTNUMBER_H_

// Letter-case-blind search in names (ASCII only, whatever the locale).
#ifndef KELVIK_TEXTMATCH_H_
#define KELVIK_TEXTMATCH_H_

namespace Kelvik {

inline unsigned char FoldCase(char c) {
  return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

// True when text contains part; the empty part is contained in every text.
inline bool ContainsIgnoreCase(const char* text, const char* part) {
  for (;; ++text) {
    const char* a = text;
    const char* b = part;
    while (*b != '\0' && FoldCase(*a) == FoldCase(*b)) {
      ++a;
      ++b;
    }
    if (*b == '\0') return true;
    if (*a == '\0') return false;  // what is left of the text is shorter than the part
  }
}

}  // namespace Kelvik

#endif  // KELVIK_TEXTMATCH_H_

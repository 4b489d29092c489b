// Cuts a stream of bytes into lines, in place.

#ifndef KELVIK_KELVIKLOG_LINEREADER_H_
#define KELVIK_KELVIKLOG_LINEREADER_H_

#include <cstddef>
#include <vector>

namespace KelvikLog {

// A line, or a part of one that is longer than the reader's buffer. The text stands in the buffer
// and stays valid until the reader's next call. m_Text[m_Length] may be changed for that time and
// must have its value back then, so that the text can be terminated where it stands.
struct tagLine {
  char* m_Text;          // without the line end
  std::size_t m_Length;  // bytes; any value may be among them, but '\n'
  bool m_IsStart;        // the line begins here; false for the later parts of a long one
  bool m_IsEnd;          // nothing of the line follows
};

// For one thread. Memory is allocated by the constructor only. Use in turn: Space, read into it,
// Add, Next until it returns false; at the end of the stream, Rest.
class CLineReader {
 public:
  // capacity: bytes of the buffer, at least 8. A longer line comes in parts.
  explicit CLineReader(std::size_t capacity);

  // Where the next bytes go; room is set to how many fit, at least 1 once Next has returned false.
  char* Space(std::size_t& room);
  // Takes the first count bytes that were put there.
  void Add(std::size_t count);

  // Gives the next complete line; or, when the buffer is full without a line end, a part that ends
  // with a whole character. A part may be followed by an empty one that only ends the line.
  bool Next(tagLine& line);
  // Gives what no line end follows, if there is anything, and makes the reader ready for another
  // stream.
  bool Rest(tagLine& line);

 private:
  tagLine Take(std::size_t length, std::size_t skipped, bool isEnd);

  std::vector<char> m_Buffer;  // one byte more than the capacity, for a terminator
  std::size_t m_Start = 0;     // the first byte that was not given out
  std::size_t m_End = 0;       // behind the last byte that was read
  std::size_t m_Seen = 0;      // no line end stands in [m_Start, m_Seen)
  bool m_IsStart = true;       // the byte at m_Start begins a line
};

}  // namespace KelvikLog

#endif  // KELVIK_KELVIKLOG_LINEREADER_H_

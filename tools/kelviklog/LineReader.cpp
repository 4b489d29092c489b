#include "LineReader.h"

#include <algorithm>
#include <cstring>

#include "Utf8.h"

namespace KelvikLog {

CLineReader::CLineReader(std::size_t capacity) : m_Buffer(std::max<std::size_t>(capacity, 8) + 1) {}

char* CLineReader::Space(std::size_t& room) {
  // What is left is less than a line: moving it costs little beside the read that follows.
  if (m_Start > 0) {
    std::memmove(m_Buffer.data(), m_Buffer.data() + m_Start, m_End - m_Start);
    m_End -= m_Start;
    m_Seen -= m_Start;
    m_Start = 0;
  }
  room = m_Buffer.size() - 1 - m_End;
  return m_Buffer.data() + m_End;
}

void CLineReader::Add(std::size_t count) {
  m_End += count;
}

bool CLineReader::Next(tagLine& line) {
  void* const found = std::memchr(m_Buffer.data() + m_Seen, '\n', m_End - m_Seen);
  if (found != nullptr) {
    const auto end = static_cast<std::size_t>(static_cast<char*>(found) - m_Buffer.data());
    line = Take(end - m_Start, 1, true);
    return true;
  }
  m_Seen = m_End;
  if (m_Start > 0 || m_End < m_Buffer.size() - 1) {
    return false;
  }
  line = Take(WholeCharacters(m_Buffer.data(), m_End), 0, false);
  return true;
}

bool CLineReader::Rest(tagLine& line) {
  const bool isAny = m_Start < m_End;
  if (isAny) {
    line = Take(m_End - m_Start, 0, true);
  }
  m_IsStart = true;
  return isAny;
}

tagLine CLineReader::Take(std::size_t length, std::size_t skipped, bool isEnd) {
  const tagLine line = {m_Buffer.data() + m_Start, length, m_IsStart, isEnd};
  m_Start += length + skipped;
  m_Seen = std::max(m_Seen, m_Start);
  m_IsStart = isEnd;
  return line;
}

}  // namespace KelvikLog

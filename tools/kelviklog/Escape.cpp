#include "Escape.h"

namespace KelvikLog {

namespace {

constexpr unsigned char kDelete = 0x7F;
constexpr unsigned char kFirstOverC1 = 0xA0;

unsigned char ByteAt(const char* text, std::size_t at) {
  return static_cast<unsigned char>(text[at]);
}

// A lead byte's part in a well-formed character: its length, and what its second byte may be, which
// leaves out overlong forms, surrogates and what lies beyond U+10FFFF.
struct tagLead {
  std::size_t m_Bytes;
  unsigned char m_SecondLeast;
  unsigned char m_SecondMost;
};

tagLead LeadOf(unsigned char lead) {
  if (lead >= 0xC2 && lead <= 0xDF) return {2, 0x80, 0xBF};
  if (lead == 0xE0) return {3, 0xA0, 0xBF};
  if (lead == 0xED) return {3, 0x80, 0x9F};
  if (lead >= 0xE1 && lead <= 0xEF) return {3, 0x80, 0xBF};
  if (lead == 0xF0) return {4, 0x90, 0xBF};
  if (lead >= 0xF1 && lead <= 0xF3) return {4, 0x80, 0xBF};
  if (lead == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

// Bytes of the well-formed character of several bytes that stands here, 0 when there is none.
std::size_t LongCharacter(const char* text, std::size_t length) {
  const tagLead lead = LeadOf(ByteAt(text, 0));
  if (lead.m_Bytes == 0 || lead.m_Bytes > length) return 0;
  const unsigned char second = ByteAt(text, 1);
  if (second < lead.m_SecondLeast || second > lead.m_SecondMost) return 0;
  for (std::size_t at = 2; at < lead.m_Bytes; ++at) {
    if ((ByteAt(text, at) & 0xC0) != 0x80) return 0;
  }
  return lead.m_Bytes;
}

struct tagPiece {
  std::size_t m_Bytes;
  bool m_IsControl;
};

// The character, or the byte that is none, at the start of a text that is not empty.
tagPiece FirstPiece(const char* text, std::size_t length) {
  const unsigned char first = ByteAt(text, 0);
  if (first < 0x80) return {1, (first < 0x20 && first != '\t') || first == kDelete};
  const std::size_t bytes = LongCharacter(text, length);
  if (bytes == 0) return {1, first < kFirstOverC1};
  return {bytes, first == 0xC2 && ByteAt(text, 1) < kFirstOverC1};
}

// Bytes in front of the first control character, or all.
std::size_t PlainBytes(const char* text, std::size_t length) {
  std::size_t at = 0;
  while (at < length) {
    const tagPiece piece = FirstPiece(text + at, length - at);
    if (piece.m_IsControl) break;
    at += piece.m_Bytes;
  }
  return at;
}

}  // namespace

bool NeedsEscape(const char* text, std::size_t length) {
  return PlainBytes(text, length) < length;
}

void AppendEscaped(std::string& out, const char* text, std::size_t length) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  while (length > 0) {
    const std::size_t plain = PlainBytes(text, length);
    out.append(text, plain);
    text += plain;
    length -= plain;
    if (length == 0) return;
    const std::size_t bytes = FirstPiece(text, length).m_Bytes;
    for (std::size_t at = 0; at < bytes; ++at) {
      const unsigned char byte = ByteAt(text, at);
      out += "\\x";
      out += kDigits[byte >> 4];
      out += kDigits[byte & 0x0F];
    }
    text += bytes;
    length -= bytes;
  }
}

}  // namespace KelvikLog

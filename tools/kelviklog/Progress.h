// The line on standard error that tells how much of a long file has been read.

#ifndef KELVIK_KELVIKLOG_PROGRESS_H_
#define KELVIK_KELVIKLOG_PROGRESS_H_

#include <chrono>
#include <cstdint>
#include <string>

namespace KelvikLog {

// Draws over its own line again and again; whoever writes to a terminal in between calls Clear
// first, so that nothing is mixed with it. For one thread.
class CProgress {
 public:
  // isOn: the line may be drawn. Standard error must be a terminal then.
  explicit CProgress(bool isOn) : m_IsOn(isOn) {}
  CProgress(const CProgress&) = delete;
  CProgress& operator=(const CProgress&) = delete;
  ~CProgress() { Clear(); }

  // An input begins. bytes: what there is to read; -1 when that is not known, as of a pipe: then
  // nothing is drawn.
  void Begin(const std::string& name, int64_t bytes);
  // So many bytes more were read.
  void Add(std::size_t bytes) { m_Done += static_cast<int64_t>(bytes); }
  // Takes the line away.
  void Clear();
  // Draws the line, if the input has taken long enough for one and the last one is old enough.
  void Draw();
  // The input has ended.
  void End();

 private:
  std::string Text() const;

  const bool m_IsOn;
  std::string m_Name;  // nothing in it drives a terminal
  int64_t m_Bytes = -1;
  int64_t m_Done = 0;
  std::chrono::steady_clock::time_point m_Due;
  std::string m_Line;      // as it was drawn last; may be drawn again at once
  bool m_IsShown = false;  // it stands on the terminal
};

}  // namespace KelvikLog

#endif  // KELVIK_KELVIKLOG_PROGRESS_H_

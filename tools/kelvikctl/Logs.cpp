// Every file of the ring is held open from when it is first seen until its name is gone from the
// ring. So no line is lost when a file is deleted before it was read, and none comes twice when a
// new file has the name, or even the inode number, of an old one: what is not held is new, what is
// held is read on from where it was. The price is that up to a ring's bytes stay on the disk for as
// long as the output is held up.

#include "Logs.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "Clock.h"
#include "Failure.h"
#include "LinePrinter.h"
#include "RingFile.h"
#include "RingIndex.h"
#include "RingWatch.h"
#include "StopSignal.h"

namespace KelvikCtl {

namespace {

// The limit of a wait for the system's word that something has changed.
constexpr int kLookMs = 1000;
// How soon to look for a file that is listed and not there yet; longer each time it is not.
constexpr int kFirstRetryMs = 5;
constexpr int kReportMs = 1000;

bool Contains(const std::vector<std::string>& texts, const std::string& text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

using Files = std::deque<std::unique_ptr<CRingFile>>;

class CLogs {
 public:
  CLogs(const tagOptions& options, int stopFd)
      : m_Options(options),
        m_StopFd(stopFd),
        m_Printer(CRecordFilter(options.m_Module, options.m_Text), stopFd) {}

  // Prints the ring as it is. False when the program should end.
  bool PrintRing() {
    OpenRing();
    std::vector<int64_t> ends;
    for (const auto& file : m_Files)
      ends.push_back(file->Size());
    const std::size_t first = m_Options.m_Lines ? SkipLines(ends) : 0;
    for (std::size_t at = 0; at < m_Files.size(); ++at) {
      CRingFile& file = *m_Files[at];
      if (at < first) {
        file.Seek(ends[at]);
        continue;
      }
      const bool isNewest = at + 1 == m_Files.size();
      if (!m_Printer.Print(file, m_Options.m_IsFollowing ? -1 : ends[at])) return false;
      if (!isNewest) m_Printer.PrintRest(true);
      if (isNewest && !m_Options.m_IsFollowing) m_Printer.PrintRest(false);
    }
    m_Newest = m_Files.empty() ? nullptr : m_Files.back().get();
    return m_Printer.Flush();
  }

  void Follow() {
    CRingWatch watch(m_Options.m_Config, m_StopFd);
    int retryMs = kFirstRetryMs;
    do {
      const auto ring = ReadRing(m_Options.m_Config);
      if (ring && !Look(*ring)) return;
      watch.Follow(m_Newest == nullptr ? -1 : m_Newest->Descriptor());
      retryMs = m_IsComing ? std::min(retryMs * 2, kLookMs) : kFirstRetryMs;
    } while (watch.Wait(m_IsComing ? retryMs : kLookMs));
  }

 private:
  // Opens what the ring has. A ring that goes on meanwhile is opened anew.
  void OpenRing() {
    constexpr int kTries = 20;
    for (int tries = 0; tries < kTries; ++tries) {
      const auto ring = ReadRing(m_Options.m_Config);
      if (!ring) throw CFailure(kExitNoAnswer, "cannot read " + m_Options.m_Config);
      m_Files.clear();
      for (const std::string& path : *ring) {
        if (auto file = CRingFile::Open(path)) m_Files.push_back(std::move(file));
      }
      m_Ring = *ring;
      if (ReadRing(m_Options.m_Config) == ring) return;
    }
  }

  // Sees to it that only the last lines are printed. Returns the first file to print.
  std::size_t SkipLines(const std::vector<int64_t>& ends) {
    uint64_t lines = 0;
    std::size_t first = m_Files.size();
    while (first > 0 && (lines < *m_Options.m_Lines || first == m_Files.size())) {
      --first;
      const bool isNewest = first + 1 == m_Files.size();
      lines += m_Printer.Count(*m_Files[first], ends[first], !isNewest || !m_Options.m_IsFollowing);
    }
    for (const auto& file : m_Files)
      file->Seek(0);
    m_Printer.Skip(lines - std::min(lines, *m_Options.m_Lines));
    return first;
  }

  // Prints what is new in the ring. False when the program should end.
  bool Look(std::vector<std::string> ring) {
    std::vector<const CRingFile*> before;
    for (const auto& file : m_Files)
      before.push_back(file.get());
    Files now = Collect(ring);
    // A ring that goes on meanwhile would show its files in a wrong order, or without some.
    constexpr int kTries = 10;
    for (int tries = 0; tries < kTries && !IsSteady(ring, now); ++tries) {
      for (auto& file : now)
        m_Files.push_back(std::move(file));
      ring = ReadRing(m_Options.m_Config).value_or(ring);
      now = Collect(ring);
    }
    if (m_Newest != nullptr && IsLate(ring, now, before)) ReportLoss();
    m_Ring = std::move(ring);
    m_Files.swap(now);
    CRingFile* const newest = m_Files.empty() ? m_Newest : m_Files.back().get();
    const bool goesOn = PrintNews(newest, now);
    // A file whose name is nobody's, as after the ring was cleared, goes when there is a new one.
    for (auto& file : now) {
      if (file != nullptr && file.get() == newest) m_Files.push_back(std::move(file));
    }
    m_Newest = newest;
    return goesOn;
  }

  // The ring's files that are there. What is left in m_Files has lost its name.
  Files Collect(const std::vector<std::string>& ring) {
    Files now;
    m_IsComing = false;
    for (const std::string& path : ring) {
      std::unique_ptr<CRingFile> file = TakeHeld(path);
      if (file == nullptr) file = CRingFile::Open(path);
      m_IsComing = file == nullptr && path == ring.back();
      if (file != nullptr) now.push_back(std::move(file));
    }
    return now;
  }

  bool IsSteady(const std::vector<std::string>& ring, const Files& now) const {
    auto file = now.begin();
    for (const std::string& path : ring) {
      const bool isHeld = file != now.end() && (*file)->Path() == path;
      const CRingFile::ePlace expected = isHeld ? (*file)->Place() : CRingFile::ePlace::kGone;
      if (expected == CRingFile::ePlace::kTaken) return false;
      if (isHeld) {
        if (expected == CRingFile::ePlace::kGone && file->get() != m_Newest) return false;
        ++file;
      } else if (access(path.c_str(), F_OK) == 0) {
        return false;
      }
    }
    return ReadRing(m_Options.m_Config).value_or(ring) == ring;
  }

  // Files came and went unseen: all are new at once, as a ring of one file always is, or one that
  // was not listed before is gone already.
  bool IsLate(const std::vector<std::string>& ring, const Files& now,
              const std::vector<const CRingFile*>& before) const {
    std::size_t fresh = 0;
    for (const auto& file : now)
      fresh += std::find(before.begin(), before.end(), file.get()) == before.end() ? 1 : 0;
    if (fresh > 1 && fresh == now.size()) return true;
    std::size_t listed = 0;
    for (const std::string& path : ring) {
      const bool isHeld = listed < now.size() && now[listed]->Path() == path;
      if (isHeld) ++listed;
      if (!isHeld && path != ring.back() && !Contains(m_Ring, path)) return true;
    }
    return false;
  }

  // dropped: files that have lost their names.
  bool PrintNews(const CRingFile* newest, const Files& dropped) {
    // Whatever the ring looks like now, what was written last comes first; a file that was left is
    // not written any more.
    if (m_Newest != nullptr) {
      if (!m_Printer.Print(*m_Newest, -1)) return false;
      if (m_Newest != newest) m_Printer.PrintRest(true);
    }
    for (const auto& file : dropped) {
      if (file != nullptr && !PrintOther(*file, newest)) return false;
    }
    for (const auto& file : m_Files) {
      if (!PrintOther(*file, newest)) return false;
    }
    return m_Printer.Flush();
  }

  bool PrintOther(CRingFile& file, const CRingFile* newest) {
    if (&file == m_Newest || file.IsAtEnd()) return true;
    // An older file that goes on all the same. Lines of two files must not mix.
    if (m_Newest == newest) m_Printer.PrintRest(true);
    if (!m_Printer.Print(file, -1)) return false;
    if (&file != newest) m_Printer.PrintRest(true);
    return true;
  }

  // Not for every turn of a ring that is too quick for us.
  void ReportLoss() {
    if (NowMs() < m_NextReport) return;
    m_NextReport = NowMs() + kReportMs;
    std::fputs("kelvikctl: files were deleted before they could be read: lines may be missing\n",
               stderr);
  }

  // The file that is held under that name, unless the name is another file's by now. One that was
  // deleted is of use only while it may still be written.
  std::unique_ptr<CRingFile> TakeHeld(const std::string& path) {
    for (auto& file : m_Files) {
      if (file == nullptr || file->Path() != path) continue;
      const CRingFile::ePlace place = file->Place();
      if (place == CRingFile::ePlace::kHere ||
          (place == CRingFile::ePlace::kGone && file.get() == m_Newest)) {
        // cppcheck-suppress returnStdMoveLocal ; it is the list's
        return std::move(file);
      }
    }
    return nullptr;
  }

  const tagOptions& m_Options;
  const int m_StopFd;
  CLinePrinter m_Printer;
  std::vector<std::string> m_Ring;  // as it was listed last
  int64_t m_NextReport = 0;
  Files m_Files;                  // those that were there, in the ring's order
  CRingFile* m_Newest = nullptr;  // of m_Files; its unfinished line is with the printer
  bool m_IsComing = false;        // the newest file is listed, and not there yet
};

}  // namespace

void PrintLogs(const tagOptions& options) {
  const CStopSignal stop(false);
  RequireFile(options.m_Config);
  CLogs logs(options, stop.Descriptor());
  if (logs.PrintRing() && options.m_IsFollowing) logs.Follow();
}

}  // namespace KelvikCtl

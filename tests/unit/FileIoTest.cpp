// Opening, writing and removing: what a hostile name, a strict umask, a short write or a missing
// standard descriptor does. The system calls are replaced for this program, so that each can fail.
#include "FileIo.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>

#include "ChildProcess.h"
#include "FileTools.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

struct tagWriteAnswer {
  ssize_t m_Result;  // at most so many bytes are taken; -1: fails
  int m_Errno;
};

// What the replaced calls do next. Without orders they are the system's own.
struct tagFaults {
  int m_WriteDescriptor = -1;  // the answers are for writes to it
  std::deque<tagWriteAnswer> m_WriteAnswers;
  int m_WriteCalls = 0;  // to m_WriteDescriptor
  int m_InterruptedOpens = 0;
  bool m_FailsStatus = false;
  int m_FailingFcntl = -1;  // the command that fails
  bool m_IsOtherUser = false;
};
tagFaults g_Faults;

ssize_t AnswerWrite(int descriptor, const void* data, size_t length) {
  if (descriptor != g_Faults.m_WriteDescriptor) return syscall(SYS_write, descriptor, data, length);
  ++g_Faults.m_WriteCalls;
  if (g_Faults.m_WriteAnswers.empty()) return syscall(SYS_write, descriptor, data, length);
  const tagWriteAnswer answer = g_Faults.m_WriteAnswers.front();
  g_Faults.m_WriteAnswers.pop_front();
  if (answer.m_Result < 0) {
    errno = answer.m_Errno;
    return -1;
  }
  const size_t taken = std::min(length, static_cast<size_t>(answer.m_Result));
  return taken == 0 ? 0 : syscall(SYS_write, descriptor, data, taken);
}

int AnswerFcntl(int descriptor, int command, long argument) {
  if (command == g_Faults.m_FailingFcntl) {
    errno = EMFILE;
    return -1;
  }
#if defined(SYS_fcntl64)
  return static_cast<int>(syscall(SYS_fcntl64, descriptor, command, argument));
#else
  return static_cast<int>(syscall(SYS_fcntl, descriptor, command, argument));
#endif
}

}  // namespace
}  // namespace Kelvik

extern "C" {

ssize_t write(int descriptor, const void* data, size_t length) {
  return Kelvik::AnswerWrite(descriptor, data, length);
}

int open(const char* path, int flags, ...) {
  if (Kelvik::g_Faults.m_InterruptedOpens > 0) {
    --Kelvik::g_Faults.m_InterruptedOpens;
    errno = EINTR;
    return -1;
  }
  va_list arguments;
  va_start(arguments, flags);
  const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
  va_end(arguments);
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int fcntl(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  const long argument = va_arg(arguments, long);
  va_end(arguments);
  return Kelvik::AnswerFcntl(descriptor, command, argument);
}

int fstat(int descriptor, struct stat* status) noexcept {
  if (Kelvik::g_Faults.m_FailsStatus) {
    errno = EIO;
    return -1;
  }
  return fstatat(descriptor, "", status, AT_EMPTY_PATH);
}

uid_t geteuid() noexcept {
  return static_cast<uid_t>(syscall(SYS_geteuid)) + (Kelvik::g_Faults.m_IsOtherUser ? 1U : 0U);
}

}  // extern "C"

namespace Kelvik {
namespace {

class CFileIoTest : public testing::Test {
 protected:
  CFileIoTest() { g_Faults = tagFaults(); }
  ~CFileIoTest() override { g_Faults = tagFaults(); }

  std::string File(const std::string& name = "a.log") const { return m_Folder.File(name); }

  // Opens, and closes again what was opened. Returns 0 or errno.
  static int ErrorOf(const std::string& path, eOpenTrust trust) {
    errno = 0;
    int32_t descriptor = OpenLogFile(path.c_str(), eOpenMode::kOver, trust);
    const int error = descriptor == -1 ? errno : 0;
    CloseDescriptor(descriptor);
    return error;
  }

  // Opens, writes the text and closes.
  static void Put(const std::string& path, eOpenMode mode, const std::string& text) {
    int32_t descriptor = OpenLogFile(path.c_str(), mode, eOpenTrust::kOwnName);
    ASSERT_NE(descriptor, -1) << strerror(errno);
    EXPECT_EQ(WriteAll(descriptor, text.data(), text.size(), nullptr), 0);
    CloseDescriptor(descriptor);
  }

  static mode_t ModeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
  }

  CTempDir m_Folder;
};

class OpenLogFileTest : public CFileIoTest {};
class OpenTerminalTest : public CFileIoTest {};
class WriteAllTest : public CFileIoTest {};
class RemoveFileTest : public CFileIoTest {};
class DescriptorTest : public CFileIoTest {};

constexpr eOpenTrust kTrusts[] = {eOpenTrust::kOwnName, eOpenTrust::kAsStands};

TEST_F(OpenLogFileTest, AnExistingFileIsOverwrittenWithoutBeingShortened) {
  ASSERT_TRUE(WriteFile(File(), "0123456789"));
  Put(File(), eOpenMode::kOver, "ab");
  EXPECT_EQ(ReadFile(File()), "ab23456789");
}

TEST_F(OpenLogFileTest, AppendingGoesBehindWhatStands) {
  ASSERT_TRUE(WriteFile(File(), "0123"));
  Put(File(), eOpenMode::kAppend, "ab");
  Put(File(), eOpenMode::kAppend, "cd");
  EXPECT_EQ(ReadFile(File()), "0123abcd");
}

TEST_F(OpenLogFileTest, AMissingFileIsMadeByBothModes) {
  Put(File("over"), eOpenMode::kOver, "x");
  Put(File("append"), eOpenMode::kAppend, "y");
  EXPECT_EQ(ReadFile(File("over")), "x");
  EXPECT_EQ(ReadFile(File("append")), "y");
}

TEST_F(OpenLogFileTest, ANewFileIsForItsOwnerAloneUnderEveryUmask) {
  for (const mode_t mask : {0U, 022U, 077U, 0200U, 0400U, 0777U}) {
    const std::string path = File(std::to_string(mask));
    const mode_t before = umask(mask);
    const int error = ErrorOf(path, eOpenTrust::kOwnName);
    umask(before);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(ModeOf(path), 0600U) << mask;
  }
}

TEST_F(OpenLogFileTest, TheModeOfAFileWithContentStays) {
  for (const mode_t mode : {0644U, 0660U, 0200U}) {
    ASSERT_TRUE(WriteFile(File(), "content"));
    ASSERT_EQ(chmod(File().c_str(), mode), 0);
    EXPECT_EQ(ErrorOf(File(), eOpenTrust::kOwnName), 0);
    EXPECT_EQ(ModeOf(File()), mode);
    ASSERT_EQ(unlink(File().c_str()), 0);
  }
}

TEST_F(OpenLogFileTest, TheModeOfAnothersEmptyFileStays) {
  ASSERT_TRUE(WriteFile(File(), ""));
  ASSERT_EQ(chmod(File().c_str(), 0200), 0);
  g_Faults.m_IsOtherUser = true;
  EXPECT_EQ(ErrorOf(File(), eOpenTrust::kOwnName), 0);
  EXPECT_EQ(ModeOf(File()), 0200U);
}

TEST_F(OpenLogFileTest, ASymbolicLinkUnderAnOwnNameIsNotFollowed) {
  ASSERT_TRUE(WriteFile(File("target"), "precious"));
  ASSERT_EQ(symlink(File("target").c_str(), File().c_str()), 0);
  EXPECT_EQ(ErrorOf(File(), eOpenTrust::kOwnName), ELOOP);
  EXPECT_EQ(ReadFile(File("target")), "precious");

  ASSERT_EQ(symlink(File("nothing").c_str(), File("dangling").c_str()), 0);
  EXPECT_EQ(ErrorOf(File("dangling"), eOpenTrust::kOwnName), ELOOP);
  EXPECT_FALSE(Exists(File("nothing")));
}

TEST_F(OpenLogFileTest, ASymbolicLinkFromTheConfigurationIsFollowed) {
  ASSERT_TRUE(WriteFile(File("target"), "0123"));
  ASSERT_EQ(symlink(File("target").c_str(), File().c_str()), 0);
  EXPECT_EQ(ErrorOf(File(), eOpenTrust::kAsStands), 0);
}

TEST_F(OpenLogFileTest, ALinkedFolderOnTheWayIsFollowed) {
  ASSERT_EQ(mkdir(File("folder").c_str(), 0700), 0);
  ASSERT_EQ(symlink(File("folder").c_str(), File("link").c_str()), 0);
  EXPECT_EQ(ErrorOf(File("link/a.log"), eOpenTrust::kOwnName), 0);
  EXPECT_TRUE(Exists(File("folder/a.log")));
}

TEST_F(OpenLogFileTest, AFolderIsAFailure) {
  for (const eOpenTrust trust : kTrusts) {
    EXPECT_EQ(ErrorOf(m_Folder.Path(), trust), EISDIR);
    EXPECT_EQ(ErrorOf(m_Folder.LogPath(), trust), EISDIR);
  }
}

TEST_F(OpenLogFileTest, AMissingFolderIsAFailure) {
  for (const eOpenTrust trust : kTrusts)
    EXPECT_EQ(ErrorOf(File("no/a.log"), trust), ENOENT);
}

TEST_F(OpenLogFileTest, AFifoWithoutReaderFailsAtOnce) {
  ASSERT_EQ(mkfifo(File().c_str(), 0600), 0);
  for (const eOpenTrust trust : kTrusts)
    EXPECT_EQ(ErrorOf(File(), trust), ENXIO);
}

TEST_F(OpenLogFileTest, AFifoWithAReaderIsOpenedAsItStandsOnly) {
  ASSERT_EQ(mkfifo(File().c_str(), 0600), 0);
  int32_t reader = open(File().c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_NE(reader, -1);
  const int before = OpenDescriptors();
  EXPECT_EQ(ErrorOf(File(), eOpenTrust::kOwnName), EINVAL);
  EXPECT_EQ(OpenDescriptors(), before);

  int32_t writer = OpenLogFile(File().c_str(), eOpenMode::kAppend, eOpenTrust::kAsStands);
  ASSERT_NE(writer, -1);
  EXPECT_EQ(fcntl(writer, F_GETFL, 0) & O_NONBLOCK, 0);
  CloseDescriptor(writer);
  CloseDescriptor(reader);
}

TEST_F(OpenLogFileTest, ADeviceIsOpenedAsItStandsOnly) {
  EXPECT_EQ(ErrorOf("/dev/null", eOpenTrust::kOwnName), EINVAL);
  EXPECT_EQ(ErrorOf("/dev/null", eOpenTrust::kAsStands), 0);
}

TEST_F(OpenLogFileTest, IsClosedOnExec) {
  for (const eOpenTrust trust : kTrusts) {
    int32_t descriptor = OpenLogFile(File().c_str(), eOpenMode::kOver, trust);
    ASSERT_NE(descriptor, -1);
    EXPECT_NE(fcntl(descriptor, F_GETFD, 0) & FD_CLOEXEC, 0);
    CloseDescriptor(descriptor);
  }
}

TEST_F(OpenLogFileTest, AnInterruptedOpenIsRetried) {
  g_Faults.m_InterruptedOpens = 3;
  EXPECT_EQ(ErrorOf(File(), eOpenTrust::kOwnName), 0);
  EXPECT_EQ(g_Faults.m_InterruptedOpens, 0);
}

TEST_F(OpenLogFileTest, WhatCannotBeLookedAtIsClosedAndRefused) {
  const int before = OpenDescriptors();
  g_Faults.m_FailsStatus = true;
  EXPECT_EQ(ErrorOf(File(), eOpenTrust::kOwnName), EIO);
  g_Faults.m_FailsStatus = false;
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(OpenLogFileTest, WhatCannotBeMadeBlockingIsClosedAndRefused) {
  const int before = OpenDescriptors();
  for (const int command : {F_GETFL, F_SETFL}) {
    g_Faults.m_FailingFcntl = command;
    EXPECT_EQ(ErrorOf("/dev/null", eOpenTrust::kAsStands), EMFILE);
    EXPECT_EQ(OpenTerminal("/dev/null"), -1);
    EXPECT_EQ(errno, EMFILE);
  }
  EXPECT_EQ(OpenDescriptors(), before);
}

CHILD_CASE(OpenWithoutStandardDescriptors) {
  for (int descriptor = 0; descriptor < 3; ++descriptor)
    close(descriptor);
  const int32_t file = OpenLogFile(args[0].c_str(), eOpenMode::kOver, eOpenTrust::kOwnName);
  const int32_t terminal = OpenTerminal("/dev/null");
  if (file < 3 || terminal < 3) return 1;
  if ((fcntl(file, F_GETFD, 0) & FD_CLOEXEC) == 0) return 2;
  for (int descriptor = 0; descriptor < 3; ++descriptor) {
    if (fcntl(descriptor, F_GETFD, 0) != -1) return 3;
  }
  return WriteAll(file, "text", 4, nullptr) == 0 ? 0 : 4;
}

TEST_F(OpenLogFileTest, WithoutStandardDescriptorsTheirNumbersStayFree) {
  EXPECT_TRUE(Succeeded(RunChild("OpenWithoutStandardDescriptors", {File()})));
  EXPECT_EQ(ReadFile(File()), "text");
}

TEST_F(OpenTerminalTest, IsReadWriteBlockingAndClosedOnExec) {
  int32_t descriptor = OpenTerminal("/dev/null");
  ASSERT_GE(descriptor, 3);
  const int flags = fcntl(descriptor, F_GETFL, 0);
  EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
  EXPECT_EQ(flags & O_NONBLOCK, 0);
  EXPECT_NE(fcntl(descriptor, F_GETFD, 0) & FD_CLOEXEC, 0);
  CloseDescriptor(descriptor);
}

TEST_F(OpenTerminalTest, AMissingDeviceIsNotMade) {
  EXPECT_EQ(OpenTerminal(File("no-tty").c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(Exists(File("no-tty")));
}

TEST_F(OpenTerminalTest, AFifoDoesNotBlockTheOpen) {
  ASSERT_EQ(mkfifo(File().c_str(), 0600), 0);
  int32_t descriptor = OpenTerminal(File().c_str());
  EXPECT_GE(descriptor, 3);
  CloseDescriptor(descriptor);
}

// The child leads a session that has no terminal yet; the first one it opens would become its.
CHILD_CASE(OpenTerminalInAFreshSession) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master == -1 || grantpt(master) != 0 || unlockpt(master) != 0) return 1;
  if (getsid(0) != getpid()) return 2;
  const int terminal = OpenTerminal(ptsname(master));
  if (terminal == -1 || isatty(terminal) != 1) return 3;
  if (open("/dev/tty", O_RDWR) != -1 || errno != ENXIO) return 4;
  return 0;
}

TEST_F(OpenTerminalTest, DoesNotBecomeTheControllingTerminal) {
  EXPECT_TRUE(Succeeded(RunChild("OpenTerminalInAFreshSession")));
}

TEST_F(WriteAllTest, AShortWriteIsCompletedAndAnInterruptedOneRetried) {
  int32_t descriptor = OpenLogFile(File().c_str(), eOpenMode::kOver, eOpenTrust::kOwnName);
  g_Faults.m_WriteDescriptor = descriptor;
  g_Faults.m_WriteAnswers = {{1, 0}, {-1, EINTR}, {3, 0}, {-1, EINTR}, {-1, EINTR}};
  size_t written = 99;
  EXPECT_EQ(WriteAll(descriptor, "0123456789", 10, &written), 0);
  EXPECT_EQ(written, 10U);
  EXPECT_EQ(g_Faults.m_WriteCalls, 6);
  EXPECT_EQ(ReadFile(File()), "0123456789");
  CloseDescriptor(descriptor);
}

TEST_F(WriteAllTest, AnErrorTellsWhatWentOutBefore) {
  int32_t descriptor = OpenLogFile(File().c_str(), eOpenMode::kOver, eOpenTrust::kOwnName);
  for (const int error : {ENOSPC, EIO, EAGAIN}) {
    g_Faults.m_WriteDescriptor = descriptor;
    g_Faults.m_WriteAnswers = {{4, 0}, {-1, error}};
    size_t written = 99;
    EXPECT_EQ(WriteAll(descriptor, "0123456789", 10, &written), error);
    EXPECT_EQ(written, 4U);
  }
  CloseDescriptor(descriptor);
}

TEST_F(WriteAllTest, ADeviceThatTakesNothingIsAnError) {
  int32_t descriptor = OpenLogFile(File().c_str(), eOpenMode::kOver, eOpenTrust::kOwnName);
  g_Faults.m_WriteDescriptor = descriptor;
  g_Faults.m_WriteAnswers = {{2, 0}, {0, 0}};
  size_t written = 99;
  EXPECT_EQ(WriteAll(descriptor, "0123", 4, &written), EIO);
  EXPECT_EQ(written, 2U);
  EXPECT_EQ(g_Faults.m_WriteCalls, 2);
  CloseDescriptor(descriptor);
}

TEST_F(WriteAllTest, OfNothingStillTriesTheDescriptor) {
  int32_t descriptor = OpenLogFile(File().c_str(), eOpenMode::kOver, eOpenTrust::kOwnName);
  g_Faults.m_WriteDescriptor = descriptor;
  size_t written = 99;
  EXPECT_EQ(WriteAll(descriptor, nullptr, 0, &written), 0);
  EXPECT_EQ(written, 0U);
  EXPECT_EQ(g_Faults.m_WriteCalls, 1);
  g_Faults.m_WriteAnswers = {{-1, EINTR}};
  EXPECT_EQ(WriteAll(descriptor, "", 0, nullptr), 0);
  EXPECT_EQ(g_Faults.m_WriteCalls, 3);
  CloseDescriptor(descriptor);
  EXPECT_EQ(WriteAll(-1, "", 0, nullptr), EBADF);
}

TEST_F(WriteAllTest, AFullDeviceIsReported) {
  int32_t descriptor = OpenTerminal("/dev/full");
  ASSERT_NE(descriptor, -1);
  size_t written = 99;
  EXPECT_EQ(WriteAll(descriptor, "text", 4, &written), ENOSPC);
  EXPECT_EQ(written, 0U);
  CloseDescriptor(descriptor);
}

TEST_F(RemoveFileTest, RemovesAFileAndSaysWhatIsMissing) {
  ASSERT_TRUE(WriteFile(File(), "x"));
  EXPECT_EQ(RemoveFile(File().c_str()), 0);
  EXPECT_FALSE(Exists(File()));
  EXPECT_EQ(RemoveFile(File().c_str()), ENOENT);
}

TEST_F(RemoveFileTest, AnEmptyPathIsMissing) {
  errno = 0;
  EXPECT_EQ(RemoveFile(""), ENOENT);
  EXPECT_EQ(errno, 0);  // not tried
}

TEST_F(RemoveFileTest, ASymbolicLinkGoesAndItsTargetStays) {
  ASSERT_TRUE(WriteFile(File("target"), "x"));
  ASSERT_EQ(symlink(File("target").c_str(), File().c_str()), 0);
  EXPECT_EQ(RemoveFile(File().c_str()), 0);
  EXPECT_FALSE(Exists(File()));
  EXPECT_TRUE(Exists(File("target")));
}

TEST_F(RemoveFileTest, AFolderWithContentStays) {
  ASSERT_TRUE(WriteFile(File(), "x"));
  EXPECT_EQ(RemoveFile(m_Folder.Path().c_str()), ENOTEMPTY);
  EXPECT_TRUE(Exists(File()));
}

TEST_F(DescriptorTest, IsClosedOnce) {
  int32_t descriptor = OpenTerminal("/dev/null");
  const int number = descriptor;
  CloseDescriptor(descriptor);
  EXPECT_EQ(descriptor, -1);
  EXPECT_EQ(fcntl(number, F_GETFD, 0), -1);
  errno = 0;
  CloseDescriptor(descriptor);
  EXPECT_EQ(descriptor, -1);
  EXPECT_EQ(errno, 0);  // nothing was closed
}

TEST_F(DescriptorTest, OfThreeOrAboveIsNotMoved) {
  int32_t descriptor = OpenTerminal("/dev/null");
  EXPECT_EQ(LiftDescriptor(descriptor), descriptor);
  CloseDescriptor(descriptor);
  errno = EACCES;
  EXPECT_EQ(LiftDescriptor(-1), -1);
  EXPECT_EQ(errno, EACCES);
}

CHILD_CASE(LiftStandardInput) {
  const int lifted = LiftDescriptor(0);
  if (lifted < 3 || fcntl(0, F_GETFD, 0) != -1) return 1;
  if ((fcntl(lifted, F_GETFD, 0) & FD_CLOEXEC) == 0) return 2;
  g_Faults.m_FailingFcntl = F_DUPFD_CLOEXEC;
  if (LiftDescriptor(1) != -1 || errno != EMFILE) return 3;
  g_Faults.m_FailingFcntl = -1;
  return fcntl(1, F_GETFD, 0) == -1 ? 0 : 4;
}

TEST_F(DescriptorTest, BelowThreeIsMovedAndClosedAlsoWhenThatFails) {
  EXPECT_TRUE(Succeeded(RunChild("LiftStandardInput")));
}

}  // namespace
}  // namespace Kelvik

#include "CallSeam.h"

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <cerrno>
#include <cstddef>

#include "OpenSeam.h"

namespace Kelvik {
namespace {

std::atomic<int> s_Failing{-1};  // the kind of call that fails, -1: none
std::atomic<int> s_Nth{0};
std::atomic<bool> s_ForGood{false};
std::atomic<int> s_Error{0};
int s_Calls[kCallCount];  // counted before any constructor has run, too: by atomic operations
thread_local bool t_Exempt = false;

}  // namespace

void FailCall(eCall call, int nth, bool forGood, int error) {
  s_Failing = -1;
  for (int& calls : s_Calls)
    __atomic_store_n(&calls, 0, __ATOMIC_SEQ_CST);
  s_Nth = nth;
  s_ForGood = forGood;
  s_Error = error;
  s_Failing = call;
}

void StopFailing() {
  s_Failing = -1;
}

int CallsSince(eCall call) {
  return __atomic_load_n(&s_Calls[call], __ATOMIC_SEQ_CST);
}

CExempt::CExempt() : m_Was(t_Exempt) {
  t_Exempt = true;
}

CExempt::~CExempt() {
  t_Exempt = m_Was;
}

namespace {

// Counts a call; true, with *error, when it shall fail.
bool Fails(eCall call, int* error) {
  if (t_Exempt) return false;
  const int number = __atomic_add_fetch(&s_Calls[call], 1, __ATOMIC_SEQ_CST);
  if (s_Failing != call) return false;
  if (number != s_Nth && !(s_ForGood && number > s_Nth)) return false;
  *error = s_Error;
  return true;
}

// The same for a call that says so by errno.
bool FailsWithErrno(eCall call) {
  int error = 0;
  if (!Fails(call, &error)) return false;
  errno = error;
  return true;
}

}  // namespace

bool AnswersOpen(const char*, int* descriptor) {
  *descriptor = -1;
  return FailsWithErrno(kOpen);
}

}  // namespace Kelvik

extern "C" {

ssize_t __real_write(int fd, const void* data, size_t length);
int __real_rename(const char* from, const char* to);
void* __real_malloc(size_t size);
int __real_pthread_create(pthread_t* handle, const pthread_attr_t* attribute,
                          void* (*routine)(void*), void* argument);

ssize_t __wrap_write(int fd, const void* data, size_t length);
ssize_t __wrap_write(int fd, const void* data, size_t length) {
  return Kelvik::FailsWithErrno(Kelvik::kWrite) ? -1 : __real_write(fd, data, length);
}

int __wrap_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to) {
  return Kelvik::FailsWithErrno(Kelvik::kRename) ? -1 : __real_rename(from, to);
}

int __wrap_fsync(int fd);
int __wrap_fsync(int) {
  return Kelvik::FailsWithErrno(Kelvik::kFsync) ? -1 : 0;
}

int __wrap_fdatasync(int fd);
int __wrap_fdatasync(int) {
  return Kelvik::FailsWithErrno(Kelvik::kFsync) ? -1 : 0;
}

void* __wrap_malloc(size_t size);
void* __wrap_malloc(size_t size) {
  return Kelvik::FailsWithErrno(Kelvik::kMalloc) ? nullptr : __real_malloc(size);
}

int __wrap_pthread_create(pthread_t* handle, const pthread_attr_t* attribute,
                          void* (*routine)(void*), void* argument);
int __wrap_pthread_create(pthread_t* handle, const pthread_attr_t* attribute,
                          void* (*routine)(void*), void* argument) {
  int error = 0;
  if (Kelvik::Fails(Kelvik::kThread, &error)) return error;
  return __real_pthread_create(handle, attribute, routine, argument);
}

}  // extern "C"

#include "FailingNew.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

thread_local int s_FailAt = 0;  // 0: every allocation succeeds
thread_local bool s_HasFailed = false;

void* Allocate(std::size_t size) noexcept {
  if (s_FailAt > 0 && --s_FailAt == 0) {
    s_HasFailed = true;
    return nullptr;
  }
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

namespace Kelvik {

void FailNew(int nth) {
  s_HasFailed = false;
  s_FailAt = nth;
}

bool StopFailingNew() {
  s_FailAt = 0;
  return s_HasFailed;
}

}  // namespace Kelvik

void* operator new(std::size_t size) {
  void* memory = Allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void* operator new[](std::size_t size) {
  return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}

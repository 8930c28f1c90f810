// Replaces the scalar operator new and delete of the test program (sanitizers included) with
// malloc and free, failing on demand.
#include "sync/FailingNew.h"

#include <cstdlib>
#include <new>

namespace {
thread_local bool failing = false;
}

namespace vantu::test {
FailingNew::FailingNew() { failing = true; }
FailingNew::~FailingNew() { failing = false; }
}  // namespace vantu::test

void* operator new(std::size_t size) {
  void* memory = failing ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return failing ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

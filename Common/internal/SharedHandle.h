// The platform object behind a handle class (VMutex, VEvent, VThread, the named objects), shared
// by the handle's copies, and the calls into it.
#ifndef VANTU_INTERNAL_SHAREDHANDLE_H
#define VANTU_INTERNAL_SHAREDHANDLE_H

#include <memory>
#include <new>
#include <utility>

#include "internal/FileErrors.h"

namespace vantu::internal {

// A new T, or null when memory runs out (the handle is then built without its platform object).
// Any other failure is rethrown as the matching VException.
template <typename T, typename... Args>
std::shared_ptr<T> MakeSharedOrNull(Args&&... args) {
  try {
    return std::make_shared<T>(std::forward<Args>(args)...);
  } catch (const std::bad_alloc&) {
    return nullptr;
  } catch (...) {
    RethrowAsVantuException();
  }
}

// Calls operation(); what it throws is rethrown as the matching VException.
template <typename Operation>
void Translated(Operation&& operation) {
  try {
    operation();
  } catch (...) {
    RethrowAsVantuException();
  }
}

}  // namespace vantu::internal

#endif  // VANTU_INTERNAL_SHAREDHANDLE_H

#include <vantu/VErrorHandler.h>

#include <iostream>
#include <mutex>

namespace {

std::recursive_mutex& HandlerMutex() {
  static std::recursive_mutex mutex;
  return mutex;
}

VErrorHandler& DefaultHandler() {
  static VErrorHandler handler;
  return handler;
}

// Guarded by HandlerMutex(); null means the default handler.
VErrorHandler* current = nullptr;

VErrorHandler& Current() { return current != nullptr ? *current : DefaultHandler(); }

// Calls the current handler's Exception(arguments...) under the mutex; swallows what it throws.
template <typename... Arguments>
void CallCurrent(const Arguments&... arguments) noexcept {
  try {
    std::lock_guard<std::recursive_mutex> lock(HandlerMutex());
    Current().Exception(arguments...);
  } catch (...) {
  }
}

}  // namespace

VErrorHandler::VErrorHandler() = default;
VErrorHandler::~VErrorHandler() = default;

void VErrorHandler::Exception(const VException& exception) {
  std::cerr << exception.Name() << ": " << exception.Message() << std::endl;
}

void VErrorHandler::Exception(const std::exception& exception) {
  std::cerr << exception.what() << std::endl;
}

void VErrorHandler::Exception() { std::cerr << "unknown exception" << std::endl; }

void VErrorHandler::Report(const VException& exception) noexcept { CallCurrent(exception); }

void VErrorHandler::Report(const std::exception& exception) noexcept { CallCurrent(exception); }

void VErrorHandler::Report() noexcept { CallCurrent(); }

VErrorHandler* VErrorHandler::Get() {
  std::lock_guard<std::recursive_mutex> lock(HandlerMutex());
  return &Current();
}

VErrorHandler* VErrorHandler::Set(VErrorHandler* handler) {
  std::lock_guard<std::recursive_mutex> lock(HandlerMutex());
  VErrorHandler* previous = &Current();
  current = handler == &DefaultHandler() ? nullptr : handler;
  return previous;
}

#include <vantu/VObserver.h>

#include <utility>

VObserver::VObserver(void* context, VNotification* notification, Callback callback)
    : context_(context), notification_(notification), callback_(callback) {}

VObserver::VObserver(VNotification* notification, Function function)
    : context_(nullptr),
      notification_(notification),
      callback_(nullptr),
      function_(std::move(function)) {}

VObserver::~VObserver() { delete notification_; }

void VObserver::Notify(void* argument) const {
  if (function_) {
    function_(argument);
  } else if (callback_ != nullptr) {
    callback_(context_, argument);
  }
}

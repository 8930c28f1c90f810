#include <vantu/VNotificationCenter.h>

#include <algorithm>
#include <memory>

#include <vantu/VAutoMutexLock.h>
#include <vantu/VMutex.h>

VNotificationCenter::VNotificationCenter() : list_(new std::list<VObserver*>) {}

VNotificationCenter::VNotificationCenter(const VNotificationCenter& other)
    : VBaseObject(other), list_(new std::list<VObserver*>(*other.list_)) {}

VNotificationCenter& VNotificationCenter::operator=(const VNotificationCenter& other) {
  if (this == &other) return *this;
  VBaseObject::operator=(other);
  std::list<VObserver*> copy(*other.list_);
  for (VObserver* observer : *list_) {
    if (std::find(copy.begin(), copy.end(), observer) == copy.end()) delete observer;
  }
  list_->swap(copy);
  return *this;
}

VNotificationCenter::~VNotificationCenter() {
  for (VObserver* observer : *list_) delete observer;
  delete list_;
}

void VNotificationCenter::PostNotification(VNotification* notification, void* argument) {
  const std::unique_ptr<VNotification> posted(notification);
  // A mutex of this call alone: it excludes nothing, and callers lock around the center.
  VMutex mutex;
  VAutoMutexLock lock(&mutex);
  if (!posted) return;
  const std::string& name = posted->GetName();
  for (VObserver* observer : *list_) {
    if (observer == nullptr || observer->GetNotification() == nullptr ||
        observer->GetNotification()->GetName() != name) {
      continue;
    }
    observer->Notify(argument);
  }
}

bool VNotificationCenter::HasObservers() const {
  VMutex mutex;
  VAutoMutexLock lock(&mutex);
  return std::any_of(list_->begin(), list_->end(),
                     [](const VObserver* observer) { return observer != nullptr; });
}

// VObserver: one registration in a VNotificationCenter's list: the name it waits for (its
// notification's name), a callback and the context handed back to it.
//
// Ownership: the observer owns its notification and deletes it; the center that lists the
// observer deletes the observer. Not copyable.
#ifndef VANTU_VOBSERVER_H
#define VANTU_VOBSERVER_H

#include <vantu/Export.h>
#include <vantu/VNotification.h>

class VANTU_API VObserver {
 public:
  // Called with the observer's context and the posted argument.
  using Callback = void (*)(void* context, void* argument);

  VObserver(void* context, VNotification* notification, Callback callback);
  VObserver(const VObserver&) = delete;
  VObserver& operator=(const VObserver&) = delete;
  virtual ~VObserver();

  void* GetContext() const { return context_; }
  VNotification* GetNotification() const { return notification_; }
  Callback GetCallback() const { return callback_; }

 private:
  void* context_;
  VNotification* notification_;
  Callback callback_;
};

#endif  // VANTU_VOBSERVER_H

// VObserver: one registration in a VNotificationCenter's list: the name it waits for (its
// notification's name), a callback and the context handed back to it.
//
// The callback is the classic pointer, called with the context and the posted argument, or a
// callable, called with the argument alone (the context is then null and GetCallback() is null).
// The observer owns a copy of the callable for its lifetime; it runs on the posting thread.
//
// Ownership: the observer owns its notification and deletes it; the center that lists the
// observer deletes the observer. Not copyable. Making the callable (std::function) may throw
// std::bad_alloc, before the observer takes the notification.
#ifndef VANTU_VOBSERVER_H
#define VANTU_VOBSERVER_H

#include <functional>

#include <vantu/Export.h>
#include <vantu/VNotification.h>

class VANTU_API VObserver {
 public:
  // Called with the observer's context and the posted argument.
  using Callback = void (*)(void* context, void* argument);
  using Function = std::function<void(void* argument)>;

  VObserver(void* context, VNotification* notification, Callback callback);
  // Calls `function(argument)`; an empty function makes an observer that calls nothing.
  VObserver(VNotification* notification, Function function);
  VObserver(const VObserver&) = delete;
  VObserver& operator=(const VObserver&) = delete;
  virtual ~VObserver();

  void* GetContext() const { return context_; }
  VNotification* GetNotification() const { return notification_; }
  Callback GetCallback() const { return callback_; }
  // Calls the callable, or the callback with the context; nothing when neither is set.
  void Notify(void* argument) const;

 private:
  void* context_;
  VNotification* notification_;
  Callback callback_;
  Function function_;
};

#endif  // VANTU_VOBSERVER_H

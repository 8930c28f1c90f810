// VNotificationCenter: an in-process publish/subscribe hub. Callers put observers in the list
// that GetList() gives; PostNotification calls, on the posting thread and in list order, every
// observer whose notification has the posted one's name (same bytes, case-sensitive).
//
// Ownership: the center owns the observers in its list and deletes them with itself;
// PostNotification takes the posted notification and deletes it before it returns, also when a
// callback throws. A copy lists the same observers: of two centers that share observers only one
// may be destroyed while they remain in both. Assignment deletes the target's observers that the
// source does not list, then lists the source's.
//
// Thread safety: none. The center takes no effective lock; callers that post from several
// threads, or change the list while a post runs, lock around the center. A callback must not
// change the list it is called from.
#ifndef VANTU_VNOTIFICATIONCENTER_H
#define VANTU_VNOTIFICATIONCENTER_H

#include <list>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VNotification.h>
#include <vantu/VObserver.h>

class VANTU_API VNotificationCenter : public VBaseObject {
 public:
  VNotificationCenter();
  VNotificationCenter(const VNotificationCenter& other);
  VNotificationCenter& operator=(const VNotificationCenter& other);
  ~VNotificationCenter() override;

  // Slot 3: calls the observers waiting for the notification's name with (context, argument),
  // then deletes the notification. A null notification calls nothing.
  virtual void PostNotification(VNotification* notification, void* argument);
  // Slot 4: at least one entry of the list is non-null.
  virtual bool HasObservers() const;

  // The list itself: add and remove observers here. Null entries are skipped.
  std::list<VObserver*>* GetList() const { return list_; }

 private:
  std::list<VObserver*>* list_;
};

#endif  // VANTU_VNOTIFICATIONCENTER_H

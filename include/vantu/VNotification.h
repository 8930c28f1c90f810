// VNotification: what a VNotificationCenter posts and what a VObserver waits for, named by its
// first field. Derive from it to carry more; the center and observers delete notifications
// through the virtual destructor.
#ifndef VANTU_VNOTIFICATION_H
#define VANTU_VNOTIFICATION_H

#include <string>

#include <vantu/Export.h>

class VANTU_API VNotification {
 public:
  explicit VNotification(std::string name);
  virtual ~VNotification();

  const std::string& GetName() const { return name_; }

 private:
  std::string name_;
};

#endif  // VANTU_VNOTIFICATION_H

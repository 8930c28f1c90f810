// VProcess: the process class; it holds nothing and does nothing beyond VBaseObject.
#ifndef VANTU_VPROCESS_H
#define VANTU_VPROCESS_H

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>

class VANTU_API VProcess : public VBaseObject {
 public:
  VProcess() = default;
  ~VProcess() override;
};

#endif  // VANTU_VPROCESS_H

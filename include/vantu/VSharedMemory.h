// VSharedMemory: read-write access to a region of memory that other processes open by the same
// name, with Windows' lifetime: the region lives while any process holds it (a later opener sees
// what the others wrote) and disappears with its last holder; a new region is all zero bytes.
// Access to the contents is not synchronised: pair the region with a VNamedMutex or VNamedEvent.
//
// Creation never throws: a null or empty name, a size below 1, a size the system cannot provide,
// a name whose region is already open with a smaller size, or whose region belongs to another
// user or has another mode than 0600 (regions are made 0600, for their creator alone) leaves the
// object without a region,
// and BeginData and EndData then throw a plain int -1. The first opener fixes the region's size;
// a later one may ask for that size or less. The data start on a page boundary.
//
// Ownership: copies, and the other objects of this process opened with the same name, share one
// mapping, which the last of them releases.
#ifndef VANTU_VSHAREDMEMORY_H
#define VANTU_VSHAREDMEMORY_H

#include <memory>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>

namespace vantu::platform {
class SharedRegion;
}

class VANTU_API VSharedMemory : public VBaseObject {
 public:
  VSharedMemory(const char* name, int size);
  VSharedMemory(const VSharedMemory&) = default;
  VSharedMemory& operator=(const VSharedMemory&) = default;
  ~VSharedMemory() override;

  // The region's first byte.
  char* BeginData() const;
  // One past the region's last byte: EndData() - BeginData() is the size asked for.
  char* EndData() const;

 private:
  std::shared_ptr<vantu::platform::SharedRegion> region_;
};

#endif  // VANTU_VSHAREDMEMORY_H

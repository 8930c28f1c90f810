// VBaseObject: the root of most libvantu classes.
//
// It holds no data, only the table of virtual operations, whose first three slots every
// derived class keeps: GetClassName (0), the destructor (1) and Clone (2). GetClassName
// answers "VBaseObject" for every object of every class; no class overrides it. Clone copies
// another object's state into this one; the root's version does nothing, and assignment is
// defined through it (self-assignment does nothing).
//
// Thread safety: the class keeps no shared state but one constant text, created when the
// library is loaded.
#ifndef VANTU_VBASEOBJECT_H
#define VANTU_VBASEOBJECT_H

#include <string>

#include <vantu/Export.h>

class VANTU_API VBaseObject {
 public:
  VBaseObject() = default;
  VBaseObject(const VBaseObject&) = default;

  // Calls Clone(other) unless other is this very object.
  VBaseObject& operator=(const VBaseObject& other);

  // Slot 0: the one shared text "VBaseObject".
  virtual const std::string& GetClassName() const;
  // Slot 1.
  virtual ~VBaseObject() = 0;
  // Slot 2: copies other's state into this object; does nothing here.
  virtual void Clone(const VBaseObject& other);
};

#endif  // VANTU_VBASEOBJECT_H

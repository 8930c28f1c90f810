#include <vantu/VBaseObject.h>

namespace {
// Built while the library loads, before any caller can reach GetClassName.
const std::string kClassName("VBaseObject");
}  // namespace

VBaseObject& VBaseObject::operator=(const VBaseObject& other) {
  if (this != &other) Clone(other);
  return *this;
}

const std::string& VBaseObject::GetClassName() const { return kClassName; }

VBaseObject::~VBaseObject() = default;

void VBaseObject::Clone(const VBaseObject&) {}

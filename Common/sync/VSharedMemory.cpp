#include <vantu/VSharedMemory.h>

#include <string>

#include "platform/NamedObjects.h"

VSharedMemory::VSharedMemory(const char* name, int size) {
  if (name == nullptr || *name == '\0' || size < 1) return;
  try {
    region_ = std::make_shared<vantu::platform::SharedRegion>(std::string(name),
                                                              static_cast<std::size_t>(size));
  } catch (...) {
    // No region: the failure shows at use, as a plain int -1.
  }
}

VSharedMemory::~VSharedMemory() = default;

char* VSharedMemory::BeginData() const {
  if (!region_) throw -1;
  return region_->Begin();
}

char* VSharedMemory::EndData() const {
  if (!region_) throw -1;
  return region_->End();
}

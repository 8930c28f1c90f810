#include "platform/NamedObjects.h"

#include <cerrno>
#include <cstddef>
#include <string>

#include "platform/AddressRange.h"
#include "platform/NamedObject_POSIX.h"

namespace vantu::platform {

using namespace named;

SharedRegion::SharedRegion(const std::string& name, std::size_t size) {
  if (size == 0) throw Error(EINVAL, "a shared region of 0 bytes");
  object_ = Acquire(Kind::kMemory, name, size);
  begin_ = object_->mapping.base + PageSize();
  size_ = size;
}

SharedRegion::~SharedRegion() = default;

}  // namespace vantu::platform

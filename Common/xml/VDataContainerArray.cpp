#include <vantu/VDataContainerArray.h>

#include <algorithm>

#include <vantu/VException.h>
#include <vantu/VXML.h>

VDataContainerArray::VDataContainerArray() = default;

VDataContainerArray::VDataContainerArray(const VDataContainerArray& other) {
  containers_.reserve(other.containers_.size());
  for (const auto& container : other.containers_) {
    const auto* xml = dynamic_cast<const VXML*>(container.get());
    if (xml == nullptr) {
      throw VantuInvalidArgumentException(
          "VDataContainerArray: cannot copy a container that is not a VXML");
    }
    containers_.push_back(std::make_unique<VXML>(*xml));
  }
}

VDataContainerArray& VDataContainerArray::operator=(const VDataContainerArray& other) {
  if (this != &other) {
    VDataContainerArray copy(other);
    containers_.swap(copy.containers_);
  }
  return *this;
}

VDataContainerArray::~VDataContainerArray() = default;

int VDataContainerArray::Add(VDataContainer* container) {
  if (container == nullptr) return -1;
  const auto found =
      std::find_if(containers_.begin(), containers_.end(),
                   [container](const auto& held) { return held.get() == container; });
  if (found != containers_.end()) return static_cast<int>(found - containers_.begin());
  std::unique_ptr<VDataContainer> owned(container);
  containers_.push_back(std::move(owned));
  return Count() - 1;
}

VDataContainer* VDataContainerArray::Get(int index) const {
  return index >= 0 && index < Count() ? containers_[static_cast<size_t>(index)].get() : nullptr;
}

int VDataContainerArray::Count() const { return static_cast<int>(containers_.size()); }

bool VDataContainerArray::Remove(int index) {
  if (index < 0 || index >= Count()) return false;
  containers_.erase(containers_.begin() + index);
  return true;
}

void VDataContainerArray::Clear() { containers_.clear(); }

#include <vantu/VHFItem.h>

VHFItem::VHFItem() = default;

VHFItem::VHFItem(const VFile& file) : file(file) {}

VHFItem::VHFItem(const VHFItem& other) = default;

VHFItem& VHFItem::operator=(const VHFItem& other) {
  file = other.file;
  if (this != &other) contents = other.contents;
  return *this;
}

VHFItem::~VHFItem() = default;

bool VHFItem::operator==(const VHFItem& other) const {
  return file.GetPath().Compare(other.file.GetPath()) == 0;
}

// VHFItem: one entry a hot folder found or delivered: a file, or (in group-folders mode) a
// sub-directory together with the bare names of the entries directly inside it.
//
// Two items are equal when their paths' texts compare equal byte for byte (case-sensitive).
#ifndef VANTU_VHFITEM_H
#define VANTU_VHFITEM_H

#include <list>

#include <vantu/Export.h>
#include <vantu/VFile.h>

class VANTU_API VHFItem {
 public:
  VHFItem();
  explicit VHFItem(const VFile& file);
  VHFItem(const VHFItem& other);
  VHFItem& operator=(const VHFItem& other);
  ~VHFItem();

  bool operator==(const VHFItem& other) const;

  VFile file;
  // For a sub-directory in group-folders mode: one VFile per bare entry name; empty otherwise.
  std::list<VFile> contents;
};

#endif  // VANTU_VHFITEM_H

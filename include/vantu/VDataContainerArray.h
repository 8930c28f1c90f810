// VDataContainerArray: an owning, ordered array of data containers.
//
// Add takes ownership of a container allocated with new; Remove and Clear delete. Copying the
// array clones each container (a VXML by its copy constructor); a container of another kind
// cannot be cloned, and copying an array that holds one throws VantuInvalidArgumentException,
// leaving the target as it was.
//
// Thread safety: none; one thread at a time.
#ifndef VANTU_VDATACONTAINERARRAY_H
#define VANTU_VDATACONTAINERARRAY_H

#include <memory>
#include <vector>

#include <vantu/Export.h>
#include <vantu/VDataContainer.h>

class VANTU_API VDataContainerArray {
 public:
  VDataContainerArray();
  VDataContainerArray(const VDataContainerArray& other);
  VDataContainerArray& operator=(const VDataContainerArray& other);
  ~VDataContainerArray();

  // Appends `container` and takes ownership of it; returns its index. A container already in
  // the array is not added again (its index is returned); null is ignored (-1). When the array
  // cannot grow, the container is deleted and std::bad_alloc thrown.
  int Add(VDataContainer* container);
  // The container at `index`, still owned by the array; null outside 0..Count()-1.
  VDataContainer* Get(int index) const;
  int Count() const;
  // Deletes the container at `index`; later ones move down. False outside 0..Count()-1.
  bool Remove(int index);
  // Deletes every container.
  void Clear();

 private:
  std::vector<std::unique_ptr<VDataContainer>> containers_;
};

#endif  // VANTU_VDATACONTAINERARRAY_H

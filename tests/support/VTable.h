// Reading the table of virtual operations under the Itanium C++ ABI: a pointer to a virtual
// member function holds 1 + the byte offset of its entry, and a virtual destructor takes two
// entries (complete and deleting), so documented slot k after the destructor sits at entry k + 1.
#ifndef VANTU_TESTS_SUPPORT_VTABLE_H
#define VANTU_TESTS_SUPPORT_VTABLE_H

#include <cstddef>
#include <cstring>

namespace vantu::test {

// The entry of a virtual member function, or -1 when it is not virtual.
template <typename MemberFunction>
std::ptrdiff_t TableEntry(MemberFunction function) {
  static_assert(sizeof(function) == 2 * sizeof(std::ptrdiff_t), "Itanium member pointer");
  std::ptrdiff_t raw[2];
  std::memcpy(raw, &function, sizeof(raw));
  if ((raw[0] & 1) == 0) return -1;
  return (raw[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

// The entry of documented slot `slot` in a class whose destructor is documented slot
// `destructorSlot`.
inline std::ptrdiff_t EntryOf(int slot, int destructorSlot) {
  return slot > destructorSlot ? slot + 1 : slot;
}

// A class that appends one virtual operation: its entry is the first after Base's table, so
// TableEntry(&Extended<Base>::Appended) counts Base's entries.
template <typename Base>
struct Extended : Base {
  virtual void Appended() {}
};

}  // namespace vantu::test

#endif  // VANTU_TESTS_SUPPORT_VTABLE_H

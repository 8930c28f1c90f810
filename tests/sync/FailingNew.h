// Makes memory run out on demand: while a FailingNew object lives, every operator new of its
// thread throws std::bad_alloc (the nothrow form returns null).
#ifndef VANTU_TESTS_SYNC_FAILINGNEW_H
#define VANTU_TESTS_SYNC_FAILINGNEW_H

namespace vantu::test {

class FailingNew {
 public:
  FailingNew();
  ~FailingNew();
  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;
};

}  // namespace vantu::test

#endif  // VANTU_TESTS_SYNC_FAILINGNEW_H

// Objects shared between processes by name: a recursive mutex, an auto-reset event and a region
// of memory, with the lifetime of Windows' named objects.
//
// - One name, one object: every process that opens the same kind and name shares one object for
//   as long as any process holds it; when the last holder lets go the object is removed, and a
//   later opener of the name gets a fresh one (an unlocked mutex, an event that is not set, a
//   region of zero bytes). Handles of one process that open the same name share one mapping.
// - Each object is one POSIX shared-memory object, "/vantu.<kind>.<escaped name>" (see
//   NamedObjectSystemName). Every holder keeps a shared flock on it; the holder that leaves last
//   (its exclusive, non-blocking flock succeeds) unlinks the name. An opener that finds itself the
//   only holder of an existing object (its owners died without removing it) rebuilds it as new.
// - An object belongs to the user who made it: it is made with mode 0600, and an existing file
//   that is not a regular file of the caller's effective user with mode 0600 and an object's
//   size is refused with EACCES, never adopted. An open waits for other processes (a builder, a
//   holder that leaves) in short pauses, never inside a blocking call, and gives up after 10 s
//   with ETIMEDOUT; it never holds up the opens and closes of other threads meanwhile.
// - A process forked from a holder becomes a holder of its own: after fork the child reopens
//   every object it inherited and takes its own shared lock.
//
// Errors are thrown as std::system_error; the name's bytes are never interpreted otherwise.
#ifndef VANTU_PLATFORM_NAMEDOBJECTS_H
#define VANTU_PLATFORM_NAMEDOBJECTS_H

#include <cstddef>
#include <memory>
#include <string>

namespace vantu::platform {

// "/vantu.<kind>.<name>", where the name's bytes outside [A-Za-z0-9._-] are written as "%XX"; an
// escaped name longer than 200 bytes keeps its first 160 bytes, then "~" and 16 hexadecimal
// digits of the 64-bit FNV-1a hash of the whole name. "~" is escaped in every name ("%7E"), so
// no name spells the shortened form of another.
std::string NamedObjectSystemName(const std::string& kind, const std::string& name);

class NamedObject;

// A recursive mutex that belongs to the thread that locked it. When its holder dies (thread or
// process), the next Lock anywhere takes it over.
class NamedMutex {
 public:
  explicit NamedMutex(const std::string& name);
  ~NamedMutex();
  NamedMutex(const NamedMutex&) = delete;
  NamedMutex& operator=(const NamedMutex&) = delete;

  void Lock();
  // Throws std::system_error(EPERM) when the calling thread does not hold the mutex.
  void Unlock();

 private:
  std::shared_ptr<NamedObject> object_;
  void* mutex_;  // the pthread_mutex_t in the object's mapping
};

// An event that resets itself: Set with nobody waiting leaves it set and the next Wait takes it;
// Set while it is set changes nothing; Set while threads wait releases one of them. A waiter that
// dies while it waits leaves the event working.
class NamedEvent {
 public:
  explicit NamedEvent(const std::string& name);
  ~NamedEvent();
  NamedEvent(const NamedEvent&) = delete;
  NamedEvent& operator=(const NamedEvent&) = delete;

  void Set();
  void Wait();

 private:
  std::shared_ptr<NamedObject> object_;
};

// A view of `size` bytes of the region called `name`, page-aligned. The first opener fixes the
// region's size; a later opener may ask for that size or less (more throws EINVAL). Size 0 throws
// EINVAL; a size the system cannot provide throws (ENOSPC, EFBIG, ...) rather than failing at use.
class SharedRegion {
 public:
  SharedRegion(const std::string& name, std::size_t size);
  ~SharedRegion();
  SharedRegion(const SharedRegion&) = delete;
  SharedRegion& operator=(const SharedRegion&) = delete;

  char* Begin() const { return begin_; }
  char* End() const { return begin_ + size_; }

 private:
  std::shared_ptr<NamedObject> object_;
  char* begin_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_NAMEDOBJECTS_H

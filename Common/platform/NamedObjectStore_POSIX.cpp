// The opening of named objects by name, their lifetime across processes and forks, and their
// names.
#include "platform/NamedObjects.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <limits>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <utility>

#include "platform/AddressRange.h"
#include "platform/Descriptor.h"
#include "platform/NamedObject_POSIX.h"

namespace vantu::platform {
namespace named {

void LockFailed(pthread_mutex_t* mutex, int error, const std::string& systemName) {
  if (error == EOWNERDEAD) error = pthread_mutex_consistent(mutex);
  if (error != 0) throw Error(error, "cannot lock " + systemName);
}

namespace {

const char* KindName(Kind kind) {
  switch (kind) {
    case Kind::kMutex:
      return "mutex";
    case Kind::kEvent:
      return "event";
    default:
      return "memory";
  }
}

// The bytes an object of `kind` takes; the region's data starts on the second page.
std::size_t TotalSize(Kind kind, std::size_t dataSize, const std::string& systemName) {
  switch (kind) {
    case Kind::kMutex:
      return sizeof(MutexBlock);
    case Kind::kEvent:
      return sizeof(EventBlock);
    default:
      if (dataSize > static_cast<std::size_t>(std::numeric_limits<off_t>::max()) - PageSize()) {
        throw Error(EFBIG, systemName);
      }
      return PageSize() + dataSize;
  }
}

void InitMutex(pthread_mutex_t* mutex, bool recursive) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  if (recursive) pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  const int error = pthread_mutex_init(mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  if (error != 0) throw Error(error, "pthread_mutex_init");
}

Mapping MapShared(int fd, std::size_t size, const std::string& systemName) {
  void* base = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (base == MAP_FAILED) throw Error(errno, systemName);
  return Mapping{static_cast<char*>(base), size, 0};
}

// Builds the object as new on a descriptor held exclusively: zero bytes, then the contents, then
// the ready word.
Mapping Build(Kind kind, int fd, std::size_t dataSize, const std::string& systemName) {
  const std::size_t total = TotalSize(kind, dataSize, systemName);
  if (::ftruncate(fd, 0) != 0 || ::ftruncate(fd, static_cast<off_t>(total)) != 0) {
    throw Error(errno, systemName);
  }
  // Reserve the pages now: a region the file system cannot hold fails here, not with SIGBUS later.
  if (const int error = ::posix_fallocate(fd, 0, static_cast<off_t>(total)); error != 0) {
    throw Error(error, systemName);
  }
  Mapping mapping = MapShared(fd, total, systemName);
  try {
    auto* header = new (mapping.base) Header{};
    header->dataSize = dataSize;
    if (kind == Kind::kMutex) {
      InitMutex(&reinterpret_cast<MutexBlock*>(mapping.base)->mutex, true);
    } else if (kind == Kind::kEvent) {
      auto* block = reinterpret_cast<EventBlock*>(mapping.base);
      block->signalled = 0;
      block->waiters = 0;
      new (&block->sequence) std::atomic<uint32_t>(0);
      InitMutex(&block->mutex, false);
    }
    header->ready.store(ReadyWord(kind), std::memory_order_release);
  } catch (...) {
    ::munmap(mapping.base, mapping.size);
    throw;
  }
  mapping.dataSize = dataSize;
  return mapping;
}

// Maps an object that another holder built; an empty mapping when it is not (yet) built.
Mapping MapBuilt(Kind kind, int fd, std::size_t dataSize, const std::string& systemName) {
  struct stat status;
  if (::fstat(fd, &status) != 0) throw Error(errno, systemName);
  const std::size_t size = static_cast<std::size_t>(status.st_size);
  if (size < TotalSize(kind, 0, systemName)) return {};
  Mapping mapping = MapShared(fd, size, systemName);
  const auto* header = reinterpret_cast<const Header*>(mapping.base);
  const uint32_t ready = header->ready.load(std::memory_order_acquire);
  mapping.dataSize = static_cast<std::size_t>(header->dataSize);
  if (ready == ReadyWord(kind) && kind == Kind::kMemory &&
      (mapping.dataSize < dataSize || size - PageSize() < mapping.dataSize)) {
    ::munmap(mapping.base, mapping.size);
    throw Error(EINVAL, systemName + " is smaller than the size asked for");
  }
  if (ready != ReadyWord(kind)) {
    ::munmap(mapping.base, mapping.size);
    if (ready != 0) throw Error(EINVAL, systemName + " is not an object of this library");
    return {};
  }
  return mapping;
}

// The name (a file in the directory `directory`) still refers to the object open on fd.
bool StillNamed(int fd, int directory, const char* file) {
  struct stat opened;
  struct stat named;
  return ::fstat(fd, &opened) == 0 &&
         ::fstatat(directory, file, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

// An object belongs to the user who made it, as a Windows named object carries its creator's
// default security: only a regular file of the caller's effective user, with mode 0600, is taken.
// Its size is 0 (being built, or left by a builder that died) or that of an object of `kind`.
// Anything else is refused (EACCES), never adopted: another user could read the data, truncate
// the file under the mapping or hold its lock.
void CheckOwnership(Kind kind, int fd, const std::string& systemName) {
  struct stat status;
  if (::fstat(fd, &status) != 0) throw Error(errno, systemName);
  const char* refusal = nullptr;
  if (!S_ISREG(status.st_mode)) {
    refusal = " is not a regular file";
  } else if (status.st_uid != ::geteuid()) {
    refusal = " belongs to another user";
  } else if ((status.st_mode & 07777) != 0600) {
    refusal = " has another mode than 0600";
  } else if (status.st_size != 0 &&
             (kind == Kind::kMemory
                  ? static_cast<std::size_t>(status.st_size) <= PageSize()
                  : static_cast<std::size_t>(status.st_size) != TotalSize(kind, 0, systemName))) {
    refusal = " has the size of no object of its kind";
  }
  if (refusal != nullptr) throw Error(EACCES, systemName + refusal);
}

}  // namespace
}  // namespace named

using namespace named;

bool NamedObject::Leave() {
  if (kind == Kind::kMutex && HeldByAnotherThreadOfThisProcess()) return false;
  if (inherited) return true;  // the lock is the parent's
  if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
    ::shm_unlink(systemName.c_str());
  } else {
    ::flock(fd, LOCK_UN);
  }
  return true;
}

void NamedObject::Unmap() {
  ::munmap(mapping.base, mapping.size);
  ::close(fd);
}

namespace {

// The objects this process holds, by system name. An entry is null while a thread opens its
// object, which it does without the mutex: an open may wait for another process (a builder, a
// lock). Another thread that wants the same name waits for that open to finish, and for a
// pending release (an entry whose object has expired) to be done, so that a name is never open
// twice in this process. Leaving a name (unlink or unlock) happens under the mutex, which fork
// also takes, so a child never inherits an object half left; unmapping comes after, without it.
struct Registry {
  std::mutex mutex;
  std::condition_variable changed;  // an entry was filled in or removed
  std::unordered_map<std::string, NamedObject*> objects;
  bool orphans = false;  // in a forked child: entries whose opener or releaser did not follow
};

Registry& TheRegistry();

void BeforeFork() { TheRegistry().mutex.lock(); }
void AfterForkInParent() { TheRegistry().mutex.unlock(); }

// The child shares its parent's open file descriptions, and with them their locks: it reopens
// each object to hold a lock of its own. Only async-signal-safe calls here.
void AfterForkInChild() {
  Registry& registry = TheRegistry();
  // The parent's other threads are not in this process: start the condition afresh. The names
  // they were opening, and the objects they were releasing, are dropped at the child's first
  // open; until then the child holds those objects too.
  new (&registry.changed) std::condition_variable;
  registry.orphans = true;
  for (auto& entry : registry.objects) {
    if (entry.second == nullptr) continue;
    NamedObject& object = *entry.second;
    object.orphan = object.weak_from_this().expired();
    char path[32] = "/proc/self/fd/";
    char digits[16];
    int length = 0;
    for (unsigned value = static_cast<unsigned>(object.fd); length == 0 || value != 0;
         value /= 10) {
      digits[length++] = static_cast<char>('0' + value % 10);
    }
    char* end = path + 14;
    while (length > 0) *end++ = digits[--length];
    *end = '\0';
    const int fd = ::open(path, O_RDWR | O_CLOEXEC);
    object.inherited =
        fd < 0 || ::flock(fd, LOCK_SH | LOCK_NB) != 0 || ::dup3(fd, object.fd, O_CLOEXEC) < 0;
    if (fd >= 0) ::close(fd);
  }
  registry.mutex.unlock();
}

Registry& TheRegistry() {
  // Never destroyed: handles in static objects may close after the registry's destructor ran.
  static Registry* const registry = [] {
    pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
    return new Registry;
  }();
  return *registry;
}

// A child forked between Leave and Unmap keeps a copy of the mapping and the descriptor, which
// hold no lock: they cost it memory, never the object its lifetime.
void Release(NamedObject* object) {
  bool left;
  if (object->registered) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    auto found = registry.objects.find(object->systemName);
    if (found != registry.objects.end() && found->second == object) registry.objects.erase(found);
    left = object->Leave();
    registry.changed.notify_all();
  } else {
    left = object->Leave();
  }
  if (left) object->Unmap();
  delete object;
}

// Opens the object, creating or rebuilding it when this process is its only holder. Waits for
// other processes only in short pauses, and at most 10 seconds in all: then throws ETIMEDOUT.
NamedObject* Open(Kind kind, const std::string& systemName, std::size_t dataSize) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(10);
  const char* file = systemName.c_str() + 1;  // shm_open's names are files in /dev/shm
  Descriptor directory(::open("/dev/shm", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.get() < 0) throw Error(errno, "/dev/shm");
  constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  for (bool pause = false;; pause = true) {
    if (pause) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (Clock::now() > deadline) {
      throw Error(ETIMEDOUT, systemName + " stays locked or unbuilt by another process");
    }
    int fd = ::openat(directory.get(), file, kFlags | O_CREAT | O_EXCL, 0600);
    const bool created = fd >= 0;
    if (fd < 0 && errno == EEXIST) fd = ::openat(directory.get(), file, kFlags);
    if (fd < 0 && errno == ENOENT) continue;  // removed between the two calls
    if (fd < 0) throw Error(errno, systemName);
    Descriptor descriptor(fd);
    if (created && ::fchmod(fd, 0600) != 0) throw Error(errno, systemName);  // despite the umask
    CheckOwnership(kind, fd, systemName);
    // Exclusive: no other holder, so the object is new or was left by processes that died.
    const bool alone = ::flock(fd, LOCK_EX | LOCK_NB) == 0;
    if (!alone && ::flock(fd, LOCK_SH | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK && errno != EINTR) throw Error(errno, systemName);
      continue;  // being built or released: look again after a pause
    }
    if (!StillNamed(fd, directory.get(), file)) continue;  // its last holder unlinked it meanwhile
    if (alone) {
      Mapping mapping;
      try {
        mapping = Build(kind, fd, dataSize, systemName);
      } catch (...) {
        ::unlinkat(directory.get(), file, 0);
        throw;
      }
      ::flock(fd, LOCK_SH);  // a downgrade: always granted at once
      return new NamedObject(kind, systemName, descriptor.release(), mapping);
    }
    const Mapping mapping = MapBuilt(kind, fd, dataSize, systemName);
    if (mapping.base != nullptr) {
      return new NamedObject(kind, systemName, descriptor.release(), mapping);
    }
    // Its builder died half-way; another try finds this process alone, or another one building.
  }
}

}  // namespace

std::shared_ptr<NamedObject> named::Acquire(Kind kind, const std::string& name,
                                            std::size_t dataSize) {
  const std::string systemName = NamedObjectSystemName(KindName(kind), name);
  Registry& registry = TheRegistry();
  std::shared_ptr<NamedObject> shared;  // released, when it must be, outside the registry's lock
  {
    std::unique_lock<std::mutex> lock(registry.mutex);
    if (registry.orphans) {
      for (auto entry = registry.objects.begin(); entry != registry.objects.end();) {
        NamedObject* object = entry->second;
        if (object != nullptr && !object->orphan) {
          ++entry;
          continue;
        }
        if (object != nullptr && object->Leave()) object->Unmap();
        delete object;
        entry = registry.objects.erase(entry);
      }
      registry.orphans = false;
    }
    for (;;) {
      const auto found = registry.objects.find(systemName);
      if (found == registry.objects.end()) {
        registry.objects.emplace(systemName, nullptr);  // this thread opens it
        break;
      }
      if (found->second != nullptr && (shared = found->second->weak_from_this().lock())) break;
      registry.changed.wait(lock);  // another thread opens it, or releases it
    }
  }
  if (shared) {
    if (shared->mapping.dataSize < dataSize) {
      throw Error(EINVAL, systemName + " is smaller than the size asked for");
    }
    return shared;
  }
  try {
    // Not yet registered, the object is released without the registry's lock.
    shared.reset(Open(kind, systemName, dataSize), Release);
  } catch (...) {
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.objects.erase(systemName);
    registry.changed.notify_all();
    throw;
  }
  std::lock_guard<std::mutex> lock(registry.mutex);
  registry.objects[systemName] = shared.get();
  shared->registered = true;
  registry.changed.notify_all();
  return shared;
}

std::string NamedObjectSystemName(const std::string& kind, const std::string& name) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string escaped;
  escaped.reserve(name.size());
  for (const unsigned char c : name) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' ||
        c == '_' || c == '-') {
      escaped += static_cast<char>(c);
    } else {
      escaped += '%';
      escaped += kHex[c >> 4];
      escaped += kHex[c & 15];
    }
  }
  if (escaped.size() > 200) {
    uint64_t hash = 14695981039346656037ull;  // FNV-1a
    for (const unsigned char c : name) hash = (hash ^ c) * 1099511628211ull;
    escaped.resize(160);
    escaped += '~';  // escaped everywhere else (%7E): no name spells a shortened one
    for (int shift = 60; shift >= 0; shift -= 4) escaped += kHex[(hash >> shift) & 15];
  }
  return "/vantu." + kind + "." + escaped;
}

}  // namespace vantu::platform

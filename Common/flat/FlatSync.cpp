// The flat event, named-event, thread and shared-memory functions of <vantu/vantu.h>. A handle is
// the object's address, which is also the address of its VBaseObject part.
#include <vantu/vantu.h>

#include <new>
#include <string>

#include <vantu/VBaseObject.h>
#include <vantu/VEvent.h>
#include <vantu/VNamedEvent.h>
#include <vantu/VSharedMemory.h>
#include <vantu/VThread.h>

namespace {

template <typename T>
T* As(void* handle) {
  return static_cast<T*>(static_cast<VBaseObject*>(handle));
}

template <typename T>
void* Handle(T* object) {
  return static_cast<VBaseObject*>(object);
}

}  // namespace

extern "C" {

void* vantu_EventCreate(void) {
  try {
    return Handle(new VEvent(false, false));
  } catch (...) {
    return nullptr;
  }
}

void vantu_EventSet(void* handle) {
  if (handle == nullptr) return;
  try {
    As<VEvent>(handle)->Set();
  } catch (...) {
  }
}

void vantu_EventReset(void* handle) {
  if (handle == nullptr) return;
  try {
    As<VEvent>(handle)->Reset();
  } catch (...) {
  }
}

void vantu_EventWait(void* handle) {
  if (handle == nullptr) return;
  try {
    As<VEvent>(handle)->Wait();
  } catch (...) {
  }
}

void vantu_EventDestroy(void* handle) { delete static_cast<VBaseObject*>(handle); }

// The other destroy functions are this very function.
void vantu_NamedEventDestroy(void* handle) __attribute__((alias("vantu_EventDestroy")));
void vantu_SharedMemoryDestroy(void* handle) __attribute__((alias("vantu_EventDestroy")));
void vantu_ThreadDestroy(void* handle) __attribute__((alias("vantu_EventDestroy")));

void* vantu_NamedEventCreate(const char* name) {
  try {
    return Handle(new VNamedEvent(name != nullptr ? std::string(name) : std::string()));
  } catch (...) {
    return nullptr;
  }
}

void vantu_NamedEventSet(void* handle) {
  try {
    As<VNamedEvent>(handle)->Set();
  } catch (...) {
  }
}

void vantu_NamedEventWait(void* handle) {
  try {
    As<VNamedEvent>(handle)->Wait();
  } catch (...) {
  }
}

void* vantu_ThreadCreate(void) {
  try {
    return Handle(new VThread());
  } catch (...) {
    return nullptr;
  }
}

void vantu_ThreadStart(void* handle, vantu_ThreadFunction function) {
  if (handle != nullptr) As<VThread>(handle)->Start(function);
}

void vantu_ThreadSetData(void* handle, uintptr_t data) {
  if (handle != nullptr) As<VThread>(handle)->SetData(data);
}

uintptr_t vantu_ThreadGetData(void* handle) {
  return handle != nullptr ? As<VThread>(handle)->GetData() : 0;
}

void* vantu_SharedMemoryCreate(const char* name, int size) {
  try {
    return Handle(new VSharedMemory(name, size));
  } catch (...) {
    return nullptr;
  }
}

char* vantu_SharedMemoryBeginData(void* handle) {
  return handle != nullptr ? As<VSharedMemory>(handle)->BeginData() : nullptr;
}

char* vantu_SharedMemoryEndData(void* handle) {
  return handle != nullptr ? As<VSharedMemory>(handle)->EndData() : nullptr;
}

}  // extern "C"

// Calls every flat event, named-event, thread and shared-memory function from C: the header must
// compile as C and the functions must behave as documented. Returns 0, or the line of the first
// check that failed.
#include <vantu/vantu.h>

#define CHECK(condition) \
  if (!(condition)) return __LINE__

// Writes into the region named by the test, then sets the event that is the data.
static char* region_of_thread;
static void Work(uintptr_t data) {
  region_of_thread[0] = 'T';
  vantu_EventSet((void*)data);
}

int vantu_test_flat_sync_from_c(const char* name) {
  void* event = vantu_EventCreate();
  void* named = vantu_NamedEventCreate(name);
  void* region = vantu_SharedMemoryCreate(name, 64);
  void* other = vantu_SharedMemoryCreate(name, 64);
  void* thread = vantu_ThreadCreate();
  CHECK(event != NULL && named != NULL && region != NULL && other != NULL && thread != NULL);

  // Manual reset: stays set until reset.
  vantu_EventSet(event);
  vantu_EventWait(event);
  vantu_EventWait(event);
  vantu_EventReset(event);

  // A set with nobody waiting is kept for the next wait.
  vantu_NamedEventSet(named);
  vantu_NamedEventWait(named);

  CHECK(vantu_SharedMemoryEndData(region) - vantu_SharedMemoryBeginData(region) == 64);
  CHECK(vantu_SharedMemoryBeginData(region)[0] == 0);
  region_of_thread = vantu_SharedMemoryBeginData(region);

  CHECK(vantu_ThreadGetData(thread) == 0);
  vantu_ThreadSetData(thread, (uintptr_t)event);
  CHECK(vantu_ThreadGetData(thread) == (uintptr_t)event);
  vantu_ThreadStart(thread, Work);
  vantu_EventWait(event);
  CHECK(vantu_SharedMemoryBeginData(other)[0] == 'T');

  vantu_ThreadDestroy(thread);
  vantu_SharedMemoryDestroy(other);
  vantu_SharedMemoryDestroy(region);
  vantu_NamedEventDestroy(named);
  vantu_EventDestroy(event);
  return 0;
}

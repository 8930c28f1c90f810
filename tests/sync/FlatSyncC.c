// The flat functions seen from C: <vantu/vantu.h> must compile as C, and a thread function
// written in C runs. Sets the event that is its data.
#include <vantu/vantu.h>

void vantu_test_set_event_from_c(uintptr_t event) { vantu_EventSet((void*)event); }

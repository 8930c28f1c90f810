#include <vantu/VProcess.h>

VProcess::~VProcess() = default;

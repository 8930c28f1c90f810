// Includes every public header of libvantu.
#ifndef VANTU_VANTU_H
#define VANTU_VANTU_H

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VException.h>
#include <vantu/VString.h>

#endif  // VANTU_VANTU_H

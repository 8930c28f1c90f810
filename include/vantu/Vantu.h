// Includes every public header of libvantu.
#ifndef VANTU_VANTU_H
#define VANTU_VANTU_H

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VChecksum.h>
#include <vantu/VDateTime.h>
#include <vantu/VDateTimeFormatter.h>
#include <vantu/VDateTimeParser.h>
#include <vantu/VDirectoryIterator.h>
#include <vantu/VException.h>
#include <vantu/VFile.h>
#include <vantu/VFileStream.h>
#include <vantu/VPath.h>
#include <vantu/VString.h>
#include <vantu/VTimestamp.h>
#include <vantu/vantu.h>

#endif  // VANTU_VANTU_H

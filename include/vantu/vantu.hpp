// Includes every public header of libvantu: each exported class and the flat C functions.
#ifndef VANTU_VANTU_HPP
#define VANTU_VANTU_HPP

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VChecksum.h>
#include <vantu/VDataContainer.h>
#include <vantu/VDataContainerArray.h>
#include <vantu/VDateTime.h>
#include <vantu/VDateTimeFormatter.h>
#include <vantu/VDateTimeParser.h>
#include <vantu/VDirectoryIterator.h>
#include <vantu/VErrorHandler.h>
#include <vantu/VException.h>
#include <vantu/VFile.h>
#include <vantu/VFileStream.h>
#include <vantu/VHFItem.h>
#include <vantu/VHexBinaryCodec.h>
#include <vantu/VHotfolder.h>
#include <vantu/VLog.h>
#include <vantu/VLogMessage.h>
#include <vantu/VPath.h>
#include <vantu/VPocoTimer.h>
#include <vantu/VSerializer.h>
#include <vantu/VString.h>
#include <vantu/VTimer.h>
#include <vantu/VTimestamp.h>
#include <vantu/VXML.h>
#include <vantu/VXMLFile.h>
#include <vantu/vantu.h>

#endif  // VANTU_VANTU_HPP

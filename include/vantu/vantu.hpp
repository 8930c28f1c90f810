// Includes every public header of libvantu: each exported class and the flat C functions.
#ifndef VANTU_VANTU_HPP
#define VANTU_VANTU_HPP

#include <vantu/Export.h>
#include <vantu/VAutoMutexLock.h>
#include <vantu/VAutoNamedMutexLock.h>
#include <vantu/VBaseObject.h>
#include <vantu/VChecksum.h>
#include <vantu/VDateTime.h>
#include <vantu/VDateTimeFormatter.h>
#include <vantu/VDateTimeParser.h>
#include <vantu/VDirectoryIterator.h>
#include <vantu/VEvent.h>
#include <vantu/VException.h>
#include <vantu/VFile.h>
#include <vantu/VFileStream.h>
#include <vantu/VHFItem.h>
#include <vantu/VHotfolder.h>
#include <vantu/VLog.h>
#include <vantu/VLogMessage.h>
#include <vantu/VMutex.h>
#include <vantu/VNamedEvent.h>
#include <vantu/VNamedMutex.h>
#include <vantu/VNotification.h>
#include <vantu/VNotificationCenter.h>
#include <vantu/VObserver.h>
#include <vantu/VPath.h>
#include <vantu/VPocoTimer.h>
#include <vantu/VProcess.h>
#include <vantu/VRandom.h>
#include <vantu/VSharedMemory.h>
#include <vantu/VString.h>
#include <vantu/VThread.h>
#include <vantu/VTimer.h>
#include <vantu/VTimestamp.h>
#include <vantu/VURL.h>
#include <vantu/VUUID.h>
#include <vantu/VUnzipFile.h>
#include <vantu/VWorker.h>
#include <vantu/VZipFile.h>
#include <vantu/vantu.h>

#endif  // VANTU_VANTU_HPP

// Virtual slots of the synchronisation, thread, shared-memory, notification and process classes.
#include <gtest/gtest.h>

#include <vantu/VAutoMutexLock.h>
#include <vantu/VAutoNamedMutexLock.h>
#include <vantu/VEvent.h>
#include <vantu/VMutex.h>
#include <vantu/VNamedEvent.h>
#include <vantu/VNamedMutex.h>
#include <vantu/VNotificationCenter.h>
#include <vantu/VProcess.h>
#include <vantu/VSharedMemory.h>
#include <vantu/VThread.h>
#include <vantu/VWorker.h>

#include "support/VTable.h"

namespace {

using vantu::test::EntryOf;
using vantu::test::TableEntry;

// A class appending one virtual operation puts it right after its base's last entry.
template <typename Base>
struct Extended : Base {
  using Base::Base;
  virtual void Appended() {}
};

TEST(SyncClassLayoutTest, HandleClassesKeepTheRootsThreeSlots) {
  EXPECT_EQ(TableEntry(&Extended<VMutex>::Appended), 4);
  EXPECT_EQ(TableEntry(&Extended<VEvent>::Appended), 4);
  EXPECT_EQ(TableEntry(&Extended<VNamedMutex>::Appended), 4);
  EXPECT_EQ(TableEntry(&Extended<VNamedEvent>::Appended), 4);
  EXPECT_EQ(TableEntry(&Extended<VSharedMemory>::Appended), 4);
  EXPECT_EQ(TableEntry(&Extended<VThread>::Appended), 4);
  EXPECT_EQ(TableEntry(&Extended<VProcess>::Appended), 4);
  EXPECT_EQ(TableEntry(static_cast<void (VThread::*)(const VBaseObject&)>(&VThread::Clone)),
            EntryOf(2, 1));
}

TEST(SyncClassLayoutTest, NotificationCenterAddsPostThenHasObservers) {
  EXPECT_EQ(TableEntry(&VNotificationCenter::PostNotification), EntryOf(3, 1));
  EXPECT_EQ(TableEntry(&VNotificationCenter::HasObservers), EntryOf(4, 1));
  EXPECT_EQ(TableEntry(&Extended<VNotificationCenter>::Appended), 6);
}

TEST(SyncClassLayoutTest, LockersObserversAndNotificationsHaveOnlyTheirDestructor) {
  EXPECT_EQ(TableEntry(&Extended<VAutoMutexLock>::Appended), 2);
  EXPECT_EQ(TableEntry(&Extended<VAutoNamedMutexLock>::Appended), 2);
  EXPECT_EQ(TableEntry(&Extended<VObserver>::Appended), 2);
  EXPECT_EQ(TableEntry(&Extended<VNotification>::Appended), 2);
}

TEST(SyncClassLayoutTest, WorkerHasDestructorThenRun) {
  EXPECT_EQ(TableEntry(&VWorker::run), EntryOf(1, 0));
  EXPECT_EQ(TableEntry(&Extended<VWorker>::Appended), 3);
}

}  // namespace

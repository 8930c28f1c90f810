// Virtual slots of the path, file, log, timer and hot folder classes.
#include <gtest/gtest.h>

#include <vantu/VFile.h>
#include <vantu/VHotfolder.h>
#include <vantu/VLog.h>
#include <vantu/VPath.h>
#include <vantu/VPocoTimer.h>
#include <vantu/VTimer.h>

#include "support/VTable.h"

namespace {

using vantu::test::EntryOf;
using vantu::test::Extended;
using vantu::test::TableEntry;

TEST(ClassLayoutTest, PathFileLogAndMessageAddNoVirtualOperation) {
  EXPECT_EQ(TableEntry(&Extended<VPath>::Appended), 117);  // VString's 116 slots, 117 entries
  EXPECT_EQ(TableEntry(&Extended<VFile>::Appended), 4);    // the root's three slots
  EXPECT_EQ(TableEntry(&Extended<VLog>::Appended), 4);
  EXPECT_EQ(TableEntry(static_cast<void (VPath::*)(const VBaseObject&)>(&VPath::Clone)),
            EntryOf(2, 1));
}

TEST(ClassLayoutTest, CopyableClassesAddAssignAndCopyFrom) {
  EXPECT_EQ(TableEntry(&VHotfolder::Assign), EntryOf(3, 1));
  EXPECT_EQ(TableEntry(&VHotfolder::CopyFrom), EntryOf(4, 1));
  EXPECT_EQ(TableEntry(&VTimer::Assign), EntryOf(3, 1));
  EXPECT_EQ(TableEntry(&VTimer::CopyFrom), EntryOf(4, 1));
  EXPECT_EQ(TableEntry(&VPocoTimer::Assign), EntryOf(3, 1));
  EXPECT_EQ(TableEntry(&VPocoTimer::CopyFrom), EntryOf(4, 1));
  EXPECT_EQ(TableEntry(&Extended<VHotfolder>::Appended), 6);
  EXPECT_EQ(TableEntry(&Extended<VTimer>::Appended), 6);
}

}  // namespace

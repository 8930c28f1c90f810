// Virtual slots of the transfer class.
#include <gtest/gtest.h>

#include <vantu/VURL.h>

#include "support/VTable.h"

namespace {

using vantu::test::EntryOf;
using vantu::test::TableEntry;

struct Extended : VURL {
  virtual void Appended() {}
};

TEST(VURLLayoutTest, TransferOperationsTakeSlotsThreeToNine) {
  EXPECT_EQ(TableEntry(&VURL::GetClassName), EntryOf(0, 1));
  EXPECT_EQ(TableEntry(&VURL::Clone), EntryOf(2, 1));
  EXPECT_EQ(TableEntry(&VURL::Get), EntryOf(3, 1));
  EXPECT_EQ(TableEntry(&VURL::Post), EntryOf(4, 1));
  EXPECT_EQ(TableEntry(&VURL::Perform), EntryOf(5, 1));
  EXPECT_EQ(TableEntry(&VURL::PerformWithHeader), EntryOf(6, 1));
  EXPECT_EQ(TableEntry(&VURL::PerformSimple), EntryOf(7, 1));
  EXPECT_EQ(TableEntry(&VURL::GetData), EntryOf(8, 1));
  EXPECT_EQ(TableEntry(&VURL::GetDataSize), EntryOf(9, 1));
  EXPECT_EQ(TableEntry(&Extended::Appended), EntryOf(10, 1));
  // The additions leave the table alone.
  EXPECT_EQ(TableEntry(&VURL::SetVerifyPeer), -1);
  EXPECT_EQ(TableEntry(&VURL::SetCABundle), -1);
  EXPECT_EQ(TableEntry(&VURL::GetResponseCode), -1);
}

}  // namespace

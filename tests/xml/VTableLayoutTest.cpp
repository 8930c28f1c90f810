// Virtual slots of the data container, the XML document and the other structured-data classes.
#include <gtest/gtest.h>

#include <vantu/VErrorHandler.h>
#include <vantu/VHexBinaryCodec.h>
#include <vantu/VSerializer.h>
#include <vantu/VXML.h>
#include <vantu/VXMLFile.h>

#include "support/VTable.h"

namespace {

using vantu::test::EntryOf;
using vantu::test::Extended;
using vantu::test::TableEntry;

// Every slot of VDataContainer, as VXML's table holds it too.
template <typename C>
void ExpectContainerSlots() {
  using N = VDataNode;
  using S = std::string;
  EXPECT_EQ(TableEntry(static_cast<bool (C::*)(const S&, bool)>(&C::Load)), EntryOf(3, 1));
  EXPECT_EQ(TableEntry(static_cast<bool (C::*)(std::istream&)>(&C::Load)), EntryOf(4, 1));
  EXPECT_EQ(TableEntry(&C::Parse), EntryOf(5, 1));
  EXPECT_EQ(TableEntry(static_cast<bool (C::*)(const S&)>(&C::Save)), EntryOf(6, 1));
  EXPECT_EQ(TableEntry(static_cast<bool (C::*)(std::ostream&, unsigned)>(&C::Save)), EntryOf(7, 1));
  EXPECT_EQ(TableEntry(&C::GetRoot), EntryOf(8, 1));
  EXPECT_EQ(TableEntry(&C::AddNode), EntryOf(9, 1));
  EXPECT_EQ(TableEntry(&C::GetNode), EntryOf(10, 1));
  EXPECT_EQ(TableEntry(&C::RemoveNode), EntryOf(11, 1));
  EXPECT_EQ(TableEntry(static_cast<bool (C::*)(N, const VString&)>(&C::SetValue)), EntryOf(12, 1));
  EXPECT_EQ(TableEntry(static_cast<bool (C::*)(N, const char*)>(&C::SetValue)), EntryOf(13, 1));
  EXPECT_EQ(TableEntry(static_cast<bool (C::*)(N, const char*, size_t)>(&C::SetValue)),
            EntryOf(14, 1));
  EXPECT_EQ(TableEntry(&C::GetName), EntryOf(15, 1));
  EXPECT_EQ(TableEntry(&C::GetFirstChild), EntryOf(16, 1));
  EXPECT_EQ(TableEntry(&C::GetNextSibling), EntryOf(17, 1));
  EXPECT_EQ(TableEntry(&C::GetParent), EntryOf(18, 1));
  EXPECT_EQ(TableEntry(&C::CountNodes), EntryOf(19, 1));
  EXPECT_EQ(TableEntry(&C::SetAttribute), EntryOf(20, 1));
  EXPECT_EQ(TableEntry(&C::GetAttribute), EntryOf(21, 1));
  EXPECT_EQ(TableEntry(&C::RemoveAttribute), EntryOf(22, 1));
  EXPECT_EQ(TableEntry(&C::CountChildren), EntryOf(23, 1));
  using Assign = VDataContainer& (VDataContainer::*)(const VDataContainer&);
  EXPECT_EQ(TableEntry(static_cast<Assign>(&C::operator=)), EntryOf(24, 1));
  EXPECT_EQ(TableEntry(&C::Copy), EntryOf(25, 1));
  EXPECT_EQ(TableEntry(&C::IsEmpty), EntryOf(26, 1));
  EXPECT_EQ(TableEntry(&C::Clear), EntryOf(27, 1));
  EXPECT_EQ(TableEntry(&C::GetAttributeNames), EntryOf(28, 1));
  EXPECT_EQ(TableEntry(&C::CopyNode), EntryOf(29, 1));
  EXPECT_EQ(TableEntry(&C::SetName), EntryOf(30, 1));
  EXPECT_EQ(TableEntry(static_cast<bool (C::*)(N, VString&) const>(&C::GetValue)), EntryOf(31, 1));
  EXPECT_EQ(TableEntry(static_cast<bool (C::*)(N, S&) const>(&C::GetValue)), EntryOf(32, 1));
  EXPECT_EQ(TableEntry(&C::ToString), EntryOf(33, 1));
  EXPECT_EQ(TableEntry(&C::FromString), EntryOf(34, 1));
  EXPECT_EQ(TableEntry(static_cast<void (VBaseObject::*)(const VBaseObject&)>(&C::Clone)),
            EntryOf(2, 1));
}

TEST(ClassLayoutTest, DataContainerHasThirtyFiveSlots) {
  ExpectContainerSlots<VDataContainer>();
  EXPECT_EQ(TableEntry(&Extended<VDataContainer>::Appended), 36);
}

TEST(ClassLayoutTest, XmlKeepsTheContainerSlotsAndAddsFour) {
  ExpectContainerSlots<VXML>();
  EXPECT_EQ(TableEntry(&VXML::SelectNodes), EntryOf(35, 1));
  EXPECT_EQ(TableEntry(&VXML::SelectNode), EntryOf(36, 1));
  EXPECT_EQ(TableEntry(static_cast<VXML& (VXML::*)(const VXML&)>(&VXML::operator=)),
            EntryOf(37, 1));
  EXPECT_EQ(TableEntry(&VXML::GetDocument), EntryOf(38, 1));
  EXPECT_EQ(TableEntry(&Extended<VXML>::Appended), 40);
}

TEST(ClassLayoutTest, HandlerAddsThreeSlotsAndTheOthersNone) {
  EXPECT_EQ(TableEntry(
                static_cast<void (VErrorHandler::*)(const VException&)>(&VErrorHandler::Exception)),
            EntryOf(3, 1));
  EXPECT_EQ(TableEntry(static_cast<void (VErrorHandler::*)(const std::exception&)>(
                &VErrorHandler::Exception)),
            EntryOf(4, 1));
  EXPECT_EQ(TableEntry(static_cast<void (VErrorHandler::*)()>(&VErrorHandler::Exception)),
            EntryOf(5, 1));
  EXPECT_EQ(TableEntry(&Extended<VErrorHandler>::Appended), 7);
  EXPECT_EQ(TableEntry(&Extended<VXMLFile>::Appended), 4);
  EXPECT_EQ(TableEntry(&Extended<VSerializer>::Appended), 4);
  EXPECT_EQ(TableEntry(&Extended<VHexBinaryCodec>::Appended), 4);
}

}  // namespace

// Settings through the serializer, the hexadecimal codec and the array of containers.
#include <gtest/gtest.h>

#include <vantu/VDataContainerArray.h>
#include <vantu/VHexBinaryCodec.h>
#include <vantu/VSerializer.h>
#include <vantu/VXMLFile.h>

#include "support/TempDir.h"

namespace {

std::string AllBytes() {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<char>(i));
  return bytes;
}

// The settings of a program, written in one process and read back by the next.
void WriteSettings(const std::string& path) {
  VXMLFile file(VPath(path.c_str(), UTF8));
  VXML& xml = *file.GetContainer();
  VSerializer out(xml, xml.GetRoot() != nullptr ? xml.GetRoot() : xml.AddNode(nullptr, "settings"));
  out.WriteInt("width", 640);
  out.WriteInt("width", 800);  // replaces
  out.WriteInt64("big", -9007199254740993LL);
  out.WriteDouble("scale", 0.1);
  out.WriteBool("full", true);
  out.BeginGroup("window");
  out.BeginGroup("title");
  out.WriteString("text", VString("K\xC3\xB6ln  ", UTF8));
  out.EndGroup();
  out.WriteBinary("blob", AllBytes().data(), 256);
  out.EndGroup();
  EXPECT_THROW(out.WriteInt("no name", 1), VantuInvalidArgumentException);
}

TEST(VSerializerTest, SettingsSurviveARestart) {
  vantu::test::TempDir dir;
  const std::string path = dir.Write("settings.xml", "<settings><kept>1</kept></settings>");
  ASSERT_TRUE(vantu::test::InChild([&] {
    WriteSettings(path);
    return !::testing::Test::HasFailure();
  }));

  VXMLFile file(VPath(path.c_str(), UTF8));
  VXML& xml = *file.GetContainer();
  const std::string before = xml.ToString(0);
  VSerializer in(xml, xml.GetRoot());
  EXPECT_EQ(in.ReadInt("kept", 0), 1);
  EXPECT_EQ(in.ReadInt("width", 0), 800);
  EXPECT_EQ(in.ReadInt64("big", 0), -9007199254740993LL);
  EXPECT_EQ(in.ReadDouble("scale", 0), 0.1);
  EXPECT_TRUE(in.ReadBool("full", false));
  EXPECT_EQ(in.ReadInt("scale", 7), 7);
  in.BeginGroup("missing");
  EXPECT_EQ(in.ReadInt("width", 5), 5);
  in.EndGroup();
  in.BeginGroup("window");
  std::string blob;
  EXPECT_TRUE(in.ReadBinary("blob", blob));
  EXPECT_EQ(blob, AllBytes());
  in.BeginGroup("title");
  EXPECT_EQ(in.ReadString("text", VString()).GetString(), "K\xC3\xB6ln  ");
  EXPECT_FALSE(in.ReadBinary("text", blob));
  EXPECT_EQ(xml.CountNodes(xml.GetRoot(), "width"), 1);
  EXPECT_EQ(xml.ToString(0), before);  // reading changed nothing
  in.EndGroup();
  in.EndGroup();
  EXPECT_THROW(in.EndGroup(), VantuLogicException);
  EXPECT_THROW(VSerializer(xml, nullptr), VantuInvalidArgumentException);
}

TEST(VHexBinaryCodecTest, EncodesLowerCaseAndRejectsWhatIsNotHex) {
  EXPECT_EQ(VHexBinaryCodec::Encode(std::string("\x00\x7F\xA0\xFF", 4)), "007fa0ff");
  EXPECT_EQ(VHexBinaryCodec::Decode("007FA0ff"), std::string("\x00\x7F\xA0\xFF", 4));
  EXPECT_EQ(VHexBinaryCodec::Decode(VHexBinaryCodec::Encode(AllBytes())), AllBytes());
  for (const char* bad : {"0", "0g", "g0", " 00", "0x"}) {
    EXPECT_THROW(VHexBinaryCodec::Decode(bad), VantuDataException) << bad;
  }
}

TEST(VDataContainerArrayTest, OwnsItsContainersAndCopiesClone) {
  VDataContainerArray array;
  auto* first = new VXML;
  first->Parse("<a/>");
  EXPECT_EQ(array.Add(first), 0);
  EXPECT_EQ(array.Add(first), 0);
  EXPECT_EQ(array.Add(new VXML), 1);
  VDataContainerArray copy(array);
  ASSERT_EQ(copy.Count(), 2);
  EXPECT_NE(copy.Get(0), first);
  EXPECT_EQ(copy.Get(0)->ToString(0), "<a/>");
  EXPECT_TRUE(array.Remove(0));
  EXPECT_EQ(array.Get(1), nullptr);
  copy = array;
  EXPECT_EQ(copy.Count(), 1);
}

}  // namespace

// Drives the XML document with arbitrary bytes: Parse, FromString and Load(istream) on the
// text, then a fuzzed sequence of element operations on the tree, an XPath query and a path
// lookup with fuzzed expressions, every output format, copies, and VHexBinaryCodec::Decode.
// Besides crashes and sanitizer reports it checks that what the document writes parses again
// to the same document, and that the codec's decoding encodes back to the same text.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include <vantu/VHexBinaryCodec.h>
#include <vantu/VXML.h>

#include "FuzzCheck.h"

namespace {

// The text as XML's end-of-line handling reads it: CR LF and CR become LF.
std::string EndOfLine(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\r') {
      out += text[i];
    } else if (i + 1 == text.size() || text[i + 1] != '\n') {
      out += '\n';
    }
  }
  return out;
}

// What is written in any format parses again to the same document (compared in raw form:
// indentation is not content), up to the end-of-line handling of text.
void CheckRoundTrip(VXML& xml) {
  const std::string expected = EndOfLine(xml.ToString(0));
  for (unsigned int flags = 0; flags < 4; ++flags) {
    const std::string text = xml.ToString(flags);
    VXML again;
    const bool same = again.Parse(text) == 0 && again.ToString(0) == expected;
    if (!same) {
      std::fprintf(stderr, "wrote [%s]\nread back [%s]\n", text.c_str(), again.ToString(0).c_str());
    }
    CHECK(same);
  }
}

// Applies one fuzzed operation at `node`, which may change to another valid node.
// Copies double the tree at most; `copies` limits them so that the tree stays small.
void Operate(VXML& xml, VXML& other, VDataNode& node, uint8_t op, const std::string& bytes,
             int& copies) {
  const char* name = bytes.c_str();
  std::string text;
  std::vector<std::string> names;
  switch (op % 14) {
    case 0:
      if (VDataNode child = xml.GetFirstChild(node, op & 16 ? nullptr : name)) node = child;
      break;
    case 1:
      if (VDataNode next = xml.GetNextSibling(node, op & 16 ? nullptr : name)) node = next;
      break;
    case 2:
      if (VDataNode parent = xml.GetParent(node)) node = parent;
      break;
    case 3:
      xml.GetValue(node, text);
      xml.SetValue(node, bytes.data(), bytes.size());
      if (bytes.find('\0') == std::string::npos) {
        CHECK(xml.GetValue(node, text) && text == bytes);
      }
      break;
    case 4:
      if (xml.SetAttribute(node, name, bytes.data(), bytes.size())) {
        CHECK(xml.GetAttribute(node, name, text) && text == bytes);
      }
      break;
    case 5:
      xml.GetAttributeNames(node, names);
      for (const std::string& attribute : names) xml.RemoveAttribute(node, attribute.c_str());
      break;
    case 6:
      if (VDataNode added = xml.AddNode(node, name)) node = added;
      break;
    case 7: {
      VDataNode parent = xml.GetParent(node);
      if (parent != nullptr && xml.RemoveNode(node)) node = parent;
      break;
    }
    case 8:
      if (++copies > 4) break;
      if (VDataNode copy = xml.CopyNode(node, xml, xml.GetRoot())) node = copy;
      break;
    case 9:
      if (++copies > 4) break;
      other.CopyNode(other.GetRoot(), xml, node);
      break;
    case 10:
      xml.SetName(node, name);
      xml.GetName(node, text);
      break;
    case 11:
      if (VDataNode found = xml.GetNode(op & 16 ? nullptr : node, name)) node = found;
      break;
    case 12:
      CHECK(xml.CountNodes(node, op & 16 ? nullptr : name) >= 0);
      break;
    default:
      xml.GetInt(node, 0);
      xml.GetDouble(node, 0);
      xml.GetBool(node, false);
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const uint8_t mode = input.ConsumeIntegral<uint8_t>();
  const std::vector<uint8_t> ops = input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange(0, 32));
  const std::string expression = input.ConsumeRandomLengthString(64);
  const std::string text = input.ConsumeRemainingBytesAsString();

  VXML xml;
  bool parsed = false;
  switch (mode % 3) {
    case 0:
      parsed = xml.Parse(text) == 0;
      break;
    case 1:
      parsed = xml.FromString(text);
      break;
    default:
      try {
        std::istringstream in(text);
        parsed = xml.Load(in);
      } catch (const VantuXMLElementException&) {
      }
      break;
  }
  if (parsed) CheckRoundTrip(xml);

  std::vector<VDataNode> nodes;
  const int found = xml.SelectNodes(expression.c_str(), nodes);
  CHECK(found == -1 || static_cast<size_t>(found) == nodes.size());
  xml.SelectNode(expression.c_str());

  VXML other;
  other.AddNode(nullptr, "copy");
  VDataNode node = xml.GetRoot() != nullptr ? xml.GetRoot() : xml.AddNode(nullptr, "r");
  int copies = 0;
  for (uint8_t op : ops) {
    if (node == nullptr) break;
    Operate(xml, other, node, op, expression, copies);
  }
  if (mode & 8) CheckRoundTrip(xml);
  xml.IsEmpty();
  xml.CountChildren();
  other = xml;
  CHECK(other.ToString(0) == xml.ToString(0));
  xml.Clear();

  try {
    const std::string bytes = VHexBinaryCodec::Decode(expression);
    std::string lower = expression;
    for (char& c : lower) c = static_cast<char>(c >= 'A' && c <= 'F' ? c + 32 : c);
    CHECK(VHexBinaryCodec::Encode(bytes) == lower);
  } catch (const VantuDataException&) {
  }
  return 0;
}

// The XML document: document-level operations, element operations, values and hostile input.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vantu/VErrorHandler.h>
#include <vantu/VXML.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <pugixml.hpp>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

#include "support/Bytes.h"
#include "support/TempDir.h"

namespace {

// Records what reaches the error handler while it is installed.
struct RecordingHandler : VErrorHandler {
  RecordingHandler() { previous = Set(this); }
  ~RecordingHandler() override { Set(previous); }
  void Exception(const VException& e) override { texts.push_back(e.Message()); }
  VErrorHandler* previous;
  std::vector<std::string> texts;
};

std::string Value(const VXML& xml, VDataNode node) {
  std::string bytes;
  EXPECT_TRUE(xml.GetValue(node, bytes));
  return bytes;
}

TEST(VXMLTest, EmptinessAndTheFourOutputFormats) {
  VXML xml;
  EXPECT_TRUE(xml.IsEmpty());
  EXPECT_EQ(xml.CountChildren(), -1);
  EXPECT_EQ(xml.ToString(0), "");
  for (auto [text, empty] :
       {std::pair{"<r/>", true}, {"<r a='1'/>", false}, {"<r><c/></r>", false}}) {
    ASSERT_EQ(xml.Parse(text), 0);
    EXPECT_EQ(xml.IsEmpty(), empty) << text;
  }
  ASSERT_EQ(xml.Parse("<r><c>x</c><d/></r>"), 0);
  const std::string declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
  EXPECT_EQ(xml.ToString(1), "<r>\n\t<c>x</c>\n\t<d />\n</r>\n");
  EXPECT_EQ(xml.ToString(2), declaration + "<r><c>x</c><d/></r>");
  EXPECT_EQ(xml.ToString(3), declaration + "\n<r>\n\t<c>x</c>\n\t<d />\n</r>\n");
  // Writing leaves the tree as it was: no declaration node is added.
  EXPECT_EQ(xml.CountChildren(), 1);
  // A declaration node in the tree is written with version and encoding set, and only with bit 1.
  xml.GetDocument()->prepend_child(pugi::node_declaration).append_attribute("standalone") = "no";
  EXPECT_EQ(xml.ToString(2),
            "<?xml standalone=\"no\" version=\"1.0\" encoding=\"UTF-8\"?><r><c>x</c><d/></r>");
  EXPECT_EQ(xml.ToString(0), "<r><c>x</c><d/></r>");
  EXPECT_EQ(xml.CountChildren(), 2);
  xml.Clear();
  EXPECT_TRUE(xml.IsEmpty());
}

// Writing only reads the tree, so threads may write one document at once (also under
// ThreadSanitizer in CI).
TEST(VXMLTest, ThreadsWriteOneDocumentAtOnce) {
  vantu::test::TempDir dir;
  VXML xml;
  ASSERT_EQ(xml.Parse("<r><c>x</c></r>"), 0);
  const std::string raw = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><r><c>x</c></r>";
  const std::string indented =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<r>\n\t<c>x</c>\n</r>\n";
  std::atomic<int> waiting{4}, wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (--waiting; waiting > 0;) std::this_thread::yield();
      for (int round = 0; round < 1000; ++round) {
        if (xml.ToString(2) != raw || xml.ToString(3) != indented) ++wrong;
        if (round % 100 == 0 && !xml.Save(dir / ("t" + std::to_string(t) + ".xml"))) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(xml.CountChildren(), 1);
}

TEST(VXMLTest, LoadReportsTheLibrarysTextsUnlessQuiet) {
  vantu::test::TempDir dir;
  const std::string broken = dir.Write("broken.xml", "<a><b/>");
  RecordingHandler handler;
  VXML xml;
  EXPECT_FALSE(xml.Load(dir.path() + "/", false));
  EXPECT_FALSE(xml.Load(dir / "missing.xml", false));
  EXPECT_FALSE(xml.Load(broken, false));
  EXPECT_FALSE(xml.Load(broken, true));
  EXPECT_EQ(handler.texts, (std::vector<std::string>{dir.path() + "/ is not a file",
                                                     "File " + (dir / "missing.xml") + " not found",
                                                     "Start-end tags mismatch Offset: 6"}));
  EXPECT_TRUE(xml.IsEmpty());
  // A FIFO is no file: refused at once, in a child whose alarm ends a load that waits for a writer.
  const std::string fifo = dir / "fifo.xml";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_TRUE(vantu::test::InChild([&] {
    ::alarm(20);
    return !xml.Load(fifo, false) && handler.texts.back() == fifo + " is not a file";
  }));
  std::istringstream in("<a>");
  EXPECT_THROW(xml.Load(in), VantuXMLElementException);
  EXPECT_FALSE(xml.FromString("<a></b>"));
  EXPECT_EQ(xml.Parse("<a"), -1);
}

// The last error in words: pugixml's description with the line and the column (in characters)
// of its offset, whatever the document's encoding; empty after a success.
TEST(VXMLTest, TheLastErrorTextSaysWhatAndWhere) {
  using namespace std::string_literals;
  const std::string broken = "<r>\n  <a>\n    <b c=></b>\n</r>";
  std::string utf16 = "\xFF\xFE"s;
  for (const char c : broken) utf16 += std::string{c, '\0'};
  const std::pair<std::string, std::string> cases[] = {
      {broken, "Error parsing element attribute at line 3, column 10"},
      {utf16, "Error parsing element attribute at line 3, column 10"},
      {"\xEF\xBB\xBF<r>\xC3\xA9\xF0\x9F\x98\x80</x>",
       "Start-end tags mismatch at line 1, column 8"},
      {"<?xml version='1.0' encoding='ISO-8859-1'?>\n<r>\xE9\xE9</x>",
       "Start-end tags mismatch at line 2, column 8"},
      {"<r/>", ""},
  };
  vantu::test::TempDir dir;
  VXML xml;  // the success comes last: it clears the text
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(xml.Parse(text) == 0, expected.empty());
    EXPECT_EQ(xml.GetLastErrorText().GetString(), expected) << "Parse " << text;
    EXPECT_EQ(xml.FromString(text), expected.empty());
    EXPECT_EQ(xml.GetLastErrorText().GetString(), expected) << "FromString " << text;
    EXPECT_EQ(xml.Load(dir.Write("case.xml", text), true), expected.empty());
    EXPECT_EQ(xml.GetLastErrorText().GetString(), expected) << "Load " << text;
  }
  EXPECT_FALSE(xml.Load(dir.path() + "/", true));
  EXPECT_EQ(xml.GetLastErrorText().GetString(), dir.path() + "/ is not a file");
}

TEST(VXMLTest, ElementOperationsWalkAndEditTheTree) {
  VXML xml;
  VDataNode root = xml.AddNode(nullptr, "r");
  EXPECT_EQ(xml.AddNode(nullptr, "second"), nullptr);
  for (const char* bad : {"", "1a", "a b", "a<", "-x"}) EXPECT_EQ(xml.AddNode(root, bad), nullptr);
  VDataNode a1 = xml.AddNode(root, "a");
  VDataNode a2 = xml.AddNode(root, "a");
  VDataNode b = xml.AddNode(a2, "b");
  // The path search goes on past the first "a", which has no "b".
  EXPECT_EQ(xml.GetNode(nullptr, "/r//a/b/"), b);
  EXPECT_EQ(xml.GetNextSibling(xml.GetFirstChild(root, "a"), "a"), a2);
  EXPECT_EQ(xml.CountNodes(root, nullptr), 2);
  EXPECT_EQ(xml.GetParent(b), a2);
  EXPECT_EQ(xml.GetParent(root), nullptr);

  EXPECT_TRUE(xml.SetAttribute(a1, "k", "v\"<&\t\n", 6));
  EXPECT_TRUE(xml.SetAttribute(a1, "j", "", 0));
  EXPECT_FALSE(xml.SetAttribute(a1, "k", "a\0b", 3));
  EXPECT_FALSE(xml.SetValue(a1, "a\0b", 3));
  EXPECT_FALSE(xml.SetName(a1, "no name"));
  EXPECT_TRUE(xml.SetName(a1, "x"));
  EXPECT_TRUE(xml.RemoveAttribute(a1, "j"));
  std::vector<std::string> names;
  EXPECT_EQ(xml.GetAttributeNames(a1, names), 1);
  // VString values go in and out in the container's encoding.
  EXPECT_TRUE(xml.SetValue(b, VString("caf\xC3\xA9", UTF8)));
  xml.SetEncoding(Latin1);
  VString value;
  EXPECT_TRUE(xml.GetValue(b, value));
  EXPECT_EQ(value.GetString(), "caf\xC3\xA9");
  EXPECT_TRUE(xml.SetValue(b, VString("\xE9", Latin1)));
  VXML assigned;
  assigned = xml;  // copies the encoding, as the copy constructor does
  EXPECT_EQ(assigned.GetEncoding(), static_cast<uint32_t>(Latin1));

  // Copies into the own subtree, and to another document's level; removal takes the subtree.
  EXPECT_NE(xml.CopyNode(b, xml, a2), nullptr);
  EXPECT_EQ(xml.ToString(0),
            "<r><x k=\"v&quot;&lt;&amp;&#09;&#10;\"/><a><b>\xE9<a><b>\xE9</b></a></b></a></r>");
  VXML other;
  VDataNode copied = other.CopyNode(nullptr, xml, a2);
  EXPECT_EQ(copied, other.GetRoot());
  EXPECT_EQ(other.CopyNode(nullptr, xml, a2), nullptr);
  EXPECT_TRUE(xml.RemoveNode(a2));
  EXPECT_EQ(xml.ToString(0), "<r><x k=\"v&quot;&lt;&amp;&#09;&#10;\"/></r>");
  EXPECT_EQ(other.ToString(0), "<a><b>\xE9<a><b>\xE9</b></a></b></a>");
}

// Any byte string without NUL, as a text value and as an attribute, survives writing in every
// format and parsing again; text follows XML's line-end rules.
TEST(VXMLTest, ValuesSurviveEveryFormat) {
  std::mt19937 random(7);
  const std::string alphabet = std::string(" \t\r\n<>&\"']]>ab\x01\x1F\xC3\xA9\xFF\xE2\x82", 21);
  for (int round = 0; round < 300; ++round) {
    std::string bytes;
    for (int n = random() % 12; n > 0; --n) bytes += alphabet[random() % alphabet.size()];
    if (round % 5 == 0) bytes = std::string(1 + round % 4, " \t\n\r"[round % 4]);
    std::string text;  // CR LF and CR read back as LF
    for (size_t i = 0; i < bytes.size(); ++i) {
      if (bytes[i] != '\r')
        text += bytes[i];
      else if (i + 1 == bytes.size() || bytes[i + 1] != '\n')
        text += '\n';
    }
    VXML xml;
    VDataNode node = xml.AddNode(xml.AddNode(nullptr, "r"), "v");
    ASSERT_TRUE(xml.SetValue(node, bytes.data(), bytes.size()));
    ASSERT_TRUE(xml.SetAttribute(node, "a", bytes.data(), bytes.size()));
    for (unsigned int flags = 0; flags < 4; ++flags) {
      VXML back;
      ASSERT_EQ(back.Parse(xml.ToString(flags)), 0) << vantu::test::Hex(bytes);
      VDataNode v = back.GetNode(nullptr, "r/v");
      std::string attribute;
      EXPECT_EQ(Value(back, v), text) << vantu::test::Hex(bytes) << " flags " << flags;
      EXPECT_TRUE(back.GetAttribute(v, "a", attribute));
      EXPECT_EQ(attribute, bytes) << vantu::test::Hex(bytes);
    }
  }
}

// A value is the element's own text and CDATA children together; SetValue replaces them all
// where the first one was and keeps the element children. Values read the same after a save
// and a load.
TEST(VXMLTest, TheValueIsTheWholeTextAndSurvivesASaveAndALoad) {
  vantu::test::TempDir dir;
  const struct {
    const char *text, *set, *value, *tree;
  } cases[] = {
      {"<r>a<!--c-->b</r>", nullptr, "ab", "<r>ab</r>"},
      {"<r>a<b/>c</r>", "", "", "<r><b/></r>"},
      {"<r>a<b/>c<![CDATA[d]]></r>", "x", "x", "<r>x<b/></r>"},
      {"<r><b/>c</r>", " ", " ", "<r><b/><![CDATA[ ]]></r>"},
      {"<r><b>q</b></r>", nullptr, "", "<r><b>q</b></r>"},
      {"<r><b>q</b></r>", "x", "x", "<r><b>q</b>x</r>"},
  };
  for (const auto& c : cases) {
    VXML xml, back;
    ASSERT_EQ(xml.Parse(c.text), 0);
    if (c.set != nullptr) {
      ASSERT_TRUE(xml.SetValue(xml.GetRoot(), c.set, std::strlen(c.set)));
    }
    EXPECT_EQ(Value(xml, xml.GetRoot()), c.value) << c.text;
    EXPECT_EQ(xml.ToString(0), c.tree) << c.text;
    ASSERT_TRUE(xml.Save(dir / "value.xml"));
    ASSERT_TRUE(back.Load(dir / "value.xml", false));
    EXPECT_EQ(Value(back, back.GetRoot()), c.value) << c.text;
  }
}

TEST(VXMLTest, TypedValuesUseTheDefaultWhenTheTextIsNoNumber) {
  VXML xml;
  VDataNode n = xml.AddNode(nullptr, "n");
  const auto with = [&](const char* text) { return xml.SetValue(n, text, std::strlen(text)), n; };
  EXPECT_EQ(xml.GetInt(with(" +42\n"), -1), 42);
  EXPECT_EQ(xml.GetInt(with("2147483648"), -1), -1);
  EXPECT_EQ(xml.GetInt64(n, -1), 2147483648LL);
  for (const char* bad : {"4x", "+-4", "", "1e3"}) EXPECT_EQ(xml.GetInt(with(bad), -1), -1) << bad;
  EXPECT_EQ(xml.GetDouble(n, 0), 1000.0);
  EXPECT_TRUE(xml.GetBool(with("1"), false));
  EXPECT_FALSE(xml.GetBool(with("false"), true));
  EXPECT_TRUE(xml.GetBool(with("no"), true));
  EXPECT_EQ(xml.GetInt(nullptr, -1), -1);
  for (double d : {0.1, -1e300, 5e-324, 1.0 / 3}) {
    ASSERT_TRUE(xml.SetDouble(n, d));
    EXPECT_EQ(xml.GetDouble(n, 0), d);
  }
  ASSERT_TRUE(xml.SetInt64(n, INT64_MIN));
  EXPECT_EQ(xml.GetInt64(n, 0), INT64_MIN);
}

// The path search written plainly: the names of the path in order, child elements only, depth
// first; the first element reached by all of them wins.
VDataNode SearchPath(const VXML& xml, VDataNode parent, const std::vector<std::string>& names,
                     size_t level = 0) {
  const char* name = names[level].c_str();
  for (VDataNode node = xml.GetFirstChild(parent, name); node != nullptr;
       node = xml.GetNextSibling(node, name)) {
    if (level + 1 == names.size()) return node;
    if (VDataNode found = SearchPath(xml, node, names, level + 1)) return found;
  }
  return nullptr;
}

// GetNode beside the plain search, over every path of up to three names from a pool with dots,
// brackets and non-ASCII, single and doubled "/" (also leading and trailing), from three starts;
// plus long paths. Nodes other than elements bearing a name are never found.
TEST(VXMLTest, PathSearchAgreesWithAPlainDepthFirstSearch) {
  VXML xml;
  ASSERT_EQ(xml.Parse("<r><a><x/></a><a><b><c/></b><b>t<c>1</c></b></a><a.b/><\xC3\xA9><m/>"
                      "</\xC3\xA9><d><d><d/></d></d></r>"),
            0);
  pugi::xml_node root = xml.GetDocument()->document_element();
  root.child("a").append_child(pugi::node_pi).set_name("b");  // bears a name, but is no element
  root.prepend_child(pugi::node_pi).set_name("a");
  root.child("d").prepend_child(pugi::node_pi).set_name("d");
  const std::vector<std::string> pool = {"r",   "a", "b",  "c",        "x",    "d", "m",
                                         "a.b", ".", "..", "\xC3\xA9", "a[1]", "*", "nope"};
  std::vector<std::string> paths;
  for (size_t i = 0; i < pool.size(); ++i) {
    for (size_t j = 0; j <= pool.size(); ++j) {
      for (size_t k = 0; k <= pool.size(); ++k) {
        std::string path = pool[i];
        if (j < pool.size()) path += (i % 2 ? "//" : "/") + pool[j];
        if (k < pool.size() && j < pool.size()) path += "/" + pool[k];
        paths.push_back(path);
        paths.push_back("/" + path + "/");
      }
    }
  }
  std::string deep = "r";
  for (int i = 0; i < 80; ++i) paths.push_back(deep += (i < 3 ? "/d" : "//d"));
  paths.push_back("r" + std::string(300, '/') + "d/d");
  const std::vector<VDataNode> starts = {nullptr, xml.GetRoot(), xml.GetNode(nullptr, "r/a/b")};
  for (VDataNode start : starts) {
    for (const std::string& path : paths) {
      std::vector<std::string> names;
      std::istringstream split(path);
      for (std::string name; std::getline(split, name, '/');) {
        if (!name.empty()) names.push_back(name);
      }
      EXPECT_EQ(xml.GetNode(start, path.c_str()), SearchPath(xml, start, names)) << path;
    }
  }
}

TEST(VXMLTest, XPathGivesElementsInDocumentOrder) {
  VXML xml;
  std::vector<VDataNode> nodes;
  EXPECT_EQ(xml.SelectNodes("//c", nodes), 0);
  ASSERT_EQ(xml.Parse("<r><c a='1'/><d><c/></d></r>"), 0);
  EXPECT_EQ(xml.SelectNodes("//c", nodes), 2);
  EXPECT_EQ(xml.SelectNodes("//@a", nodes), 0);
  EXPECT_EQ(xml.SelectNodes("//c[", nodes), -1);
  EXPECT_EQ(xml.SelectNodes("1+1", nodes), -1);
  ASSERT_EQ(nodes.size(), 2u);
  EXPECT_EQ(xml.SelectNode("//d/c | //c[@a]"), nodes[0]);
  EXPECT_EQ(xml.SelectNode("//e"), nullptr);
  // A union on a deep copied document comes in order as fast as on the parsed one, whose nodes
  // lie in the parse buffer's order (sorting by comparing positions took the square of the
  // depth on the copy: seconds here, against a tenth of a second).
  const int depth = 50000;
  std::string deep;
  for (int i = 0; i < depth; ++i) deep += "<a>";
  for (int i = 0; i < depth; ++i) deep += "</a>";
  ASSERT_EQ(xml.Parse(deep), 0);
  const VXML copy(xml);
  const auto seconds = [depth](const VXML& document) {
    double best = 1e9;
    for (int round = 0; round < 3; ++round) {
      std::vector<VDataNode> found;
      const auto start = std::chrono::steady_clock::now();
      EXPECT_EQ(document.SelectNodes("//a | //a", found), depth);
      best = std::min(
          best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
      EXPECT_EQ(found.front(), document.GetRoot());
      EXPECT_EQ(document.GetFirstChild(found.back(), nullptr), nullptr);
    }
    return best;
  };
  EXPECT_LT(seconds(copy), 4 * seconds(xml) + 0.1);
}

TEST(VXMLTest, EntitiesAreNeverExpandedAndEncodingsAreRecognised) {
  vantu::test::TempDir dir;
  const std::string secret = dir.Write("secret.txt", "SECRET");
  std::string laughs = "<!DOCTYPE r [<!ENTITY l0 \"ha\">";
  for (int i = 1; i < 10; ++i) {
    laughs += "<!ENTITY l" + std::to_string(i) + " \"";
    for (int j = 0; j < 10; ++j) laughs += "&l" + std::to_string(i - 1) + ";";
    laughs += "\">";
  }
  for (const std::string& text :
       {laughs + "]><r>&l9;</r>", "<!DOCTYPE r [<!ENTITY s SYSTEM \"" + secret + "\">]><r>&s;</r>",
        "<!DOCTYPE r SYSTEM \"" + secret + "\"><r>&s;</r>"}) {
    VXML xml;
    EXPECT_EQ(xml.Parse(text), 0);
    EXPECT_EQ(xml.ToString(0).substr(0, 3), "<r>");
    EXPECT_LT(xml.ToString(0).size(), 20u) << xml.ToString(0);
  }
  // UTF-16 little-endian with its mark, invalid UTF-8 kept as bytes, odd UTF-16.
  VXML xml;
  ASSERT_EQ(xml.Parse(std::string("\xFF\xFE<\0r\0>\0\xE9\0<\0/\0r\0>\0", 18)), 0);
  EXPECT_EQ(Value(xml, xml.GetRoot()), "\xC3\xA9");
  ASSERT_EQ(xml.Parse("<r>\xFF\xC3</r>"), 0);
  EXPECT_EQ(Value(xml, xml.GetRoot()), "\xFF\xC3");
  EXPECT_NE(xml.Parse(std::string("\xFF\xFE<\0r", 5)), 0);
}

// A million levels and a million siblings: every operation is iterative and linear, so these
// finish in about a second instead of overflowing the stack or running for hours.
TEST(VXMLTest, DeepAndWideDocumentsNeedNoRecursion) {
  const size_t n = 1000000;
  vantu::test::TempDir dir;
  std::string deep, wide = "<r>";
  for (size_t i = 0; i < n; ++i) deep += "<a>";
  for (size_t i = 0; i < n; ++i) deep += "</a>";
  for (size_t i = 0; i < n; ++i) wide += "<a/>";
  wide += "</r>";
  for (const std::string* text : {&deep, &wide}) {
    auto xml = std::make_unique<VXML>();
    ASSERT_EQ(xml->Parse(*text), 0);
    EXPECT_FALSE(xml->IsEmpty());
    VXML copy(*xml);
    copy = *xml;
    // Raw: "<a/>" at the bottom; indented: raw when deep, one "\t<a />\n" per line when wide.
    EXPECT_EQ(copy.ToString(0).size(), text == &deep ? 7 * n - 3 : 4 * n + 7);
    EXPECT_EQ(copy.ToString(1).size(), text == &deep ? 7 * n - 3 : 7 * n + 9);
    // The same into a stream that cannot be rewound, and into a file.
    std::ostringstream stream;
    ASSERT_TRUE(copy.Save(stream, 1));
    EXPECT_EQ(stream.str().size(), text == &deep ? 7 * n - 3 : 7 * n + 9);
    ASSERT_TRUE(copy.Save(dir / "big.xml"));
    EXPECT_EQ(std::filesystem::file_size(dir / "big.xml"), copy.ToString(3).size());
    VXML other;
    EXPECT_NE(other.CopyNode(nullptr, *xml, xml->GetRoot()), nullptr);
    EXPECT_TRUE(other.RemoveNode(other.GetRoot()));
    EXPECT_EQ(other.ToString(0), "");
    copy.Clear();
    xml.reset();
  }
}

}  // namespace

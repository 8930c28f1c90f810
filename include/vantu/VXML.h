// VXML: the library's XML document, the concrete VDataContainer, held in a pugixml document.
//
// A VXML owns at most one pugixml document (none after construction and Clear). Its nodes are
// pugixml's own node pointers, so walking the tree allocates nothing. Parsing uses pugixml's
// default options: character and predefined entity references are decoded; a document type
// declaration is skipped, so no other entity is ever expanded and no external file is read.
// Documents in UTF-8, UTF-16 or UTF-32 are recognised by their first bytes (byte-order mark or
// "<?xml"); the tree holds UTF-8. Invalid UTF-8 passes through as bytes.
//
// Saving to a path never destroys the previous file: the document goes to a temporary file
// beside the target, which is flushed to disk and renamed over the target, keeping its
// permission bits; a symbolic link is written through to the file it names. The save replaces
// the file rather than writing into it: other hard links to the old file keep the old content.
// A save that fails leaves the previous file as it was and no temporary file; one whose process
// is killed leaves at most a complete temporary file beside the target, which the next save to
// that target removes. A target without write permission is not replaced. Indented output of a
// document with elements more than 256 levels deep is written raw (no line breaks or
// indentation), since indentation would grow with the square of the depth; so is, into a string
// or a file, a document whose text holds 256 tabs in a row. Writing (ToString, Save) never
// changes the tree: the declaration is made while writing.
//
// The value of an element is its text content: its own text and CDATA children, concatenated
// (comments are dropped at parsing; the text of child elements is theirs). SetValue replaces all
// those children by one, at the place of the first, and keeps the child elements; an empty value
// leaves none. A text value made only of white space is kept in a CDATA section, so values read
// the same after a save and a load; carriage returns in text values follow XML's line-end rules
// (a CR or CR LF reads back as LF).
//
// Errors: as VDataContainer states per operation; SelectNodes reports a bad expression by -1.
// GetLastErrorText says in words why the last Load, Parse or FromString failed: for a parse
// error pugixml's description and where the error lies ("Error parsing element attribute at line
// 3, column 7"; the column counts characters), else the failure's own text ("<path> is not a
// file"); empty after a success. A stream that cannot go back gives the description alone.
// Thread safety: none inside; several threads may read one document at once (XPath queries,
// ToString and Save included) only while no thread changes it.
//
//   VXML xml;
//   VDataNode root = xml.AddNode(nullptr, "settings");
//   xml.SetInt(xml.AddNode(root, "port"), 8080);
//   std::string text = xml.ToString(0);  // <settings><port>8080</port></settings>
#ifndef VANTU_VXML_H
#define VANTU_VXML_H

#include <string>
#include <vector>

#include <vantu/Export.h>
#include <vantu/VDataContainer.h>

namespace pugi {
class xml_document;
}  // namespace pugi

class VANTU_API VXML : public VDataContainer {
 public:
  VXML();
  // A deep copy of other's document and its encoding (as Copy and assignment).
  VXML(const VXML& other);
  // Deletes the document.
  ~VXML() override;

  using VDataContainer::GetValue;
  using VDataContainer::operator=;
  using VDataContainer::SetValue;

  bool Load(const std::string& path, bool quiet) override;
  bool Load(std::istream& in) override;
  int Parse(const std::string& text) override;
  bool Save(const std::string& path) override;
  bool Save(std::ostream& out, unsigned int flags) override;
  VDataNode GetRoot() const override;
  VDataNode AddNode(VDataNode parent, const char* name) override;
  VDataNode GetNode(VDataNode parent, const char* path) const override;
  bool RemoveNode(VDataNode node) override;
  bool SetValue(VDataNode node, const char* bytes, size_t length) override;
  bool GetName(VDataNode node, std::string& name) const override;
  VDataNode GetFirstChild(VDataNode parent, const char* name) const override;
  VDataNode GetNextSibling(VDataNode node, const char* name) const override;
  VDataNode GetParent(VDataNode node) const override;
  int CountNodes(VDataNode parent, const char* name) const override;
  bool SetAttribute(VDataNode node, const char* name, const char* bytes, size_t length) override;
  bool GetAttribute(VDataNode node, const char* name, std::string& bytes) const override;
  bool RemoveAttribute(VDataNode node, const char* name) override;
  int CountChildren() const override;
  // Copies the document and the encoding when `other` is a VXML; false otherwise.
  bool Copy(const VDataContainer& other, unsigned int flags) override;
  // True when there is no document, no document element, or a document element with neither
  // child nodes nor attributes.
  bool IsEmpty() const override;
  // Deletes the document.
  void Clear() override;
  int GetAttributeNames(VDataNode node, std::vector<std::string>& names) const override;
  VDataNode CopyNode(VDataNode parent, const VDataContainer& source, VDataNode sourceNode) override;
  bool SetName(VDataNode node, const char* name) override;
  bool GetValue(VDataNode node, std::string& bytes) const override;

  // Slot 35: appends the element results of an XPath 1.0 query on the document, in document
  // order, and returns how many; -1 for a bad expression or one that does not give nodes.
  virtual int SelectNodes(const char* xpath, std::vector<VDataNode>& nodes) const;
  // Slot 36: the first element result in document order, or null.
  virtual VDataNode SelectNode(const char* xpath) const;
  // Slot 37: as slot 24.
  virtual VXML& operator=(const VXML& other);
  // Slot 38: the pugixml document, or null; valid as a node is.
  virtual pugi::xml_document* GetDocument() const;

  // Why the last Load, Parse or FromString failed (see above); empty after a success.
  VString GetLastErrorText() const;

 private:
  // The document, made when missing.
  pugi::xml_document& Document();

  pugi::xml_document* document_ = nullptr;
  std::string lastError_;  // of the last Load, Parse or FromString
};

#endif  // VANTU_VXML_H

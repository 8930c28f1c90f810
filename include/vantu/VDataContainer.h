// VDataContainer: the library's abstract interface for a tree of named values.
//
// A container holds at most one document: a document element with child elements, each with a
// name, attributes and a text value. Nodes are handed out as VDataNode, an opaque pointer whose
// meaning belongs to the concrete class; null means "none", and a null parent means the document
// level. A node stays valid until it or an ancestor is removed, or until the document is
// cleared, loaded, parsed or copied over. Passing a node of another container (except as the
// source of CopyNode) or a stale node is undefined. Names, values and attribute values are bytes
// in UTF-8; an embedded NUL is rejected with false.
//
// The base implements the VString value conveniences (slots 12, 13, 31) in the container's
// `encoding` (a StringEncoding number, UTF8 at first), assignment (slot 24), text output and
// input (slots 33, 34), and the typed conveniences GetInt, GetInt64, GetDouble, GetBool and
// their setters, which read and write decimal text through slots 32 and 14 and give the
// caller's default for a missing node or a value that does not parse. VXML is the one concrete
// kind.
//
// The virtual operations are part of the binary interface: 35 slots, declared in slot order.
// Errors: each operation states what it throws; allocation failures throw std::bad_alloc.
// Thread safety: none inside; a container may be read by several threads at once only while
// no thread changes it.
#ifndef VANTU_VDATACONTAINER_H
#define VANTU_VDATACONTAINER_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VException.h>
#include <vantu/VString.h>

// A node of a VDataContainer; null means none (as a parent: the document level).
typedef void* VDataNode;

class VANTU_API VDataContainer : public VBaseObject {
 public:
  VDataContainer();
  VDataContainer(const VDataContainer& other);

  // Slot 1.
  ~VDataContainer() override;

  // Slot 3: loads the file at `path` (UTF-8). Never throws: errors of the library's family are
  // passed to the current VErrorHandler unless `quiet`, and give false.
  virtual bool Load(const std::string& path, bool quiet) = 0;
  // Slot 4: replaces the document by the one read from `in`; throws VantuXMLElementException
  // with the parser's description when it cannot be read.
  virtual bool Load(std::istream& in) = 0;
  // Slot 5: replaces the document by `text` parsed; 0 on success, -1 on failure.
  virtual int Parse(const std::string& text) = 0;
  // Slot 6: saves the document to `path` (UTF-8); false when there is no document. Throws
  // VantuPathNotFoundException("Exception saving XML document") when it cannot be written.
  virtual bool Save(const std::string& path) = 0;
  // Slot 7: writes the document to `out`; bit 0 of `flags` indents, bit 1 writes a
  // declaration. False when there is no document or the stream fails.
  virtual bool Save(std::ostream& out, unsigned int flags) = 0;

  // Slot 8: the document element, or null.
  virtual VDataNode GetRoot() const = 0;
  // Slot 9: appends a child element (making the document if needed); null when `parent` is
  // null and a document element exists, or when `name` is not an XML name.
  virtual VDataNode AddNode(VDataNode parent, const char* name) = 0;
  // Slot 10: the first element, in document order, reached from `parent` by a "/"-separated
  // path of names (empty segments are skipped); null if none.
  virtual VDataNode GetNode(VDataNode parent, const char* path) const = 0;
  // Slot 11: removes the node and everything below it.
  virtual bool RemoveNode(VDataNode node) = 0;
  // Slot 12: `value` converted to the container's encoding, then slot 14.
  virtual bool SetValue(VDataNode node, const VString& value);
  // Slot 13: VString(value)'s bytes, then slot 14.
  virtual bool SetValue(VDataNode node, const char* value);
  // Slot 14: the node's text becomes exactly these bytes (see VXML for mixed content).
  virtual bool SetValue(VDataNode node, const char* bytes, size_t length) = 0;
  // Slot 15.
  virtual bool GetName(VDataNode node, std::string& name) const = 0;
  // Slots 16-17: the first child element, or the next sibling element, with that name (any
  // element when `name` is null); null if none.
  virtual VDataNode GetFirstChild(VDataNode parent, const char* name) const = 0;
  virtual VDataNode GetNextSibling(VDataNode node, const char* name) const = 0;
  // Slot 18: null at the document element.
  virtual VDataNode GetParent(VDataNode node) const = 0;
  // Slot 19: child elements with that name, all when `name` is null.
  virtual int CountNodes(VDataNode parent, const char* name) const = 0;
  // Slots 20-22.
  virtual bool SetAttribute(VDataNode node, const char* name, const char* bytes, size_t length) = 0;
  virtual bool GetAttribute(VDataNode node, const char* name, std::string& bytes) const = 0;
  virtual bool RemoveAttribute(VDataNode node, const char* name) = 0;
  // Slot 23: top-level nodes of every kind; -1 when there is no document.
  virtual int CountChildren() const = 0;
  // Slot 24: nothing when `other` is this container, else Copy(other, 0).
  virtual VDataContainer& operator=(const VDataContainer& other);
  // Slot 25: replaces the document by a deep copy of other's when both are of the same kind
  // (then true); `flags` is reserved and must be 0.
  virtual bool Copy(const VDataContainer& other, unsigned int flags) = 0;
  // Slot 26: true here; see VXML.
  virtual bool IsEmpty() const;
  // Slot 27: does nothing here; see VXML.
  virtual void Clear();
  // Slot 28: appends the node's attribute names; returns how many.
  virtual int GetAttributeNames(VDataNode node, std::vector<std::string>& names) const = 0;
  // Slot 29: appends a deep copy of `sourceNode` (of `source`, which may be this container) to
  // `parent`; null when the kinds differ, or as for AddNode.
  virtual VDataNode CopyNode(VDataNode parent, const VDataContainer& source,
                             VDataNode sourceNode) = 0;
  // Slot 30.
  virtual bool SetName(VDataNode node, const char* name) = 0;
  // Slot 31: slot 32, with the bytes taken in the container's encoding.
  virtual bool GetValue(VDataNode node, VString& value) const;
  // Slot 32: the node's text: its own text and CDATA children, concatenated; empty when it has
  // none.
  virtual bool GetValue(VDataNode node, std::string& bytes) const = 0;
  // Slot 33: the text Save(out, flags) writes; empty if it fails.
  virtual std::string ToString(unsigned int flags);
  // Slot 34: Load(in) from the text; false when it throws.
  virtual bool FromString(const std::string& text);

  // The StringEncoding of the VString conveniences. The tree holds UTF-8: with UTF16 every
  // non-empty VString SetValue fails (its bytes hold NULs), and with Latin1 (or another
  // single-byte encoding) SetValue stores bytes that are not UTF-8, written as they are into a
  // file that declares UTF-8, which a strict reader rejects.
  uint32_t GetEncoding() const { return encoding_; }
  void SetEncoding(uint32_t encoding) { encoding_ = encoding; }

  // Typed values in decimal text ("true"/"false" for booleans, which also read "1"/"0"); a
  // null node or a value that does not parse gives `defaultValue`. Doubles are written in
  // the shortest form that reads back to the same value.
  int GetInt(VDataNode node, int defaultValue = 0) const;
  long long GetInt64(VDataNode node, long long defaultValue = 0) const;
  double GetDouble(VDataNode node, double defaultValue = 0) const;
  bool GetBool(VDataNode node, bool defaultValue = false) const;
  bool SetInt(VDataNode node, int value);
  bool SetInt64(VDataNode node, long long value);
  bool SetDouble(VDataNode node, double value);
  bool SetBool(VDataNode node, bool value);

 private:
  uint32_t encoding_;
};

#endif  // VANTU_VDATACONTAINER_H

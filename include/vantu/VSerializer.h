// VSerializer: named, typed values stored as child elements of one node of a data container.
//
// Each value is a child element named after it whose text is the value: integers and doubles
// in decimal (doubles in the shortest form that reads back exactly), booleans as "true" or
// "false", VString text in the container's encoding, binary blobs as lower-case hexadecimal.
// Writing a name that exists replaces its value in place (the first element of that name);
// other children are kept. Reading a missing value, or one that does not parse as the type
// asked for, gives the caller's default. BeginGroup(name) enters the child element `name`
// (made when a value is first written into it, so reading never changes the document) and
// EndGroup returns to the enclosing one.
//
// Lookups go through an index of each entered group's children, built when the group is first
// used, so reading and writing n values costs O(n). While a serializer is in use, change the
// groups it has entered only through it.
//
// Errors: the constructor throws VantuInvalidArgumentException for a null node, a write throws
// VantuInvalidArgumentException for a name that is not an XML name and VantuDataException when
// the container refuses the value; EndGroup without BeginGroup throws VantuLogicException.
// Thread safety: none; one thread at a time, as for the container.
//
//   VSerializer out(xml, root);
//   out.WriteInt("width", 640);
//   out.BeginGroup("window");
//   out.WriteString("title", VString("Main", UTF8));
//   out.EndGroup();
//   int width = VSerializer(xml, root).ReadInt("width", 800);  // 640
#ifndef VANTU_VSERIALIZER_H
#define VANTU_VSERIALIZER_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VDataContainer.h>
#include <vantu/VString.h>

class VANTU_API VSerializer : public VBaseObject {
 public:
  // Works on the children of `node`, which stays owned by `container`.
  VSerializer(VDataContainer& container, VDataNode node);
  VSerializer(const VSerializer&) = delete;
  VSerializer& operator=(const VSerializer&) = delete;
  ~VSerializer() override;

  void BeginGroup(const char* name);
  void EndGroup();

  void WriteInt(const char* name, int value);
  void WriteInt64(const char* name, long long value);
  void WriteDouble(const char* name, double value);
  void WriteBool(const char* name, bool value);
  void WriteString(const char* name, const VString& value);
  void WriteBinary(const char* name, const void* bytes, size_t count);

  int ReadInt(const char* name, int defaultValue) const;
  long long ReadInt64(const char* name, long long defaultValue) const;
  double ReadDouble(const char* name, double defaultValue) const;
  bool ReadBool(const char* name, bool defaultValue) const;
  VString ReadString(const char* name, const VString& defaultValue) const;
  // The decoded bytes into `bytes`; false (bytes untouched) when missing or not hexadecimal.
  bool ReadBinary(const char* name, std::string& bytes) const;

 private:
  struct Group;

  // The value node `name` of the current group, or null.
  VDataNode Find(const char* name) const;
  // The value node `name` of the current group, made (with the groups above it) when missing.
  VDataNode FindOrAdd(const char* name);
  // The current group's node, made with its missing ancestors.
  VDataNode Materialise();

  VDataContainer& container_;
  std::vector<std::unique_ptr<Group>> groups_;
};

#endif  // VANTU_VSERIALIZER_H

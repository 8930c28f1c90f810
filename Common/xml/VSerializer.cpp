#include <vantu/VSerializer.h>

#include <functional>
#include <string_view>

#include <vantu/VException.h>
#include <vantu/VHexBinaryCodec.h>

// One entered group: its node (null until a value is written into it) and, once used, an index
// of its child elements by name (the first of each name). The index is open addressing on the
// names' hashes, with names compared through the container on a hash match: one flat array, no
// allocation per child.
struct VSerializer::Group {
  std::string name;
  VDataNode node = nullptr;
  bool indexed = false;
  std::vector<std::pair<size_t, VDataNode>> slots;  // a null node marks a free slot
  size_t used = 0;
  std::string scratch;

  static size_t Hash(std::string_view key) { return std::hash<std::string_view>()(key); }

  VDataNode Lookup(const VDataContainer& container, std::string_view key, size_t hash) {
    const size_t mask = slots.size() - 1;
    for (size_t i = hash & mask; !slots.empty() && slots[i].second != nullptr; i = (i + 1) & mask) {
      if (slots[i].first == hash && container.GetName(slots[i].second, scratch) && scratch == key) {
        return slots[i].second;
      }
    }
    return nullptr;
  }

  // Records a child whose name is not in the index yet; keeps the table at most half full.
  void Insert(size_t hash, VDataNode child) {
    if (2 * (used + 1) > slots.size()) {
      std::vector<std::pair<size_t, VDataNode>> old(std::max<size_t>(16, 2 * slots.size()));
      old.swap(slots);
      used = 0;
      for (const auto& slot : old) {
        if (slot.second != nullptr) Insert(slot.first, slot.second);
      }
    }
    size_t i = hash & (slots.size() - 1);
    while (slots[i].second != nullptr) i = (i + 1) & (slots.size() - 1);
    slots[i] = {hash, child};
    ++used;
  }

  // The child `key`, or null; indexes the children first when needed.
  VDataNode Get(const VDataContainer& container, std::string_view key) {
    if (!indexed) {
      indexed = true;
      std::string childName;
      for (VDataNode child = node != nullptr ? container.GetFirstChild(node, nullptr) : nullptr;
           child != nullptr; child = container.GetNextSibling(child, nullptr)) {
        if (!container.GetName(child, childName)) continue;
        const size_t hash = Hash(childName);
        if (Lookup(container, childName, hash) == nullptr) Insert(hash, child);
      }
    }
    return Lookup(container, key, Hash(key));
  }
};

namespace {

void Check(bool done, const char* name) {
  if (!done) throw VantuDataException(std::string("VSerializer: cannot write value ") + name);
}

}  // namespace

VSerializer::VSerializer(VDataContainer& container, VDataNode node) : container_(container) {
  if (node == nullptr) throw VantuInvalidArgumentException("VSerializer: null node");
  groups_.push_back(std::make_unique<Group>());
  groups_.back()->node = node;
}

VSerializer::~VSerializer() = default;

void VSerializer::BeginGroup(const char* name) {
  auto group = std::make_unique<Group>();
  group->name = name != nullptr ? name : "";
  group->node = Find(group->name.c_str());
  groups_.push_back(std::move(group));
}

void VSerializer::EndGroup() {
  if (groups_.size() < 2) throw VantuLogicException("VSerializer: EndGroup without BeginGroup");
  groups_.pop_back();
}

VDataNode VSerializer::Find(const char* name) const {
  Group& group = *groups_.back();
  if (group.node == nullptr || name == nullptr) return nullptr;
  // The index is a cache of the group's children; building it does not change the document.
  return group.Get(container_, name);
}

VDataNode VSerializer::Materialise() {
  size_t made = groups_.size();
  while (groups_[made - 1]->node == nullptr) --made;
  for (; made < groups_.size(); ++made) {
    Group& parent = *groups_[made - 1];
    Group& group = *groups_[made];
    group.node = container_.AddNode(parent.node, group.name.c_str());
    if (group.node == nullptr) {
      throw VantuInvalidArgumentException("VSerializer: bad group name " + group.name);
    }
    parent.Insert(Group::Hash(group.name), group.node);
    group.indexed = true;  // a new group has no children
  }
  return groups_.back()->node;
}

VDataNode VSerializer::FindOrAdd(const char* name) {
  Materialise();
  if (VDataNode node = Find(name)) return node;
  Group& group = *groups_.back();
  VDataNode node = container_.AddNode(group.node, name);
  if (node == nullptr) {
    throw VantuInvalidArgumentException(std::string("VSerializer: bad value name ") +
                                        (name != nullptr ? name : "(null)"));
  }
  group.Insert(Group::Hash(name), node);
  return node;
}

void VSerializer::WriteInt(const char* name, int value) {
  Check(container_.SetInt(FindOrAdd(name), value), name);
}

void VSerializer::WriteInt64(const char* name, long long value) {
  Check(container_.SetInt64(FindOrAdd(name), value), name);
}

void VSerializer::WriteDouble(const char* name, double value) {
  Check(container_.SetDouble(FindOrAdd(name), value), name);
}

void VSerializer::WriteBool(const char* name, bool value) {
  Check(container_.SetBool(FindOrAdd(name), value), name);
}

void VSerializer::WriteString(const char* name, const VString& value) {
  Check(container_.SetValue(FindOrAdd(name), value), name);
}

void VSerializer::WriteBinary(const char* name, const void* bytes, size_t count) {
  const std::string text = VHexBinaryCodec::Encode(bytes, count);
  Check(container_.SetValue(FindOrAdd(name), text.data(), text.size()), name);
}

int VSerializer::ReadInt(const char* name, int defaultValue) const {
  return container_.GetInt(Find(name), defaultValue);
}

long long VSerializer::ReadInt64(const char* name, long long defaultValue) const {
  return container_.GetInt64(Find(name), defaultValue);
}

double VSerializer::ReadDouble(const char* name, double defaultValue) const {
  return container_.GetDouble(Find(name), defaultValue);
}

bool VSerializer::ReadBool(const char* name, bool defaultValue) const {
  return container_.GetBool(Find(name), defaultValue);
}

VString VSerializer::ReadString(const char* name, const VString& defaultValue) const {
  VString value(static_cast<StringEncoding>(container_.GetEncoding()));
  const VDataNode node = Find(name);
  return node != nullptr && container_.GetValue(node, value) ? value : defaultValue;
}

bool VSerializer::ReadBinary(const char* name, std::string& bytes) const {
  std::string text;
  const VDataNode node = Find(name);
  if (node == nullptr || !container_.GetValue(node, text)) return false;
  try {
    bytes = VHexBinaryCodec::Decode(text);
    return true;
  } catch (const VantuDataException&) {
    return false;
  }
}

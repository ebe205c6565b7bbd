#pragma once
// Dictionary of DEF names built while a file is read. It starts with 251 buckets and
// doubles when chains grow long, so a file with very many names stays linear.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace meshcore {

class QvNode;

class QvDict {
public:
  QvDict();

  // Binds name to node, replacing an earlier binding (the last DEF wins).
  void Enter(std::string_view name, QvNode* node);
  QvNode* Find(std::string_view name) const;
  bool Remove(std::string_view name);
  void Clear();
  std::size_t GetCount() const { return count_; }

private:
  struct Entry {
    std::string name;
    QvNode* node;
  };
  static std::size_t Hash(std::string_view name);
  void Grow();

  std::vector<std::vector<Entry>> buckets_;
  std::size_t count_ = 0;
};

} // namespace meshcore

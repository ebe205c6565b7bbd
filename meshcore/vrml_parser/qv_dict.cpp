#include "meshcore/vrml_parser/qv_dict.h"

namespace meshcore {

namespace {
constexpr std::size_t kInitialBuckets = 251;
constexpr std::size_t kMaxLoad = 4;
} // namespace

QvDict::QvDict() : buckets_(kInitialBuckets) {}

std::size_t QvDict::Hash(std::string_view name) {
  // FNV-1a: cheap and good enough for identifiers.
  std::size_t h = 14695981039346656037ull;
  for (unsigned char c : name) {
    h ^= c;
    h *= 1099511628211ull;
  }
  return h;
}

void QvDict::Enter(std::string_view name, QvNode* node) {
  auto& bucket = buckets_[Hash(name) % buckets_.size()];
  for (auto& e : bucket) {
    if (e.name == name) {
      e.node = node;
      return;
    }
  }
  bucket.push_back(Entry{std::string(name), node});
  if (++count_ > buckets_.size() * kMaxLoad)
    Grow();
}

QvNode* QvDict::Find(std::string_view name) const {
  const auto& bucket = buckets_[Hash(name) % buckets_.size()];
  for (const auto& e : bucket)
    if (e.name == name)
      return e.node;
  return nullptr;
}

bool QvDict::Remove(std::string_view name) {
  auto& bucket = buckets_[Hash(name) % buckets_.size()];
  for (auto it = bucket.begin(); it != bucket.end(); ++it) {
    if (it->name == name) {
      bucket.erase(it);
      --count_;
      return true;
    }
  }
  return false;
}

void QvDict::Clear() {
  buckets_.assign(kInitialBuckets, {});
  count_ = 0;
}

void QvDict::Grow() {
  std::vector<std::vector<Entry>> bigger(buckets_.size() * 2 + 1);
  for (auto& bucket : buckets_)
    for (auto& e : bucket)
      bigger[Hash(e.name) % bigger.size()].push_back(std::move(e));
  buckets_.swap(bigger);
}

} // namespace meshcore

#pragma once
// A hash map from a key to an owned set of elements.

#include "meshcore/containers/hash_map.h"
#include "meshcore/containers/hash_table.h"

namespace meshcore {

template <class KEY, class ARG_KEY, class ELEMENT>
class CHashExMap : public CHashMap<KEY, ARG_KEY, CHashTable<ELEMENT>*> {
  using Base = CHashMap<KEY, ARG_KEY, CHashTable<ELEMENT>*>;

public:
  using Set = CHashTable<ELEMENT>;

  CHashExMap() = default;
  CHashExMap(const CHashExMap&) = delete;
  CHashExMap& operator=(const CHashExMap&) = delete;
  ~CHashExMap() override { DeleteSets(); }

  // Inserts element into the key's set, creating the set for a new key;
  // returns the set's Insert result.
  int Add(ARG_KEY key, const ELEMENT& element) {
    Set** found = Base::PLookup(key);
    Set* set = found ? *found : nullptr;
    if (!set) {
      set = new Set;
      Base::SetAt(key, set);
    }
    return set->Insert(element);
  }
  // Takes ownership of set; a different set held for the key is deleted.
  int SetAt(ARG_KEY key, Set* set) {
    Set** found = Base::PLookup(key);
    if (found && *found != set)
      delete *found;
    return Base::SetAt(key, set);
  }
  // The key's set, or null.
  Set* GetSet(ARG_KEY key) const {
    Set* const* found = Base::PLookup(key);
    return found ? *found : nullptr;
  }
  int RemoveKey(ARG_KEY key) override {
    Set** found = Base::PLookup(key);
    if (!found)
      return 0;
    delete *found;
    *found = nullptr;
    return Base::RemoveKey(key);
  }
  void MakeEmpty() override {
    DeleteSets();
    Base::MakeEmpty();
  }

private:
  void DeleteSets() {
    for (int pos = this->GetFirst(); pos >= 0; pos = this->NextActive(pos + 1)) {
      delete this->m_slots[pos].value;
      this->m_slots[pos].value = nullptr;
    }
  }
};

} // namespace meshcore

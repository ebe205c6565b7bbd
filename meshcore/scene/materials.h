#pragma once
// The material collection of a scene, keyed by material id. Id 0 is the
// default material, made on demand. Iteration follows insertion order, so
// everything written from it is reproducible.

#include "meshcore/containers/hash_table.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/object.h"
#include "meshcore/scene/material.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace meshcore {

// Iteration cursor over a collection; 0 means past the end.
using MaterialPosition = std::size_t;

// CopyMaterials flags.
enum MATERIAL_COPY_FLAGS : unsigned {
  MATERIAL_COPY_OVERWRITE = 1, // assign into a material of the same id instead of replacing it
  MATERIAL_COPY_CLEAR = 2,     // remove this collection's materials first
  MATERIAL_COPY_FILTER = 4,    // copy only the ids in the filter
};

class CMaterials : public CObject {
  MESHCORE_DECLARE_SERIAL(CMaterials)
public:
  CMaterials();
  ~CMaterials() override;
  CMaterials(const CMaterials&) = delete;
  CMaterials& operator=(const CMaterials&) = delete;

  // Absent id 0 is created as the default material; any other absent id gives null.
  C3DMaterial* GetMaterial(unsigned id);
  C3DMaterial* Lookup(unsigned id) const;
  // Stores a copy of m as material 0 named "Default material", or assigns m
  // (its name included) into the existing material 0.
  void SetDefaultMaterial(const C3DMaterial& m);
  // A new stored material with the next id. Its name is left EMPTY although a
  // free name is looked for: callers name it themselves.
  C3DMaterial* CreateNewMaterial();
  // Id of the first material (in iteration order) with exactly this name, or 0xFFFFFFFF.
  unsigned IsMaterialExist(const std::string& name) const;
  // 1 and the id of the first material equal to m (name and parameters), else 0.
  int IsMaterialExist(const C3DMaterial& m, unsigned& id) const;
  // Stores material under id, taking ownership. A material already stored under
  // id is unlinked but kept alive until the collection goes, so pointers to it
  // stay valid.
  void SetAt(unsigned id, C3DMaterial* material);
  void RemoveMaterial(unsigned id);
  void RemoveAll();
  // Flags MATERIAL_COPY_*; see the flag list. Copies keep the source ids.
  void CopyMaterials(const CMaterials& src, unsigned flags, const CHashUInt* filter);

  std::size_t GetCount() const { return m_entries.size(); }
  bool IsEmpty() const { return m_entries.empty(); }
  MaterialPosition GetStartPosition() const { return m_entries.empty() ? 0 : 1; }
  // The material at pos; pos moves on (0 after the last).
  C3DMaterial* GetNextMaterial(MaterialPosition& pos) const;
  void GetNextAssoc(MaterialPosition& pos, unsigned& id, C3DMaterial*& material) const;

  // Count, then each material as a full object in iteration order. Reading
  // replaces the content and files each material under its own id.
  void Serialize(CArchive& ar) override;

private:
  struct Entry {
    unsigned id;
    C3DMaterial* material;
  };
  std::vector<Entry> m_entries;
  std::unordered_map<unsigned, std::size_t> m_index; // id -> position in m_entries
  std::vector<C3DMaterial*> m_retired;               // replaced by SetAt, freed with us
};

} // namespace meshcore

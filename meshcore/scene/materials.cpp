#include "meshcore/scene/materials.h"

#include "meshcore/containers/hash_table.h"
#include "meshcore/platform/exceptions.h"
#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"

#include <memory>
#include <unordered_set>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(CMaterials, CObject, 1)

CMaterials::CMaterials() = default;

CMaterials::~CMaterials() {
  RemoveAll();
  for (C3DMaterial* m : m_retired)
    delete m;
}

C3DMaterial* CMaterials::Lookup(unsigned id) const {
  auto it = m_index.find(id);
  return it == m_index.end() ? nullptr : m_entries[it->second].material;
}

C3DMaterial* CMaterials::GetMaterial(unsigned id) {
  if (C3DMaterial* m = Lookup(id))
    return m;
  if (id != 0)
    return nullptr;
  C3DMaterial defaults;
  SetDefaultMaterial(defaults);
  return Lookup(0);
}

void CMaterials::SetDefaultMaterial(const C3DMaterial& m) {
  if (C3DMaterial* existing = Lookup(0)) {
    *existing = m;
    return;
  }
  auto material = std::make_unique<C3DMaterial>();
  *material = m;
  material->SetMaterialID(0);
  material->SetName(LoadString(IDS_DEFAULT_MATERIAL));
  SetAt(0, material.release());
}

C3DMaterial* CMaterials::CreateNewMaterial() {
  auto material = std::make_unique<C3DMaterial>();
  // The free name is searched for but, as hosts have always seen, not applied.
  std::string candidate = material->GetName();
  for (int n = 0; IsMaterialExist(candidate) != 0xFFFFFFFFu; ++n)
    candidate = material->GetName() + std::to_string(n);
  C3DMaterial* raw = material.release();
  SetAt(raw->GetMaterialID(), raw);
  return raw;
}

unsigned CMaterials::IsMaterialExist(const std::string& name) const {
  for (const Entry& e : m_entries)
    if (e.material->GetName() == name)
      return e.id;
  return 0xFFFFFFFFu;
}

int CMaterials::IsMaterialExist(const C3DMaterial& m, unsigned& id) const {
  for (const Entry& e : m_entries) {
    if (*e.material == m) {
      id = e.id;
      return 1;
    }
  }
  return 0;
}

void CMaterials::SetAt(unsigned id, C3DMaterial* material) {
  auto it = m_index.find(id);
  if (it != m_index.end()) {
    Entry& e = m_entries[it->second];
    if (e.material != material && e.material)
      m_retired.push_back(e.material);
    e.material = material;
    return;
  }
  m_index.emplace(id, m_entries.size());
  m_entries.push_back({id, material});
}

void CMaterials::RemoveMaterial(unsigned id) {
  auto it = m_index.find(id);
  if (it == m_index.end())
    return;
  const std::size_t pos = it->second;
  delete m_entries[pos].material;
  m_entries.erase(m_entries.begin() + static_cast<std::ptrdiff_t>(pos));
  m_index.erase(it);
  for (auto& [key, index] : m_index)
    if (index > pos)
      --index;
}

void CMaterials::RemoveAll() {
  for (Entry& e : m_entries)
    delete e.material;
  m_entries.clear();
  m_index.clear();
}

void CMaterials::CopyMaterials(const CMaterials& src, unsigned flags, const CHashUInt* filter) {
  if (&src == this)
    return; // copying a collection into itself changes nothing
  if (flags & MATERIAL_COPY_CLEAR)
    RemoveAll();
  if ((flags & MATERIAL_COPY_FILTER) && !filter)
    return;
  for (const Entry& e : src.m_entries) {
    if ((flags & MATERIAL_COPY_FILTER) && !filter->IsFound(e.id))
      continue;
    C3DMaterial* target = (flags & MATERIAL_COPY_OVERWRITE) ? Lookup(e.id) : nullptr;
    if (target) {
      *target = *e.material;
    } else {
      auto material = std::make_unique<C3DMaterial>();
      *material = *e.material;
      target = material.get();
      SetAt(e.id, material.release());
    }
    target->SetMaterialID(e.id);
  }
}

C3DMaterial* CMaterials::GetNextMaterial(MaterialPosition& pos) const {
  if (pos == 0 || pos > m_entries.size()) {
    pos = 0;
    return nullptr;
  }
  C3DMaterial* m = m_entries[pos - 1].material;
  pos = pos < m_entries.size() ? pos + 1 : 0;
  return m;
}

void CMaterials::GetNextAssoc(MaterialPosition& pos, unsigned& id, C3DMaterial*& material) const {
  if (pos == 0 || pos > m_entries.size()) {
    pos = 0;
    material = nullptr;
    return;
  }
  id = m_entries[pos - 1].id;
  material = GetNextMaterial(pos);
}

void CMaterials::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar.WriteCount(m_entries.size());
    for (const Entry& e : m_entries)
      ar.WriteObject(e.material);
    return;
  }
  RemoveAll();
  // A material reference takes at least two bytes.
  const std::uint64_t count = ar.ReadCount(2);
  std::unordered_set<const CObject*> seen;
  for (std::uint64_t i = 0; i < count; ++i) {
    CObject* obj = ar.ReadObject(MESHCORE_RUNTIME_CLASS(C3DMaterial));
    if (!obj || !seen.insert(obj).second)
      continue; // a null or repeated reference adds nothing (and must not be owned twice)
    auto* material = static_cast<C3DMaterial*>(obj);
    SetAt(material->GetMaterialID(), material);
  }
}

} // namespace meshcore

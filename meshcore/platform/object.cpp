#include "meshcore/platform/object.h"

#include <cstring>
#include <map>
#include <string>
#include <string_view>

namespace meshcore {

namespace {

// Filled by static registrars before main; read-only afterwards, so no lock.
std::map<std::string, const CRuntimeClass*, std::less<>>& Registry() {
  static std::map<std::string, const CRuntimeClass*, std::less<>> registry;
  return registry;
}

} // namespace

const CRuntimeClass CObject::classCObject = {"CObject", 0xFFFF, nullptr, nullptr};

const CRuntimeClass* CObject::GetRuntimeClass() const {
  return &classCObject;
}

void CObject::Serialize(CArchive&) {}

bool CRuntimeClass::IsDerivedFrom(const CRuntimeClass* base) const {
  for (const CRuntimeClass* c = this; c; c = c->m_pBaseClass)
    if (c == base)
      return true;
  return false;
}

const CRuntimeClass* CRuntimeClass::FromName(const char* name) {
  return name ? FromName(name, std::strlen(name)) : nullptr;
}

const CRuntimeClass* CRuntimeClass::FromName(const char* name, std::size_t len) {
  if (!name)
    return nullptr;
  const auto& registry = Registry();
  auto it = registry.find(std::string_view(name, len));
  return it == registry.end() ? nullptr : it->second;
}

CClassRegistrar::CClassRegistrar(const CRuntimeClass* cls) {
  // The first registration of a name wins; a duplicate would be a build mistake.
  if (cls && cls->m_lpszClassName)
    Registry().emplace(cls->m_lpszClassName, cls);
}

} // namespace meshcore

#pragma once
// Run-time typed, serialisable objects and the registry that recreates them by
// class name when an archive is read.

#include <cstddef>
#include <cstdint>

namespace meshcore {

class CArchive;
class CObject;

struct CRuntimeClass {
  const char* m_lpszClassName;
  std::uint16_t m_wSchema;
  CObject* (*m_pfnCreateObject)(); // null for abstract classes
  const CRuntimeClass* m_pBaseClass;

  CObject* CreateObject() const { return m_pfnCreateObject ? m_pfnCreateObject() : nullptr; }
  bool IsDerivedFrom(const CRuntimeClass* base) const;
  // Looks a class up by the name written in archives; null when unknown.
  static const CRuntimeClass* FromName(const char* name);
  static const CRuntimeClass* FromName(const char* name, std::size_t len);
};

// Adds a class to the registry; used by MESHCORE_IMPLEMENT_SERIAL.
struct CClassRegistrar {
  explicit CClassRegistrar(const CRuntimeClass* cls);
};

class CObject {
public:
  virtual ~CObject() = default;
  virtual const CRuntimeClass* GetRuntimeClass() const;
  virtual void Serialize(CArchive& ar);
  bool IsKindOf(const CRuntimeClass* cls) const { return GetRuntimeClass()->IsDerivedFrom(cls); }
  static const CRuntimeClass classCObject;
};

#define MESHCORE_RUNTIME_CLASS(name) (&name::class##name)

// In the class body: run-time class information (dynamic creation when serial).
#define MESHCORE_DECLARE_DYNAMIC(name)                                                             \
public:                                                                                            \
  static const ::meshcore::CRuntimeClass class##name;                                              \
  const ::meshcore::CRuntimeClass* GetRuntimeClass() const override;

#define MESHCORE_DECLARE_SERIAL(name)                                                              \
  MESHCORE_DECLARE_DYNAMIC(name)                                                                   \
  static ::meshcore::CObject* CreateObject();

// In one .cpp file, inside namespace meshcore.
#define MESHCORE_IMPLEMENT_DYNAMIC(name, base)                                                     \
  const ::meshcore::CRuntimeClass name::class##name = {#name, 0xFFFF, nullptr,                     \
                                                       MESHCORE_RUNTIME_CLASS(base)};              \
  const ::meshcore::CRuntimeClass* name::GetRuntimeClass() const {                                 \
    return &class##name;                                                                           \
  }

#define MESHCORE_IMPLEMENT_SERIAL(name, base, schema)                                              \
  ::meshcore::CObject* name::CreateObject() {                                                      \
    return new name;                                                                               \
  }                                                                                                \
  const ::meshcore::CRuntimeClass name::class##name = {#name, schema, &name::CreateObject,         \
                                                       MESHCORE_RUNTIME_CLASS(base)};              \
  const ::meshcore::CRuntimeClass* name::GetRuntimeClass() const {                                 \
    return &class##name;                                                                           \
  }                                                                                                \
  static const ::meshcore::CClassRegistrar s_registrar##name(&name::class##name);

} // namespace meshcore

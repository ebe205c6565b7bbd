#include "meshcore/geometry/pt.h"

#include "meshcore/containers/custom_data.h"
#include "meshcore/platform/archive.h"

namespace meshcore {

MESHCORE_IMPLEMENT_DYNAMIC(CPt, CObject)

void CPt::Serialize(CArchive& ar) {
  // The custom data is not part of the point's record: lists write it apart.
  if (ar.IsStoring())
    ar << m_flags;
  else
    ar >> m_flags;
}

CCustomData* CPt::CreateCustomData() {
  m_pCustomData = new CCustomData;
  return m_pCustomData;
}

void CPt::FreeCustomData() {
  delete m_pCustomData;
  m_pCustomData = nullptr;
}

void CPt::AssignCustomData(const CCustomData& src) {
  *GetCustomData(1) = src;
}

} // namespace meshcore

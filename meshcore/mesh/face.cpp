#include "meshcore/mesh/face.h"

#include "meshcore/containers/custom_data.h"
#include "meshcore/platform/archive.h"

namespace meshcore {

MESHCORE_IMPLEMENT_DYNAMIC(CFace, CIntArrayID)

CFace::CFace(const CFace& f) : CIntArrayID(f), m_flags(f.m_flags) {
  if (f.m_pCustomData)
    m_pCustomData = new CCustomData(*f.m_pCustomData);
}

CFace::~CFace() {
  delete m_pCustomData;
}

void CFace::Serialize(CArchive& ar) {
  if (ar.IsStoring())
    ar << m_flags;
  else
    ar >> m_flags;
}

CFace& CFace::operator=(const CIntArrayID& indices) {
  CIntArrayID::operator=(indices);
  return *this;
}

CFace& CFace::operator=(const CFace& f) {
  if (&f != this) {
    CIntArrayID::operator=(f);
    InheritFlags(f);
  }
  return *this;
}

void CFace::AssignCustomData(const CCustomData* src) {
  if (!src || src == m_pCustomData)
    return;
  *GetCustomData(1) = *src;
}

void CFace::InheritFlags(const CFace& src) {
  m_flags = src.m_flags;
  AssignCustomData(src.m_pCustomData);
}

CCustomData* CFace::GetCustomData(int create) {
  if (!m_pCustomData && create)
    m_pCustomData = new CCustomData;
  return m_pCustomData;
}

void CFace::SetTriangle(int a, int b, int c) {
  CIntArrayID::SetSize(3);
  int* d = GetData();
  d[0] = a;
  d[1] = b;
  d[2] = c;
  SetFlag(FACE_INVALID, 0);
}

int CFace::AddIndex(int i) {
  const int pos = Add(i);
  SetFlag(FACE_INVALID, GetSize() < 3);
  return pos;
}

int CFace::RemoveIndex(int i) {
  for (int k = GetSize() - 1; k >= 0; --k) {
    if ((*this)[k] == i) {
      RemoveAt(k, 1);
      if (GetSize() < 3)
        SetFlag(FACE_INVALID, 1);
      return 1;
    }
  }
  return 0;
}

void CFace::ClearIndex() {
  CIntArrayID::SetSize(0);
  SetFlag(FACE_INVALID, 1);
}

int CFace::IsFacePoint(int i) const {
  const int* d = GetData();
  for (int k = 0; k < GetSize(); ++k)
    if (d[k] == i)
      return k;
  return -1;
}

int CFace::IsFaceEdge(int a, int b, int oriented) const {
  const int n = GetSize();
  const int* d = GetData();
  for (int k = 0; k < n; ++k) {
    const int p = d[k];
    const int q = d[k + 1 < n ? k + 1 : 0];
    if (p == a && q == b)
      return k;
    if (!oriented && p == b && q == a)
      return k;
  }
  return -1;
}

FACERESULT CFace::ReplaceIndex(int oldIndex, int newIndex) {
  const int oldPos = IsFacePoint(oldIndex);
  if (oldPos < 0 || oldIndex == newIndex)
    return FACE_UNCHANGED;
  const int newPos = IsFacePoint(newIndex);
  if (newPos >= 0)
    RemoveAt(newPos, 1);
  else
    (*this)[oldPos] = newIndex;
  if (GetSize() < 3) {
    SetFlag(FACE_INVALID, 1);
    return FACE_DEGENERATE;
  }
  return FACE_CHANGED;
}

void CFace::InvertOrientation() {
  int* d = GetData();
  for (int i = 0, j = GetSize() - 1; i < j; ++i, --j) {
    const int t = d[i];
    d[i] = d[j];
    d[j] = t;
  }
}

} // namespace meshcore

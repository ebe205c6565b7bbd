#include "meshcore/mesh/channel.h"

#include "meshcore/mesh/face_list.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_list.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/exceptions.h"
#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"

#include <atomic>
#include <memory>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(CChannel, CObject, 1)

namespace {

std::atomic<unsigned> s_nextChannelID{0};

// A list of a class read from the archive, or null when absent.
template <class List>
std::unique_ptr<List> ReadList(CArchive& ar, const CRuntimeClass* base,
                               const CRuntimeClass* required) {
  std::uint32_t present = 0;
  ar >> present;
  if (!present)
    return nullptr;
  const CRuntimeClass* cls = ar.ReadClass(base);
  if (!cls || (required && !cls->IsDerivedFrom(required)))
    ThrowArchiveException(CArchiveException::badClass);
  std::unique_ptr<CObject> obj(cls->CreateObject());
  if (!obj)
    ThrowArchiveException(CArchiveException::badClass);
  obj->Serialize(ar);
  return std::unique_ptr<List>(static_cast<List*>(obj.release()));
}

void WriteList(CArchive& ar, const CObject* list) {
  ar << static_cast<std::uint32_t>(list ? 1 : 0);
  if (list) {
    ar.WriteClass(list->GetRuntimeClass());
    const_cast<CObject*>(list)->Serialize(ar);
  }
}

// Clones a list of the same run-time class as src (for channels whose list
// kinds are known only through SetInfo).
template <class List> List* NewListLike(const List* src) {
  return src ? static_cast<List*>(src->GetRuntimeClass()->CreateObject()) : nullptr;
}

} // namespace

unsigned CChannel::CreateID() {
  return s_nextChannelID.fetch_add(1, std::memory_order_relaxed);
}

CChannel::CChannel(unsigned id) : m_id(id == kNoChannel ? CreateID() : id) {}

CChannel::~CChannel() {
  delete m_pPointList;
  delete m_pFaceList;
}

void CChannel::SetInfo(_Channel3DType type, CPointList* points, CFaceList* faces) {
  m_type = type;
  m_pPointList = points;
  m_pFaceList = faces;
}

std::string CChannel::GetTypeString() const {
  switch (m_type) {
  case CHANNEL_UVW:
    return LoadString(IDS_CHANNEL_UVW);
  case CHANNEL_VC:
    return LoadString(IDS_CHANNEL_VC);
  case CHANNEL_POINT_NORMAL:
    return LoadString(IDS_CHANNEL_POINT_NORMALS);
  case CHANNEL_FACE_NORMAL:
    return LoadString(IDS_CHANNEL_FACE_NORMALS);
  default:
    return {};
  }
}

void CChannel::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << static_cast<std::uint32_t>(m_id) << static_cast<std::uint32_t>(m_type) << m_flags;
    WriteList(ar, m_pPointList);
    WriteList(ar, m_pFaceList);
    m_customData.Serialize(ar);
    return;
  }
  // A channel kind fixes its type and list kinds; a file that says otherwise
  // would hand later code lists of the wrong class.
  const _Channel3DType expected = m_type;
  std::uint32_t id = 0, type = 0, flags = 0;
  ar >> id >> type >> flags;
  if (expected != CHANNEL_NONE && type != expected)
    ThrowArchiveException(CArchiveException::badClass);
  std::unique_ptr<CPointList> points =
      ReadList<CPointList>(ar, MESHCORE_RUNTIME_CLASS(CPointList), GetPointListClass());
  std::unique_ptr<CFaceList> faces =
      ReadList<CFaceList>(ar, MESHCORE_RUNTIME_CLASS(CFaceList), GetFaceListClass());
  if ((GetPointListClass() && !points) || (GetFaceListClass() && !faces))
    ThrowArchiveException(CArchiveException::badClass);
  if (faces) {
    const int n = points ? points->GetSize() : 0;
    for (int f = 0; f < faces->GetSize(); ++f) {
      const CFace& face = (*faces)[f];
      for (int k = 0; k < face.GetSize(); ++k)
        if (face[k] < 0 || face[k] >= n)
          ThrowArchiveException(CArchiveException::badIndex);
    }
  }
  m_customData.Serialize(ar);
  m_id = id;
  m_type = static_cast<_Channel3DType>(type);
  m_flags = flags;
  delete m_pPointList;
  delete m_pFaceList;
  m_pPointList = points.release();
  m_pFaceList = faces.release();
}

void CChannel::CopyFrom(const CChannel& src, unsigned flags) {
  m_type = src.m_type;
  m_flags = src.m_flags;
  m_customData = src.m_customData;
  if (flags & CHANNEL_COPY_KEEP_ID)
    m_id = src.m_id;
  if (flags & CHANNEL_COPY_NO_LISTS)
    return;
  if (src.m_pPointList) {
    if (!m_pPointList)
      m_pPointList = NewListLike(src.m_pPointList);
    if (m_pPointList)
      *m_pPointList = *src.m_pPointList;
  }
  if (src.m_pFaceList) {
    if (!m_pFaceList)
      m_pFaceList = NewListLike(src.m_pFaceList);
    if (m_pFaceList)
      *m_pFaceList = *src.m_pFaceList;
  }
}

CChannel* CChannel::Copy(unsigned flags) const {
  auto* c = new CChannel(flags & CHANNEL_COPY_KEEP_ID ? m_id : kNoChannel);
  c->CopyFrom(*this, flags);
  return c;
}

CChannel* CChannel::InitFrom(unsigned flags) const {
  CChannel* c = Copy(flags | CHANNEL_COPY_NO_LISTS);
  // A base channel gets empty lists of its source's kinds.
  if (!c->m_pPointList)
    c->m_pPointList = NewListLike(m_pPointList);
  if (!c->m_pFaceList)
    c->m_pFaceList = NewListLike(m_pFaceList);
  return c;
}

int CChannel::Clean(CGeomInfo* info, const CIndexMap* faceMap, const CIndexMap* pointMap) {
  int facesRemoved = 0;
  if (m_pFaceList) {
    if (faceMap)
      for (int i = 0; i < m_pFaceList->GetSize(); ++i)
        if (!faceMap->Contains(i))
          (*m_pFaceList)[i].SetFlag(FACE_INVALID, 1);
    facesRemoved = m_pFaceList->Clean(nullptr, CleanFaceIndices(), nullptr);
  }
  if (m_pPointList && m_pFaceList) {
    CIndexMap map;
    if (m_pPointList->Clean(m_pFaceList, &map)) {
      m_pFaceList->UpdateIndex(map);
      m_pPointList->SetFlag(PL_CHANGED, 1);
    }
  } else if (m_pPointList) {
    if (pointMap && m_pPointList->HasPointElements())
      for (int i = 0; i < m_pPointList->GetSize(); ++i)
        if (!pointMap->Contains(i))
          m_pPointList->ElementAt(i).SetFlag(PT_INVALID, 1);
    if (m_pPointList->Clean(nullptr, nullptr))
      m_pPointList->SetFlag(PL_CHANGED, 1);
  }
  if (facesRemoved)
    m_pFaceList->SetFlag(FL_CHANGED, 1);
  const CFaceList* mesh = info ? info->GetFaceList() : nullptr;
  if (mesh && m_pFaceList && m_pFaceList->GetSize() != mesh->GetSize()) {
    SetFlag(CHANNEL_INVALID, 1);
    return 0;
  }
  return 1;
}

} // namespace meshcore

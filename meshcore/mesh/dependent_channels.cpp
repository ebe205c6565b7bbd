#include "meshcore/mesh/dependent_channels.h"

#include "meshcore/mesh/face_normal_channel.h"
#include "meshcore/mesh/point_normal_channel.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/vc_channel.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/exceptions.h"

#include <memory>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(CDependentChannels, CObject, 1)

CDependentChannels::~CDependentChannels() {
  RemoveAll();
}

CDependentChannels& CDependentChannels::operator=(const CDependentChannels& src) {
  if (&src == this)
    return *this;
  RemoveAll();
  for (int i = 0; i < src.GetSize(); ++i)
    if (CChannel* c = src.m_channels[i]->Copy(CHANNEL_COPY_KEEP_ID))
      AddChannel(c);
  return *this;
}

void CDependentChannels::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    std::uint64_t n = 0;
    for (int i = 0; i < GetSize(); ++i)
      n += m_channels[i]->SkipSerialization() == 0;
    ar.WriteCount(n);
    for (int i = 0; i < GetSize(); ++i) {
      CChannel* c = m_channels[i];
      if (c->SkipSerialization())
        continue;
      ar.WriteClass(c->GetRuntimeClass());
      c->Serialize(ar);
    }
    return;
  }
  RemoveAll();
  // Each channel takes at least a class reference and its id, type and flags.
  const std::uint64_t n = ar.ReadCount(2 + 12);
  for (std::uint64_t i = 0; i < n; ++i) {
    const CRuntimeClass* cls = ar.ReadClass(MESHCORE_RUNTIME_CLASS(CChannel));
    if (!cls || !cls->IsDerivedFrom(MESHCORE_RUNTIME_CLASS(CChannel)))
      ThrowArchiveException(CArchiveException::badClass);
    std::unique_ptr<CObject> obj(cls->CreateObject());
    if (!obj)
      ThrowArchiveException(CArchiveException::badClass);
    obj->Serialize(ar);
    AddChannel(static_cast<CChannel*>(obj.release()));
  }
}

int CDependentChannels::AddChannel(CChannel* channel) {
  return m_channels.Add(channel);
}

void CDependentChannels::RemoveChannel(int index) {
  if (index < 0 || index >= GetSize())
    throw CInvalidArgException();
  delete m_channels[index];
  m_channels.RemoveAt(index, 1);
}

int CDependentChannels::RemoveChannel(CChannel* channel) {
  for (int i = 0; i < GetSize(); ++i) {
    if (m_channels[i] == channel) {
      RemoveChannel(i);
      return 1;
    }
  }
  return 0;
}

int CDependentChannels::RemoveChannels(int typeMask, int onlyInvalid) {
  int removed = 0;
  for (int i = GetSize() - 1; i >= 0; --i) {
    CChannel* c = m_channels[i];
    if ((c->GetType() & static_cast<unsigned>(typeMask)) &&
        (!onlyInvalid || c->IsFlagSet(CHANNEL_INVALID))) {
      RemoveChannel(i);
      ++removed;
    }
  }
  return removed;
}

void CDependentChannels::RemoveAll() {
  for (int i = 0; i < GetSize(); ++i)
    delete m_channels[i];
  m_channels.RemoveAll();
}

CChannel* CDependentChannels::GetChannel(int index) const {
  return index >= 0 && index < GetSize() ? m_channels[index] : nullptr;
}

CChannel* CDependentChannels::GetChannel(int index, CFaceList*& faces, CPointList*& points) const {
  CChannel* c = GetChannel(index);
  faces = c ? c->GetFaceList() : nullptr;
  points = c ? c->GetPointList() : nullptr;
  return c;
}

CChannel* CDependentChannels::GetChannel(unsigned id) const {
  for (int i = 0; i < GetSize(); ++i)
    if (m_channels[i]->GetID() == id)
      return m_channels[i];
  return nullptr;
}

CChannel* CDependentChannels::GetChannel(unsigned id, _Channel3DType type) const {
  CChannel* c = GetChannel(id);
  return c && c->GetType() == type ? c : nullptr;
}

CChannel* CDependentChannels::GetChannel(int n, _Channel3DType type) const {
  if (n < 0)
    return nullptr;
  for (int i = 0; i < GetSize(); ++i)
    if (m_channels[i]->GetType() == type && n-- == 0)
      return m_channels[i];
  return nullptr;
}

namespace {

template <class Channel, class Faces, class Points>
Channel* Typed(CChannel* c, Faces** faces, Points** points) {
  auto* typed = dynamic_cast<Channel*>(c);
  if (faces)
    *faces = typed ? static_cast<Faces*>(typed->GetFaceList()) : nullptr;
  if (points)
    *points = typed ? static_cast<Points*>(typed->GetPointList()) : nullptr;
  return typed;
}

} // namespace

CUVWChannel* CDependentChannels::GetUVWChannel(unsigned id, CUVWFaceList** faces,
                                               CUVWPointList** points) const {
  return Typed<CUVWChannel>(GetChannel(id, CHANNEL_UVW), faces, points);
}

CUVWChannel* CDependentChannels::GetUVWChannel(int n, CUVWFaceList** faces,
                                               CUVWPointList** points) const {
  return Typed<CUVWChannel>(GetChannel(n, CHANNEL_UVW), faces, points);
}

CVCChannel* CDependentChannels::GetVCChannel(unsigned id, CVCFaceList** faces,
                                             CVCPointList** points) const {
  return Typed<CVCChannel>(GetChannel(id, CHANNEL_VC), faces, points);
}

CVCChannel* CDependentChannels::GetVCChannel(int n, CVCFaceList** faces,
                                             CVCPointList** points) const {
  return Typed<CVCChannel>(GetChannel(n, CHANNEL_VC), faces, points);
}

CPointNormalChannel* CDependentChannels::GetPointNormalChannel() const {
  for (int i = 0; i < GetSize(); ++i)
    if (m_channels[i]->GetRuntimeClass() == MESHCORE_RUNTIME_CLASS(CPointNormalChannel))
      return static_cast<CPointNormalChannel*>(m_channels[i]);
  return nullptr;
}

CFaceNormalChannel* CDependentChannels::GetFaceNormalChannel() const {
  // Exact class: a point-normal channel derives from the face-normal one.
  for (int i = 0; i < GetSize(); ++i)
    if (m_channels[i]->GetRuntimeClass() == MESHCORE_RUNTIME_CLASS(CFaceNormalChannel))
      return static_cast<CFaceNormalChannel*>(m_channels[i]);
  return nullptr;
}

int CDependentChannels::GetChannelType(int index) const {
  const CChannel* c = GetChannel(index);
  return c ? static_cast<int>(c->GetType()) : 0;
}

int CDependentChannels::GetChannelsNumber(int typeMask, int skipInvalid) const {
  int n = 0;
  for (int i = 0; i < GetSize(); ++i) {
    const CChannel* c = m_channels[i];
    n += (c->GetType() & static_cast<unsigned>(typeMask)) &&
         !(skipInvalid && c->IsFlagSet(CHANNEL_INVALID));
  }
  return n;
}

int CDependentChannels::GetChannels(int typeMask, CIntArrayID& out, int skipInvalid) const {
  out.RemoveAll();
  for (int i = 0; i < GetSize(); ++i) {
    const CChannel* c = m_channels[i];
    if ((c->GetType() & static_cast<unsigned>(typeMask)) &&
        !(skipInvalid && c->IsFlagSet(CHANNEL_INVALID)))
      out.Add(i);
  }
  return out.GetSize();
}

void CDependentChannels::Invalidate(int typeMask) {
  for (int i = 0; i < GetSize(); ++i)
    if (m_channels[i]->GetType() & static_cast<unsigned>(typeMask))
      m_channels[i]->SetFlag(CHANNEL_INVALID, 1);
}

int CDependentChannels::CopyChannels(const CDependentChannels& src, int typeMask, unsigned flags) {
  if (!(flags & CHANNEL_COPY_KEEP_EXISTING))
    RemoveAll();
  CIntArrayID selected;
  const int n = src.GetChannels(typeMask, selected, (flags & CHANNEL_COPY_SKIP_INVALID) != 0);
  for (int i = 0; i < n; ++i) {
    const CChannel* c = src.m_channels[selected[i]];
    if ((flags & CHANNEL_COPY_SKIP_NORMALS) &&
        (c->GetType() & (CHANNEL_POINT_NORMAL | CHANNEL_FACE_NORMAL)))
      continue;
    if (CChannel* copy = c->Copy(flags))
      AddChannel(copy);
  }
  return n;
}

int CDependentChannels::CleanChannels(CGeomInfo* info, const CIndexMap* faceMap,
                                      const CIndexMap* pointMap) {
  int invalid = 0;
  for (int i = 0; i < GetSize(); ++i)
    invalid += m_channels[i]->Clean(info, faceMap, pointMap) == 0;
  return invalid;
}

} // namespace meshcore

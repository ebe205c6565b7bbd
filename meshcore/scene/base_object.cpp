#include "meshcore/scene/base_object.h"

#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/face_normal_channel.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/point_normal_channel.h"
#include "meshcore/platform/exceptions.h"
#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/object_creator.h"
#include "meshcore/scene/patch_3d.h"
#include "meshcore/scene/scene_settings.h"

#include <memory>
#include <vector>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(C3DBaseObject, CObject, 1)

namespace {
constexpr float kRadToDeg = 180.0f / 3.1415927f;

// Channel kinds that follow geometry edits; normals are rebuilt on demand instead.
bool IsCarriedChannel(const CChannel* channel) {
  return channel && (channel->GetType() == CHANNEL_UVW || channel->GetType() == CHANNEL_VC);
}

// Address of record i of any list, for the untyped element operations.
const void* Record(const CElementArray& list, int i) {
  return list[i];
}

// Old-to-new index map that hands out new indices in first-use order.
class Renumbering {
public:
  explicit Renumbering(int oldCount) : m_map(static_cast<std::size_t>(oldCount), -1) {}
  // New index of old, and whether it was just assigned.
  int Map(int old, bool& added) {
    if (old < 0 || static_cast<std::size_t>(old) >= m_map.size())
      throw CInvalidArgException();
    int& slot = m_map[static_cast<std::size_t>(old)];
    added = slot < 0;
    if (added)
      slot = m_next++;
    return slot;
  }
  int Count() const { return m_next; }

private:
  std::vector<int> m_map;
  int m_next = 0;
};
} // namespace

C3DBaseObject::C3DBaseObject() {
  InitObject();
}

C3DBaseObject::C3DBaseObject(C3DPointList* points, C3DFaceList* faces) {
  InitObject();
  m_pointList = points;
  m_faceList = faces;
}

void C3DBaseObject::InitObject() {
  m_kind = OBJECT_KIND_NONE;
  m_properties = 0;
  m_cache = 0;
  m_faceList = nullptr;
  m_pointList = nullptr;
  m_smoothAngle = -1.0f;
  m_faceMode = FACE_MODE_DEFAULT;
  m_channels = new CDependentChannels;
  m_globalUVWChannel = 0xFFFFFFFFu;
}

C3DBaseObject::~C3DBaseObject() {
  delete m_pointList;
  delete m_faceList;
  delete m_channels;
}

std::string C3DBaseObject::GetTypeString() const {
  switch (m_kind) {
  case OBJECT_POLYGONAL:
    return LoadString(IDS_TYPE_POLYGONAL);
  case OBJECT_CURVE:
    return LoadString(IDS_TYPE_CURVE);
  case OBJECT_PATCH:
    return LoadString(IDS_TYPE_PATCH);
  case OBJECT_GROUP:
    return LoadString(IDS_TYPE_GROUP);
  default:
    return {};
  }
}

C3DBaseObject::operator C3DObject*() {
  return static_cast<C3DObject*>(this);
}
C3DBaseObject::operator C3DGroup*() {
  return static_cast<C3DGroup*>(this);
}
C3DBaseObject::operator C3DCurve*() {
  return static_cast<C3DCurve*>(this);
}
C3DBaseObject::operator C3DPatch*() {
  return static_cast<C3DPatch*>(this);
}

void C3DBaseObject::SetFlag(std::uint32_t flag, int on) {
  if (flag & OBJECT_RESERVED_PROPERTIES)
    return;
  if (on)
    m_properties |= flag;
  else
    m_properties &= ~flag;
}

void C3DBaseObject::SetSmoothAngle(float radians) {
  const float degrees = radians * kRadToDeg;
  if (degrees >= 0.0f && degrees <= 180.0f)
    m_smoothAngle = radians;
}

float C3DBaseObject::GetSmoothAngle() const {
  return m_smoothAngle == -1.0f ? GetGlobalSmoothAngle() : m_smoothAngle;
}

void C3DBaseObject::SetFaceList(C3DFaceList* faces) {
  // The request falls in the reserved range and so leaves the properties as
  // they are: no property records whether lists were given.
  SetFlag(OBJECT_FACES_GIVEN, 1);
  m_faceList = faces;
  SetCacheFlag(OBJECT_CACHE_FACE_BOX, 0);
}

void C3DBaseObject::SetPointList(C3DPointList* points) {
  SetFlag(OBJECT_POINTS_GIVEN, 1);
  m_pointList = points;
  m_cache = 0;
}

void C3DBaseObject::SetCacheFlag(std::uint32_t bit, int on) {
  if (on)
    m_cache |= bit;
  else
    m_cache &= ~bit;
}

int C3DBaseObject::GetPointNbr() const {
  return m_pointList ? m_pointList->GetSize() : 0;
}
int C3DBaseObject::GetFaceNbr() const {
  return m_faceList ? m_faceList->GetSize() : 0;
}

CChannel* C3DBaseObject::GetChannel(unsigned id, _Channel3DType type) const {
  return m_channels->GetChannel(id, type);
}

int C3DBaseObject::AddChannel(CChannel* channel) {
  return m_channels->AddChannel(channel);
}

CPointNormalChannel* C3DBaseObject::GetPointNormalChannel() {
  if (m_kind & (OBJECT_CURVE | OBJECT_GROUP))
    return nullptr;
  CPointNormalChannel* channel = m_channels->GetPointNormalChannel();
  if (!channel) {
    channel = new CPointNormalChannel;
    m_channels->AddChannel(channel);
  }
  CGeomInfo info(this);
  channel->InitNormals(&info, GetSmoothAngle());
  return channel;
}

CFaceNormalChannel* C3DBaseObject::GetFaceNormalChannel() {
  if (m_kind & (OBJECT_CURVE | OBJECT_GROUP))
    return nullptr;
  CFaceNormalChannel* channel = m_channels->GetFaceNormalChannel();
  if (!channel) {
    channel = new CFaceNormalChannel;
    m_channels->AddChannel(channel);
  }
  CGeomInfo info(this);
  channel->InitNormals(&info);
  return channel;
}

CHashUInt* C3DBaseObject::GetMaterialsHash() {
  if (!m_faceList)
    return nullptr;
  CGeomInfo info(this);
  return m_faceList->GetMaterialsHash(&info);
}

int C3DBaseObject::GetBoundingBox(C3DPoint& min, C3DPoint& max, int facesOnly) {
  if (IsFlagSet(OBJECT_EMPTY))
    return 0;
  if (facesOnly) {
    if (IsCacheValid(OBJECT_CACHE_FACE_BOX)) {
      min = m_faceBoxMin;
      max = m_faceBoxMax;
      return 1;
    }
    if (m_faceList) {
      CGeomInfo info(this);
      const int result = m_faceList->GetBoundingBox(&info, m_faceBoxMin, m_faceBoxMax);
      min = m_faceBoxMin;
      max = m_faceBoxMax;
      SetCacheFlag(OBJECT_CACHE_FACE_BOX, 1);
      return result;
    }
  }
  if (IsCacheValid(OBJECT_CACHE_POINT_BOX)) {
    min = m_boxMin;
    max = m_boxMax;
    return 1;
  }
  if (!m_pointList)
    return 0;
  m_pointList->GetBoundingBox(m_boxMin, m_boxMax);
  min = m_boxMin;
  max = m_boxMax;
  SetCacheFlag(OBJECT_CACHE_POINT_BOX, 1);
  return 1;
}

int C3DBaseObject::GetCG(C3DPoint& cg) const {
  if (!m_pointList)
    return 0;
  cg = m_pointList->GetCenterOfBoudingBox();
  return 1;
}

int C3DBaseObject::Clean() {
  if (!m_faceList || !m_pointList)
    return 0;
  CGeomInfo info(this);
  const int changed = m_faceList->Clean(&info);
  m_cache = 0;
  if (changed && m_faceList->GetSize() == 0 && m_pointList->GetSize() == 0)
    m_properties |= OBJECT_EMPTY;
  return changed;
}

int C3DBaseObject::Concatenate(C3DBaseObject* other, int reset) {
  if (reset) {
    if (m_pointList)
      m_pointList->RemoveAll();
    if (m_faceList)
      m_faceList->RemoveAll();
    m_channels->RemoveAll();
    m_cache = 0;
  }
  if (!other)
    return 0;
  if ((m_kind == OBJECT_CURVE) != (other->m_kind == OBJECT_CURVE))
    return 1;
  if (!other->m_pointList)
    return 0;
  if (other == this)
    return 0; // appending an object to itself would read what it writes
  if (!m_pointList)
    m_pointList = C3DObjectCreator().GetNewPointList();
  m_cache = 0;
  const int pointBase = m_pointList->Append(*other->m_pointList);
  m_pointList->SetFlag(PL_CHANGED, 1);

  if (other->m_faceList && other->m_faceList->GetSize() > 0) {
    if (!m_faceList)
      m_faceList = C3DObjectCreator().GetNewFaceList();
    const int faceBase = m_faceList->Append(*other->m_faceList);
    for (int f = faceBase; f < m_faceList->GetSize(); ++f) {
      C3DFace& face = m_faceList->ElementAt(f);
      for (int k = 0; k < face.GetSize(); ++k)
        face[k] += pointBase;
    }
    m_faceList->SetFlag(FL_CHANGED, 1);
  }

  const int channelCount = other->m_channels->GetSize();
  for (int c = 0; c < channelCount; ++c) {
    const CChannel* src = other->m_channels->GetChannel(c);
    if (!IsCarriedChannel(src))
      continue;
    CChannel* dst = m_channels->GetChannel(src->GetID());
    if (!dst) {
      dst = src->InitFrom(CHANNEL_COPY_KEEP_ID);
      if (!dst)
        continue;
      m_channels->AddChannel(dst);
    }
    CPointList* srcPoints = src->GetPointList();
    CPointList* dstPoints = dst->GetPointList();
    int channelBase = 0;
    if (srcPoints && dstPoints && dstPoints != srcPoints)
      channelBase = dstPoints->Append(*srcPoints);
    CFaceList* srcFaces = src->GetFaceList();
    CFaceList* dstFaces = dst->GetFaceList();
    if (srcFaces && dstFaces && dstFaces != srcFaces && srcFaces->GetSize() > 0) {
      const int first = dstFaces->Append(*srcFaces);
      for (int f = first; f < dstFaces->GetSize(); ++f) {
        CFace& face = dstFaces->ElementAt(f);
        for (int k = 0; k < face.GetSize(); ++k)
          face[k] += channelBase;
      }
    }
    // Texture or colour data that covers only part of the faces is not kept.
    if ((dstFaces ? dstFaces->GetSize() : 0) != GetFaceNbr())
      m_channels->RemoveChannel(dst);
  }
  return 1;
}

C3DObject* C3DBaseObject::SubObject(int count, _SUBOBJECT_MODE mode) const {
  if (!m_faceList || m_faceList->GetSize() == 0)
    return nullptr;
  if (mode != SUBOBJECT_VERTEX_COUNT && mode != SUBOBJECT_MORE_VERTICES)
    return nullptr;
  std::vector<int> selected;
  for (int f = 0; f < m_faceList->GetSize(); ++f) {
    const int n = m_faceList->ElementAt(f).GetSize();
    if (mode == SUBOBJECT_VERTEX_COUNT ? n == count : n > count)
      selected.push_back(f);
  }
  if (selected.empty())
    return nullptr;

  const int oldPointCount = GetPointNbr();
  auto object = std::make_unique<C3DObject>();
  object->SetPointList(new C3DPointList);
  object->SetFaceList(new C3DFaceList);
  C3DPointList& points = *object->GetPointList();
  C3DFaceList& faces = *object->GetFaceList();
  points.SetSize(oldPointCount);
  faces.SetSize(static_cast<int>(selected.size()));
  Renumbering pointMap(oldPointCount);
  std::vector<int> usedOld; // old index of each new point
  for (std::size_t i = 0; i < selected.size(); ++i) {
    C3DFace& face = faces.ElementAt(static_cast<int>(i));
    face = m_faceList->ElementAt(selected[i]);
    for (int k = 0; k < face.GetSize(); ++k) {
      bool added = false;
      const int old = face[k];
      face[k] = pointMap.Map(old, added);
      if (added) {
        points.ElementAt(face[k]) = m_pointList->ElementAt(old);
        usedOld.push_back(old);
      }
    }
  }
  points.SetSize(pointMap.Count());

  for (int c = 0; c < m_channels->GetSize(); ++c) {
    const CChannel* src = m_channels->GetChannel(c);
    if (!IsCarriedChannel(src))
      continue;
    std::unique_ptr<CChannel> channel(src->InitFrom(CHANNEL_COPY_KEEP_ID));
    if (!channel)
      continue;
    CPointList* srcPoints = src->GetPointList();
    CFaceList* srcFaces = src->GetFaceList();
    CPointList* dstPoints = channel->GetPointList();
    CFaceList* dstFaces = channel->GetFaceList();
    if (!srcPoints || !dstPoints)
      continue;
    if (srcFaces && srcFaces->GetSize() > 0 && dstFaces) {
      Renumbering channelMap(srcPoints->GetSize());
      for (int f : selected) {
        if (f >= srcFaces->GetSize())
          throw CInvalidArgException();
        const int k = dstFaces->Add(Record(*srcFaces, f));
        CFace& face = dstFaces->ElementAt(k);
        for (int j = 0; j < face.GetSize(); ++j) {
          bool added = false;
          const int old = face[j];
          face[j] = channelMap.Map(old, added);
          if (added)
            dstPoints->SetAtGrow(face[j], Record(*srcPoints, old));
        }
      }
      if (channelMap.Count() == 0)
        continue; // no channel point used: the channel is dropped
      dstPoints->SetSize(channelMap.Count());
    } else {
      // One value per object point.
      dstPoints->SetSize(pointMap.Count());
      for (std::size_t n = 0; n < usedOld.size(); ++n) {
        if (usedOld[n] >= srcPoints->GetSize())
          throw CInvalidArgException();
        dstPoints->SetAt(static_cast<int>(n), Record(*srcPoints, usedOld[n]));
      }
    }
    object->AddChannel(channel.release());
  }
  return object.release();
}

int C3DBaseObject::Copy(C3DBaseObject*& dst, int flags, C3DObjectCreator* creator) {
  C3DObjectCreator defaultCreator;
  if (!creator)
    creator = &defaultCreator;
  if (!dst)
    dst = creator->GetNewObjectFrom(this);
  if (!dst || dst == this)
    return 0;
  const std::uint32_t mesh = OBJECT_POLYGONAL | OBJECT_PATCH;
  const bool compatible = (m_kind & mesh) ? (dst->m_kind & mesh) != 0
                                          : (m_kind != OBJECT_KIND_NONE && dst->m_kind == m_kind);
  if (!compatible)
    return 0;

  const int pointCount = GetPointNbr();
  if (!dst->m_pointList && pointCount > 0)
    dst->m_pointList = creator->GetNewPointList();
  if (dst->m_pointList) {
    dst->m_pointList->SetSize(pointCount);
    for (int i = 0; i < pointCount; ++i)
      dst->m_pointList->ElementAt(i) = m_pointList->ElementAt(i);
    dst->m_pointList->SetFlag(PL_CHANGED, 1);
  }
  const int faceCount = GetFaceNbr();
  if (!dst->m_faceList && faceCount > 0)
    dst->m_faceList = creator->GetNewFaceList();
  if (dst->m_faceList) {
    dst->m_faceList->SetSize(faceCount);
    for (int i = 0; i < faceCount; ++i)
      dst->m_faceList->ElementAt(i) = m_faceList->ElementAt(i);
    dst->m_faceList->SetFlag(FL_CHANGED, 1);
  }
  *dst->m_channels = *m_channels;
  InheritFlags(dst);
  if (flags & OBJECT_COPY_TAG_SOURCE)
    dst->m_customData.SetPtr(kCustomSourceObject, this);
  creator->CopyDone(dst, this);
  return 1;
}

C3DBaseObject* C3DBaseObject::Copy(int flags, C3DObjectCreator* creator) {
  C3DObjectCreator defaultCreator;
  C3DObjectCreator* maker = creator ? creator : &defaultCreator;
  C3DBaseObject* copy = maker->GetNewObjectFrom(this);
  if (!copy)
    return nullptr;
  if (!Copy(copy, flags, nullptr)) {
    delete copy;
    return nullptr;
  }
  maker->CopyDone(copy, this);
  return copy;
}

void C3DBaseObject::InheritFlags(C3DBaseObject* dst) const {
  if (!dst || dst == this)
    return;
  dst->m_properties = m_properties;
  dst->m_cache = m_cache;
  dst->m_boxMin = m_boxMin;
  dst->m_boxMax = m_boxMax;
  dst->m_faceBoxMin = m_faceBoxMin;
  dst->m_faceBoxMax = m_faceBoxMax;
  dst->m_smoothAngle = m_smoothAngle;
  dst->m_faceMode = m_faceMode;
  dst->m_globalUVWChannel = m_globalUVWChannel;
  dst->m_customData = m_customData;
}

// A present list replaces (and frees) the current one; an absent one leaves it.
template <class List>
static void LoadList(CArchive& ar, List*& slot, const CRuntimeClass* required) {
  std::uint32_t present = 0;
  ar >> present;
  if (!present)
    return;
  const CRuntimeClass* cls = ar.ReadClass(required);
  std::unique_ptr<CObject> obj(cls ? cls->CreateObject() : nullptr);
  if (!obj)
    ThrowArchiveException(CArchiveException::badClass);
  obj->Serialize(ar);
  delete slot;
  slot = static_cast<List*>(obj.release());
}

static void StoreList(CArchive& ar, CObject* list) {
  ar << static_cast<std::uint32_t>(list ? 1 : 0);
  if (!list)
    return;
  ar.WriteClass(list->GetRuntimeClass());
  list->Serialize(ar);
}

void C3DBaseObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << m_properties << m_smoothAngle << static_cast<std::uint32_t>(m_faceMode);
    StoreList(ar, m_faceList);
    StoreList(ar, m_pointList);
    ar << m_globalUVWChannel;
    m_channels->Serialize(ar);
    m_customData.Serialize(ar);
    return;
  }
  std::uint32_t faceMode = 0;
  ar >> m_properties >> m_smoothAngle >> faceMode;
  m_faceMode = static_cast<_faceModeEnum>(faceMode);
  LoadList(ar, m_faceList, MESHCORE_RUNTIME_CLASS(C3DFaceList));
  LoadList(ar, m_pointList, MESHCORE_RUNTIME_CLASS(C3DPointList));
  m_cache = 0;
  ar >> m_globalUVWChannel;
  m_channels->Serialize(ar);
  m_customData.Serialize(ar);
}

// The topology context of an object, and of the object a node shows. They live
// here because objects and nodes belong to this layer.
CGeomInfo::CGeomInfo(C3DBaseObject* object) {
  if (object)
    InitSource(object, nullptr, object->GetPointList(), object->GetFaceList(),
               object->GetChannels());
  else
    Reset();
}

} // namespace meshcore

// The face-normal and point-normal channels.

#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/face_normal_channel.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/point_normal_channel.h"
#include "meshcore/platform/archive.h"

#include <cmath>
#include <vector>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(CFaceNormalChannel, CChannel, 1)
MESHCORE_IMPLEMENT_SERIAL(CPointNormalChannel, CFaceNormalChannel, 1)

namespace {

// Angle of the face at corner k, between its two edges, in [0, pi]; 0 when an
// edge is degenerate or a point is missing.
float CornerAngle(const C3DFace& face, int k, const C3DPointList& points) {
  const int n = face.GetSize();
  const int a = face[k];
  const int b = face[k > 0 ? k - 1 : n - 1];
  const int c = face[k + 1 < n ? k + 1 : 0];
  const int size = points.GetSize();
  if (a < 0 || b < 0 || c < 0 || a >= size || b >= size || c >= size)
    return 0.0f;
  const C3DVector u(points[a], points[b]);
  const C3DVector v(points[a], points[c]);
  const float cross = (u ^ v).Length();
  const float dot = u * v;
  if (cross == 0.0f && dot == 0.0f)
    return 0.0f;
  return std::atan2(cross, dot);
}

} // namespace

// ---------------------------------------------------------------------------
// Face normals

CFaceNormalChannel::CFaceNormalChannel(unsigned id) : CChannel(id) {
  SetInfo(CHANNEL_FACE_NORMAL, new C3DVectorList, nullptr);
  SetFlag(CHANNEL_INVALID, 1);
}

const CRuntimeClass* CFaceNormalChannel::GetPointListClass() const {
  return MESHCORE_RUNTIME_CLASS(C3DVectorList);
}

int CFaceNormalChannel::Clean(CGeomInfo*, const CIndexMap*, const CIndexMap*) {
  SetFlag(CHANNEL_INVALID, 1);
  return 0;
}

CChannel* CFaceNormalChannel::Copy(unsigned flags) const {
  auto* c = new CFaceNormalChannel(flags & CHANNEL_COPY_KEEP_ID ? m_id : kNoChannel);
  c->CopyFrom(*this, flags);
  return c;
}

CChannel* CFaceNormalChannel::InitFrom(unsigned flags) const {
  return Copy(flags | CHANNEL_COPY_NO_LISTS);
}

int CFaceNormalChannel::InitNormals(CGeomInfo* info) {
  const C3DFaceList* faces = info ? info->Get3DFaceList() : nullptr;
  if (!faces)
    return 0;
  C3DVectorList& normals = *GetNormalList();
  normals.SetSize(faces->GetSize(), -1);
  for (int f = 0; f < faces->GetSize(); ++f)
    (*faces)[f].GetNormal(info, normals[f]);
  SetFlag(CHANNEL_INVALID, 0);
  return 1;
}

// ---------------------------------------------------------------------------
// Point normals

struct CPointNormalChannel::Smoothing {
  std::vector<C3DVector> faceNormals;
  std::vector<int> cornerStart; // corner angles of face f: [cornerStart[f], cornerStart[f + 1])
  std::vector<float> cornerAngles;
  float cosLimit = 1.0f;
};

CPointNormalChannel::CPointNormalChannel(unsigned id) : CFaceNormalChannel(id) {
  m_type = CHANNEL_POINT_NORMAL;
}

CPointNormalChannel::~CPointNormalChannel() = default;

CChannel* CPointNormalChannel::Copy(unsigned flags) const {
  auto* c = new CPointNormalChannel(flags & CHANNEL_COPY_KEEP_ID ? m_id : kNoChannel);
  c->CopyFrom(*this, flags);
  c->m_smoothAngle = m_smoothAngle;
  return c;
}

CChannel* CPointNormalChannel::InitFrom(unsigned flags) const {
  return Copy(flags | CHANNEL_COPY_NO_LISTS);
}

void CPointNormalChannel::Serialize(CArchive& ar) {
  CChannel::Serialize(ar);
  if (ar.IsStoring())
    ar << m_smoothAngle;
  else
    ar >> m_smoothAngle;
}

int CPointNormalChannel::InitNormals(CGeomInfo* info, float smoothAngle) {
  m_smoothAngle = smoothAngle;
  const C3DFaceList* faces = info ? info->Get3DFaceList() : nullptr;
  const C3DPointList* points = info ? info->Get3DPointList() : nullptr;
  if (!faces || !points)
    return 0;
  C3DVectorList& normals = *GetNormalList();
  normals.SetSize(points->GetSize(), -1);
  for (int p = 0; p < normals.GetSize(); ++p)
    normals[p] = C3DVector();
  C3DVector n;
  for (int f = 0; f < faces->GetSize(); ++f) {
    const C3DFace& face = (*faces)[f];
    if (face.IsOneFlagSet(FACE_INVALID | FACE_EXCLUDED))
      continue;
    face.GetNormal(info, n);
    for (int k = 0; k < face.GetSize(); ++k) {
      const int p = face[k];
      if (p >= 0 && p < normals.GetSize())
        normals[p] += n * CornerAngle(face, k, *points);
    }
  }
  for (int p = 0; p < normals.GetSize(); ++p)
    normals[p].Normalize();
  SetFlag(CHANNEL_INVALID, 0);
  return 1;
}

int CPointNormalChannel::PrepareSmoothing(CGeomInfo* info, float smoothAngle) {
  EndSmoothing();
  C3DFaceList* faces = info ? info->Get3DFaceList() : nullptr;
  const C3DPointList* points = info ? info->Get3DPointList() : nullptr;
  if (!faces || !points)
    return 0;
  faces->InitPointToFaceGraph(info);
  auto s = std::make_unique<Smoothing>();
  s->cosLimit = std::cos(smoothAngle);
  const int n = faces->GetSize();
  s->faceNormals.resize(static_cast<std::size_t>(n));
  s->cornerStart.assign(static_cast<std::size_t>(n) + 1, 0);
  for (int f = 0; f < n; ++f)
    s->cornerStart[static_cast<std::size_t>(f) + 1] =
        s->cornerStart[static_cast<std::size_t>(f)] + (*faces)[f].GetSize();
  s->cornerAngles.resize(static_cast<std::size_t>(s->cornerStart.back()));
  for (int f = 0; f < n; ++f) {
    const C3DFace& face = (*faces)[f];
    face.GetNormal(info, s->faceNormals[static_cast<std::size_t>(f)]);
    for (int k = 0; k < face.GetSize(); ++k)
      s->cornerAngles[static_cast<std::size_t>(s->cornerStart[static_cast<std::size_t>(f)] + k)] =
          CornerAngle(face, k, *points);
  }
  m_smoothAngle = smoothAngle;
  m_smoothing = std::move(s);
  return 1;
}

int CPointNormalChannel::GetSmoothNormal(CGeomInfo* info, int face, int corner, C3DVector& normal) {
  const C3DFaceList* faces = info ? info->Get3DFaceList() : nullptr;
  if (!m_smoothing || !faces || face < 0 ||
      face >= static_cast<int>(m_smoothing->faceNormals.size()) || face >= faces->GetSize())
    return 0;
  const C3DFace& f = (*faces)[face];
  if (corner < 0 || corner >= f.GetSize())
    return 0;
  const int p = f[corner];
  const C3DVector& own = m_smoothing->faceNormals[static_cast<std::size_t>(face)];
  if (p < 0 || p >= faces->GetPointToFaceGraphSize()) {
    normal = own;
    return 1;
  }
  int count = 0;
  const int* around = faces->GetFacesConnectedToPoint(p, count);
  C3DVector sum;
  int previous = -1;
  for (int i = 0; i < count; ++i) {
    const int g = around[i];
    // A face that lists the point twice appears twice: take it once, with every corner.
    if (g == previous || g >= static_cast<int>(m_smoothing->faceNormals.size()))
      continue;
    previous = g;
    const C3DVector& ng = m_smoothing->faceNormals[static_cast<std::size_t>(g)];
    if (g != face && ng * own < m_smoothing->cosLimit)
      continue;
    const C3DFace& gf = (*faces)[g];
    const int start = m_smoothing->cornerStart[static_cast<std::size_t>(g)];
    const int size = m_smoothing->cornerStart[static_cast<std::size_t>(g) + 1] - start;
    for (int k = 0; k < gf.GetSize() && k < size; ++k)
      if (gf[k] == p)
        sum += ng * m_smoothing->cornerAngles[static_cast<std::size_t>(start + k)];
  }
  normal = sum.IsNull() ? own : sum;
  normal.Normalize();
  return 1;
}

void CPointNormalChannel::EndSmoothing() {
  m_smoothing.reset();
}

} // namespace meshcore

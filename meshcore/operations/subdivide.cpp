#include "meshcore/operations/subdivide.h"

#include "meshcore/geometry/point_4d.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/operations/detail/progress_scope.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/object_creator.h"

#include <algorithm>
#include <climits>
#include <memory>
#include <utility>
#include <vector>

namespace meshcore {

namespace {

struct V3 {
  float x, y, z;
};
inline V3 operator+(V3 a, V3 b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline V3 operator*(float s, V3 a) {
  return {s * a.x, s * a.y, s * a.z};
}

// The edges of a set of faces of K corners each, given as a flat index array.
// Edges are numbered in the order in which faces first meet them.
struct EdgeTable {
  std::vector<int> faceEdge; // edge of side k (corner k to k + 1) of face r, at r * K + k
  std::vector<int> a, b;     // ends, smaller first
  std::vector<int> count;    // number of faces using the edge
  std::vector<int> f1, f2;   // the first two of those faces
  std::vector<int> o1,
      o2; // the corner after the edge in those faces (a triangle's opposite corner)

  int Size() const { return static_cast<int>(count.size()); }
};

// use[r] == 0 leaves face r out (its sides get edge -1). Indices are known to
// lie in 0..pointCount-1 for the faces used.
// False when the thread was asked to stop (the table is then incomplete).
bool BuildEdges(const std::vector<int>& idx, const std::vector<char>& use, int K, int pointCount,
                EdgeTable& t, CCancelCheck& cancel) {
  const std::size_t faces = use.size();
  // Each edge is filed under its smaller end, whose few edges are then scanned:
  // cheaper than hashing, and linear.
  std::vector<int> start(static_cast<std::size_t>(pointCount) + 1, 0);
  for (std::size_t r = 0; r < faces; ++r)
    if (use[r])
      for (int k = 0; k < K; ++k) {
        const int i = idx[r * K + k], j = idx[r * K + (k + 1) % K];
        ++start[static_cast<std::size_t>(std::min(i, j)) + 1];
      }
  for (int p = 0; p < pointCount; ++p)
    start[static_cast<std::size_t>(p) + 1] += start[static_cast<std::size_t>(p)];
  const std::size_t total = static_cast<std::size_t>(start[static_cast<std::size_t>(pointCount)]);
  std::vector<int> other(total), edgeOf(total), used(static_cast<std::size_t>(pointCount), 0);

  t = EdgeTable();
  t.faceEdge.assign(faces * K, -1);
  const std::size_t guess = total / 2 + 1;
  for (auto* v : {&t.a, &t.b, &t.count, &t.f1, &t.f2, &t.o1, &t.o2})
    v->reserve(guess);
  for (std::size_t r = 0; r < faces; ++r) {
    if (cancel.Tick())
      return false;
    if (!use[r])
      continue;
    for (int k = 0; k < K; ++k) {
      const int i = idx[r * K + k], j = idx[r * K + (k + 1) % K];
      const int lo = std::min(i, j), hi = std::max(i, j);
      const std::size_t s = static_cast<std::size_t>(start[static_cast<std::size_t>(lo)]);
      int& n = used[static_cast<std::size_t>(lo)];
      int e = -1;
      for (int m = 0; m < n; ++m)
        if (other[s + m] == hi) {
          e = edgeOf[s + m];
          break;
        }
      if (e < 0) {
        e = t.Size();
        other[s + n] = hi;
        edgeOf[s + n] = e;
        ++n;
        t.a.push_back(lo);
        t.b.push_back(hi);
        t.count.push_back(0);
        t.f1.push_back(-1);
        t.f2.push_back(-1);
        t.o1.push_back(-1);
        t.o2.push_back(-1);
      }
      t.faceEdge[r * K + k] = e;
      const int c = ++t.count[static_cast<std::size_t>(e)];
      const int after = idx[r * K + (k + 2) % K];
      if (c == 1) {
        t.f1[static_cast<std::size_t>(e)] = static_cast<int>(r);
        t.o1[static_cast<std::size_t>(e)] = after;
      } else if (c == 2) {
        t.f2[static_cast<std::size_t>(e)] = static_cast<int>(r);
        t.o2[static_cast<std::size_t>(e)] = after;
      }
    }
  }
  return true;
}

V3 Pos(const C3DPoint& p) {
  return {p.x, p.y, p.z};
}

// A channel's value halfway between two of its points, or at the centre of four.
void Average(const CPt* const* src, int n, CPt& dst) {
  C4DPoint sum;
  src[0]->To4DPoint(sum);
  for (int i = 1; i < n; ++i) {
    C4DPoint v;
    src[i]->To4DPoint(v);
    for (int c = 0; c < sum.n && c < C4DPoint::kCapacity; ++c)
      sum.v[c] += v.v[c];
  }
  const float w = n == 2 ? 0.5f : 1.0f / static_cast<float>(n);
  for (int c = 0; c < sum.n && c < C4DPoint::kCapacity; ++c)
    sum.v[c] *= w;
  dst = sum;
}

// Subdivides one texture or colour channel of a pass: kept[r] is the mesh
// (and channel) face that becomes new faces 4r..4r+3.
// False when the thread was asked to stop (dst is then incomplete).
bool ChannelPass(const CChannel& src, CChannel& dst, const std::vector<int>& kept, int K,
                 CCancelCheck& cancel) {
  CFaceList& faces = *src.GetFaceList();
  CPointList& points = *src.GetPointList();
  CFaceList& newFaces = *dst.GetFaceList();
  CPointList& newPoints = *dst.GetPointList();
  const int nPoints = points.GetSize();
  const std::size_t nKept = kept.size();

  std::vector<int> idx(nKept * K, 0);
  std::vector<char> use(nKept, 0);
  for (std::size_t r = 0; r < nKept; ++r) {
    const CFace& f = faces[kept[r]];
    // A face flagged excluded passes its flags on and nothing else.
    if (f.IsFlagSet(FACE_EXCLUDED) || f.GetSize() != K)
      continue;
    bool ok = true;
    for (int k = 0; k < K; ++k) {
      idx[r * K + k] = f[k];
      ok = ok && f[k] >= 0 && f[k] < nPoints;
    }
    use[r] = ok;
  }
  EdgeTable t;
  if (!BuildEdges(idx, use, K, nPoints, t, cancel))
    return false;

  newPoints.SetSize(nPoints + t.Size() + (K == 4 ? static_cast<int>(nKept) : 0));
  newFaces.SetSize(static_cast<int>(nKept * 4));
  std::vector<int> oldToNew(static_cast<std::size_t>(nPoints), -1);
  std::vector<int> edgeNew(static_cast<std::size_t>(t.Size()), -1);
  int next = 0;
  for (std::size_t r = 0; r < nKept; ++r) {
    if (cancel.Tick())
      return false;
    const CFace& f = faces[kept[r]];
    for (int j = 0; j < 4; ++j)
      newFaces[static_cast<int>(r * 4 + j)].InheritFlags(f);
    if (!use[r])
      continue;
    int c[4] = {0, 0, 0, 0}, e[4] = {0, 0, 0, 0};
    for (int k = 0; k < K; ++k) {
      int& to = oldToNew[static_cast<std::size_t>(idx[r * K + k])];
      if (to < 0) {
        to = next++;
        newPoints.CopyElement(&newPoints[to], &points[idx[r * K + k]]);
      }
      c[k] = to;
    }
    for (int k = 0; k < K; ++k) {
      const int edge = t.faceEdge[r * K + k];
      int& to = edgeNew[static_cast<std::size_t>(edge)];
      if (to < 0) {
        to = next++;
        const CPt* ends[2] = {&points[t.a[static_cast<std::size_t>(edge)]],
                              &points[t.b[static_cast<std::size_t>(edge)]]};
        Average(ends, 2, newPoints[to]);
      }
      e[k] = to;
    }
    if (K == 3) {
      newFaces[static_cast<int>(r * 4)].SetTriangle(c[0], e[0], e[2]);
      newFaces[static_cast<int>(r * 4 + 1)].SetTriangle(c[1], e[1], e[0]);
      newFaces[static_cast<int>(r * 4 + 2)].SetTriangle(c[2], e[2], e[1]);
      newFaces[static_cast<int>(r * 4 + 3)].SetTriangle(e[0], e[1], e[2]);
    } else {
      const int centre = next++;
      const CPt* corners[4] = {&points[idx[r * K]], &points[idx[r * K + 1]],
                               &points[idx[r * K + 2]], &points[idx[r * K + 3]]};
      Average(corners, 4, newPoints[centre]);
      for (int k = 0; k < 4; ++k) {
        CFace& q = newFaces[static_cast<int>(r * 4 + k)];
        q.SetSize(4);
        q[0] = c[k];
        q[1] = e[k];
        q[2] = centre;
        q[3] = e[(k + 3) % 4];
      }
    }
  }
  newPoints.SetSize(next);
  return true;
}

// One pass of Loop (K = 3) or Catmull-Clark (K = 4) on object's faces of K
// corners; other faces are dropped. False, with the object's lists left in
// place (only their border flags set), when the thread was asked to stop.
bool Pass(C3DBaseObject& object, int K, CCancelCheck& cancel) {
  C3DPointList& points = *object.GetPointList();
  C3DFaceList& faces = *object.GetFaceList();
  const int nPoints = points.GetSize();

  std::vector<int> kept;
  kept.reserve(static_cast<std::size_t>(faces.GetSize()));
  for (int f = 0; f < faces.GetSize(); ++f) {
    const C3DFace& face = faces[f];
    bool ok = face.GetSize() == K;
    for (int k = 0; ok && k < K; ++k)
      ok = face[k] >= 0 && face[k] < nPoints;
    if (ok)
      kept.push_back(f);
  }
  const std::size_t nKept = kept.size();
  std::vector<int> idx(nKept * K);
  for (std::size_t r = 0; r < nKept; ++r)
    for (int k = 0; k < K; ++k)
      idx[r * K + k] = faces[kept[r]][k];
  EdgeTable t;
  if (!BuildEdges(idx, std::vector<char>(nKept, 1), K, nPoints, t, cancel))
    return false;
  const int nEdges = t.Size();

  // Border marking, as the point and face lists do it from an edge graph.
  std::vector<V3> pos(static_cast<std::size_t>(nPoints));
  std::vector<char> border(static_cast<std::size_t>(nPoints), 0);
  for (int p = 0; p < nPoints; ++p) {
    pos[static_cast<std::size_t>(p)] = Pos(points[p]);
    border[static_cast<std::size_t>(p)] = points[p].IsFlagSet(PT_BORDER);
  }
  for (int e = 0; e < nEdges; ++e) {
    const bool isBorder = t.count[static_cast<std::size_t>(e)] == 1;
    for (int end : {t.a[static_cast<std::size_t>(e)], t.b[static_cast<std::size_t>(e)]}) {
      points[end].SetFlag(isBorder ? PT_BORDER : PT_INNER_EDGE, 1);
      if (isBorder)
        border[static_cast<std::size_t>(end)] = 1;
    }
  }
  for (std::size_t r = 0; r < nKept; ++r)
    for (int k = 0; k < K; ++k)
      if (t.count[static_cast<std::size_t>(t.faceEdge[r * K + k])] == 1)
        faces[kept[r]].SetFlag(FACE_BORDER, 1);

  // Neighbour sums: along edges, and (quadrilaterals) across faces.
  std::vector<int> nEdge(static_cast<std::size_t>(nPoints), 0);
  std::vector<V3> sumEdge(static_cast<std::size_t>(nPoints), V3{0, 0, 0});
  for (int e = 0; e < nEdges; ++e) {
    const int a = t.a[static_cast<std::size_t>(e)], b = t.b[static_cast<std::size_t>(e)];
    if (a == b)
      continue;
    ++nEdge[static_cast<std::size_t>(a)];
    ++nEdge[static_cast<std::size_t>(b)];
    sumEdge[static_cast<std::size_t>(a)] =
        sumEdge[static_cast<std::size_t>(a)] + pos[static_cast<std::size_t>(b)];
    sumEdge[static_cast<std::size_t>(b)] =
        sumEdge[static_cast<std::size_t>(b)] + pos[static_cast<std::size_t>(a)];
  }
  std::vector<int> nDiag;
  std::vector<V3> sumDiag, centre;
  if (K == 4) {
    nDiag.assign(static_cast<std::size_t>(nPoints), 0);
    sumDiag.assign(static_cast<std::size_t>(nPoints), V3{0, 0, 0});
    centre.resize(nKept);
    for (std::size_t r = 0; r < nKept; ++r) {
      const int* q = &idx[r * 4];
      V3 s{0, 0, 0};
      for (int k = 0; k < 4; ++k) {
        const std::size_t v = static_cast<std::size_t>(q[k]);
        ++nDiag[v];
        sumDiag[v] = sumDiag[v] + pos[static_cast<std::size_t>(q[(k + 2) % 4])];
        s = s + pos[v];
      }
      centre[r] = 0.25f * s;
    }
  }

  auto vertexRule = [&](int v) -> V3 {
    const std::size_t i = static_cast<std::size_t>(v);
    const int n = nEdge[i];
    if (border[i] || n == 0)
      return pos[i];
    const float fn = static_cast<float>(n);
    if (K == 3) {
      const float beta = n == 3 ? 0.1875f : 0.375f / fn;
      return (1.0f - fn * beta) * pos[i] + beta * sumEdge[i];
    }
    if (nDiag[i] != n)
      return pos[i]; // not a closed fan of quadrilaterals
    return (1.0f - 1.5f / fn - 0.25f / fn) * pos[i] + (1.5f / fn) / fn * sumEdge[i] +
           (0.25f / fn) / fn * sumDiag[i];
  };
  auto edgeRule = [&](int e) -> V3 {
    const std::size_t i = static_cast<std::size_t>(e);
    const V3 a = pos[static_cast<std::size_t>(t.a[i])], b = pos[static_cast<std::size_t>(t.b[i])];
    if (t.count[i] != 2)
      return 0.5f * (a + b);
    if (K == 3)
      return 0.375f * (a + b) + 0.125f * (pos[static_cast<std::size_t>(t.o1[i])] +
                                          pos[static_cast<std::size_t>(t.o2[i])]);
    return 0.25f * (a + b + centre[static_cast<std::size_t>(t.f1[i])] +
                    centre[static_cast<std::size_t>(t.f2[i])]);
  };

  if (cancel.Check())
    return false;
  std::unique_ptr<C3DPointList> newPointsOwner(new C3DPointList);
  std::unique_ptr<C3DFaceList> newFacesOwner(new C3DFaceList);
  C3DPointList* newPoints = newPointsOwner.get();
  C3DFaceList* newFaces = newFacesOwner.get();
  newPoints->SetSize(nPoints + nEdges + (K == 4 ? static_cast<int>(nKept) : 0));
  newFaces->SetSize(static_cast<int>(nKept * 4));
  std::vector<int> oldToNew(static_cast<std::size_t>(nPoints), -1);
  std::vector<int> edgeNew(static_cast<std::size_t>(nEdges), -1);
  int next = 0;
  auto place = [&](int to, V3 p) {
    C3DPoint& d = (*newPoints)[to];
    d.x = p.x;
    d.y = p.y;
    d.z = p.z;
  };
  for (std::size_t r = 0; r < nKept; ++r) {
    if (cancel.Tick())
      return false;
    const C3DFace& old = faces[kept[r]];
    int c[4] = {0, 0, 0, 0}, e[4] = {0, 0, 0, 0};
    for (int k = 0; k < K; ++k) {
      const int v = idx[r * K + k];
      int& to = oldToNew[static_cast<std::size_t>(v)];
      if (to < 0) {
        to = next++;
        (*newPoints)[to] = points[v]; // flags and custom data come along
        place(to, vertexRule(v));
      }
      c[k] = to;
    }
    for (int k = 0; k < K; ++k) {
      const int edge = t.faceEdge[r * K + k];
      int& to = edgeNew[static_cast<std::size_t>(edge)];
      if (to < 0) {
        to = next++;
        place(to, edgeRule(edge));
      }
      e[k] = to;
    }
    C3DFace* out = &(*newFaces)[static_cast<int>(r * 4)];
    for (int j = 0; j < 4; ++j)
      out[j].InheritFlags(old);
    if (K == 3) {
      out[0].SetTriangle(c[0], e[0], e[2]);
      out[1].SetTriangle(c[1], e[1], e[0]);
      out[2].SetTriangle(c[2], e[2], e[1]);
      out[3].SetTriangle(e[0], e[1], e[2]);
    } else {
      const int fp = next++;
      place(fp, centre[r]);
      for (int k = 0; k < 4; ++k) {
        C3DFace& q = out[k];
        q.SetSize(4);
        q[0] = c[k];
        q[1] = e[k];
        q[2] = fp;
        q[3] = e[(k + 3) % 4];
      }
    }
  }
  newPoints->SetSize(next);

  std::unique_ptr<CDependentChannels> newChannelsOwner(new CDependentChannels);
  CDependentChannels* newChannels = newChannelsOwner.get();
  if (CDependentChannels* channels = object.GetChannels())
    for (int i = 0; i < channels->GetSize(); ++i) {
      const CChannel* ch = channels->GetChannel(i);
      if (!ch || (ch->GetType() != CHANNEL_UVW && ch->GetType() != CHANNEL_VC))
        continue; // normals are rebuilt on demand
      std::unique_ptr<CChannel> copy(ch->InitFrom(CHANNEL_COPY_KEEP_ID));
      if (!copy)
        continue;
      // A channel without faces parallel to the mesh (one value per point, say)
      // has nothing to split along: it stays, empty.
      if (ch->GetFaceList() && ch->GetPointList() && copy->GetFaceList() && copy->GetPointList() &&
          ch->GetFaceList()->GetSize() == faces.GetSize())
        if (!ChannelPass(*ch, *copy, kept, K, cancel))
          return false;
      newChannels->AddChannel(copy.release());
    }

  delete object.GetPointList();
  delete object.GetFaceList();
  delete object.GetChannels();
  object.SetPointList(newPointsOwner.release());
  object.SetFaceList(newFacesOwner.release());
  object.SetChannels(newChannelsOwner.release());
  object.InvalidateBoundingBoxes();
  return true;
}

// False when the thread was asked to stop; the object then holds the result
// of the passes completed before.
bool Passes(C3DBaseObject& object, int level, int K, CCancelCheck& cancel) {
  if (!object.GetPointList() || !object.GetFaceList())
    return true;
  for (int i = 0; i < level; ++i) {
    // Lists count their elements in ints: stop before a pass would overflow them.
    const long long faces = object.GetFaceList()->GetSize();
    const long long points = object.GetPointList()->GetSize();
    if (faces * 4 > INT_MAX || points + faces * (K + 1) > INT_MAX)
      return true;
    if (!Pass(object, K, cancel))
      return false;
  }
  return true;
}

// Moves src's lists and channels into dst, whose own are deleted.
void TakeLists(C3DBaseObject& dst, C3DBaseObject& src) {
  delete dst.GetPointList();
  delete dst.GetFaceList();
  delete dst.GetChannels();
  dst.SetPointList(src.GetPointList());
  dst.SetFaceList(src.GetFaceList());
  dst.SetChannels(src.GetChannels());
  src.SetPointList(nullptr);
  src.SetFaceList(nullptr);
  src.SetChannels(new CDependentChannels);
  dst.InvalidateBoundingBoxes();
}

// The subdivided mesh of source's current lists, as a new object; null when
// source has no face, or when the thread was asked to stop (cancelled is then
// set). source is not changed either way.
std::unique_ptr<C3DObject> Subdivided(const C3DBaseObject& source, int level, bool& cancelled) {
  cancelled = false;
  detail::CProgressScope progress;
  CCancelCheck cancel;
  // Each part is a copy of its faces: a cancel request is answered between copies.
  const std::pair<int, _SUBOBJECT_MODE> ranks[3] = {
      {3, SUBOBJECT_VERTEX_COUNT}, {4, SUBOBJECT_VERTEX_COUNT}, {4, SUBOBJECT_MORE_VERTICES}};
  std::unique_ptr<C3DObject> parts[3];
  for (int i = 0; i < 3; ++i) {
    if (cancel.Check()) {
      cancelled = true;
      return nullptr;
    }
    parts[i].reset(source.SubObject(ranks[i].first, ranks[i].second));
  }
  // Each pass visits its faces about twice, and a pass has four times the
  // faces of the one before.
  std::uint64_t faces = 0;
  for (int i = 0; i < 2; ++i)
    if (parts[i] && parts[i]->GetFaceList())
      faces += static_cast<std::uint64_t>(parts[i]->GetFaceList()->GetSize());
  std::uint64_t total = 0;
  for (int i = 0; i < level; ++i, faces *= 4)
    total += 2 * faces;
  cancel.SetTotal(total);
  if ((parts[0] && !Passes(*parts[0], level, 3, cancel)) ||
      (parts[1] && !Passes(*parts[1], level, 4, cancel)) || cancel.Check()) {
    cancelled = true;
    return nullptr;
  }
  const int present = (parts[0] ? 1 : 0) + (parts[1] ? 1 : 0) + (parts[2] ? 1 : 0);
  if (present == 0)
    return nullptr;
  if (present == 1)
    for (auto& part : parts)
      if (part)
        return std::move(part); // nothing to join: spare the copy
  auto result = std::make_unique<C3DObject>(new C3DPointList, new C3DFaceList);
  bool reset = true;
  for (auto& part : parts)
    if (part) {
      result->Concatenate(part.get(), reset ? 1 : 0);
      reset = false;
    }
  return result;
}

} // namespace

void Subdivide3(C3DBaseObject& object, int level) {
  CCancelCheck cancel;
  Passes(object, level, 3, cancel);
}
void Subdivide4(C3DBaseObject& object, int level) {
  CCancelCheck cancel;
  Passes(object, level, 4, cancel);
}

int SubdivideObject(C3DBaseObject& object, int level) {
  if (level < 1 || !object.GetFaceList() || !object.GetPointList())
    return 0;
  level = std::min(level, kMaxPatchLevel);
  bool cancelled = false;
  std::unique_ptr<C3DObject> result = Subdivided(object, level, cancelled);
  if (cancelled)
    return kSubdivideCancelled;
  if (!result)
    return 0;
  TakeLists(object, *result);
  return 1;
}

std::uint64_t EstimateLevel(const C3DBaseObject* object, unsigned level) {
  const C3DFaceList* faces = object ? object->GetFaceList() : nullptr;
  if (!faces)
    return 0;
  if (level == 0)
    return static_cast<std::uint64_t>(faces->GetSize());
  double power = 1.0, base = 4.0;
  for (unsigned e = level; e; e >>= 1) {
    if (e & 1)
      power *= base;
    base *= base;
  }
  const auto each = static_cast<std::uint64_t>(power);
  std::uint64_t total = 0;
  for (int f = 0; f < faces->GetSize(); ++f) {
    const C3DFace& face = (*faces)[f];
    if ((face.GetSize() == 3 || face.GetSize() == 4) && !face.IsFlagSet(FACE_INVALID))
      total += each;
  }
  return total;
}

void InitPatch(C3DBaseObject& patch, CPatchControl& control) {
  control.sourcePoints = patch.GetPointList();
  control.sourceFaces = patch.GetFaceList();
  control.sourceChannels = patch.GetChannels();
  patch.SetPointList(nullptr);
  patch.SetFaceList(nullptr);
  patch.SetChannels(nullptr);
}

int SetPatchLevel(C3DBaseObject& patch, CPatchControl& control, int level) {
  level = std::clamp(level, 0, kMaxPatchLevel);
  const bool takeOver = control.level == -1;
  if (takeOver)
    InitPatch(patch, control);
  if (level == control.level)
    return 0;
  // The current result is kept until the new one is complete, so that a
  // cancelled rebuild can put the patch back as it was.
  const int oldLevel = control.level;
  C3DPointList* oldPoints = patch.GetPointList();
  C3DFaceList* oldFaces = patch.GetFaceList();
  CDependentChannels* oldChannels = patch.GetChannels();
  patch.SetPointList(nullptr);
  patch.SetFaceList(nullptr);
  patch.SetChannels(nullptr);
  control.level = level;
  if (!SubdividePatch(patch, control, level)) {
    control.level = oldLevel;
    if (takeOver) {
      patch.SetPointList(control.sourcePoints);
      patch.SetFaceList(control.sourceFaces);
      patch.SetChannels(control.sourceChannels);
      control = CPatchControl();
    } else {
      patch.SetPointList(oldPoints);
      patch.SetFaceList(oldFaces);
      patch.SetChannels(oldChannels);
    }
    patch.InvalidateBoundingBoxes();
    return kSubdivideCancelled;
  }
  if (oldLevel > 0) {
    delete oldPoints;
    delete oldFaces;
    delete oldChannels;
  }
  return 1;
}

bool SubdividePatch(C3DBaseObject& patch, CPatchControl& control, int level) {
  patch.SetPointList(control.sourcePoints);
  patch.SetFaceList(control.sourceFaces);
  patch.SetChannels(control.sourceChannels);
  patch.InvalidateBoundingBoxes();
  if (level == 0)
    return true;
  bool cancelled = false;
  std::unique_ptr<C3DObject> result =
      control.sourceFaces && control.sourcePoints ? Subdivided(patch, level, cancelled) : nullptr;
  if (cancelled)
    return false; // the base lists still show the control mesh
  // The result is always a list set of its own, even when empty.
  if (!result)
    result = std::make_unique<C3DObject>(new C3DPointList, new C3DFaceList);
  patch.SetPointList(nullptr);
  patch.SetFaceList(nullptr);
  patch.SetChannels(nullptr);
  TakeLists(patch, *result);
  return true;
}

void ReleasePatch(CPatchControl& control) {
  if (control.level > 0) {
    delete control.sourcePoints;
    delete control.sourceFaces;
    delete control.sourceChannels;
  }
  control.level = -1;
  control.sourcePoints = nullptr;
  control.sourceFaces = nullptr;
  control.sourceChannels = nullptr;
}

C3DObject* GetPatchSourceObject(C3DBaseObject& patch, const CPatchControl& control) {
  C3DMeshObjectCreator creator;
  if (control.level <= 0 || !control.sourceChannels)
    return static_cast<C3DObject*>(patch.Copy(0, &creator));
  C3DPointList* points = patch.GetPointList();
  C3DFaceList* faces = patch.GetFaceList();
  CDependentChannels* channels = patch.GetChannels();
  patch.SetPointList(control.sourcePoints);
  patch.SetFaceList(control.sourceFaces);
  patch.SetChannels(control.sourceChannels);
  C3DBaseObject* copy = patch.Copy(0, &creator);
  patch.SetPointList(points);
  patch.SetFaceList(faces);
  patch.SetChannels(channels);
  return static_cast<C3DObject*>(copy);
}

} // namespace meshcore

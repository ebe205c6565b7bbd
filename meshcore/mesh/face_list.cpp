#include "meshcore/mesh/face_list.h"

#include "meshcore/containers/custom_data.h"
#include "meshcore/containers/next_prime.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_list.h"
#include "meshcore/platform/exceptions.h"

#include <algorithm>
#include <climits>
#include <vector>

namespace meshcore {

MESHCORE_IMPLEMENT_DYNAMIC(CFaceList, CElementArray)

namespace {

// Sorts v, drops repeats and copies it into out; returns the size.
int SortedUniqueInto(std::vector<int>& v, CIntArrayID& out) {
  std::sort(v.begin(), v.end());
  v.erase(std::unique(v.begin(), v.end()), v.end());
  out.SetSize(static_cast<int>(v.size()));
  if (!v.empty())
    std::copy(v.begin(), v.end(), out.GetData());
  return static_cast<int>(v.size());
}

// Removes one occurrence of value from a sorted array.
void RemoveOne(CIntArrayID& a, int value) {
  int* d = a.GetData();
  const int* pos = std::lower_bound(d, d + a.GetSize(), value);
  if (pos != d + a.GetSize() && *pos == value)
    a.RemoveAt(static_cast<int>(pos - d), 1);
}

// Inserts value into a sorted array after any equal values.
void InsertSorted(CIntArrayID& a, int value) {
  const int* d = a.GetData();
  const int pos = d ? static_cast<int>(std::upper_bound(d, d + a.GetSize(), value) - d) : 0;
  a.InsertAt(pos, value, 1);
}

C3DEdge FaceEdge(const CFace& f, int k) {
  const int n = f.GetSize();
  return C3DEdge::Make(f[k], f[k + 1 < n ? k + 1 : 0]);
}

} // namespace

CFaceList::CFaceList(std::uint32_t memoryRecordSize, std::uint32_t archiveRecordSize)
    : CElementArray(memoryRecordSize) {
  SetArchiveRecordSize(archiveRecordSize);
}

CFaceList::~CFaceList() = default;

CFaceList& CFaceList::operator=(const CFaceList& src) {
  if (&src != this) {
    CElementArray::operator=(src);
    Inherit(src);
  }
  DeletePointToFaceGraph();
  DeleteEdgeToFaceGraph();
  return *this;
}

int CFaceList::UpdateList(CGeomInfo* info) {
  if (!IsFlagSet(FL_CHANGED))
    return 0;
  if (m_edgeGraphBuilt)
    CreateEdgeToFaceGraph();
  if (m_pointGraphBuilt)
    CreatePointToFaceGraph(info);
  SetFlag(FL_CHANGED, 0);
  return 1;
}

void CFaceList::SetFlag(_FACE_PROPERTIES flag, int on) {
  for (int i = 0; i < GetSize(); ++i)
    ElementAt(i).SetFlag(flag, on);
}

int CFaceList::GetNumberOfFaces(_FACE_PROPERTIES flag, int set) const {
  if (set != 0 && set != 1)
    return 0;
  int n = 0;
  for (int i = 0; i < GetSize(); ++i)
    n += ElementAt(i).IsFlagSet(flag) == (set == 1);
  return n;
}

int CFaceList::InheritFlags(const CFaceList& src, _FACE_PROPERTIES test, _FACE_PROPERTIES apply,
                            int keep) {
  if (src.GetSize() != GetSize())
    return 0;
  for (int i = 0; i < GetSize(); ++i) {
    if (src[i].IsFlagSet(test))
      ElementAt(i).SetFlag(apply, 1);
    else if (!keep)
      ElementAt(i).SetFlag(apply, 0);
  }
  return 1;
}

void CFaceList::SaveFacesIndex() {
  for (int i = 0; i < GetSize(); ++i)
    ElementAt(i).GetCustomData(1)->SetInt(kFaceIndexKey, i);
}

void CFaceList::InvalidateFaces(CGeomInfo*, const CIndexMap& keep) {
  for (int i = 0; i < GetSize(); ++i)
    if (!keep.Contains(i))
      ElementAt(i).SetFlag(FACE_INVALID, 1);
}

void CFaceList::UpdateIndex(const CIndexMap& map) {
  if (map.IsEmpty())
    return;
  for (int f = 0; f < GetSize(); ++f) {
    CFace& face = ElementAt(f);
    int* d = face.GetData();
    for (int k = 0; k < face.GetSize(); ++k)
      if (const int* v = map.PLookup(d[k]))
        d[k] = *v;
  }
}

void CFaceList::SetBorderFacesStatus() {
  for (const auto& [edge, faces] : m_edgeGraph)
    if (faces.GetSize() == 1 && faces[0] >= 0 && faces[0] < GetSize())
      ElementAt(faces[0]).SetFlag(FACE_BORDER, 1);
}

// ---------------------------------------------------------------------------
// Graphs

void CFaceList::InitPointToFaceGraph(CGeomInfo* info) {
  UpdateList(info);
  if (!m_pointGraphBuilt)
    CreatePointToFaceGraph(info);
}

void CFaceList::InitEdgeToFaceGraph(CGeomInfo* info) {
  UpdateList(info);
  if (!m_edgeGraphBuilt)
    CreateEdgeToFaceGraph();
}

void CFaceList::DeletePointToFaceGraph() {
  m_pointToFace.clear();
  m_pointToFace.shrink_to_fit();
  m_pointGraphBuilt = 0;
}

void CFaceList::DeleteEdgeToFaceGraph() {
  m_edgeGraph.RemoveAll();
  m_edgeGraphBuilt = 0;
}

void CFaceList::CreatePointToFaceGraph(CGeomInfo* info) {
  DeletePointToFaceGraph();
  m_pointGraphBuilt = 1;
  if (GetSize() == 0)
    return;
  int points = 0;
  if (CPointList* list = info ? info->GetPointList() : nullptr) {
    points = list->GetSize();
  } else {
    // Without a point list, the graph covers the indices the faces use.
    for (int f = 0; f < GetSize(); ++f) {
      const CFace& face = ElementAt(f);
      if (!face.IsFlagSet(FACE_EXCLUDED))
        for (int k = 0; k < face.GetSize(); ++k)
          points = std::max(points, face[k] + 1);
    }
  }
  // Count first so that every array is allocated once at its final size.
  std::vector<int> counts(static_cast<std::size_t>(points), 0);
  for (int f = 0; f < GetSize(); ++f) {
    const CFace& face = ElementAt(f);
    if (face.IsFlagSet(FACE_EXCLUDED))
      continue;
    const int* d = face.GetData();
    for (int k = 0; k < face.GetSize(); ++k) {
      if (d[k] < 0 || d[k] >= points) {
        m_pointToFace.clear();
        throw CInvalidArgException();
      }
      ++counts[static_cast<std::size_t>(d[k])];
    }
  }
  m_pointToFace.resize(static_cast<std::size_t>(points));
  for (int p = 0; p < points; ++p)
    if (counts[static_cast<std::size_t>(p)])
      m_pointToFace[static_cast<std::size_t>(p)].Init(counts[static_cast<std::size_t>(p)]);
  for (int f = 0; f < GetSize(); ++f) {
    const CFace& face = ElementAt(f);
    if (face.IsFlagSet(FACE_EXCLUDED))
      continue;
    const int* d = face.GetData();
    for (int k = 0; k < face.GetSize(); ++k)
      m_pointToFace[static_cast<std::size_t>(d[k])].Add(f);
  }
}

void CFaceList::CreateEdgeToFaceGraph() {
  DeleteEdgeToFaceGraph();
  m_edgeGraphBuilt = 1;
  if (GetSize() == 0)
    return;
  std::size_t corners = 0;
  int lo = INT_MAX, hi = INT_MIN;
  for (int f = 0; f < GetSize(); ++f) {
    const CFace& face = ElementAt(f);
    if (face.IsFlagSet(FACE_EXCLUDED))
      continue;
    corners += static_cast<std::size_t>(face.GetSize());
    for (int k = 0; k < face.GetSize(); ++k) {
      lo = std::min(lo, face[k]);
      hi = std::max(hi, face[k]);
    }
  }
  if (corners == 0)
    return;
  const long long range = static_cast<long long>(hi) - lo + 1;
  if (range > 4LL * static_cast<long long>(corners) + 1024) {
    // Scattered indices (broken data): plain hashing, edge by edge.
    for (int f = 0; f < GetSize(); ++f) {
      const CFace& face = ElementAt(f);
      if (!face.IsFlagSet(FACE_EXCLUDED))
        for (int k = 0; k < face.GetSize(); ++k)
          m_edgeGraph.FindOrAdd(FaceEdge(face, k)).Add(f);
    }
    return;
  }
  // Edges are found through buckets by their smaller point, which follow the
  // mesh's own locality; hashing every corner into a table of millions of
  // slots would miss the cache at each step. The hash index is built at the end.
  std::vector<int> start(static_cast<std::size_t>(range) + 1, 0);
  for (int f = 0; f < GetSize(); ++f) {
    const CFace& face = ElementAt(f);
    if (!face.IsFlagSet(FACE_EXCLUDED))
      for (int k = 0; k < face.GetSize(); ++k)
        ++start[static_cast<std::size_t>(FaceEdge(face, k).first - lo) + 1];
  }
  for (std::size_t i = 1; i < start.size(); ++i)
    start[i] += start[i - 1];
  std::vector<int> used(static_cast<std::size_t>(range), 0);
  struct Slot {
    int second;
    int entry;
  };
  std::vector<Slot> slots(corners);
  m_edgeGraph.Reserve(corners / 2 + 1);
  int entries = 0;
  for (int f = 0; f < GetSize(); ++f) {
    const CFace& face = ElementAt(f);
    if (face.IsFlagSet(FACE_EXCLUDED))
      continue;
    for (int k = 0; k < face.GetSize(); ++k) {
      const C3DEdge e = FaceEdge(face, k);
      const auto b = static_cast<std::size_t>(e.first - lo);
      Slot* s = slots.data() + start[b];
      const int n = used[b];
      int entry = -1;
      for (int i = 0; i < n; ++i)
        if (s[i].second == e.second) {
          entry = s[i].entry;
          break;
        }
      if (entry < 0) {
        entry = entries++;
        s[n] = {e.second, entry};
        ++used[b];
        m_edgeGraph.AppendUnindexed(e);
      }
      m_edgeGraph.GetAt(entry).second.Add(f);
    }
  }
  m_edgeGraph.RebuildIndex();
}

const int* CFaceList::GetFacesConnectedToPoint(int point, int& count) const {
  if (point < 0 || point >= GetPointToFaceGraphSize())
    throw CInvalidArgException();
  const CIntArrayID& a = m_pointToFace[static_cast<std::size_t>(point)];
  count = a.GetSize();
  return a.GetData();
}

const int* CFaceList::GetFacesConnectedToEdge(const C3DEdge& edge, int& count) const {
  const CConnectionInfo* info = m_edgeGraph.PLookup(C3DEdge::Make(edge.first, edge.second));
  count = info ? info->GetSize() : 0;
  return info ? info->GetData() : nullptr;
}

int CFaceList::GetFacesConnectedToFace(int face, CIntArrayID& out, _ConnectionInfoType type) const {
  std::vector<int> found;
  if (face >= 0 && face < GetSize()) {
    const CFace& f = ElementAt(face);
    for (int k = 0; k < f.GetSize(); ++k) {
      int count = 0;
      const int* faces = nullptr;
      if (type == CONNECTION_EDGE)
        faces = GetFacesConnectedToEdge(FaceEdge(f, k), count);
      else if (f[k] >= 0 && f[k] < GetPointToFaceGraphSize())
        faces = GetFacesConnectedToPoint(f[k], count);
      for (int i = 0; i < count; ++i)
        if (faces[i] != face)
          found.push_back(faces[i]);
    }
  }
  return SortedUniqueInto(found, out);
}

int CFaceList::IsIsolatedFace(int face) const {
  if (face < 0 || face >= GetSize())
    return 0;
  const CFace& f = ElementAt(face);
  for (int k = 0; k < f.GetSize(); ++k) {
    int count = 0;
    const int* faces = GetFacesConnectedToEdge(FaceEdge(f, k), count);
    for (int i = 0; i < count; ++i)
      if (faces[i] != face)
        return 0;
  }
  return 1;
}

int CFaceList::IsPointNeighbourg(int a, int b) const {
  if (a < 0 || a >= GetPointToFaceGraphSize())
    return 0;
  const CIntArrayID& faces = m_pointToFace[static_cast<std::size_t>(a)];
  for (int i = 0; i < faces.GetSize(); ++i)
    if (ElementAt(faces[i]).IsFaceEdge(a, b, 0) >= 0)
      return 1;
  return 0;
}

int CFaceList::DoesEdgeBelongToFace(const C3DEdge& edge, int face) const {
  int count = 0;
  const int* faces = GetFacesConnectedToEdge(edge, count);
  return faces && std::find(faces, faces + count, face) != faces + count;
}

int CFaceList::GraphRemoveFaceReference(int face) {
  if (face < 0 || face >= GetSize())
    return 0;
  const CFace& f = ElementAt(face);
  int emptied = 0;
  for (int k = 0; k < f.GetSize(); ++k) {
    if (f[k] < 0 || f[k] >= GetPointToFaceGraphSize())
      continue;
    CIntArrayID& a = m_pointToFace[static_cast<std::size_t>(f[k])];
    const int before = a.GetSize();
    RemoveOne(a, face);
    emptied += before > 0 && a.GetSize() == 0;
  }
  return emptied;
}

void CFaceList::GraphMergePointConnectivity(int kept, int merged) {
  const int size = GetPointToFaceGraphSize();
  if (kept < 0 || merged < 0 || kept >= size || merged >= size || kept == merged)
    return;
  CIntArrayID& a = m_pointToFace[static_cast<std::size_t>(kept)];
  CIntArrayID& b = m_pointToFace[static_cast<std::size_t>(merged)];
  std::vector<int> all(static_cast<std::size_t>(a.GetSize() + b.GetSize()));
  const int* da = a.GetData();
  const int* db = b.GetData();
  std::merge(da, da + a.GetSize(), db, db + b.GetSize(), all.begin());
  SortedUniqueInto(all, a);
  b.RemoveAll();
}

void CFaceList::GetEdgesOnBorder(CGeomInfo*, CHashTable<C3DEdge>& edges,
                                 const CHashTable<int>& faces) const {
  edges.MakeEmpty();
  CFlatMap<C3DEdge, int, C3DEdgeFlatHash> counter;
  int face = 0;
  for (int pos = faces.GetFirst(); pos >= 0;) {
    faces.GetNext(pos, face);
    if (face < 0 || face >= GetSize())
      continue;
    const CFace& f = ElementAt(face);
    for (int k = 0; k < f.GetSize(); ++k)
      ++counter[FaceEdge(f, k)];
  }
  for (const auto& [edge, count] : counter)
    if (count == 1)
      edges.Insert(edge);
}

// ---------------------------------------------------------------------------
// Neighbourhood queries

int CFaceList::GetPointsNeighbourg(CGeomInfo* info, int point, CIntArrayID& out,
                                   _ConnectionInfoType type) {
  InitPointToFaceGraph(info);
  std::vector<int> found;
  if (point >= 0 && point < GetPointToFaceGraphSize()) {
    const CIntArrayID& faces = m_pointToFace[static_cast<std::size_t>(point)];
    for (int i = 0; i < faces.GetSize(); ++i) {
      const CFace& f = ElementAt(faces[i]);
      const int n = f.GetSize();
      for (int k = 0; k < n; ++k) {
        if (type == CONNECTION_POINT) {
          found.push_back(f[k]);
        } else if (f[k] == point) {
          found.push_back(f[k > 0 ? k - 1 : n - 1]);
          found.push_back(f[k + 1 < n ? k + 1 : 0]);
        }
      }
    }
  }
  found.erase(std::remove(found.begin(), found.end(), point), found.end());
  return SortedUniqueInto(found, out);
}

int CFaceList::GetFacesNeighbourg(CGeomInfo* info, int face, CIntArrayID& out,
                                  _ConnectionInfoType type) {
  if (type == CONNECTION_EDGE)
    InitEdgeToFaceGraph(info);
  else
    InitPointToFaceGraph(info);
  return GetFacesConnectedToFace(face, out, type);
}

int CFaceList::GetFacesConnectedToPoints(CGeomInfo* info, const CIntArrayID& points,
                                         CIntArrayID& out, _ConnectionInfoType type) {
  InitPointToFaceGraph(info);
  std::vector<int> set(points.GetData(), points.GetData() + points.GetSize());
  std::sort(set.begin(), set.end());
  auto inSet = [&set](int p) { return std::binary_search(set.begin(), set.end(), p); };
  std::vector<int> found;
  for (int p : set) {
    if (p < 0 || p >= GetPointToFaceGraphSize())
      continue;
    const CIntArrayID& faces = m_pointToFace[static_cast<std::size_t>(p)];
    for (int i = 0; i < faces.GetSize(); ++i) {
      if (type == CONNECTION_POINT) {
        found.push_back(faces[i]);
        continue;
      }
      const CFace& f = ElementAt(faces[i]);
      for (int k = 0; k < f.GetSize(); ++k) {
        const C3DEdge e = FaceEdge(f, k);
        if (inSet(e.first) && inSet(e.second) && e.first != e.second) {
          found.push_back(faces[i]);
          break;
        }
      }
    }
  }
  return SortedUniqueInto(found, out);
}

int CFaceList::GetPointsConnectedToPoints(CGeomInfo* info, const CIntArrayID& points,
                                          CIntArrayID& out, _ConnectionInfoType type) {
  std::vector<int> set(points.GetData(), points.GetData() + points.GetSize());
  std::sort(set.begin(), set.end());
  std::vector<int> found;
  CIntArrayID around;
  for (int p : set) {
    GetPointsNeighbourg(info, p, around, type);
    for (int i = 0; i < around.GetSize(); ++i)
      if (!std::binary_search(set.begin(), set.end(), around[i]))
        found.push_back(around[i]);
  }
  return SortedUniqueInto(found, out);
}

int CFaceList::GetPointsConnectedToEdge(CGeomInfo* info, const C3DEdge& edge, CIntArrayID& out,
                                        _ConnectionInfoType type) {
  InitEdgeToFaceGraph(info);
  const C3DEdge e = C3DEdge::Make(edge.first, edge.second);
  std::vector<int> found;
  int count = 0;
  const int* faces = GetFacesConnectedToEdge(e, count);
  for (int i = 0; i < count; ++i) {
    const CFace& f = ElementAt(faces[i]);
    const int n = f.GetSize();
    if (type == CONNECTION_POINT) {
      for (int k = 0; k < n; ++k)
        found.push_back(f[k]);
      continue;
    }
    const int k = f.IsFaceEdge(e.first, e.second, 0);
    if (k < 0)
      continue;
    found.push_back(f[(k + n - 1) % n]);
    found.push_back(f[(k + 2) % n]);
  }
  found.erase(std::remove_if(found.begin(), found.end(),
                             [&e](int p) { return p == e.first || p == e.second; }),
              found.end());
  return SortedUniqueInto(found, out);
}

int CFaceList::GetFacesByOppositeEdges(CGeomInfo* info, const C3DEdge& edge, CIntArrayID& out) {
  InitEdgeToFaceGraph(info);
  out.RemoveAll();
  const C3DEdge start = C3DEdge::Make(edge.first, edge.second);
  int count = 0;
  const int* faces = GetFacesConnectedToEdge(start, count);
  if (!count)
    return 0;
  CFlatMap<int, char> visited;
  // Walks from face, entered through entry, across opposite edges.
  auto walk = [&](int face, C3DEdge entry) {
    std::vector<int> strip;
    for (;;) {
      bool added = false;
      visited.FindOrAdd(face, &added);
      if (!added)
        break;
      strip.push_back(face);
      const CFace& f = ElementAt(face);
      if (f.GetSize() != 4)
        break;
      const int k = f.IsFaceEdge(entry.first, entry.second, 0);
      if (k < 0)
        break;
      const C3DEdge exit = C3DEdge::Make(f[(k + 2) % 4], f[(k + 3) % 4]);
      int n = 0;
      const int* next = GetFacesConnectedToEdge(exit, n);
      if (n != 2 || next[0] == next[1])
        break;
      face = next[0] == face ? next[1] : next[0];
      entry = exit;
    }
    return strip;
  };
  const std::vector<int> a = walk(faces[0], start);
  std::vector<int> b;
  if (count == 2)
    b = walk(faces[1], start);
  for (auto it = b.rbegin(); it != b.rend(); ++it)
    out.Add(*it);
  for (int f : a)
    out.Add(f);
  return out.GetSize();
}

int CFaceList::DeleteFacesByOppositeEdges(CGeomInfo* info, const C3DEdge& edge) {
  CIntArrayID strip;
  const int n = GetFacesByOppositeEdges(info, edge, strip);
  for (int i = 0; i < n; ++i)
    ElementAt(strip[i]).SetFlag(FACE_INVALID, 1);
  if (n)
    Clean(info);
  return n;
}

int CFaceList::AreFacesConnected(int a, int b, _ConnectionInfoType type) const {
  if (a == b || a < 0 || b < 0 || a >= GetSize() || b >= GetSize())
    return 0;
  const CFace& fa = ElementAt(a);
  const CFace& fb = ElementAt(b);
  const int n = fa.GetSize();
  for (int k = 0; k < n; ++k) {
    if (type == CONNECTION_POINT) {
      if (fb.IsFacePoint(fa[k]) >= 0)
        return 1;
    } else if (fb.IsFaceEdge(fa[k], fa[k + 1 < n ? k + 1 : 0], 0) >= 0) {
      return 1;
    }
  }
  return 0;
}

int CFaceList::CreateFaceGroup(CGeomInfo* info, int seed, CIntArrayID& out,
                               _ConnectionInfoType type) {
  out.RemoveAll();
  if (type == CONNECTION_EDGE)
    InitEdgeToFaceGraph(info);
  else
    InitPointToFaceGraph(info);
  const std::uint32_t blocked = FACE_INVALID | FACE_EXCLUDED;
  if (seed < 0 || seed >= GetSize() || ElementAt(seed).IsOneFlagSet(blocked))
    return 0;
  std::vector<unsigned char> reached(static_cast<std::size_t>(GetSize()), 0);
  std::vector<int> group{seed};
  std::vector<int> pending{seed};
  reached[static_cast<std::size_t>(seed)] = 1;
  CIntArrayID around;
  while (!pending.empty()) {
    const int face = pending.back();
    pending.pop_back();
    GetFacesConnectedToFace(face, around, type);
    for (int i = 0; i < around.GetSize(); ++i) {
      const int g = around[i];
      if (reached[static_cast<std::size_t>(g)] || ElementAt(g).IsOneFlagSet(blocked))
        continue;
      reached[static_cast<std::size_t>(g)] = 1;
      group.push_back(g);
      pending.push_back(g);
    }
  }
  return SortedUniqueInto(group, out);
}

int CFaceList::ReplaceIndex(CGeomInfo* info, int oldIndex, int newIndex) {
  InitPointToFaceGraph(info);
  const int size = GetPointToFaceGraphSize();
  if (oldIndex < 0 || newIndex < 0 || oldIndex >= size || newIndex >= size || oldIndex == newIndex)
    return 0;
  // The faces of oldIndex, once each (a face listing it twice appears twice).
  const CIntArrayID& of = m_pointToFace[static_cast<std::size_t>(oldIndex)];
  std::vector<int> faces(of.GetData(), of.GetData() + of.GetSize());
  faces.erase(std::unique(faces.begin(), faces.end()), faces.end());
  int changed = 0;
  for (int f : faces) {
    CFace& face = ElementAt(f);
    const bool hadNew = face.IsFacePoint(newIndex) >= 0;
    if (face.ReplaceIndex(oldIndex, newIndex) == FACE_UNCHANGED)
      continue;
    ++changed;
    // Keep the graph exact: welding calls this once per merged point and must
    // not pay for a rebuild each time.
    if (hadNew) {
      RemoveOne(m_pointToFace[static_cast<std::size_t>(newIndex)], f);
    } else {
      RemoveOne(m_pointToFace[static_cast<std::size_t>(oldIndex)], f);
      InsertSorted(m_pointToFace[static_cast<std::size_t>(newIndex)], f);
    }
  }
  if (changed)
    DeleteEdgeToFaceGraph();
  return changed;
}

// ---------------------------------------------------------------------------
// Compaction

void RemoveRepeatedIndices(CFace& face) {
  const int* d = face.GetData();
  const int size = face.GetSize();
  int k = 0;
  while (k + 1 < size && d[k] != d[k + 1])
    ++k;
  if (k + 1 < size) {
    while (k + 1 < face.GetSize()) {
      if (face[k] == face[k + 1])
        face.RemoveAt(k, 1);
      else
        ++k;
    }
  }
  if (face.GetSize() < 3)
    face.SetFlag(FACE_INVALID, 1);
}

void CFaceList::CleanPointsIndex() {
  for (int f = 0; f < GetSize(); ++f) {
    CFace& face = ElementAt(f);
    if (!face.IsFlagSet(FACE_EXCLUDED))
      RemoveRepeatedIndices(face);
  }
}

int CFaceList::Clean(CGeomInfo*, int cleanIndices, CIndexMap* oldToNew) {
  if (cleanIndices)
    CleanPointsIndex();
  int kept = 0;
  for (int i = 0; i < GetSize(); ++i)
    kept += !ElementAt(i).IsFlagSet(FACE_INVALID);
  return Compact(kept, oldToNew);
}

int CFaceList::Compact(int kept, CIndexMap* oldToNew) {
  const int n = GetSize();
  if (oldToNew)
    oldToNew->RemoveAll();
  if (kept == n)
    return 0;
  if (kept == 0) {
    SetSize(0, -1);
    return 1;
  }
  if (oldToNew)
    oldToNew->Reserve(NextPrime(static_cast<unsigned>(kept)));
  int write = 0;
  for (int i = 0; i < n; ++i) {
    if (ElementAt(i).IsFlagSet(FACE_INVALID))
      continue;
    if (oldToNew)
      oldToNew->SetAt(i, write);
    if (write != i)
      CopyElement(CElementArray::operator[](write), CElementArray::operator[](i));
    ++write;
  }
  SetSize(kept, -1);
  return 1;
}

int CFaceList::Clean(CGeomInfo* info) {
  // A face cannot outlive its points: faces on points about to be removed (or
  // outside the list) go with them, so that no kept face refers to a lost point.
  // Then the indices are cleaned; one pass does both, face by face.
  CPointList* points = info ? info->GetPointList() : nullptr;
  const int n = points ? points->GetSize() : 0;
  const bool flags = points && points->HasPointElements();
  // The points the faces kept use, for the points' compaction.
  std::vector<unsigned char> used(points && flags ? static_cast<std::size_t>(n) : 0, 0);
  int kept = 0;
  for (int f = 0; f < GetSize(); ++f) {
    CFace& face = ElementAt(f);
    if (points && !face.IsOneFlagSet(FACE_INVALID | FACE_EXCLUDED)) {
      const int* d = face.GetData();
      const int size = face.GetSize();
      for (int k = 0; k < size; ++k)
        if (d[k] < 0 || d[k] >= n || (flags && points->ElementAt(d[k]).IsFlagSet(PT_INVALID))) {
          face.SetFlag(FACE_INVALID, 1);
          break;
        }
    }
    if (!face.IsFlagSet(FACE_EXCLUDED))
      RemoveRepeatedIndices(face);
    if (face.IsFlagSet(FACE_INVALID))
      continue;
    ++kept;
    if (!used.empty() && !face.IsFlagSet(FACE_EXCLUDED)) {
      // Valid faces hold only points of the list.
      const int* d = face.GetData();
      const int size = face.GetSize();
      for (int k = 0; k < size; ++k)
        used[static_cast<std::size_t>(d[k])] = 1;
    }
  }
  CIndexMap faceMap;
  const int facesRemoved = Compact(kept, &faceMap);
  // The points' moves as a table: a hashed map of a million points costs
  // more than the rest of the compaction, and only channels need one.
  std::vector<int> pointTable;
  int pointsRemoved = 0;
  if (CPointList* points = info ? info->GetPointList() : nullptr) {
    pointsRemoved = points->Clean(&used, pointTable);
    if (pointsRemoved) {
      const auto n = static_cast<unsigned>(pointTable.size());
      for (int f = 0; f < GetSize(); ++f) {
        CFace& face = ElementAt(f);
        int* d = face.GetData();
        for (int k = 0; k < face.GetSize(); ++k)
          if (static_cast<unsigned>(d[k]) < n && pointTable[static_cast<std::size_t>(d[k])] >= 0)
            d[k] = pointTable[static_cast<std::size_t>(d[k])];
      }
      points->SetFlag(PL_CHANGED, 1);
    }
  }
  // Rewritten indices invalidate the graphs as much as removed faces do.
  if (facesRemoved || pointsRemoved)
    SetFlag(FL_CHANGED, 1);
  if (CDependentChannels* channels = info ? info->GetChannels() : nullptr) {
    CIndexMap pointMap;
    if (pointsRemoved && channels->GetSize() > 0) {
      pointMap.Reserve(pointTable.size());
      for (std::size_t i = 0; i < pointTable.size(); ++i)
        if (pointTable[i] >= 0)
          pointMap.SetAt(static_cast<int>(i), pointTable[i]);
    }
    channels->CleanChannels(info, facesRemoved ? &faceMap : nullptr,
                            pointsRemoved ? &pointMap : nullptr);
  }
  return facesRemoved && pointsRemoved;
}

} // namespace meshcore

#include "meshcore/operations/merge_coplanar.h"

#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <unordered_set>
#include <vector>

namespace meshcore {

// Everything is decided on flat arrays first (half-edges numbered face by
// face, twins found by bucketing edges on their lower point), and the object
// is only touched once every region is known: a cancel before that point
// leaves it as it was. Each phase is linear in the number of corners, apart
// from sorting the edges that share a lower point, which are few.

namespace {

constexpr int kNone = -1;

struct Normal {
  float x = 0.0f, y = 0.0f, z = 0.0f;
  double Dot(const Normal& o) const {
    return static_cast<double>(x) * o.x + static_cast<double>(y) * o.y +
           static_cast<double>(z) * o.z;
  }
};

// Unit Newell normal in the faces' winding convention (the library's faces
// run clockwise seen from the front); false when the face spans no area.
bool FaceNormal(const C3DFace& face, const C3DPointList& points, Normal& out) {
  const int n = face.GetSize();
  double x = 0, y = 0, z = 0;
  for (int k = 0; k < n; ++k) {
    const C3DPoint& a = points[face[k]];
    const C3DPoint& b = points[face[k + 1 == n ? 0 : k + 1]];
    x -= (static_cast<double>(a.y) - b.y) * (static_cast<double>(a.z) + b.z);
    y -= (static_cast<double>(a.z) - b.z) * (static_cast<double>(a.x) + b.x);
    z -= (static_cast<double>(a.x) - b.x) * (static_cast<double>(a.y) + b.y);
  }
  const double len = std::sqrt(x * x + y * y + z * z);
  if (!(len > 0.0) || !std::isfinite(len))
    return false;
  out.x = static_cast<float>(x / len);
  out.y = static_cast<float>(y / len);
  out.z = static_cast<float>(z / len);
  return true;
}

class CMerger {
public:
  CMerger(C3DFaceList& faces, const C3DPointList& points, std::vector<CFaceList*> channels)
      : m_faces(faces), m_points(points), m_channels(std::move(channels)),
        m_faceCount(faces.GetSize()), m_pointCount(points.GetSize()) {}

  // Finds the regions and their outlines; false when cancelled.
  bool Analyse(double cosLimit, CCancelCheck& cancel);
  // Writes every outline into its region's first face and marks the others
  // invalid; returns the faces so replaced.
  int Apply();
  int Merged() const { return static_cast<int>(m_mergedRegions.size()); }
  int Refused() const { return m_refused; }

private:
  bool Classify(CCancelCheck& cancel);
  bool PairEdges(CCancelCheck& cancel);
  bool GrowRegions(double cosLimit, CCancelCheck& cancel);
  bool TraceOutlines(CCancelCheck& cancel);
  bool TraceOutline(int region, std::vector<int>& outline);

  int To(int he) const {
    const int f = m_heFace[static_cast<std::size_t>(he)];
    const int next = he + 1 == m_heStart[static_cast<std::size_t>(f) + 1]
                         ? m_heStart[static_cast<std::size_t>(f)]
                         : he + 1;
    return m_heFrom[static_cast<std::size_t>(next)];
  }
  // The flags a merged face must agree on: all but the border mark, which
  // is derived from the neighbours.
  std::uint32_t FaceFlags(int f) const {
    return m_faces[f].GetFlags() & ~static_cast<std::uint32_t>(FACE_BORDER);
  }
  int Position(int he) const {
    return he - m_heStart[static_cast<std::size_t>(m_heFace[static_cast<std::size_t>(he)])];
  }
  // True when the faces of he and its twin t use the same channel points at
  // both ends of the edge in every channel (no seam runs along it).
  bool SameChannelPoints(int he, int t) const;

  C3DFaceList& m_faces;
  const C3DPointList& m_points;
  std::vector<CFaceList*> m_channels;
  const int m_faceCount;
  const int m_pointCount;

  std::vector<std::uint8_t> m_eligible;
  std::vector<Normal> m_normals;
  // Half-edges: those of face f are m_heStart[f] .. m_heStart[f + 1] - 1, the
  // k-th running from corner k to corner k + 1. Faces with a corner outside
  // the point list (or fewer than three) have none.
  std::vector<int> m_heStart;
  std::vector<int> m_heFace;
  std::vector<int> m_heFrom;
  std::vector<int> m_twin; // the opposite half-edge of a two-face edge, else kNone

  std::vector<int> m_region;      // per face, kNone when it takes no part
  std::vector<int> m_members;     // faces region by region, first face first
  std::vector<int> m_regionStart; // region r is m_members[start[r] .. start[r + 1])

  // Per point, scratch of the outline walk: the region that last stamped it
  // and the outline half-edge leaving it.
  std::vector<int> m_pointRegion;
  std::vector<int> m_pointOut;

  std::vector<int> m_mergedRegions;
  std::vector<int> m_outlineStart; // outlines (half-edges) of the merged regions, end to end
  std::vector<int> m_outlines;
  int m_refused = 0;
};

bool CMerger::Analyse(double cosLimit, CCancelCheck& cancel) {
  return Classify(cancel) && PairEdges(cancel) && GrowRegions(cosLimit, cancel) &&
         TraceOutlines(cancel);
}

bool CMerger::Classify(CCancelCheck& cancel) {
  const auto nf = static_cast<std::size_t>(m_faceCount);
  m_eligible.assign(nf, 0);
  m_normals.assign(nf, Normal());
  m_heStart.assign(nf + 1, 0);
  // Repeated corners are found with a stamp per point: the face that saw it last.
  std::vector<int> seen(static_cast<std::size_t>(m_pointCount), kNone);
  long long corners = 0;
  for (int f = 0; f < m_faceCount; ++f) {
    if (cancel.Tick())
      return false;
    m_heStart[static_cast<std::size_t>(f)] = static_cast<int>(corners);
    const C3DFace& face = m_faces[f];
    const int n = face.GetSize();
    if (n < 3 || face.IsFlagSet(FACE_INVALID))
      continue;
    bool inRange = true, repeated = false;
    for (int k = 0; k < n && inRange; ++k) {
      const int p = face[k];
      if (p < 0 || p >= m_pointCount) {
        inRange = false;
      } else {
        repeated = repeated || seen[static_cast<std::size_t>(p)] == f;
        seen[static_cast<std::size_t>(p)] = f;
      }
    }
    if (!inRange)
      continue;
    corners += n;
    if (corners > INT_MAX / 2)
      return false; // far beyond any mesh that fits in memory
    bool ok = !repeated && !face.IsFlagSet(FACE_EXCLUDED) &&
              FaceNormal(face, m_points, m_normals[static_cast<std::size_t>(f)]);
    for (const CFaceList* channel : m_channels) {
      const CFace& cf = (*channel)[f];
      ok = ok && cf.GetSize() == n && !cf.IsFlagSet(FACE_EXCLUDED);
    }
    m_eligible[static_cast<std::size_t>(f)] = ok ? 1 : 0;
  }
  m_heStart[nf] = static_cast<int>(corners);

  const auto ne = static_cast<std::size_t>(corners);
  m_heFace.resize(ne);
  m_heFrom.resize(ne);
  for (int f = 0; f < m_faceCount; ++f) {
    const int begin = m_heStart[static_cast<std::size_t>(f)];
    const int end = m_heStart[static_cast<std::size_t>(f) + 1];
    if (begin == end)
      continue;
    const C3DFace& face = m_faces[f];
    for (int he = begin; he < end; ++he) {
      m_heFace[static_cast<std::size_t>(he)] = f;
      m_heFrom[static_cast<std::size_t>(he)] = face[he - begin];
    }
  }
  return true;
}

bool CMerger::PairEdges(CCancelCheck& cancel) {
  const std::size_t ne = m_heFrom.size();
  m_twin.assign(ne, kNone);
  // Bucket the half-edges on the lower point of their edge (counting sort).
  std::vector<int> offset(static_cast<std::size_t>(m_pointCount) + 1, 0);
  std::vector<int> low(ne);
  for (std::size_t he = 0; he < ne; ++he) {
    low[he] = std::min(m_heFrom[he], To(static_cast<int>(he)));
    ++offset[static_cast<std::size_t>(low[he]) + 1];
  }
  for (std::size_t p = 0; p < static_cast<std::size_t>(m_pointCount); ++p)
    offset[p + 1] += offset[p];
  std::vector<int> bucket(ne);
  {
    std::vector<int> fill(offset.begin(), offset.end() - 1);
    for (std::size_t he = 0; he < ne; ++he)
      bucket[static_cast<std::size_t>(fill[static_cast<std::size_t>(low[he])]++)] =
          static_cast<int>(he);
  }
  low.clear();
  low.shrink_to_fit();

  std::vector<std::pair<int, int>> edges; // (higher point, half-edge) of one bucket
  for (int p = 0; p < m_pointCount; ++p) {
    if (cancel.Tick())
      return false;
    const int begin = offset[static_cast<std::size_t>(p)];
    const int end = offset[static_cast<std::size_t>(p) + 1];
    if (end - begin < 2)
      continue;
    edges.clear();
    for (int i = begin; i < end; ++i) {
      const int he = bucket[static_cast<std::size_t>(i)];
      edges.emplace_back(std::max(m_heFrom[static_cast<std::size_t>(he)], To(he)), he);
    }
    std::sort(edges.begin(), edges.end());
    for (std::size_t i = 0; i < edges.size();) {
      std::size_t j = i + 1;
      while (j < edges.size() && edges[j].first == edges[i].first)
        ++j;
      // Exactly two faces, and wound the same way (the edge runs opposite ways).
      if (j - i == 2) {
        const int a = edges[i].second, b = edges[i + 1].second;
        if (m_heFrom[static_cast<std::size_t>(a)] == To(b) &&
            m_heFrom[static_cast<std::size_t>(b)] == To(a) &&
            m_heFrom[static_cast<std::size_t>(a)] != To(a)) {
          m_twin[static_cast<std::size_t>(a)] = b;
          m_twin[static_cast<std::size_t>(b)] = a;
        }
      }
      i = j;
    }
  }
  return true;
}

bool CMerger::SameChannelPoints(int he, int t) const {
  const int f = m_heFace[static_cast<std::size_t>(he)];
  const int g = m_heFace[static_cast<std::size_t>(t)];
  const int k = Position(he), j = Position(t);
  for (const CFaceList* channel : m_channels) {
    const CFace& a = (*channel)[f];
    const CFace& b = (*channel)[g];
    const int k1 = k + 1 == a.GetSize() ? 0 : k + 1;
    const int j1 = j + 1 == b.GetSize() ? 0 : j + 1;
    if (a[k] != b[j1] || a[k1] != b[j])
      return false;
  }
  return true;
}

bool CMerger::GrowRegions(double cosLimit, CCancelCheck& cancel) {
  m_region.assign(static_cast<std::size_t>(m_faceCount), kNone);
  m_members.clear();
  m_regionStart.clear();
  m_members.reserve(static_cast<std::size_t>(m_faceCount));
  for (int seed = 0; seed < m_faceCount; ++seed) {
    if (!m_eligible[static_cast<std::size_t>(seed)] ||
        m_region[static_cast<std::size_t>(seed)] != kNone)
      continue;
    const int r = static_cast<int>(m_regionStart.size());
    const std::size_t first = m_members.size();
    m_regionStart.push_back(static_cast<int>(first));
    const Normal& seedNormal = m_normals[static_cast<std::size_t>(seed)];
    const std::uint32_t material = m_faces[seed].GetMaterialID();
    const std::uint32_t flags = FaceFlags(seed);
    m_region[static_cast<std::size_t>(seed)] = r;
    m_members.push_back(seed);
    // Breadth first: the members list is its own queue.
    for (std::size_t i = first; i < m_members.size(); ++i) {
      if (cancel.Tick())
        return false;
      const int f = m_members[i];
      const Normal& nf = m_normals[static_cast<std::size_t>(f)];
      for (int he = m_heStart[static_cast<std::size_t>(f)];
           he < m_heStart[static_cast<std::size_t>(f) + 1]; ++he) {
        const int t = m_twin[static_cast<std::size_t>(he)];
        if (t == kNone)
          continue;
        const int g = m_heFace[static_cast<std::size_t>(t)];
        if (m_region[static_cast<std::size_t>(g)] != kNone ||
            !m_eligible[static_cast<std::size_t>(g)] || m_faces[g].GetMaterialID() != material ||
            FaceFlags(g) != flags)
          continue;
        const Normal& ng = m_normals[static_cast<std::size_t>(g)];
        if (ng.Dot(nf) < cosLimit || ng.Dot(seedNormal) < cosLimit || !SameChannelPoints(he, t))
          continue;
        m_region[static_cast<std::size_t>(g)] = r;
        m_members.push_back(g);
      }
    }
  }
  m_regionStart.push_back(static_cast<int>(m_members.size()));
  return true;
}

// The outline of region r as half-edges in walking order; false when it is
// not one simple loop. Uses m_pointRegion/m_pointOut as scratch, stamped by
// region so that they never need clearing.
bool CMerger::TraceOutline(int r, std::vector<int>& outline) {
  outline.clear();
  int boundary = 0, start = kNone;
  for (int i = m_regionStart[static_cast<std::size_t>(r)];
       i < m_regionStart[static_cast<std::size_t>(r) + 1]; ++i) {
    const int f = m_members[static_cast<std::size_t>(i)];
    for (int he = m_heStart[static_cast<std::size_t>(f)];
         he < m_heStart[static_cast<std::size_t>(f) + 1]; ++he) {
      const int t = m_twin[static_cast<std::size_t>(he)];
      // An edge between two faces of the region that a seam runs along stays
      // an edge of the outline on both sides: the outline then meets itself.
      if (t != kNone &&
          m_region[static_cast<std::size_t>(m_heFace[static_cast<std::size_t>(t)])] == r &&
          SameChannelPoints(he, t))
        continue;
      const auto from = static_cast<std::size_t>(m_heFrom[static_cast<std::size_t>(he)]);
      if (m_pointRegion[from] == r)
        return false; // the outline passes this point twice
      m_pointRegion[from] = r;
      m_pointOut[from] = he;
      if (start == kNone)
        start = he;
      ++boundary;
    }
  }
  if (boundary < 3)
    return false;
  int he = start;
  do {
    outline.push_back(he);
    const auto to = static_cast<std::size_t>(To(he));
    if (m_pointRegion[to] != r || static_cast<int>(outline.size()) > boundary)
      return false;
    he = m_pointOut[to];
  } while (he != start);
  // Fewer edges walked than the region has: a second loop (a hole).
  return static_cast<int>(outline.size()) == boundary;
}

bool CMerger::TraceOutlines(CCancelCheck& cancel) {
  m_pointRegion.assign(static_cast<std::size_t>(m_pointCount), kNone);
  m_pointOut.assign(static_cast<std::size_t>(m_pointCount), kNone);
  m_mergedRegions.clear();
  m_outlineStart.assign(1, 0);
  m_outlines.clear();
  std::vector<int> outline;
  const int regions = static_cast<int>(m_regionStart.size()) - 1;
  for (int r = 0; r < regions; ++r) {
    const int size =
        m_regionStart[static_cast<std::size_t>(r) + 1] - m_regionStart[static_cast<std::size_t>(r)];
    if (cancel.Advance(static_cast<std::uint64_t>(size)))
      return false;
    if (size < 2)
      continue;
    if (!TraceOutline(r, outline)) {
      ++m_refused;
      continue;
    }
    m_mergedRegions.push_back(r);
    m_outlines.insert(m_outlines.end(), outline.begin(), outline.end());
    m_outlineStart.push_back(static_cast<int>(m_outlines.size()));
  }
  return true;
}

int CMerger::Apply() {
  int replaced = 0;
  std::vector<int> corners;
  std::vector<std::vector<int>> channelCorners(m_channels.size());
  for (std::size_t m = 0; m < m_mergedRegions.size(); ++m) {
    const int r = m_mergedRegions[m];
    const int begin = m_outlineStart[m], end = m_outlineStart[m + 1];
    // Read every corner before the first face is rewritten: the outline runs
    // through it too.
    corners.clear();
    for (auto& c : channelCorners)
      c.clear();
    for (int i = begin; i < end; ++i) {
      const int he = m_outlines[static_cast<std::size_t>(i)];
      corners.push_back(m_heFrom[static_cast<std::size_t>(he)]);
      const int f = m_heFace[static_cast<std::size_t>(he)], k = Position(he);
      for (std::size_t c = 0; c < m_channels.size(); ++c)
        channelCorners[c].push_back((*m_channels[c])[f][k]);
    }
    const int n = static_cast<int>(corners.size());
    const int first = m_regionStart[static_cast<std::size_t>(r)];
    const int seed = m_members[static_cast<std::size_t>(first)];
    C3DFace& face = m_faces[seed];
    face.SetSize(n);
    std::copy(corners.begin(), corners.end(), face.GetData());
    for (std::size_t c = 0; c < m_channels.size(); ++c) {
      CFace& cf = (*m_channels[c])[seed];
      cf.SetSize(n);
      std::copy(channelCorners[c].begin(), channelCorners[c].end(), cf.GetData());
    }
    const int last = m_regionStart[static_cast<std::size_t>(r) + 1];
    for (int i = first + 1; i < last; ++i)
      m_faces[m_members[static_cast<std::size_t>(i)]].SetFlag(FACE_INVALID, 1);
    replaced += last - first;
  }
  return replaced;
}

// The channel face lists that run parallel to the mesh faces.
std::vector<CFaceList*> ParallelChannels(const C3DBaseObject& object, int faceCount) {
  std::vector<CFaceList*> lists;
  if (const CDependentChannels* channels = object.GetChannels())
    for (int c = 0; c < channels->GetSize(); ++c) {
      const CChannel* channel = channels->GetChannel(c);
      CFaceList* faces = channel ? channel->GetFaceList() : nullptr;
      if (faces && faces->GetSize() == faceCount)
        lists.push_back(faces);
    }
  return lists;
}

} // namespace

int MergeCoplanarObject(C3DBaseObject& object, float angleDegrees, CMergeCoplanarStats* stats) {
  CMergeCoplanarStats local;
  CMergeCoplanarStats& st = stats ? *stats : local;
  st = CMergeCoplanarStats();
  C3DFaceList* faces = object.GetFaceList();
  C3DPointList* points = object.GetPointList();
  if (!faces || !points || faces->GetSize() < 2 || !(angleDegrees >= 0.0f))
    return 0;
  const double angle =
      std::min(static_cast<double>(angleDegrees), 180.0) * 3.14159265358979 / 180.0;
  // Normals of one plane computed from different corners differ in their
  // last bits: a little slack keeps angle 0 meaning "coplanar".
  const double cosLimit = std::cos(angle) - 1e-6;

  CMerger merger(*faces, *points, ParallelChannels(object, faces->GetSize()));
  CCancelCheck cancel(static_cast<std::uint64_t>(faces->GetSize()) * 3);
  const bool analysed = merger.Analyse(cosLimit, cancel);
  ClearProgress();
  if (!analysed) {
    st.cancelled = cancel.IsCancelled();
    return 0;
  }
  st.refused = merger.Refused();
  if (merger.Merged() == 0)
    return 0;
  st.regions = merger.Merged();
  st.faces = merger.Apply();

  const int facesBefore = faces->GetSize(), pointsBefore = points->GetSize();
  faces->SetFlag(FL_CHANGED, 1);
  object.Clean();
  object.InvalidateBoundingBoxes();
  st.removedFaces = facesBefore - object.GetFaceNbr();
  st.removedPoints = pointsBefore - object.GetPointNbr();
  return st.removedFaces;
}

int MergeCoplanarScene(C3DScene& scene, float angleDegrees, CMergeCoplanarReport& report) {
  report = CMergeCoplanarReport();
  std::unordered_set<const C3DBaseObject*> seen; // membership only, never iterated
  C3DSceneNode* cursor = scene.GetFirstNode(nullptr);
  while (cursor) {
    const C3DBaseObject* unused = nullptr;
    C3DSceneNode* node = scene.GetNextNode(unused, cursor, nullptr);
    C3DBaseObject* object = node ? node->GetBaseObject() : nullptr;
    if (!object || object->GetKindOf() != OBJECT_POLYGONAL || !seen.insert(object).second)
      continue;
    CMergeCoplanarStats stats;
    const int removed = MergeCoplanarObject(*object, angleDegrees, &stats);
    if (stats.cancelled) {
      report.cancelled = true;
      break;
    }
    if (removed > 0)
      ++report.objects;
    report.faces += removed;
    report.regions += stats.regions;
  }
  return report.objects;
}

} // namespace meshcore

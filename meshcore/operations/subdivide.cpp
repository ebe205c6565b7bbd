#include "meshcore/operations/subdivide.h"

#include "meshcore/geometry/point_4d.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/operations/detail/progress_scope.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/platform/memory.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/object_creator.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <memory>
#include <new>
#include <system_error>
#include <thread>
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

// The working arrays of a pass hold millions of entries that are written
// before they are read: they take huge pages (a page fault per 4 KB costs as
// much as the pass itself) and are not zeroed on resize. Blocks from kHugeFrom
// up get the room the advice asks for: only the pages written are backed.
inline constexpr std::size_t kHugeFrom = std::size_t(1) << 20, kHugeRoom = std::size_t(8) << 20;
template <class T> struct FlatAllocator {
  using value_type = T;
  FlatAllocator() = default;
  template <class U> FlatAllocator(const FlatAllocator<U>&) {}
  T* allocate(std::size_t n) {
    const std::size_t bytes = n * sizeof(T);
    const std::size_t room = bytes >= kHugeFrom && bytes < kHugeRoom ? kHugeRoom : bytes;
    void* p = std::malloc(room);
    if (!p)
      throw std::bad_alloc();
    AdviseLargeBlock(p, room);
    return static_cast<T*>(p);
  }
  void deallocate(T* p, std::size_t) { std::free(p); }
  template <class U> void construct(U* p) { ::new (static_cast<void*>(p)) U; }
  template <class U, class... Args> void construct(U* p, Args&&... args) {
    ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
  }
  template <class U> bool operator==(const FlatAllocator<U>&) const { return true; }
};
template <class T> using Array = std::vector<T, FlatAllocator<T>>;

// The edges of a set of faces of K corners each, given as a flat index array.
// Edges are numbered in the order in which faces first meet them.
struct EdgeTable {
  Array<int> faceEdge; // edge of side k (corner k to k + 1) of face r, at r * K + k
  Array<int> a, b;     // ends, smaller first
  Array<int> count;    // number of faces using the edge
  Array<int> f1, f2;   // the first two of those faces
  Array<int> o1,
      o2; // the corner after the edge in those faces (a triangle's opposite corner)

  int Size() const { return static_cast<int>(count.size()); }
};

// use[r] == 0 leaves face r out (its sides get edge -1). Indices are known to
// lie in 0..pointCount-1 for the faces used.
// False when the thread was asked to stop (the table is then incomplete).
bool BuildEdges(const Array<int>& idx, const Array<char>& use, int K, int pointCount, EdgeTable& t,
                CCancelCheck& cancel) {
  const std::size_t faces = use.size();
  // Each edge is filed under its smaller end, whose few edges are then scanned:
  // cheaper than hashing, and linear.
  Array<int> start(static_cast<std::size_t>(pointCount) + 1, 0);
  for (std::size_t r = 0; r < faces; ++r)
    if (use[r])
      for (int k = 0; k < K; ++k) {
        const int i = idx[r * K + k], j = idx[r * K + (k + 1) % K];
        ++start[static_cast<std::size_t>(std::min(i, j)) + 1];
      }
  for (int p = 0; p < pointCount; ++p)
    start[static_cast<std::size_t>(p) + 1] += start[static_cast<std::size_t>(p)];
  const std::size_t total = static_cast<std::size_t>(start[static_cast<std::size_t>(pointCount)]);
  Array<int> other(total), edgeOf(total), used(static_cast<std::size_t>(pointCount), 0);

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

  Array<int> idx(nKept * K, 0);
  Array<char> use(nKept, 0);
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

// An edge of a level: its ends (smaller first), the number of faces using it
// and, for the first two of them, the opposite corner (triangles) or the face
// (quadrilaterals). One record, as a pass reads them together.
struct LevelEdge {
  int a, b, count, p1, p2;
};

// One level of the mesh between passes, as flat arrays: its faces of K
// corners, its points, the edge graph and the neighbour sums the next pass
// reads. Only the last pass writes point and face records.
struct Level {
  int faces = 0, points = 0, edges = 0;
  Array<int> corners;         // corner k of face r at r * K + k
  Array<V3> pos;              // per point
  Array<std::uint32_t> flags; // per point; vertex points carry them on
  Array<int> origin;          // control point of a vertex point, else -1; empty
                              // when no control point has custom data to carry
  Array<char> wasBorder;      // per face: an ancestor face was on the border
  Array<int> faceEdge;        // edge of side k of face r at r * K + k
  Array<LevelEdge> edge;
  Array<int> nEdge, nDiag;    // per point: edge and diagonal neighbours
  Array<V3> sumEdge, sumDiag; // and their sums
  Array<V3> centre;           // per face (quadrilaterals)
};

// The faces a pass works on and what their results inherit from them.
struct Control {
  const C3DPointList* points = nullptr;
  const C3DFaceList* faceList = nullptr;
  std::vector<int> kept;          // faces of K corners with valid indices
  Array<std::uint32_t> faceFlags; // per kept face
  Array<std::uint32_t> material;  // per kept face
  bool faceData = false;          // some kept face has custom data
};

// Edge and diagonal sums of a level whose edge graph was built by BuildEdges:
// edges in the order faces first meet them, diagonals face after face.
void SumNeighbours(Level& L, int K) {
  L.nEdge.assign(static_cast<std::size_t>(L.points), 0);
  L.sumEdge.assign(static_cast<std::size_t>(L.points), V3{0, 0, 0});
  for (int e = 0; e < L.edges; ++e) {
    const std::size_t a = static_cast<std::size_t>(L.edge[static_cast<std::size_t>(e)].a),
                      b = static_cast<std::size_t>(L.edge[static_cast<std::size_t>(e)].b);
    if (a == b)
      continue;
    ++L.nEdge[a];
    ++L.nEdge[b];
    L.sumEdge[a] = L.sumEdge[a] + L.pos[b];
    L.sumEdge[b] = L.sumEdge[b] + L.pos[a];
  }
  if (K != 4)
    return;
  L.nDiag.assign(static_cast<std::size_t>(L.points), 0);
  L.sumDiag.assign(static_cast<std::size_t>(L.points), V3{0, 0, 0});
  L.centre.resize(static_cast<std::size_t>(L.faces));
  for (std::size_t r = 0; r < static_cast<std::size_t>(L.faces); ++r) {
    const int* q = &L.corners[r * 4];
    V3 s{0, 0, 0};
    for (int k = 0; k < 4; ++k) {
      const std::size_t v = static_cast<std::size_t>(q[k]);
      ++L.nDiag[v];
      L.sumDiag[v] = L.sumDiag[v] + L.pos[static_cast<std::size_t>(q[(k + 2) % 4])];
      s = s + L.pos[v];
    }
    L.centre[r] = 0.25f * s;
  }
}

// The edge graph of L's faces by searching (any mesh), then the sums.
bool SearchEdges(Level& L, int K, CCancelCheck& cancel) {
  EdgeTable t;
  if (!BuildEdges(L.corners, Array<char>(static_cast<std::size_t>(L.faces), 1), K, L.points, t,
                  cancel))
    return false;
  L.edges = t.Size();
  L.faceEdge = std::move(t.faceEdge);
  L.edge.resize(static_cast<std::size_t>(L.edges));
  const Array<int>& p1 = K == 3 ? t.o1 : t.f1;
  const Array<int>& p2 = K == 3 ? t.o2 : t.f2;
  for (std::size_t e = 0; e < L.edge.size(); ++e)
    L.edge[e] = {t.a[e], t.b[e], t.count[e], p1[e], p2[e]};
  SumNeighbours(L, K);
  return true;
}

// The faces of K corners of object as level 0. False when the thread was asked to stop.
bool LoadControl(const C3DBaseObject& object, int K, Control& ctl, Level& L, int& used,
                 CCancelCheck& cancel) {
  const C3DPointList& points = *object.GetPointList();
  const C3DFaceList& faces = *object.GetFaceList();
  const int nPoints = points.GetSize();
  ctl.points = &points;
  ctl.kept.reserve(static_cast<std::size_t>(faces.GetSize()));
  for (int f = 0; f < faces.GetSize(); ++f) {
    const C3DFace& face = faces[f];
    bool ok = face.GetSize() == K;
    for (int k = 0; ok && k < K; ++k)
      ok = face[k] >= 0 && face[k] < nPoints;
    if (!ok)
      continue;
    ctl.kept.push_back(f);
    ctl.faceFlags.push_back(face.GetFlags());
    ctl.material.push_back(face.GetMaterialID());
    ctl.faceData = ctl.faceData || face.GetCustomData();
  }
  L.faces = static_cast<int>(ctl.kept.size());
  L.points = nPoints;
  L.corners.resize(static_cast<std::size_t>(L.faces) * K);
  Array<char> isUsed(static_cast<std::size_t>(nPoints), 0);
  for (std::size_t r = 0; r < ctl.kept.size(); ++r)
    for (int k = 0; k < K; ++k) {
      const int v = faces[ctl.kept[r]][k];
      L.corners[r * K + k] = v;
      used += !isUsed[static_cast<std::size_t>(v)];
      isUsed[static_cast<std::size_t>(v)] = 1;
    }
  L.pos.resize(static_cast<std::size_t>(nPoints));
  L.flags.resize(static_cast<std::size_t>(nPoints));
  bool pointData = false;
  for (int p = 0; p < nPoints; ++p) {
    const C3DPoint& pt = points[p];
    L.pos[static_cast<std::size_t>(p)] = V3{pt.x, pt.y, pt.z};
    L.flags[static_cast<std::size_t>(p)] = pt.GetFlags();
    pointData = pointData || pt.GetCustomData();
  }
  if (pointData) {
    L.origin.resize(static_cast<std::size_t>(nPoints));
    for (int p = 0; p < nPoints; ++p)
      L.origin[static_cast<std::size_t>(p)] = p;
  }
  L.wasBorder.assign(static_cast<std::size_t>(L.faces), 0);
  return SearchEdges(L, K, cancel);
}

// Whether the edge graph of every later level follows from the one before
// without searching: it does when no face repeats a corner and, for
// triangles, no two faces share two edges (nor more than two faces an edge,
// which keeps the test simple).
bool CanDeriveEdges(const Level& L, int K) {
  for (std::size_t r = 0; r < static_cast<std::size_t>(L.faces); ++r)
    for (int i = 0; i < K; ++i)
      for (int j = i + 1; j < K; ++j)
        if (L.corners[r * K + i] == L.corners[r * K + j])
          return false;
  if (K == 3)
    for (std::size_t e = 0; e < static_cast<std::size_t>(L.edges); ++e)
      if (L.edge[e].count > 2 || (L.edge[e].count == 2 && L.edge[e].p1 == L.edge[e].p2))
        return false;
  return true;
}

// Sizes the arrays of the level a pass over nFaces faces of K corners makes
// (bound points at most, newEdges edges), without writing them.
template <int K>
void SizeLevel(Level& L, std::size_t nFaces, std::size_t bound, std::size_t newEdges,
               bool carryOrigin, bool derive) {
  L.corners.resize(4 * nFaces * K);
  L.wasBorder.resize(4 * nFaces);
  L.pos.resize(bound);
  L.flags.resize(bound);
  if (carryOrigin)
    L.origin.resize(bound);
  if (!derive)
    return;
  L.faceEdge.resize(4 * nFaces * K);
  L.edge.resize(newEdges);
  L.nEdge.resize(bound);
  L.sumEdge.resize(bound);
  if (K == 4) {
    L.nDiag.resize(bound);
    L.sumDiag.resize(bound);
    L.centre.resize(4 * nFaces);
  }
}

// A block of memory to back before it is written.
struct Block {
  void* p;
  std::size_t bytes;
};
template <class T> void AddBlock(std::vector<Block>& blocks, Array<T>& a) {
  if (!a.empty())
    blocks.push_back({a.data(), a.size() * sizeof(T)});
}
std::vector<Block> BlocksOf(Level& L) {
  std::vector<Block> blocks;
  AddBlock(blocks, L.corners);
  AddBlock(blocks, L.pos);
  AddBlock(blocks, L.flags);
  AddBlock(blocks, L.origin);
  AddBlock(blocks, L.wasBorder);
  AddBlock(blocks, L.faceEdge);
  AddBlock(blocks, L.edge);
  AddBlock(blocks, L.nEdge);
  AddBlock(blocks, L.nDiag);
  AddBlock(blocks, L.sumEdge);
  AddBlock(blocks, L.sumDiag);
  AddBlock(blocks, L.centre);
  return blocks;
}

// The records of the last pass, constructed chunk by chunk ahead of the pass
// that fills them. Constructing them is mostly first touches of fresh pages,
// which cost as much as the filling, so a second thread constructs chunks
// from the end backwards while the earlier passes run, and the last pass
// constructs the chunks it reaches from the front itself: the two meet once,
// and the pass waits at most for the one chunk the other thread is on. The
// records are the same whichever thread constructs them.
class RecordFiller {
public:
  // Lists smaller than this are constructed as they always were.
  static constexpr long long kFillerFrom = 8LL << 20;
  // Records of about this many bytes make a chunk.
  static constexpr std::size_t kChunkBytes = std::size_t(1) << 20;

  // With a helper thread, the helper first backs the blocks of prefault (the
  // largest level before the last, whose first touches would otherwise fall
  // on the pass that makes it).
  RecordFiller(C3DPointList& points, int nPoints, C3DFaceList& faces, int nFaces, bool helper,
               std::vector<Block> prefault)
      : m_points(points), m_faces(faces), m_nPoints(nPoints), m_nFaces(nFaces) {
    m_pointBase = static_cast<unsigned char*>(points.AllocateUnconstructed(nPoints));
    m_faceBase = static_cast<unsigned char*>(faces.AllocateUnconstructed(nFaces));
    if (!m_pointBase || !m_faceBase)
      throw std::bad_alloc(); // new lists and positive counts: cannot happen
    const std::size_t bytes = static_cast<std::size_t>(nPoints) * points.GetRecordSize() +
                              static_cast<std::size_t>(nFaces) * faces.GetRecordSize();
    m_chunks = static_cast<int>(std::max<std::size_t>(1, bytes / kChunkBytes));
    m_state = std::make_unique<std::atomic<int>[]>(static_cast<std::size_t>(m_chunks));
    for (int c = 0; c < m_chunks; ++c)
      m_state[static_cast<std::size_t>(c)].store(kFree, std::memory_order_relaxed);
    if (helper) {
      try {
        m_thread = std::thread([this, blocks = std::move(prefault)] {
          // Slice by slice across all blocks, as a pass fills them together.
          constexpr std::size_t kSlices = 16;
          for (std::size_t i = 0; i < kSlices && !m_stop.load(std::memory_order_relaxed); ++i)
            for (const Block& b : blocks) {
              const std::size_t from = b.bytes * i / kSlices, to = b.bytes * (i + 1) / kSlices;
              PrefaultBlock(static_cast<unsigned char*>(b.p) + from, to - from);
            }
          for (int c = m_chunks - 1; c >= 0 && !m_stop.load(std::memory_order_relaxed); --c)
            if (!Claim(c))
              break; // met the pass coming from the front
        });
      } catch (const std::system_error&) {
        // No second thread: the last pass constructs every chunk itself.
      }
    }
  }
  RecordFiller(const RecordFiller&) = delete;
  RecordFiller& operator=(const RecordFiller&) = delete;
  ~RecordFiller() { Abandon(); }

  // Unless finished, stops: the records constructed so far are destroyed and
  // both lists are left empty (a cancel or an error).
  void Abandon() {
    if (m_finished)
      return;
    m_finished = true;
    m_stop.store(true, std::memory_order_relaxed);
    if (m_thread.joinable())
      m_thread.join();
    for (int c = 0; c < m_chunks; ++c)
      if (m_state[static_cast<std::size_t>(c)].load(std::memory_order_relaxed) == kDone) {
        m_points.DestructElements(PointAt(PointStart(c)), PointStart(c + 1) - PointStart(c));
        m_faces.DestructElements(FaceAt(FaceStart(c)), FaceStart(c + 1) - FaceStart(c));
      }
  }

  bool Fits(std::size_t points, std::size_t faces) const {
    return points == static_cast<std::size_t>(m_nPoints) &&
           faces == static_cast<std::size_t>(m_nFaces);
  }
  // Point i and face f may be written once these return.
  void NeedPoint(int i) {
    while (i >= m_pointsReady && m_have < m_chunks)
      Next();
  }
  void NeedFace(int f) {
    while (f >= m_facesReady && m_have < m_chunks)
      Next();
  }
  // Every record constructed: the lists take them as their elements.
  void Finish() {
    while (m_have < m_chunks)
      Next();
    if (m_thread.joinable())
      m_thread.join();
    m_points.AdoptConstructed(m_nPoints);
    m_faces.AdoptConstructed(m_nFaces);
    m_finished = true;
  }

private:
  enum : int { kFree, kClaimed, kDone };

  int PointStart(int c) const {
    return static_cast<int>(static_cast<long long>(m_nPoints) * c / m_chunks);
  }
  int FaceStart(int c) const {
    return static_cast<int>(static_cast<long long>(m_nFaces) * c / m_chunks);
  }
  void* PointAt(int i) const {
    return m_pointBase + static_cast<std::size_t>(i) * m_points.GetRecordSize();
  }
  void* FaceAt(int i) const {
    return m_faceBase + static_cast<std::size_t>(i) * m_faces.GetRecordSize();
  }
  // Constructs chunk c unless the other thread has taken it.
  bool Claim(int c) {
    std::atomic<int>& state = m_state[static_cast<std::size_t>(c)];
    int expected = kFree;
    if (!state.compare_exchange_strong(expected, kClaimed, std::memory_order_relaxed))
      return false;
    m_points.ConstructElements(PointAt(PointStart(c)), PointStart(c + 1) - PointStart(c));
    m_faces.ConstructElements(FaceAt(FaceStart(c)), FaceStart(c + 1) - FaceStart(c));
    state.store(kDone, std::memory_order_release);
    state.notify_one();
    return true;
  }
  // The next chunk from the front, ready for this thread.
  void Next() {
    const int c = m_have;
    if (!Claim(c)) {
      std::atomic<int>& state = m_state[static_cast<std::size_t>(c)];
      for (int s = state.load(std::memory_order_acquire); s != kDone;
           s = state.load(std::memory_order_acquire))
        state.wait(s, std::memory_order_acquire);
    }
    m_have = c + 1;
    m_pointsReady = PointStart(m_have);
    m_facesReady = FaceStart(m_have);
  }

  C3DPointList& m_points;
  C3DFaceList& m_faces;
  const int m_nPoints, m_nFaces;
  unsigned char* m_pointBase = nullptr;
  unsigned char* m_faceBase = nullptr;
  int m_chunks = 1;
  std::unique_ptr<std::atomic<int>[]> m_state; // per chunk
  std::atomic<bool> m_stop{false};
  std::thread m_thread;
  // The pass's view: the first m_have chunks are ready, and with them the
  // points below m_pointsReady and the faces below m_facesReady.
  int m_have = 0, m_pointsReady = 0, m_facesReady = 0;
  bool m_finished = false;
};

// Where a pass puts its result: the next level's flat arrays, or (the last
// pass) new point and face records.
struct Output {
  Level* next = nullptr;
  bool derive = false; // next's edge graph and sums are built along the way
  C3DPointList* points = nullptr;
  C3DFaceList* faces = nullptr;
  RecordFiller* filler = nullptr; // when set, constructs the records of points and faces
  int levelIndex = 0; // of the pass's input: its face r comes from kept face r >> 2 * levelIndex
};

// One Loop (K = 3) or Catmull-Clark (K = 4) pass from in. False when the
// thread was asked to stop.
template <int K> bool RunPass(Level& in, const Control& ctl, Output& out, CCancelCheck& cancel) {
  // Border marking, as the point and face lists do it from an edge graph.
  for (std::size_t e = 0; e < static_cast<std::size_t>(in.edges); ++e) {
    const LevelEdge& edge = in.edge[e];
    const std::uint32_t mark = edge.count == 1 ? PT_BORDER : PT_INNER_EDGE;
    in.flags[static_cast<std::size_t>(edge.a)] |= mark;
    in.flags[static_cast<std::size_t>(edge.b)] |= mark;
  }

  auto vertexRule = [&](std::size_t i) -> V3 {
    const int n = in.nEdge[i];
    if ((in.flags[i] & PT_BORDER) || n == 0)
      return in.pos[i];
    const float fn = static_cast<float>(n);
    if constexpr (K == 3) {
      const float beta = n == 3 ? 0.1875f : 0.375f / fn;
      return (1.0f - fn * beta) * in.pos[i] + beta * in.sumEdge[i];
    } else {
      if (in.nDiag[i] != n)
        return in.pos[i]; // not a closed fan of quadrilaterals
      return (1.0f - 1.5f / fn - 0.25f / fn) * in.pos[i] + (1.5f / fn) / fn * in.sumEdge[i] +
             (0.25f / fn) / fn * in.sumDiag[i];
    }
  };
  auto edgeRule = [&](std::size_t e) -> V3 {
    const LevelEdge& edge = in.edge[e];
    const V3 a = in.pos[static_cast<std::size_t>(edge.a)],
             b = in.pos[static_cast<std::size_t>(edge.b)];
    if (edge.count != 2)
      return 0.5f * (a + b);
    if constexpr (K == 3)
      return 0.375f * (a + b) + 0.125f * (in.pos[static_cast<std::size_t>(edge.p1)] +
                                          in.pos[static_cast<std::size_t>(edge.p2)]);
    else
      return 0.25f * (a + b + in.centre[static_cast<std::size_t>(edge.p1)] +
                      in.centre[static_cast<std::size_t>(edge.p2)]);
  };

  const std::size_t nFaces = static_cast<std::size_t>(in.faces);
  const std::size_t bound = static_cast<std::size_t>(in.points) +
                            static_cast<std::size_t>(in.edges) + (K == 4 ? nFaces : 0);
  const std::size_t newEdges = 2 * static_cast<std::size_t>(in.edges) + K * nFaces;
  Level* nx = out.next;
  const bool carryOrigin = !in.origin.empty();
  if (nx) {
    nx->faces = static_cast<int>(4 * nFaces);
    SizeLevel<K>(*nx, nFaces, bound, newEdges, carryOrigin, out.derive);
    if (out.derive) {
      nx->edges = static_cast<int>(newEdges);
      std::fill(nx->edge.begin(), nx->edge.end(), LevelEdge{0, 0, 0, 0, 0});
      std::fill(nx->nEdge.begin(), nx->nEdge.end(), 0);
      std::fill(nx->sumEdge.begin(), nx->sumEdge.end(), V3{0, 0, 0});
      if (K == 4) {
        std::fill(nx->nDiag.begin(), nx->nDiag.end(), 0);
        std::fill(nx->sumDiag.begin(), nx->sumDiag.end(), V3{0, 0, 0});
      }
    }
  } else if (out.filler && !out.filler->Fits(bound, 4 * nFaces)) {
    out.filler->Abandon(); // not the planned last pass (cannot happen)
    out.filler = nullptr;
  }
  RecordFiller* filler = nx ? nullptr : out.filler;
  if (!nx && !filler) {
    out.points->SetSize(static_cast<int>(bound));
    out.faces->SetSize(static_cast<int>(4 * nFaces));
  }

  Array<int> oldToNew(static_cast<std::size_t>(in.points), -1);
  Array<int> edgeNew(static_cast<std::size_t>(in.edges), -1);
  int next = 0;
  // A new point of the next level, or its record in the last pass.
  auto emit = [&](V3 p, std::uint32_t flags, int origin) {
    const std::size_t to = static_cast<std::size_t>(next++);
    if (nx) {
      nx->pos[to] = p;
      nx->flags[to] = flags;
      if (carryOrigin)
        nx->origin[to] = origin;
      return;
    }
    if (filler)
      filler->NeedPoint(static_cast<int>(to));
    C3DPoint& d = (*out.points)[static_cast<int>(to)];
    if (origin >= 0)
      d = (*ctl.points)[origin]; // custom data comes along
    d.SetFlags(flags);
    d.x = p.x;
    d.y = p.y;
    d.z = p.z;
  };
  // Files side k of new face f (corners q) under edge e of the next level,
  // and adds the edge's ends to each other's sums when it is new.
  auto file = [&](std::size_t f, const int* q, int k, int e) {
    const std::size_t i = static_cast<std::size_t>(e);
    nx->faceEdge[f * K + static_cast<std::size_t>(k)] = e;
    LevelEdge& edge = nx->edge[i];
    const int c = ++edge.count;
    const int other = K == 3 ? q[(k + 2) % K] : static_cast<int>(f);
    if (c == 1) {
      const int u = q[k], v = q[(k + 1) % K];
      const int lo = std::min(u, v), hi = std::max(u, v);
      edge.a = lo;
      edge.b = hi;
      edge.p1 = other;
      const std::size_t l = static_cast<std::size_t>(lo), h = static_cast<std::size_t>(hi);
      ++nx->nEdge[l];
      ++nx->nEdge[h];
      nx->sumEdge[l] = nx->sumEdge[l] + nx->pos[h];
      nx->sumEdge[h] = nx->sumEdge[h] + nx->pos[l];
    } else if (c == 2) {
      edge.p2 = other;
    }
  };

  const int shift = 2 * out.levelIndex;
  for (std::size_t r = 0; r < nFaces; ++r) {
    if (cancel.Tick())
      return false;
    const int* c = &in.corners[r * K];
    const int* E = &in.faceEdge[r * K];
    bool border = in.wasBorder[r] != 0;
    for (int k = 0; k < K; ++k)
      border = border || in.edge[static_cast<std::size_t>(E[k])].count == 1;
    int nc[K], ne[K];
    for (int k = 0; k < K; ++k) {
      const std::size_t v = static_cast<std::size_t>(c[k]);
      int& to = oldToNew[v];
      if (to < 0) {
        to = next;
        emit(vertexRule(v), in.flags[v], carryOrigin ? in.origin[v] : -1);
      }
      nc[k] = to;
    }
    for (int k = 0; k < K; ++k) {
      int& to = edgeNew[static_cast<std::size_t>(E[k])];
      if (to < 0) {
        to = next;
        emit(edgeRule(static_cast<std::size_t>(E[k])), 0, -1);
      }
      ne[k] = to;
    }
    int fp = 0;
    if constexpr (K == 4) {
      fp = next;
      emit(in.centre[r], 0, -1);
    }
    // The four new faces: triangles (c0, e0, e2), (c1, e1, e0), (c2, e2, e1),
    // (e0, e1, e2); quadrilaterals (ck, ek, face point, ek-1).
    int q[4][K];
    for (int j = 0; j < K; ++j) {
      const int prev = ne[(j + K - 1) % K];
      if constexpr (K == 3) {
        q[j][0] = nc[j];
        q[j][1] = ne[j];
        q[j][2] = prev;
      } else {
        q[j][0] = nc[j];
        q[j][1] = ne[j];
        q[j][2] = fp;
        q[j][3] = prev;
      }
    }
    if constexpr (K == 3) {
      q[3][0] = ne[0];
      q[3][1] = ne[1];
      q[3][2] = ne[2];
    }
    const std::size_t f0 = 4 * r;
    if (nx) {
      for (int j = 0; j < 4; ++j) {
        std::copy(q[j], q[j] + K, &nx->corners[(f0 + j) * K]);
        nx->wasBorder[f0 + j] = border;
      }
      if (out.derive) {
        // Each old edge splits in two halves, numbered after the edge (the
        // half at its smaller end first); then each face's inner edges.
        auto half = [&](int k, int corner) {
          const std::size_t e = static_cast<std::size_t>(E[k]);
          return static_cast<int>(2 * e) + (corner == in.edge[e].a ? 0 : 1);
        };
        const int inner = 2 * in.edges + K * static_cast<int>(r);
        for (int j = 0; j < K; ++j) {
          const int prevSide = (j + K - 1) % K;
          file(f0 + j, q[j], 0, half(j, c[j]));
          file(f0 + j, q[j], 1, inner + j);
          if constexpr (K == 3) {
            file(f0 + j, q[j], 2, half(prevSide, c[j]));
          } else {
            file(f0 + j, q[j], 2, inner + prevSide);
            file(f0 + j, q[j], 3, half(prevSide, c[j]));
          }
        }
        if constexpr (K == 3) {
          file(f0 + 3, q[3], 0, inner + 1);
          file(f0 + 3, q[3], 1, inner + 2);
          file(f0 + 3, q[3], 2, inner);
        } else {
          for (int j = 0; j < 4; ++j) {
            V3 s{0, 0, 0};
            for (int k = 0; k < 4; ++k) {
              const std::size_t v = static_cast<std::size_t>(q[j][k]);
              ++nx->nDiag[v];
              nx->sumDiag[v] =
                  nx->sumDiag[v] + nx->pos[static_cast<std::size_t>(q[j][(k + 2) % 4])];
              s = s + nx->pos[v];
            }
            nx->centre[f0 + j] = 0.25f * s;
          }
        }
      }
    } else {
      const std::size_t kept = r >> shift;
      if (filler)
        filler->NeedFace(static_cast<int>(f0 + 3));
      if (f0 + 64 < 4 * nFaces)
        for (int j = 0; j < 4; ++j)
          __builtin_prefetch(&(*out.faces)[static_cast<int>(f0 + 64) + j], 1);
      const std::uint32_t flags = ctl.faceFlags[kept] | (border ? FACE_BORDER : 0u);
      const C3DFace* source = ctl.faceData ? &(*ctl.faceList)[ctl.kept[kept]] : nullptr;
      for (int j = 0; j < 4; ++j) {
        C3DFace& face = (*out.faces)[static_cast<int>(f0) + j];
        if (source && source->GetCustomData())
          face.InheritFlags(*source);
        face.SetFlags(flags);
        face.SetMaterialID(ctl.material[kept]);
        face.SetSize(K); // clears FACE_INVALID, as any face of K >= 3 corners
        int* d = face.GetData();
        for (int k = 0; k < K; ++k)
          d[k] = q[j][k];
      }
    }
  }
  if (nx) {
    nx->points = next;
    for (auto* v : {&nx->nEdge, &nx->nDiag})
      if (!v->empty())
        v->resize(static_cast<std::size_t>(next));
    nx->pos.resize(static_cast<std::size_t>(next));
    nx->flags.resize(static_cast<std::size_t>(next));
    if (carryOrigin)
      nx->origin.resize(static_cast<std::size_t>(next));
  } else {
    if (filler)
      filler->Finish();
    out.points->SetSize(next);
  }
  return true;
}

// The channels of object after `passes` passes: texture and colour channels
// are split with the mesh (kept are the mesh faces the first pass used);
// other kinds are left out, normals being rebuilt on demand.
bool ChannelPasses(const C3DBaseObject& object, const std::vector<int>& kept, int passes, int K,
                   CDependentChannels& result, CCancelCheck& cancel) {
  const CDependentChannels* channels = object.GetChannels();
  if (!channels)
    return true;
  std::vector<int> all; // after the first pass every face is used, in order
  for (int i = 0; i < channels->GetSize(); ++i) {
    const CChannel* ch = channels->GetChannel(i);
    if (!ch || (ch->GetType() != CHANNEL_UVW && ch->GetType() != CHANNEL_VC))
      continue;
    std::unique_ptr<CChannel> cur;
    long long meshFaces = object.GetFaceList()->GetSize();
    bool dropped = false;
    for (int p = 0; p < passes && !dropped; ++p) {
      const CChannel* src = p == 0 ? ch : cur.get();
      std::unique_ptr<CChannel> copy(src->InitFrom(CHANNEL_COPY_KEEP_ID));
      if (!copy) {
        dropped = true;
        break;
      }
      // A channel without faces parallel to the mesh (one value per point, say)
      // has nothing to split along: it stays, empty.
      if (src->GetFaceList() && src->GetPointList() && copy->GetFaceList() &&
          copy->GetPointList() && src->GetFaceList()->GetSize() == meshFaces) {
        const std::vector<int>* used = &kept;
        if (p > 0) {
          all.resize(static_cast<std::size_t>(meshFaces));
          for (std::size_t f = 0; f < all.size(); ++f)
            all[f] = static_cast<int>(f);
          used = &all;
        }
        if (!ChannelPass(*src, *copy, *used, K, cancel))
          return false;
      }
      cur = std::move(copy);
      meshFaces = static_cast<long long>(kept.size()) << (2 * (p + 1));
    }
    if (!dropped && cur)
      result.AddChannel(cur.release());
  }
  return true;
}

// Lists count their elements in ints: no pass is made that would overflow them.
bool PassFits(long long faces, long long points, int K) {
  return faces * 4 <= INT_MAX && points + faces * (K + 1) <= INT_MAX;
}

// level passes of K on object's faces of K corners (other faces are dropped),
// replacing its lists and channels. False when the thread was asked to stop:
// the object is then left as it was.
template <int K> bool Passes(C3DBaseObject& object, int level, CCancelCheck& cancel) {
  if (!object.GetPointList() || !object.GetFaceList() || level < 1 ||
      !PassFits(object.GetFaceList()->GetSize(), object.GetPointList()->GetSize(), K))
    return true;
  Control ctl;
  ctl.faceList = object.GetFaceList();
  Level cur;
  int used = 0;
  if (!LoadControl(object, K, ctl, cur, used, cancel))
    return false;
  // Deriving pays off from the second pass on.
  const bool derive = level > 1 && CanDeriveEdges(cur, K);

  auto newPoints = std::make_unique<C3DPointList>();
  auto newFaces = std::make_unique<C3DFaceList>();
  Level prepared; // the level before the last, sized ahead
  int preparedPass = 0;
  std::unique_ptr<RecordFiller> filler;
  if (derive) {
    // The sizes of every pass follow from the control mesh when the edges are
    // derived: every point and edge of a level is used by its faces.
    long long f = cur.faces, e = cur.edges, in = cur.points, u = used;
    long long lastBound = 0, lastEdges = 0, lastFaces = 0;
    for (int p = 1;; ++p) {
      const long long points = u + e + (K == 4 ? f : 0);
      if (p == level || !PassFits(4 * f, points, K))
        break;
      preparedPass = p;
      lastFaces = f;
      lastBound = in + e + (K == 4 ? f : 0);
      lastEdges = e = 2 * e + K * f;
      f *= 4;
      in = u = points;
    }
    const long long finalPoints = in + e + (K == 4 ? f : 0), finalFaces = 4 * f;
    const long long bytes = finalPoints * static_cast<long long>(newPoints->GetRecordSize()) +
                            finalFaces * static_cast<long long>(newFaces->GetRecordSize());
    if (finalPoints <= INT_MAX && bytes >= RecordFiller::kFillerFrom) {
      const bool helper = std::thread::hardware_concurrency() > 1;
      std::vector<Block> prefault;
      if (helper && preparedPass > 0) {
        SizeLevel<K>(prepared, static_cast<std::size_t>(lastFaces),
                     static_cast<std::size_t>(lastBound), static_cast<std::size_t>(lastEdges),
                     !cur.origin.empty(), true);
        prefault = BlocksOf(prepared);
      } else {
        preparedPass = 0;
      }
      filler =
          std::make_unique<RecordFiller>(*newPoints, static_cast<int>(finalPoints), *newFaces,
                                         static_cast<int>(finalFaces), helper, std::move(prefault));
    } else {
      preparedPass = 0;
    }
  }
  // The helper may still be backing the prepared level: it stops first.
  auto stop = [&filler] {
    if (filler)
      filler->Abandon();
    return false;
  };
  int passes = 0;
  for (int p = 1;; ++p) {
    const long long faces = 4LL * cur.faces;
    const long long points = static_cast<long long>(used) + cur.edges + (K == 4 ? cur.faces : 0);
    Output out;
    out.levelIndex = p - 1;
    if (p == level || !PassFits(faces, points, K)) {
      out.points = newPoints.get();
      out.faces = newFaces.get();
      out.filler = filler.get();
      if (!RunPass<K>(cur, ctl, out, cancel))
        return stop();
      passes = p;
      break;
    }
    Level next;
    if (p == preparedPass)
      next = std::move(prepared);
    out.next = &next;
    out.derive = derive;
    if (!RunPass<K>(cur, ctl, out, cancel))
      return stop();
    if (derive ? cancel.Advance(static_cast<std::uint64_t>(next.faces))
               : !SearchEdges(next, K, cancel))
      return stop();
    cur = std::move(next);
    used = cur.points;
  }
  cur = Level();

  auto newChannels = std::make_unique<CDependentChannels>();
  if (!ChannelPasses(object, ctl.kept, passes, K, *newChannels, cancel))
    return false;
  delete object.GetPointList();
  delete object.GetFaceList();
  delete object.GetChannels();
  object.SetPointList(newPoints.release());
  object.SetFaceList(newFaces.release());
  object.SetChannels(newChannels.release());
  object.InvalidateBoundingBoxes();
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
  if ((parts[0] && !Passes<3>(*parts[0], level, cancel)) ||
      (parts[1] && !Passes<4>(*parts[1], level, cancel)) || cancel.Check()) {
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
  Passes<3>(object, level, cancel);
}
void Subdivide4(C3DBaseObject& object, int level) {
  CCancelCheck cancel;
  Passes<4>(object, level, cancel);
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

#include "meshcore/operations/triangulate.h"

#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_3d.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_list_2d.h"
#include "meshcore/operations/detail/progress_scope.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/scene/base_object.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace meshcore {

namespace {

// A corner of the polygon while it is being cut.
struct Corner {
  float x = 0.0f;
  float y = 0.0f;
  int convex = 0;
  float angle = 0.0f;
  unsigned point = 0; // mesh point index
  int position = 0;   // position in the face, for the channel faces
  int prev = 0;
  int next = 0;
};

void ComputeAngle(std::vector<Corner>& ring, int c) {
  Corner& cc = ring[static_cast<std::size_t>(c)];
  const Corner& p = ring[static_cast<std::size_t>(cc.prev)];
  const Corner& q = ring[static_cast<std::size_t>(cc.next)];
  const double ax = static_cast<double>(p.x) - cc.x, ay = static_cast<double>(p.y) - cc.y;
  const double bx = static_cast<double>(q.x) - cc.x, by = static_cast<double>(q.y) - cc.y;
  cc.angle = static_cast<float>(std::atan2(ay * bx - ax * by, ax * bx + ay * by));
  cc.convex = cc.angle >= 0.0f ? 1 : 0;
}

// The convex corner of smallest angle after s around the ring (s excluded,
// first met on ties), or -1.
int BestCorner(const std::vector<Corner>& ring, int s) {
  int best = -1;
  for (int c = ring[static_cast<std::size_t>(s)].next; c != s;
       c = ring[static_cast<std::size_t>(c)].next) {
    const Corner& cc = ring[static_cast<std::size_t>(c)];
    if (cc.convex && (best < 0 || cc.angle < ring[static_cast<std::size_t>(best)].angle))
      best = c;
  }
  return best;
}

// True when a reflex corner of the ring lies strictly inside the triangle
// (c, q, p), which then is no ear.
bool IsEarBlocked(const std::vector<Corner>& ring, int c) {
  const Corner& cc = ring[static_cast<std::size_t>(c)];
  const Corner& p = ring[static_cast<std::size_t>(cc.prev)];
  const Corner& q = ring[static_cast<std::size_t>(cc.next)];
  const float minX = std::fmin(cc.x, std::fmin(q.x, p.x));
  const float maxX = std::fmax(cc.x, std::fmax(q.x, p.x));
  const float minY = std::fmin(cc.y, std::fmin(q.y, p.y));
  const float maxY = std::fmax(cc.y, std::fmax(q.y, p.y));
  for (int w = q.next; w != cc.prev; w = ring[static_cast<std::size_t>(w)].next) {
    const Corner& ww = ring[static_cast<std::size_t>(w)];
    if (!(ww.angle < 0.0f) || !(ww.x > minX && ww.x < maxX && ww.y > minY && ww.y < maxY))
      continue;
    if ((ww.y - cc.y) * (q.x - cc.x) - (ww.x - cc.x) * (q.y - cc.y) > 0.0f &&
        (ww.y - q.y) * (p.x - q.x) - (ww.x - q.x) * (p.y - q.y) > 0.0f &&
        (ww.y - p.y) * (cc.x - p.x) - (ww.x - p.x) * (cc.y - p.y) > 0.0f)
      return true;
  }
  return false;
}

// The channel face lists that run parallel to a mesh face list of count faces.
std::vector<CFaceList*> ParallelChannelFaces(CGeomInfo* info, int count) {
  std::vector<CFaceList*> lists;
  if (CDependentChannels* channels = info->GetChannels())
    for (int c = 0; c < channels->GetSize(); ++c) {
      CChannel* ch = channels->GetChannel(c);
      CFaceList* fl = ch ? ch->GetFaceList() : nullptr;
      if (fl && fl->GetSize() == count)
        lists.push_back(fl);
    }
  return lists;
}

// Makes slot a triangle of source's corners a, b, c (positions), or, for a
// channel face flagged FACE_EXCLUDED, gives it the flags only.
void CutChannelFace(CFaceList& fl, int slot, int source, int a, int b, int c) {
  const CFace& src = fl[source];
  CFace& dst = fl[slot];
  dst.InheritFlags(src);
  if (src.IsFlagSet(FACE_EXCLUDED))
    return;
  const int n = src.GetSize();
  if (a < n && b < n && c < n)
    dst.SetTriangle(src[a], src[b], src[c]);
}

} // namespace

int C3DFace::Triangulate(CGeomInfo* info, int faceIndex) {
  C3DFaceList* faces = info ? info->Get3DFaceList() : nullptr;
  if (!faces)
    return 0;
  // This face may live in the list that is about to grow: work from a copy.
  const C3DFace source(*this);
  const int n = source.GetSize();
  const int first = faces->GetSize();
  std::vector<CFaceList*> channels = faceIndex >= 0 && faceIndex < first
                                         ? ParallelChannelFaces(info, first)
                                         : std::vector<CFaceList*>();

  if (n == 3) {
    faces->SetSize(first + 1);
    (*faces)[first] = source;
    for (CFaceList* fl : channels) {
      fl->SetSize(first + 1);
      (*fl)[first] = (*fl)[faceIndex];
    }
    return 1;
  }
  if (n < 3)
    return 0;

  C2DPointList flat;
  source.Get2DCoordinates(info, flat);
  if (flat.GetSize() != n)
    return 0; // a corner outside the point list: nothing sensible to cut

  faces->SetSize(first + n - 2);
  for (CFaceList* fl : channels)
    fl->SetSize(first + n - 2);

  std::vector<Corner> ring(static_cast<std::size_t>(n));
  for (int k = 0; k < n; ++k) {
    Corner& c = ring[static_cast<std::size_t>(k)];
    c.x = flat[k].x;
    c.y = flat[k].y;
    c.point = static_cast<unsigned>(source[k]);
    c.position = k;
    c.prev = k == 0 ? n - 1 : k - 1;
    c.next = k == n - 1 ? 0 : k + 1;
  }
  for (int k = 0; k < n; ++k)
    ComputeAngle(ring, k);

  int slot = first;
  int count = 0;
  int head = 0;
  int size = n;
  // Each step walks the ring, so a face of many corners counts as that many
  // records: huge polygons answer a cancel request between steps.
  CCancelCheck cancel;
  int current = BestCorner(ring, head);
  while (current >= 0 && size >= 3) {
    if (cancel.Advance(static_cast<std::uint64_t>(size))) {
      faces->SetSize(first);
      for (CFaceList* fl : channels)
        fl->SetSize(first);
      return 0;
    }
    if (!ring[static_cast<std::size_t>(current)].convex ||
        ring[static_cast<std::size_t>(current)].angle > 1.58f) {
      current = BestCorner(ring, current);
      if (current < 0 || !(ring[static_cast<std::size_t>(current)].angle > 0.0f))
        break;
    }
    Corner& cc = ring[static_cast<std::size_t>(current)];
    const int p = cc.prev;
    const int q = cc.next;
    if (IsEarBlocked(ring, current)) {
      cc.convex = 0;
    } else {
      C3DFace& tri = (*faces)[slot];
      tri.InheritFlags(source);
      tri.SetTriangle(static_cast<int>(cc.point),
                      static_cast<int>(ring[static_cast<std::size_t>(q)].point),
                      static_cast<int>(ring[static_cast<std::size_t>(p)].point));
      for (CFaceList* fl : channels)
        CutChannelFace(*fl, slot, faceIndex, cc.position,
                       ring[static_cast<std::size_t>(q)].position,
                       ring[static_cast<std::size_t>(p)].position);
      ++slot;
      ++count;

      if (current == head)
        head = q;
      ring[static_cast<std::size_t>(p)].next = q;
      ring[static_cast<std::size_t>(q)].prev = p;
      ComputeAngle(ring, p);
      ComputeAngle(ring, q);
      --size;
    }
    const Corner& qq = ring[static_cast<std::size_t>(q)];
    current = qq.convex && ring[static_cast<std::size_t>(p)].angle > qq.angle ? q : p;
  }

  if (slot != first + n - 2) {
    faces->SetSize(slot);
    for (CFaceList* fl : channels)
      fl->SetSize(slot);
  }
  return count;
}

int TriangulateObject(C3DBaseObject& object, _FACE_PROPERTIES flag, int set,
                      CTriangulateStats* stats) {
  CTriangulateStats local;
  CTriangulateStats& st = stats ? *stats : local;
  st = CTriangulateStats();
  C3DFaceList* faces = object.GetFaceList();
  if (!faces || !object.GetPointList())
    return 0;
  const int f0 = faces->GetSize();

  auto selected = [&](const C3DFace& f) {
    return f.GetSize() > 3 && !f.IsFlagSet(FACE_INVALID) && f.IsFlagSet(flag) == (set != 0);
  };
  long long extra = 0;
  for (int f = 0; f < f0; ++f)
    if (selected((*faces)[f]))
      extra += (*faces)[f].GetSize() - 2;
  if (extra == 0)
    return 0;

  CGeomInfo info(&object);
  detail::CProgressScope progress;
  CCancelCheck cancel(static_cast<std::uint64_t>(f0));
  std::vector<int> cut; // faces flagged as replaced, to undo on a cancel
  // Lists grow by a bounded step: for the cut, let them grow once by all it
  // adds instead of once per face. Only room is made (no records built), so
  // a cancel request is not held up; the lists' own step comes back at the end.
  std::vector<CFaceList*> channels = ParallelChannelFaces(&info, f0);
  const int step = static_cast<int>(std::min<long long>(extra, 0x7FFFFFFF - f0));
  std::vector<std::pair<CElementArray*, int>> steps;
  auto widen = [&](CElementArray& list) {
    steps.emplace_back(&list, list.GetGrowBy());
    list.SetSize(list.GetSize(), step);
  };
  auto restoreSteps = [&] {
    for (auto& [list, growBy] : steps)
      list->SetSize(list->GetSize(), growBy);
  };
  widen(*faces);
  for (CFaceList* fl : channels)
    widen(*fl);

  // A cancel request takes the lists back to what they were: the triangles go,
  // the faces they were to replace lose their mark.
  auto undo = [&] {
    faces->SetSize(f0);
    for (CFaceList* fl : channels)
      fl->SetSize(f0);
    restoreSteps();
    for (int f : cut)
      (*faces)[f].SetFlag(FACE_INVALID, 0);
    st = CTriangulateStats();
    return kTriangulateCancelled;
  };
  for (int f = 0; f < f0; ++f) {
    if (cancel.Tick())
      return undo();
    if (!selected((*faces)[f]))
      continue;
    const int n = (*faces)[f].GetSize();
    const int before = faces->GetSize();
    const int made = (*faces)[f].Triangulate(&info, f);
    if (made != n - 2 && cancel.Check())
      return undo();
    if (made != n - 2) {
      // Never lose area: replace the partial cut by a fan from corner 0.
      faces->SetSize(before);
      faces->SetSize(before + n - 2);
      for (CFaceList* fl : channels) {
        fl->SetSize(before);
        fl->SetSize(before + n - 2);
      }
      const C3DFace& src = (*faces)[f];
      for (int k = 1; k <= n - 2; ++k) {
        C3DFace& tri = (*faces)[before + k - 1];
        tri.InheritFlags(src);
        tri.SetTriangle(src[0], src[k], src[k + 1]);
        for (CFaceList* fl : channels)
          CutChannelFace(*fl, before + k - 1, f, 0, k, k + 1);
      }
      ++st.fans;
    }
    (*faces)[f].SetFlag(FACE_INVALID, 1);
    cut.push_back(f);
    ++st.faces;
    st.triangles += n - 2;
  }
  // From here on the object changes: the rest runs to its end.
  if (cancel.Check())
    return undo();
  restoreSteps();
  faces->SetFlag(FL_CHANGED, 1);
  object.Clean();
  return st.faces;
}

} // namespace meshcore

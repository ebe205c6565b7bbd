// Operations on large meshes stop soon after another thread asks them to, at
// any point of their work, and leave the object as it was.
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/operations/subdivide.h"
#include "meshcore/operations/triangulate.h"
#include "meshcore/operations/weld.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/platform/thread_id.h"
#include "meshcore/scene/patch_3d.h"
#include "tests/support/mesh_fixtures.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <functional>
#include <thread>

using namespace meshcore;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

#ifdef NDEBUG
constexpr double kLatencyLimit = 0.2;
#else
constexpr double kLatencyLimit = 0.8; // unoptimised code polls as often but works slower
#endif

// A side x side grid of quads in the z = 0 plane with a texture channel. With
// twins, every point has a copy a little off, and alternate faces use the
// copies, so that welding has half the points to remove.
std::unique_ptr<C3DObject> Grid(int side, bool twins) {
  const int row = side + 1;
  const int n = row * row;
  auto obj = std::make_unique<C3DObject>(new C3DPointList, new C3DFaceList);
  C3DPointList& pts = *obj->GetPointList();
  pts.SetSize(twins ? 2 * n : n);
  for (int i = 0; i < pts.GetSize(); ++i) {
    const int j = i % n;
    pts[i].x = static_cast<float>(j % row) + (i >= n ? 1e-4f : 0.0f);
    pts[i].y = static_cast<float>(j / row);
    pts[i].z = 0.0f;
  }
  C3DFaceList& faces = *obj->GetFaceList();
  faces.SetSize(side * side);
  auto* uvw = new CUVWChannel;
  CUVWPointList& uv = *uvw->GetUVWPointList();
  uv.SetSize(n);
  for (int i = 0; i < n; ++i)
    uv[i].SetUV(static_cast<float>(i % row) / static_cast<float>(side),
                static_cast<float>(i / row) / static_cast<float>(side), 0.0f);
  CFaceList& uvFaces = *uvw->GetUVWFaceList();
  uvFaces.SetSize(side * side);
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      const int f = y * side + x;
      const int a = y * row + x;
      const int corners[4] = {a, a + 1, a + row + 1, a + row};
      const int shift = twins && (x + y) % 2 ? n : 0;
      C3DFace& face = faces[f];
      face.SetSize(4);
      CFace& uvFace = uvFaces[f];
      uvFace.SetSize(4);
      for (int k = 0; k < 4; ++k) {
        face[k] = corners[k] + shift;
        uvFace[k] = corners[k];
      }
    }
  obj->AddChannel(uvw);
  return obj;
}

// Everything a half-done operation could have touched.
std::uint64_t Fingerprint(const C3DBaseObject& obj) {
  std::uint64_t h = 1469598103934665603ull;
  auto mix = [&](std::uint64_t v) { h = (h ^ v) * 1099511628211ull; };
  const C3DPointList& pts = *obj.GetPointList();
  mix(static_cast<std::uint64_t>(pts.GetSize()));
  for (int i = 0; i < pts.GetSize(); ++i) {
    mix(static_cast<std::uint64_t>(pts[i].x * 1e5f));
    mix(static_cast<std::uint64_t>(pts[i].y * 1e5f));
  }
  auto faces = [&](const CFaceList& list) {
    mix(static_cast<std::uint64_t>(list.GetSize()));
    for (int f = 0; f < list.GetSize(); ++f) {
      const CFace& face = list[f];
      mix(face.IsFlagSet(FACE_INVALID) ? 1 : 0);
      for (int k = 0; k < face.GetSize(); ++k)
        mix(static_cast<std::uint64_t>(face[k]));
    }
  };
  faces(*obj.GetFaceList());
  const CDependentChannels* channels = obj.GetChannels();
  mix(channels ? static_cast<std::uint64_t>(channels->GetSize()) : 0);
  for (int c = 0; channels && c < channels->GetSize(); ++c)
    faces(*channels->GetChannel(c)->GetFaceList());
  return h;
}

using Clock = std::chrono::steady_clock;

struct Outcome {
  int result = 0;
  double seconds = 0;      // the whole run
  double latency = -1;     // from the cancel request to the return; -1 when not asked
  bool progressed = false; // a fraction was reported meanwhile
};

// Runs op on a worker thread; after delay seconds (a negative delay: never)
// asks it to stop.
Outcome RunWorker(const std::function<int()>& op, double delay) {
  std::atomic<std::uint32_t> id{0};
  std::atomic<bool> started{false}, done{false};
  Outcome out;
  Clock::time_point begin, end;
  std::thread worker([&] {
    id = GetCurrentThreadId32();
    begin = Clock::now();
    started = true;
    out.result = op();
    end = Clock::now();
    done = true;
  });
  while (!started)
    std::this_thread::yield();
  Clock::time_point asked;
  bool cancelSent = false;
  if (delay >= 0) {
    const Clock::time_point at = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                    std::chrono::duration<double>(delay));
    while (!done && Clock::now() < at) {
      out.progressed = out.progressed || GetProgress(static_cast<int>(id.load())) >= 0;
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    if (!done) {
      asked = Clock::now();
      SetCancel(1, static_cast<int>(id.load()));
      cancelSent = true;
    }
  }
  worker.join();
  if (cancelSent) {
    SetCancel(0, static_cast<int>(id.load()));
    out.latency = std::chrono::duration<double>(end - asked).count();
  }
  out.seconds = std::chrono::duration<double>(end - begin).count();
  EXPECT_LT(GetProgress(static_cast<int>(id.load())), 0.0) << "progress left behind";
  return out;
}

// Cancels op on fresh meshes at several points of its run; a cancelled run
// must answer within the limit and leave the mesh as it was.
void CancelAtSeveralPoints(const std::function<std::unique_ptr<C3DObject>()>& make,
                           const std::function<int(C3DObject&)>& op, int cancelled,
                           const char* what) {
  std::unique_ptr<C3DObject> mesh = make();
  const std::uint64_t before = Fingerprint(*mesh);
  const Outcome full = RunWorker([&] { return op(*mesh); }, -1);
  ASSERT_NE(full.result, cancelled) << what;
  EXPECT_NE(Fingerprint(*mesh), before) << what << " changed nothing";

  int stopped = 0;
  for (const double share : {0.0, 0.2, 0.5, 0.8}) {
    mesh = make();
    Outcome run = RunWorker([&] { return op(*mesh); }, share * full.seconds);
    if (run.result == cancelled && run.latency >= kLatencyLimit) {
      // A machine busy with other work can hold the thread off the
      // processor: a slow stop is tried once more.
      mesh = make();
      run = RunWorker([&] { return op(*mesh); }, share * full.seconds);
    }
    if (run.result != cancelled) {
      // Asked too late (or not at all): the work is whole.
      EXPECT_EQ(run.result, full.result) << what << " at " << share;
      continue;
    }
    ++stopped;
    ASSERT_GE(run.latency, 0.0) << what;
    EXPECT_EQ(Fingerprint(*mesh), before) << what << " cancelled at " << share;
    if (!kSanitized) {
      EXPECT_LT(run.latency, kLatencyLimit)
          << what << " cancelled at " << share << " of " << full.seconds << " s";
    }
  }
  EXPECT_GE(stopped, 1) << what; // the request at once always lands
}

int Side(int wanted) {
  return kSanitized ? wanted / 5 : wanted;
}

} // namespace

TEST(Cancel, WeldStopsSoonAndLeavesTheMesh) {
  const int side = Side(700); // a million points, half of them twins

  CancelAtSeveralPoints([&] { return Grid(side, true); },
                        [](C3DObject& obj) {
                          int points = 0, faces = 0;
                          const int result = Weld3DPoints(obj, 0.001f, points, faces);
                          EXPECT_TRUE(result == 0 || (points == 0 && faces == 0));
                          return result == 0 ? points : result;
                        },
                        kWeldCancelled, "weld");
}

TEST(Cancel, TriangulationStopsSoonAndLeavesTheMesh) {
  // The final compaction runs to its end once the object starts changing: a
  // grid whose compaction stays well inside the limit.
  const int side = Side(700);
  CancelAtSeveralPoints([&] { return Grid(side, false); },
                        [](C3DObject& obj) { return TriangulateObject(obj, FACE_NONE, 1); },
                        kTriangulateCancelled, "triangulate");

  // A single face of many corners answers between its cuts, and takes its
  // triangles back.
  const int n = kSanitized ? 20000 : 200000;
  std::vector<test::P3> ring;
  std::vector<int> corners;
  for (int k = 0; k < n; ++k) {
    const double a = 6.283185307179586 * k / n;
    ring.push_back({static_cast<float>(std::cos(a)), static_cast<float>(std::sin(a)), 0.0f});
    corners.push_back(k);
  }
  auto disc = test::MakeMesh(ring, {corners});
  CGeomInfo info(disc.get());
  const Outcome cut =
      RunWorker([&] { return (*disc->GetFaceList())[0].Triangulate(&info, 0); }, 0.05);
  EXPECT_EQ(disc->GetFaceNbr(), cut.result == 0 ? 1 : 1 + n - 2);
  if (cut.latency >= 0 && !kSanitized) {
    EXPECT_LT(cut.latency, kLatencyLimit);
  }
}

TEST(Cancel, SubdivisionStopsSoonAndLeavesTheMesh) {
  // Two levels of a smaller grid: the passes, not the first copy of the mesh
  // into its parts, make the bulk of the work.
  const int side = Side(250);
  CancelAtSeveralPoints([&] { return Grid(side, false); },
                        [](C3DObject& obj) { return SubdivideObject(obj, 2); }, kSubdivideCancelled,
                        "subdivide");

  // A patch keeps its level and its lists: first while the control mesh is
  // taken over, then while a higher level is built.
  C3DPatch patch;
  {
    auto grid = Grid(Side(300), false);
    patch.SetPointList(new C3DPointList);
    patch.SetFaceList(new C3DFaceList);
    patch.Concatenate(grid.get(), 1);
  }
  C3DPointList* control = patch.GetPointList();
  const std::uint64_t before = Fingerprint(patch);
  Outcome run = RunWorker(
      [&] {
        patch.SetLevel(2);
        return patch.GetLevel();
      },
      0.0);
  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(patch.GetPointList(), control);
  EXPECT_EQ(Fingerprint(patch), before);

  patch.SetLevel(1);
  ASSERT_EQ(patch.GetLevel(), 1);
  C3DFaceList* level1 = patch.GetFaceList();
  const std::uint64_t atLevel1 = Fingerprint(patch);
  run = RunWorker(
      [&] {
        patch.SetLevel(3);
        return patch.GetLevel();
      },
      0.0);
  EXPECT_EQ(run.result, 1);
  EXPECT_EQ(patch.GetFaceList(), level1);
  EXPECT_EQ(Fingerprint(patch), atLevel1);
  patch.SetLevel(0);
  EXPECT_EQ(patch.GetPointList(), control);
  EXPECT_EQ(Fingerprint(patch), before);
}

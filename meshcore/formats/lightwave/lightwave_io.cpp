#include "meshcore/formats/lightwave/lightwave_io.h"

#include "meshcore/formats/common/detail/color_bytes.h"
#include "meshcore/formats/common/detail/corner_values.h"
#include "meshcore/formats/common/detail/file_input.h"
#include "meshcore/formats/common/detail/file_output.h"
#include "meshcore/formats/common/detail/record_blocks.h"
#include "meshcore/formats/common/detail/unique_names.h"
#include "meshcore/formats/lightwave/detail/lwo_object.h"
#include "meshcore/formats/lightwave/detail/lwo_reader.h"
#include "meshcore/formats/lightwave/detail/lwo_writer.h"
#include "meshcore/io/cancel.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_info.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/io/io_file.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/vc_channel.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/patch_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <climits>
#include <cmath>
#include <cstring>
#include <exception>
#include <new>
#include <optional>
#include <system_error>
#include <thread>

namespace meshcore {

namespace {

constexpr std::uint32_t kNodeHidden = 1; // node flag of hidden layers
constexpr std::uint32_t kFaceSkipped = 0x44;

using codec::ColorByte;

// Thrown out of the conversion loops; caught at the codec's boundary.
struct CancelledSave {};
struct CancelledRead {};
struct BadScene {
  std::string what;
};

// Polls the cancel flag every few thousand records of a conversion loop.
inline void PollRead(std::size_t i) {
  if ((i & 8191) == 0 && ShouldCancel())
    throw CancelledRead{};
}

// The same for work on a second thread, which watches a flag its starter raises.
inline void PollStop(std::size_t i, const std::atomic<bool>* stop) {
  if ((i & 8191) == 0 && stop && stop->load(std::memory_order_relaxed))
    throw CancelledRead{};
}

// Layer parent as the reader orders layers: an absent parent reads as 0, and
// 0xFFFF (what writers put for "no parent") is simply the number 65535.
std::uint32_t ParentKey(const st_lwLayer& layer) {
  return layer.hasParent ? layer.parent : 0;
}

// Type of a layer polygon.
std::uint32_t TypeAt(const st_lwLayer& layer, std::size_t polygon) {
  if (layer.polygonSpans.empty())
    return layer.polygons[polygon].type;
  for (const auto& span : layer.polygonSpans)
    if (polygon < std::size_t(span.first) + span.count)
      return span.type;
  return lwid::FACE;
}

// The control mesh of a patch, when patches keep one apart from their result.
template <class P> C3DBaseObject* PatchSource(P* patch) {
  if constexpr (requires { patch->GetSourceObject(); })
    return patch->GetSourceObject();
  else
    return nullptr;
}

// The vertex maps of one kind in a layer, grouped by name (a name may have a
// per-point map and several per-polygon ones).
struct NamedMaps {
  std::string name;
  const st_lwVMap* perPoint = nullptr;
  std::vector<const st_lwVMap*> perPolygon;
  std::vector<std::int32_t> entryPoint; // per-point entry -> channel point, built lazily
};

std::vector<NamedMaps> CollectMaps(const st_lwLayer& layer, bool colours) {
  std::vector<NamedMaps> maps;
  for (const auto& vmap : layer.vmaps) {
    bool wanted =
        colours ? (vmap.type == lwid::RGB_ || vmap.type == lwid::RGBA) : vmap.type == lwid::TXUV;
    if (!wanted || vmap.dimension == 0)
      continue;
    auto it = std::find_if(maps.begin(), maps.end(),
                           [&](const NamedMaps& m) { return m.name == vmap.name; });
    if (it == maps.end()) {
      maps.push_back({vmap.name, nullptr, {}, {}});
      it = maps.end() - 1;
    }
    if (vmap.perPolygon)
      it->perPolygon.push_back(&vmap);
    else if (!it->perPoint)
      it->perPoint = &vmap;
  }
  return maps;
}

// Values of a channel point: uv(w) or rgba, in the channel's own units.
using Value = codec::CCornerValues::Value;
bool SameValue(const Value& a, const Value& b) {
  return std::memcmp(a.v, b.v, sizeof a.v) == 0;
}

// Builds the channel points and the corner -> channel point table of one run
// of polygons. Per-polygon values override per-point ones; the maps named by
// the polygon's surface come first, then the layer's other maps of the kind.
class ChannelBuilder {
public:
  ChannelBuilder(std::vector<NamedMaps>& maps, const std::vector<std::string>& surfaceMap,
                 bool colours)
      : maps_(maps), surfaceMap_(surfaceMap), colours_(colours) {
    // The usual case, one per-point map, takes a short path.
    if (maps_.size() == 1 && maps_[0].perPolygon.empty() && maps_[0].perPoint) {
      single_ = &maps_[0];
      single_->entryPoint.assign(single_->perPoint->EntryCount(), -1);
      values_.Reserve(single_->perPoint->EntryCount() + 1);
    }
  }

  // Channel point of corner k (file order) of the polygon at the walk.
  std::int32_t Corner(LwPolygonWalk& walk, unsigned k) {
    const std::uint32_t point = walk.Vertices()[k];
    if (single_) {
      std::int32_t e = single_->perPoint->attached[point];
      if (e >= 0) {
        std::int32_t& id = single_->entryPoint[std::size_t(e)];
        if (id < 0) {
          found_ = true;
          id = values_.Add(Convert(*single_->perPoint, std::size_t(e)));
        }
        return id;
      }
      return None();
    }
    for (int m : Order(walk.Surface())) {
      NamedMaps& named = maps_[std::size_t(m)];
      for (const st_lwVMap* vmad : named.perPolygon) {
        std::int32_t e = vmad->attached[std::size_t(walk.FirstVertex()) + k];
        if (e >= 0)
          return FromPolygon(named, point, Convert(*vmad, std::size_t(e)));
      }
      if (named.perPoint) {
        std::int32_t e = named.perPoint->attached[point];
        if (e >= 0)
          return FromPoint(named, std::size_t(e));
      }
    }
    return None();
  }

  bool FoundAny() const { return found_; }
  const std::vector<Value>& Values() const { return values_.GetValues(); }

private:
  std::int32_t None() { return values_.GetDefault(Default()); }
  Value Default() const {
    Value v;
    if (colours_)
      v.v[3] = 1.0f;
    return v;
  }
  Value Convert(const st_lwVMap& map, std::size_t entry) const {
    const float* src = map.Value(entry);
    Value v = Default();
    std::uint32_t n = std::min<std::uint32_t>(map.dimension, colours_ ? 4 : 3);
    for (std::uint32_t i = 0; i < n; ++i)
      v.v[i] = src[i];
    if (!colours_)
      v.v[1] = -v.v[1]; // Lightwave's v runs the other way
    return v;
  }
  std::int32_t FromPoint(NamedMaps& named, std::size_t entry) {
    found_ = true;
    if (named.entryPoint.empty())
      named.entryPoint.assign(named.perPoint->EntryCount(), -1);
    std::int32_t& id = named.entryPoint[entry];
    if (id < 0)
      id = values_.Add(Convert(*named.perPoint, entry));
    return id;
  }
  std::int32_t FromPolygon(NamedMaps& named, std::uint32_t point, const Value& value) {
    found_ = true;
    // The same value as the point's own shares its channel point.
    if (named.perPoint) {
      std::int32_t e = named.perPoint->attached[point];
      if (e >= 0 && SameValue(Convert(*named.perPoint, std::size_t(e)), value))
        return FromPoint(named, std::size_t(e));
    }
    return values_.Get(point, value);
  }
  const std::vector<int>& Order(std::uint32_t surface) {
    std::size_t key = surface < surfaceMap_.size() ? surface : surfaceMap_.size();
    if (orders_.size() <= key)
      orders_.resize(key + 1);
    auto& order = orders_[key];
    if (order.empty()) {
      const std::string* own = key < surfaceMap_.size() ? &surfaceMap_[key] : nullptr;
      for (std::size_t m = 0; m < maps_.size(); ++m)
        if (own && !own->empty() && maps_[m].name == *own)
          order.push_back(int(m));
      for (std::size_t m = 0; m < maps_.size(); ++m)
        if (!own || own->empty() || maps_[m].name != *own)
          order.push_back(int(m));
    }
    return order;
  }

  std::vector<NamedMaps>& maps_;
  const std::vector<std::string>& surfaceMap_;
  bool colours_;
  codec::CCornerValues values_;
  std::vector<std::vector<int>> orders_;
  bool found_ = false;
  NamedMaps* single_ = nullptr;
};

// Fills a channel face list parallel to the mesh faces of the run.
template <class FaceList, class Builder>
void FillChannelFaces(FaceList& faces, const st_lwLayer& layer, std::size_t first, std::size_t end,
                      Builder& builder) {
  int f = 0;
  for (LwPolygonWalk walk(layer, first); walk.Index() < end; walk.Next()) {
    PollRead(walk.Index() - first);
    const unsigned n = walk.Count();
    if (n < 3)
      continue;
    auto& face = faces[f++];
    face.SetSize(int(n));
    int* idx = face.GetData();
    for (unsigned k = 0; k < n; ++k)
      idx[k] = builder.Corner(walk, n - 1 - k);
  }
}

// Grows each list (null ones aside) to n records a block at a time and hands
// each new block [begin, end) to fill while its freshly constructed records
// are still in cache; constructing all n first and filling them after would
// stream the whole block through memory twice. The room for n is taken in one go.
template <class Fill, class... Lists> void GrowInBlocks(int n, Fill fill, Lists*... lists) {
  constexpr int kBlock = 2048;
  if (n <= 0)
    return;
  // A first block of one record whose growth step makes room for the rest at
  // the first growth; the automatic step is restored at the end.
  ((lists ? lists->SetSize(1, n > 1 ? n - 1 : 0) : void()), ...);
  for (int begin = 0; begin < n;) {
    const int end = std::min(n, begin + kBlock);
    ((lists && end > lists->GetSize() ? lists->SetSize(end) : void()), ...);
    fill(begin, end);
    begin = end;
  }
  ((lists ? lists->SetSize(n, 0) : void()), ...);
}

// The one per-point texture map of the layer when every point of the layer
// has a value in it, else null: then the texture faces of any run repeat its
// mesh faces and can be filled alongside them (see FillWholeUVWMap).
const st_lwVMap* WholeLayerUVWMap(const st_lwLayer& layer) {
  const st_lwVMap* found = nullptr;
  for (const auto& vmap : layer.vmaps) {
    if (vmap.type != lwid::TXUV || vmap.dimension == 0)
      continue;
    if (found || vmap.perPolygon)
      return nullptr;
    found = &vmap;
  }
  if (!found || found->attached.size() != layer.GetPointCount())
    return nullptr;
  for (std::int32_t e : found->attached)
    if (e < 0)
      return nullptr;
  return found;
}

// Records [begin, end) of one list or another, filled the same way whichever
// path (one thread or two) makes them.

// Mesh point i is layer point runPoints[i].
void FillPointRange(const st_lwLayer& layer, const std::uint32_t* runPoints, C3DPoint* out,
                    int begin, int end) {
  for (int i = begin; i < end; ++i) {
    float at[3];
    layer.GetPoint(runPoints[i], at);
    out[i].x = at[0];
    out[i].y = at[1];
    out[i].z = at[2];
  }
}

// Texture point i takes the value of run point i in a per-point map that
// gives every run point a value.
void FillUVWPointRange(const st_lwVMap& map, const std::uint32_t* runPoints, CUVWPoint* out,
                       int begin, int end) {
  const std::uint32_t dimension = std::min<std::uint32_t>(map.dimension, 3);
  for (int i = begin; i < end; ++i) {
    const float* src = map.Value(std::size_t(map.attached[runPoints[i]]));
    float v[3] = {0, 0, 0};
    for (std::uint32_t k = 0; k < dimension; ++k)
      v[k] = src[k];
    out[i].SetUV(v[0], -v[1], v[2]); // Lightwave's v runs the other way
  }
}

// Texture faces that repeat the mesh faces.
void CopyFaceRange(const C3DFace* in, CUVWFace* out, int begin, int end) {
  for (int f = begin; f < end; ++f) {
    const int n = in[f].GetSize();
    out[f].SetSize(n);
    std::memcpy(out[f].GetData(), in[f].GetData(), sizeof(int) * std::size_t(n));
  }
}

void FillUVWPoints(const st_lwVMap& map, const std::vector<std::uint32_t>& runPoints,
                   CUVWPointList& points) {
  GrowInBlocks(
      int(runPoints.size()),
      [&](int begin, int end) {
        FillUVWPointRange(map, runPoints.data(), points.GetFirst(), begin, end);
      },
      &points);
}

// The usual texture map, one per-point map giving every point of the run a
// value: texture points then come in the order the faces first use the mesh
// points, so the texture faces repeat the mesh faces and point i takes the
// value of mesh point i (runPoints: mesh point -> layer point). False when the maps are of any
// other shape.
bool FillWholeUVWMap(const std::vector<NamedMaps>& maps,
                     const std::vector<std::uint32_t>& runPoints, const C3DFaceList& mesh,
                     CUVWFaceList& faces, CUVWPointList& points) {
  if (maps.size() != 1 || !maps[0].perPolygon.empty() || !maps[0].perPoint)
    return false;
  const st_lwVMap& map = *maps[0].perPoint;
  for (std::uint32_t lp : runPoints)
    if (map.attached[lp] < 0)
      return false;
  GrowInBlocks(
      mesh.GetSize(),
      [&](int begin, int end) {
        PollRead(std::size_t(begin));
        CopyFaceRange(&mesh[0], faces.GetFirst(), begin, end);
      },
      &faces);
  FillUVWPoints(map, runPoints, points);
  return true;
}

// Work on a second thread while the caller does its own share. The task
// cannot see the caller's cancel request (that is kept per thread), so it
// watches `stop`, which is raised when the caller leaves early; the
// destructor waits for the task in any case. Without a thread to be had the
// task does not run at all: the caller's share then covers the work alone.
class SideTask {
public:
  template <class Fn> explicit SideTask(Fn fn) {
    auto run = [this, fn]() mutable {
      try {
        fn(static_cast<const std::atomic<bool>&>(stop_));
      } catch (...) {
        error_ = std::current_exception();
      }
    };
    try {
      thread_ = std::thread(run);
    } catch (const std::system_error&) {
    }
  }
  SideTask(const SideTask&) = delete;
  SideTask& operator=(const SideTask&) = delete;
  ~SideTask() {
    stop_ = true;
    if (thread_.joinable())
      thread_.join();
  }
  // Waits for the task and passes on what it threw.
  void Join() {
    if (thread_.joinable())
      thread_.join();
    if (error_)
      std::rethrow_exception(error_);
  }

private:
  std::atomic<bool> stop_{false};
  std::exception_ptr error_;
  std::thread thread_;
};

void FillPoints(const st_lwLayer& layer, const std::vector<std::uint32_t>& runPoints,
                C3DPointList& points) {
  GrowInBlocks(
      int(runPoints.size()),
      [&](int begin, int end) {
        FillPointRange(layer, runPoints.data(), points.GetFirst(), begin, end);
      },
      &points);
}

// A large run filled by two threads. The caller walks the polygons, numbers
// the points in the order the faces first use them and fills the mesh faces
// (it alone may look up materials); the points, the texture points and the
// texture faces follow in chunks that either thread claims as soon as the
// numbering has reached them. Building these lists is mostly first touches of
// fresh pages, which proceed in parallel on two cores, and no record waits for
// a whole pass over the run. Every record depends only on the numbering, so
// the lists come out the same whichever thread fills what.
class RunPipeline {
public:
  static constexpr int kChunk = 8192; // records per chunk

  // Room is made for every list at once; points and texture points for
  // maxPoints, of which the run uses some (untouched room costs no memory).
  RunPipeline(const st_lwLayer& layer, int faceCount, int maxPoints, C3DFaceList& faces,
              C3DPointList& points, CUVWFaceList* uvwFaces, CUVWPointList* uvwPoints,
              const st_lwVMap* uvwMap, std::vector<std::uint32_t>& order)
      : layer_(layer), faceCount_(faceCount), faces_(faces), points_(points),
        uvwFaces_(uvwFaces), uvwPoints_(uvwPoints), uvwMap_(uvwMap), order_(order),
        faceChunks_((faceCount + kChunk - 1) / kChunk),
        pointChunks_((maxPoints + kChunk - 1) / kChunk),
        uvwFaceBuilt_(std::make_unique<char[]>(std::size_t(faceChunks_))),
        pointBuilt_(std::make_unique<int[]>(std::size_t(pointChunks_))) {
    order_.reserve(std::size_t(maxPoints));
    orderData_ = order_.data();
    if (!faces_.AllocateUnconstructed(faceCount) || !points_.AllocateUnconstructed(maxPoints) ||
        (uvwFaces_ && !uvwFaces_->AllocateUnconstructed(faceCount)) ||
        (uvwPoints_ && !uvwPoints_->AllocateUnconstructed(maxPoints)))
      throw std::bad_alloc(); // fresh lists and positive counts: cannot happen
  }
  RunPipeline(const RunPipeline&) = delete;
  RunPipeline& operator=(const RunPipeline&) = delete;
  // Unless adopted, the records built so far are destroyed (a cancel or an
  // error); both threads are done by then.
  ~RunPipeline() {
    if (adopted_)
      return;
    for (int c = 0; c < facesBuilt_; ++c)
      faces_.DestructElements(faces_.GetFirst() + c * kChunk, ChunkSize(c, faceCount_));
    for (int c = 0; c < faceChunks_; ++c)
      if (uvwFaceBuilt_[std::size_t(c)])
        uvwFaces_->DestructElements(uvwFaces_->GetFirst() + c * kChunk, ChunkSize(c, faceCount_));
    for (int c = 0; c < pointChunks_; ++c)
      if (const int n = pointBuilt_[std::size_t(c)]) {
        points_.DestructElements(points_.GetFirst() + c * kChunk, n);
        if (uvwPoints_)
          uvwPoints_->DestructElements(uvwPoints_->GetFirst() + c * kChunk, n);
      }
  }

  // The caller's share. number(begin, end, out) fills faces [begin, end) of
  // out, appending each newly used layer point to the order; then the caller
  // helps with what is left.
  template <class Number> void RunMain(Number number) {
    try {
      for (int c = 0; c < faceChunks_; ++c) {
        const int begin = c * kChunk, n = ChunkSize(c, faceCount_);
        Construct(faces_, begin, n);
        facesBuilt_ = c + 1;
        number(begin, begin + n, faces_.GetFirst());
        if (order_.data() != orderData_)
          throw std::logic_error("point order outgrew its room"); // cannot happen
        pointsNumbered_.store(int(order_.size()), std::memory_order_release);
        facesNumbered_.store(c + 1, std::memory_order_release);
        Wake();
      }
      pointCount_ = int(order_.size());
      done_.store(true, std::memory_order_release);
      Wake();
      while (ClaimAny(nullptr)) {
      }
    } catch (...) {
      // Wake the helper so that it stops rather than waits for chunks.
      abandoned_.store(true, std::memory_order_relaxed);
      Wake();
      throw;
    }
  }

  // The helper's share: chunks as they become ready, until none is left.
  void RunHelper(const std::atomic<bool>& stop) {
    for (;;) {
      const int seen = progress_.load(std::memory_order_acquire);
      if (stop.load(std::memory_order_relaxed) || abandoned_.load(std::memory_order_relaxed))
        throw CancelledRead{};
      if (ClaimAny(&stop))
        continue;
      if (done_.load(std::memory_order_acquire) && AllClaimed())
        return;
      // Sleeps rather than spins: on a busy machine spinning takes the core
      // from the thread it waits for.
      progress_.wait(seen, std::memory_order_acquire);
    }
  }

  // Both shares done: the lists take their records.
  void Adopt() {
    faces_.AdoptConstructed(faceCount_);
    points_.AdoptConstructed(pointCount_);
    if (uvwFaces_)
      uvwFaces_->AdoptConstructed(faceCount_);
    if (uvwPoints_)
      uvwPoints_->AdoptConstructed(pointCount_);
    adopted_ = true;
    // Room the run did not use goes back.
    if (pointCount_ < points_.GetCapacity()) {
      points_.FreeExtra();
      if (uvwPoints_)
        uvwPoints_->FreeExtra();
    }
  }

private:
  static int ChunkSize(int c, int total) { return std::min(kChunk, total - c * kChunk); }
  template <class List> static void Construct(List& list, int from, int n) {
    codec::ConstructBacked(list, from, n);
  }

  void Wake() {
    progress_.fetch_add(1, std::memory_order_release);
    progress_.notify_one();
  }
  bool AllClaimed() const {
    return nextPoints_.load(std::memory_order_relaxed) * kChunk >= pointCount_ &&
           (!uvwFaces_ || nextUVWFaces_.load(std::memory_order_relaxed) >= faceChunks_);
  }
  // Claims and fills one ready chunk; false when none is ready.
  bool ClaimAny(const std::atomic<bool>* stop) {
    int c = 0;
    if (ClaimPoints(c)) {
      FillPoints(c, stop);
      return true;
    }
    if (uvwFaces_ && ClaimUVWFaces(c)) {
      FillUVWFaces(c, stop);
      return true;
    }
    return false;
  }
  bool ClaimPoints(int& c) {
    int next = nextPoints_.load(std::memory_order_relaxed);
    for (;;) {
      const bool done = done_.load(std::memory_order_acquire);
      const int have = pointsNumbered_.load(std::memory_order_acquire);
      const int begin = next * kChunk;
      if (begin + kChunk > have && !(done && begin < have))
        return false;
      if (nextPoints_.compare_exchange_weak(next, next + 1, std::memory_order_relaxed)) {
        c = next;
        return true;
      }
    }
  }
  bool ClaimUVWFaces(int& c) {
    int next = nextUVWFaces_.load(std::memory_order_relaxed);
    for (;;) {
      if (next >= facesNumbered_.load(std::memory_order_acquire))
        return false;
      if (nextUVWFaces_.compare_exchange_weak(next, next + 1, std::memory_order_relaxed)) {
        c = next;
        return true;
      }
    }
  }
  void FillPoints(int c, const std::atomic<bool>* stop) {
    const int from = c * kChunk;
    const int to = std::min(pointsNumbered_.load(std::memory_order_acquire), from + kChunk);
    Construct(points_, from, to - from);
    if (uvwPoints_) {
      try {
        Construct(*uvwPoints_, from, to - from);
      } catch (...) {
        points_.DestructElements(points_.GetFirst() + from, to - from);
        throw;
      }
    }
    pointBuilt_[std::size_t(c)] = to - from;
    PollChunk(stop);
    FillPointRange(layer_, orderData_, points_.GetFirst(), from, to);
    if (uvwPoints_)
      FillUVWPointRange(*uvwMap_, orderData_, uvwPoints_->GetFirst(), from, to);
  }
  // Texture faces repeat the mesh faces.
  void FillUVWFaces(int c, const std::atomic<bool>* stop) {
    const int from = c * kChunk, to = from + ChunkSize(c, faceCount_);
    Construct(*uvwFaces_, from, to - from);
    uvwFaceBuilt_[std::size_t(c)] = 1;
    PollChunk(stop);
    CopyFaceRange(faces_.GetFirst(), uvwFaces_->GetFirst(), from, to);
  }
  static void PollChunk(const std::atomic<bool>* stop) {
    if (stop)
      PollStop(0, stop);
    else
      PollRead(0);
  }

  const st_lwLayer& layer_;
  const int faceCount_;
  C3DFaceList& faces_;
  C3DPointList& points_;
  CUVWFaceList* uvwFaces_;
  CUVWPointList* uvwPoints_;
  const st_lwVMap* uvwMap_;
  std::vector<std::uint32_t>& order_;
  const std::uint32_t* orderData_ = nullptr; // never moves: room for every point is made first
  const int faceChunks_;
  const int pointChunks_;
  int pointCount_ = 0; // set when the numbering is done
  int facesBuilt_ = 0; // chunks of mesh faces constructed (the caller's)
  std::atomic<int> facesNumbered_{0};  // chunks of mesh faces filled
  std::atomic<int> pointsNumbered_{0}; // points numbered so far
  std::atomic<bool> done_{false};      // the numbering is done: pointCount_ is final
  std::atomic<bool> abandoned_{false};
  std::atomic<int> progress_{0}; // bumped at each of the above
  std::atomic<int> nextPoints_{0};
  std::atomic<int> nextUVWFaces_{0};
  // Each entry written by the thread that builds the chunk, read once both are done.
  std::unique_ptr<char[]> uvwFaceBuilt_;
  std::unique_ptr<int[]> pointBuilt_; // records constructed in each chunk
  bool adopted_ = false;
};

} // namespace

void RegisterLightwaveCodec() {
  fileRegisterCodecOf<CLightwaveIo>(fileMakeClassCode("LIGT"));
}

CLightwaveIo::CLightwaveIo(CFileIo& owner) : C3DParser(owner) {}
CLightwaveIo::~CLightwaveIo() = default;

void CLightwaveIo::ResetReadState() {
  m_surfaceMaterial.assign(m_object ? m_object->surfaces.size() : 0, -1);
  m_surfaceUVMap.assign(m_object ? m_object->surfaces.size() : 0, std::string());
  m_materialNames.clear();
  m_layerGroups.clear();
  m_pointRemap.clear();
  m_runPoints.clear();
  m_activeLayer = nullptr;
  m_wholeUVWMap = nullptr;
}

// ---------------------------------------------------------------------------
// Reading

C3DScene* CLightwaveIo::Read(const std::string& name, unsigned flags) {
  codec::CFileInput input;
  if (int result = input.Open(name); result != IO_FILE_OK) {
    // The Lightwave reader answers a file it cannot read as a bad file.
    SetIoError(IO_FILE_BAD_FORMAT, codec::CFileInput::FailureText(result));
    return nullptr;
  }
  // The loaded object keeps views into the bytes until the scene is built.
  return LoadObject(input.GetData(), input.GetSize()) ? BuildScene(flags) : nullptr;
}

int CLightwaveIo::GetLayerNbr() const {
  return m_object ? int(m_object->layers.size()) : 0;
}

C3DScene* CLightwaveIo::ReadFromMemory(const void* data, std::size_t size, unsigned flags) {
  return LoadObject(data, size) ? BuildScene(flags) : nullptr;
}

bool CLightwaveIo::LoadObject(const void* data, std::size_t size) {
  LwLoadOptions options;
  options.polygonNormals = options.pointPolygons = options.vertexNormals = false;
  options.cancellable = true;
  // The polygons are walked once, straight from the bytes.
  options.polygonSpans = true;
  LwLoadStatus status;
  m_object = LoadLightwaveObject(data, size, options, &status);
  if (!m_object) {
    SetIoError(IO_FILE_BAD_FORMAT,
               status.cancelled ? std::string("cancelled while reading") : status.detail);
    return false;
  }
  return true;
}

C3DScene* CLightwaveIo::BuildScene(unsigned flags) {
  if (ShouldCancel()) {
    m_object.reset();
    SetIoError(IO_FILE_CANCELLED);
    return nullptr;
  }
  std::unique_ptr<C3DScene> scene;
  try {
    scene = std::make_unique<C3DScene>();
    m_scene = scene.get();
    ResetReadState();
    std::vector<const st_lwLayer*> layers;
    for (const auto& layer : m_object->layers)
      layers.push_back(&layer);
    std::stable_sort(layers.begin(), layers.end(), [](const st_lwLayer* a, const st_lwLayer* b) {
      return ParentKey(*a) < ParentKey(*b);
    });
    for (const st_lwLayer* layer : layers) {
      if (ShouldCancel())
        throw CancelledRead{};
      if (layer->GetPointCount() != 0 && layer->GetPolygonCount() != 0)
        ConvertLayer(*layer);
    }
  } catch (const CancelledRead&) {
    m_object.reset();
    m_scene = nullptr;
    SetIoError(IO_FILE_CANCELLED);
    return nullptr;
  } catch (const std::bad_alloc&) {
    m_object.reset();
    m_scene = nullptr;
    SetIoError(IO_FILE_BAD_FORMAT, "out of memory");
    return nullptr;
  }
  m_object.reset();
  m_activeLayer = nullptr;
  m_wholeUVWMap = nullptr;
  m_scene = nullptr;
  scene->CheckoutImport(int(flags));
  if (scene->GetNodeNbr(0) == 0) {
    SetIoError(IO_FILE_EMPTY);
    return nullptr;
  }
  return scene.release();
}

void CLightwaveIo::ConvertLayer(const st_lwLayer& layer) {
  m_activeLayer = &layer;
  m_pointRemap.assign(layer.GetPointCount(), -1);
  m_runPoints.clear();
  // Once per layer: a layer may hold many runs.
  m_wholeUVWMap = WholeLayerUVWMap(layer);
  for (const LwPolygonRun& run : LwPolygonRuns(layer)) {
    if (run.type == lwid::CURV) {
      for (LwPolygonWalk walk(layer, run.first); walk.Index() < run.end; walk.Next())
        if (walk.Count() >= 3)
          ConvertCurve(layer, walk);
    } else {
      ConvertRun(layer, run.first, run.end);
    }
  }
}

void CLightwaveIo::ConvertCurve(const st_lwLayer& layer, LwPolygonWalk& poly) {
  auto curve = std::make_unique<C3DCurve>();
  auto points = std::make_unique<C3DPointList>();
  points->SetSize(int(poly.Count()));
  const std::uint32_t* v = poly.Vertices();
  C3DPoint* out = points->GetFirst();
  for (unsigned k = 0; k < poly.Count(); ++k) {
    float p[3];
    layer.GetPoint(v[k], p);
    out[k].x = p[0];
    out[k].y = p[1];
    out[k].z = p[2];
  }
  curve->SetPointList(points.release());
  curve->SetMaterialID(GetMaterial(curve.get(), poly.Surface()));
  CreateNode(m_scene, curve.release(), layer);
}

void CLightwaveIo::ConvertRun(const st_lwLayer& layer, std::size_t first, std::size_t end) {
  // The points of the layer's run before this one become unused again; after
  // the last run the whole table goes.
  for (std::uint32_t lp : m_runPoints)
    m_pointRemap[lp] = -1;
  m_runPoints.clear();
  std::size_t faceCount = 0;
  if (layer.polygonSpans.empty()) {
    for (std::size_t p = first; p < end; ++p)
      faceCount += layer.polygons[p].vertexCount >= 3;
  } else {
    // Runs are whole spans; the loader counted their small polygons.
    for (const auto& span : layer.polygonSpans)
      if (span.first >= first && span.first < end)
        faceCount += span.count - span.small;
  }
  if (faceCount == 0 || faceCount > std::size_t(INT_MAX))
    return;

  std::unique_ptr<C3DBaseObject> object;
  if (TypeAt(layer, first) == lwid::FACE)
    object = std::make_unique<C3DObject>();
  else
    object = std::make_unique<C3DPatch>();

  // Faces run the other way round from Lightwave polygons; points are
  // renumbered in the order the faces first use them.
  auto faces = std::make_unique<C3DFaceList>();
  auto points = std::make_unique<C3DPointList>();
  // The usual texture map: its faces repeat the mesh faces and are written
  // alongside them.
  const st_lwVMap* wholeMap = m_wholeUVWMap;
  std::unique_ptr<CUVWChannel> uvw;
  CUVWFaceList* uvwFaces = nullptr;
  if (wholeMap) {
    uvw = std::make_unique<CUVWChannel>();
    uvwFaces = uvw->GetUVWFaceList();
  }
  // The distinct surfaces of the run's polygons (lines too), in first-use
  // order, noted as the polygons are walked.
  const std::size_t surfaceCount = m_surfaceMaterial.size();
  std::vector<bool> seenSurface(surfaceCount + 1, false);
  std::uint32_t lastSurface = 0;
  bool anySurface = false;
  m_runSurfaces.clear();
  auto noteSurface = [&](std::uint32_t s) {
    if (anySurface && s == lastSurface)
      return;
    anySurface = true;
    lastSurface = s;
    const std::size_t key = s < surfaceCount ? s : surfaceCount;
    if (!seenSurface[key]) {
      seenSurface[key] = true;
      m_runSurfaces.push_back(s);
    }
  };
  // Object point -> layer point.
  std::vector<std::uint32_t> order;
  std::int32_t used = 0; // points numbered so far
  LwPolygonWalk walk(layer, first);
  // Numbers and fills faces [begin, blockEnd) of out.
  auto number = [&](int begin, int blockEnd, C3DFace* out) {
    for (int f = begin; f < blockEnd; walk.Next()) {
      PollRead(walk.Index() - first);
      const std::uint32_t s = walk.Surface();
      noteSurface(s);
      const unsigned n = walk.Count();
      if (n < 3)
        continue;
      C3DFace& face = out[f];
      face.SetSize(int(n));
      int* idx = face.GetData();
      const std::uint32_t* v = walk.Vertices();
      for (unsigned k = 0; k < n; ++k) {
        std::uint32_t lp = v[n - 1 - k];
        std::int32_t& mapped = m_pointRemap[lp];
        if (mapped < 0) {
          mapped = used++;
          order.push_back(lp);
        }
        idx[k] = mapped;
      }
      // Surfaces already converted are looked up without the call.
      face.SetMaterialID(s < m_surfaceMaterial.size() && m_surfaceMaterial[s] >= 0
                             ? unsigned(m_surfaceMaterial[s])
                             : GetMaterial(object.get(), s));
      ++f;
    }
  };
  const std::size_t maxPoints = layer.GetPointCount();
  std::optional<RunPipeline> pipeline;
  std::optional<SideTask> side;
  if (faceCount >= m_parallelFaces && maxPoints <= std::size_t(INT_MAX) &&
      std::thread::hardware_concurrency() != 1) {
    pipeline.emplace(layer, int(faceCount), int(maxPoints), *faces, *points, uvwFaces,
                     uvw ? uvw->GetUVWPointList() : nullptr, wholeMap, order);
    side.emplace([&](const std::atomic<bool>& stop) { pipeline->RunHelper(stop); });
    pipeline->RunMain(number);
    side->Join();
    pipeline->Adopt();
  } else {
    order.reserve(std::min(maxPoints, (end - first) * 4));
    GrowInBlocks(
        int(faceCount),
        [&](int begin, int blockEnd) {
          number(begin, blockEnd, faces->GetFirst());
          if (uvwFaces)
            CopyFaceRange(faces->GetFirst(), uvwFaces->GetFirst(), begin, blockEnd);
        },
        faces.get(), uvwFaces);
    FillPoints(layer, order, *points);
    if (uvw)
      FillUVWPoints(*wholeMap, order, *uvw->GetUVWPointList());
  }
  for (; walk.Index() < end; walk.Next()) // lines after the last face
    noteSurface(walk.Surface());
  m_runPoints = std::move(order);
  object->SetPointList(points.release());
  object->SetFaceList(faces.release());
  if (uvw) {
    AddUVWChannel(object.get(), std::move(uvw));
  } else {
    CreateUVWChannel(object.get(), layer, first, end, int(faceCount));
  }
  CreateVCChannel(object.get(), layer, first, end, int(faceCount));
  CreateNode(m_scene, object.release(), layer);
}

unsigned CLightwaveIo::GetMaterial(C3DBaseObject*, std::uint32_t surface) {
  if (surface >= m_surfaceMaterial.size())
    return m_scene->GetMaterial(0)->GetMaterialID();
  if (m_surfaceMaterial[surface] >= 0)
    return unsigned(m_surfaceMaterial[surface]);
  const st_lwSurface& s = m_object->surfaces[surface];
  C3DMaterial* material = m_scene->CreateNewMaterial();
  if (!s.source.empty()) {
    unsigned source = m_scene->GetMaterialID(s.source);
    if (source != 0xFFFFFFFFu)
      if (C3DMaterial* from = m_scene->GetMaterial(source); from && from != material)
        *material = *from;
  }

  const _lwChannelInfo* channel = s.FindChannel(lwid::COLR);
  if (!channel || channel->blocks.empty())
    channel = s.FindChannel(lwid::DIFF);
  if (channel)
    for (const auto& block : channel->blocks) {
      if (block.type != lwid::IMAP)
        continue;
      const st_lwClip* clip = m_object->FindClip(block.clip);
      if (!clip || clip->type != lwid::STIL || clip->fileName.empty())
        continue;
      if (!block.vmapName.empty() && m_surfaceUVMap[surface].empty())
        m_surfaceUVMap[surface] = block.vmapName;
      CFileInfo file(LwClipNameToLocal(clip->fileName));
      material->AddMaterialMap(file.GetCompleteName(), kNoChannel, MAP_DIFFUSE);
    }

  material->SetName(codec::MakeUniqueName(m_materialNames, s.name));

  CRGBColor colour(ColorByte(s.color[0]), ColorByte(s.color[1]), ColorByte(s.color[2]), 255);
  material->SetDiffuseColor(colour);
  material->SetAmbientColor(colour);
  material->SetDiffuseFactor(s.diffuse);
  material->SetAmbientFactor(s.luminosity);
  material->SetSpecularFactor(s.specular);
  material->SetTransparencyFactor(s.transparency);
  material->SetSmoothAngle(s.smoothingAngle);
  m_surfaceMaterial[surface] = material->GetMaterialID();
  return material->GetMaterialID();
}

void CLightwaveIo::CreateUVWChannel(C3DBaseObject* object, const st_lwLayer& layer,
                                    std::size_t first, std::size_t end, int faceCount) {
  auto maps = CollectMaps(layer, false);
  if (maps.empty())
    return;
  auto channel = std::make_unique<CUVWChannel>();
  CUVWFaceList& faces = *channel->GetUVWFaceList();
  CUVWPointList& points = *channel->GetUVWPointList();
  if (!FillWholeUVWMap(maps, m_runPoints, *object->GetFaceList(), faces, points)) {
    ChannelBuilder builder(maps, m_surfaceUVMap, false);
    faces.SetSize(faceCount);
    FillChannelFaces(faces, layer, first, end, builder);
    if (!builder.FoundAny())
      return;
    const auto& values = builder.Values();
    points.SetSize(int(values.size()));
    for (std::size_t i = 0; i < values.size(); ++i)
      points[int(i)].SetUV(values[i].v[0], values[i].v[1], values[i].v[2]);
  }

  AddUVWChannel(object, std::move(channel));
}

void CLightwaveIo::AddUVWChannel(C3DBaseObject* object, std::unique_ptr<CUVWChannel> channel) {
  const unsigned id = channel->GetID();
  object->AddChannel(channel.release());
  if (object->GetGlobalUVWChannel() == kNoChannel)
    object->SetGlobalUVWChannel(id);
  // Image maps of the run's materials are placed by this channel.
  for (std::uint32_t s : m_runSurfaces) {
    if (s < m_surfaceMaterial.size() && m_surfaceMaterial[s] >= 0)
      if (C3DMaterial* m = m_scene->GetMaterial(unsigned(m_surfaceMaterial[s])))
        if (CMaterialMap* map = m->GetDiffuseMaps(); map && map->GetChannelID() == kNoChannel)
          map->SetChannelID(id);
  }
}

void CLightwaveIo::CreateVCChannel(C3DBaseObject* object, const st_lwLayer& layer,
                                   std::size_t first, std::size_t end, int faceCount) {
  auto maps = CollectMaps(layer, true);
  if (maps.empty())
    return;
  std::vector<std::string> surfaceMaps(m_object->surfaces.size());
  for (std::size_t s = 0; s < surfaceMaps.size(); ++s)
    surfaceMaps[s] = m_object->surfaces[s].vcolName;
  ChannelBuilder builder(maps, surfaceMaps, true);
  auto channel = std::make_unique<CVCChannel>();
  CVCFaceList& faces = *channel->GetVCFaceList();
  faces.SetSize(faceCount);
  FillChannelFaces(faces, layer, first, end, builder);
  if (!builder.FoundAny())
    return;
  CVCPointList& points = *channel->GetVCPointList();
  const auto& values = builder.Values();
  points.SetSize(int(values.size()));
  for (std::size_t i = 0; i < values.size(); ++i) {
    const float* v = values[i].v;
    points[int(i)].SetColor(
        CRGBColor(ColorByte(v[0]), ColorByte(v[1]), ColorByte(v[2]), ColorByte(v[3])));
  }
  const unsigned id = channel->GetID();
  object->AddChannel(channel.release());
  // Materials whose surface asks for vertex colours are coloured by this channel.
  for (std::uint32_t s : m_runSurfaces) {
    if (s >= m_surfaceMaterial.size() || m_surfaceMaterial[s] < 0 ||
        m_object->surfaces[s].vcolName.empty())
      continue;
    if (C3DMaterial* m = m_scene->GetMaterial(unsigned(m_surfaceMaterial[s]))) {
      float factor;
      if (m->GetVertexColor(factor) == kNoChannel)
        m->SetVertexColor(id, m_object->surfaces[s].vcolIntensity);
    }
  }
}

C3DSceneNode* CLightwaveIo::CreateNode(C3DScene* scene, C3DBaseObject* object,
                                       const st_lwLayer& layer) {
  CCustomData record;
  record.SetInt(kCustomLayerNumber, int(layer.number) + 1);

  C3DSceneNode*& group = m_layerGroups[layer.number];
  if (!group) {
    group = new C3DSceneNode(new C3DGroup, 1);
    group->SetName(layer.name.empty() ? "Layer " + std::to_string(layer.number) : layer.name);
    group->GetCustomData().SetCustomData(kCustomLightwave, record);
    if (layer.flags & 1)
      group->SetFlag(kNodeHidden, 1);
    C3DSceneNode* parent = nullptr;
    const std::uint32_t parentNumber = ParentKey(layer);
    if (parentNumber > 0) {
      auto it = m_layerGroups.find(parentNumber);
      if (it != m_layerGroups.end() && it->second && it->second != group)
        parent = it->second;
    }
    scene->AddNode(parent, group);
  }
  auto* node = new C3DSceneNode(object, 1);
  node->SetName(group->GetName());
  node->GetCustomData().SetCustomData(kCustomLightwave, record);
  scene->AddNode(group, node);
  return node;
}

// ---------------------------------------------------------------------------
// Writing

namespace {

// Lightwave polygons hold at most 1023 vertices; a VX index names at most 2^24 items.
constexpr unsigned kMaxPolygonVertices = 0x3FF;

// The polygons a face or curve of n corners is written as, each as its corner
// indices in file order. A face runs the other way round from the file, and
// one longer than a polygon can hold becomes a fan around its first file
// corner; a curve becomes a chain of curves sharing their end points. Pieces
// are balanced so that none is left with fewer than three corners.
template <class Fn>
void ForEachPolygon(unsigned n, bool curve, std::vector<std::uint32_t>& buf, Fn fn) {
  auto corner = [&](unsigned i) { return curve ? i : n - 1 - i; };
  if (n <= kMaxPolygonVertices) {
    buf.resize(n);
    for (unsigned i = 0; i < n; ++i)
      buf[i] = corner(i);
    fn(buf.data(), n, true);
    return;
  }
  // A curve's pieces take up to 1022 segments; a fan's take up to 1021 edges
  // of the outline besides the two edges to the hub.
  const unsigned span = curve ? kMaxPolygonVertices - 1 : kMaxPolygonVertices - 2;
  const unsigned first = curve ? 0 : 1;
  const unsigned segments = n - 1 - first;
  const unsigned pieces = (segments + span - 1) / span;
  unsigned start = first;
  for (unsigned j = 0; j < pieces; ++j) {
    const unsigned end = first + unsigned(std::uint64_t(segments) * (j + 1) / pieces);
    buf.clear();
    if (!curve)
      buf.push_back(corner(0));
    for (unsigned i = start; i <= end; ++i)
      buf.push_back(corner(i));
    fn(buf.data(), unsigned(buf.size()), false);
    start = end;
  }
}

// One layer's share of the object being written.
struct LwPiece {
  // All of the object with its own numbering: nothing was past a limit.
  bool whole = true;
  // Otherwise: the written polygons [firstPolygon, endPolygon) of the object's
  // sequence, and layer point -> object point.
  std::size_t firstPolygon = 0, endPolygon = 0;
  std::vector<std::uint32_t> points;
};

} // namespace

struct CLightwaveIo::WritePlan {
  std::vector<LwPiece> pieces;
  std::size_t current = 0;
  // The object's written polygons, kept only when it is cut into layers.
  std::vector<std::uint32_t> face;  // source face (0 for a curve)
  std::vector<std::uint32_t> start; // into corners, one more than polygons
  std::vector<std::uint32_t> corners;
  std::vector<bool> whole; // the polygon is its whole face
  // Object point -> point of the current layer, -1 when not in it.
  std::vector<std::int32_t> local;
};

namespace {

int CornerCount(C3DBaseObject* object, int face) {
  if (object->GetKindOf() == OBJECT_CURVE)
    return object->GetPointList() ? object->GetPointList()->GetSize() : 0;
  return (*object->GetFaceList())[face].GetSize();
}

int FaceCount(C3DBaseObject* object) {
  if (object->GetKindOf() == OBJECT_CURVE)
    return object->GetPointList() && object->GetPointList()->GetSize() > 0 ? 1 : 0;
  C3DFaceList* faces = object->GetFaceList();
  return faces ? faces->GetSize() : 0;
}

// Object point of corner k of face f.
int CornerPoint(C3DBaseObject* object, int face, std::uint32_t k) {
  if (object->GetKindOf() == OBJECT_CURVE)
    return int(k);
  return (*object->GetFaceList())[face][int(k)];
}

} // namespace

void CLightwaveIo::PlanPieces(C3DBaseObject* object) {
  m_plan = std::make_unique<WritePlan>();
  WritePlan& plan = *m_plan;
  const bool curve = object->GetKindOf() == OBJECT_CURVE;
  const int pointCount = object->GetPointList() ? object->GetPointList()->GetSize() : 0;
  const int faceCount = FaceCount(object);
  bool fits = std::uint64_t(pointCount) <= m_indexLimit && std::uint64_t(faceCount) <= m_indexLimit;
  for (int f = 0; f < faceCount && fits; ++f)
    fits = CornerCount(object, f) <= int(kMaxPolygonVertices);
  if (fits) {
    plan.pieces.emplace_back();
    return;
  }

  plan.start.push_back(0);
  std::vector<std::uint32_t> buf;
  for (int f = 0; f < faceCount; ++f)
    ForEachPolygon(unsigned(CornerCount(object, f)), curve, buf,
                   [&](const std::uint32_t* c, unsigned n, bool whole) {
                     plan.face.push_back(std::uint32_t(f));
                     plan.corners.insert(plan.corners.end(), c, c + n);
                     plan.start.push_back(std::uint32_t(plan.corners.size()));
                     plan.whole.push_back(whole);
                   });

  // Greedy: a layer takes polygons while its points and polygons stay within the limit.
  plan.local.assign(std::size_t(std::max(pointCount, 0)), -1);
  LwPiece piece;
  piece.whole = false;
  auto close = [&](std::size_t end) {
    piece.endPolygon = end;
    for (std::uint32_t op : piece.points)
      plan.local[op] = -1;
    plan.pieces.push_back(std::move(piece));
    piece = LwPiece();
    piece.whole = false;
    piece.firstPolygon = end;
  };
  const std::size_t polygons = plan.face.size();
  for (std::size_t p = 0; p < polygons; ++p) {
    std::size_t fresh = 0;
    for (std::uint32_t c = plan.start[p]; c < plan.start[p + 1]; ++c) {
      int op = CornerPoint(object, int(plan.face[p]), plan.corners[c]);
      if (op >= 0 && op < pointCount && plan.local[std::size_t(op)] < 0)
        ++fresh;
    }
    if (p > piece.firstPolygon &&
        (piece.points.size() + fresh > m_indexLimit || p - piece.firstPolygon + 1 > m_indexLimit))
      close(p);
    for (std::uint32_t c = plan.start[p]; c < plan.start[p + 1]; ++c) {
      int op = CornerPoint(object, int(plan.face[p]), plan.corners[c]);
      if (op >= 0 && op < pointCount && plan.local[std::size_t(op)] < 0) {
        plan.local[std::size_t(op)] = std::int32_t(piece.points.size());
        piece.points.push_back(std::uint32_t(op));
      }
    }
  }
  close(polygons);
}

void CLightwaveIo::BeginPiece(C3DBaseObject*, std::size_t index) {
  WritePlan& plan = *m_plan;
  plan.current = index;
  const LwPiece& piece = plan.pieces[index];
  if (piece.whole)
    return;
  std::fill(plan.local.begin(), plan.local.end(), -1);
  for (std::size_t i = 0; i < piece.points.size(); ++i)
    plan.local[piece.points[i]] = std::int32_t(i);
}

// fn(face, corners in file order, corner count, whole face, polygon number in the layer)
// for every polygon of the current layer's share of the object.
template <class Fn> void CLightwaveIo::ForEachWrittenPolygon(C3DBaseObject* object, Fn fn) {
  const WritePlan& plan = *m_plan;
  const LwPiece& piece = plan.pieces[plan.current];
  if (piece.whole) {
    const bool curve = object->GetKindOf() == OBJECT_CURVE;
    const int faceCount = FaceCount(object);
    std::vector<std::uint32_t> buf;
    for (int f = 0; f < faceCount; ++f)
      ForEachPolygon(unsigned(CornerCount(object, f)), curve, buf,
                     [&](const std::uint32_t* c, unsigned n, bool whole) {
                       fn(f, c, n, whole, std::uint32_t(f));
                     });
    return;
  }
  for (std::size_t p = piece.firstPolygon; p < piece.endPolygon; ++p)
    fn(int(plan.face[p]), plan.corners.data() + plan.start[p], plan.start[p + 1] - plan.start[p],
       bool(plan.whole[p]), std::uint32_t(p - piece.firstPolygon));
}

void CLightwaveIo::ResetWriteState() {
  m_layerCounter = 0;
  m_vmapCounter = 0;
  m_materialTag.clear();
  m_fallbackTag = kLwNone;
  m_channelMapName.clear();
  m_materialMapName.clear();
  m_clipIndex.clear();
  m_materialClip.clear();
  m_nodeLayer.clear();
  m_plan.reset();
}

int CLightwaveIo::Save(const std::string& name, C3DScene* scene, unsigned flags) {
  if (!scene || scene->GetNodeNbr(0) == 0) {
    SetIoError(IO_FILE_EMPTY);
    return 0;
  }
  std::vector<std::uint8_t> bytes;
  if (!SaveToMemory(scene, flags, bytes))
    return 0;
  return codec::SaveWholeFile(*this, name, bytes.data(), bytes.size());
}

int CLightwaveIo::SaveToMemory(C3DScene* scene, unsigned flags, std::vector<std::uint8_t>& out) {
  if (!scene) {
    SetIoError(IO_FILE_EMPTY);
    return 0;
  }
  int changed = 0;
  C3DScene* exported = scene->InitExport(int(flags), changed);
  st_lwObject object;
  int result = 0;
  try {
    result = SaveLightwave6(object, exported);
  } catch (const CancelledSave&) {
    SetIoError(IO_FILE_CANCELLED);
    result = 0;
  } catch (const BadScene& bad) {
    SetIoError(IO_FILE_CANT_SAVE_OPTIONS, bad.what);
    result = 0;
  } catch (const std::bad_alloc&) {
    SetIoError(IO_FILE_NO_MEMORY);
    result = 0;
  }
  exported->ReleaseExport(exported, exported != scene);
  m_plan.reset();
  if (!result)
    return 0;
  CLwoWriter writer;
  switch (WriteLightwaveObject(object, writer, true)) {
  case LwWriteResult::Ok:
    out = std::move(writer.GetBuffer());
    return 1;
  case LwWriteResult::Cancelled:
    SetIoError(IO_FILE_CANCELLED);
    return 0;
  case LwWriteResult::DoesNotFit:
    break;
  }
  SetIoError(IO_FILE_CANT_SAVE_OPTIONS, "a chunk is longer than its size field can hold");
  return 0;
}

int CLightwaveIo::SaveLightwave6(st_lwObject& file, C3DScene* scene) {
  if (!scene || scene->GetNodeNbr(0) == 0) {
    SetIoError(IO_FILE_EMPTY);
    return 0;
  }
  ResetWriteState();
  m_saveScene = scene;
  file = st_lwObject();
  file.formType = lwid::LWO2;

  // The nodes written, in scene order: not hidden, not empty, not groups.
  std::vector<C3DSceneNode*> nodes;
  {
    const C3DBaseObject* object = nullptr;
    C3DSceneNode* cursor = scene->GetFirstNode(nullptr);
    while (cursor) {
      C3DSceneNode* node = scene->GetNextNode(object, cursor, nullptr);
      if (!node)
        break;
      C3DBaseObject* o = node->GetBaseObject();
      if (o && !node->IsFlagSet(kNodeHidden) && !o->IsFlagSet(OBJECT_EMPTY) &&
          o->GetKindOf() != OBJECT_GROUP)
        nodes.push_back(node);
    }
  }

  // Faces whose material is not in the scene get a default surface.
  std::unordered_map<std::uint32_t, bool> known;
  for (MaterialPosition c = scene->GetFirstMaterial(); c;)
    known[scene->GetNextMaterial(c)->GetMaterialID()] = true;
  for (C3DSceneNode* node : nodes) {
    C3DBaseObject* object = node->GetBaseObject();
    C3DFaceList* faces = object->GetFaceList();
    if (object->GetKindOf() == OBJECT_CURVE) {
      if (!known.count(static_cast<C3DCurve*>(object)->GetMaterialID()))
        m_fallbackTag = 0;
    } else if (faces) {
      for (int i = 0; i < faces->GetSize() && m_fallbackTag == kLwNone; ++i)
        if (!known.count((*faces)[i].GetMaterialID()))
          m_fallbackTag = 0;
    }
  }
  SaveMaterialsNames6(file);
  SaveClips6(file);

  CCancelCheck cancel(nodes.size(), 1);
  for (C3DSceneNode* node : nodes) {
    if (cancel.Tick()) {
      SetIoError(IO_FILE_CANCELLED);
      return 0;
    }
    C3DBaseObject* object = node->GetBaseObject();
    std::unique_ptr<C3DBaseObject> source;
    if (object->GetKindOf() == OBJECT_PATCH)
      if (C3DBaseObject* s = PatchSource(static_cast<C3DPatch*>(object)))
        source.reset(s);
    C3DBaseObject* written = source ? source.get() : object;
    PlanPieces(written);
    for (std::size_t piece = 0; piece < m_plan->pieces.size(); ++piece) {
      BeginPiece(written, piece);
      const unsigned number = SaveLayer6(file, node);
      if (piece == 0)
        m_nodeLayer[node] = number;
      SaveObjects6(file, written, object->GetKindOf());
      SaveUV6(file, written);
      SaveVC6(file, written);
    }
    m_plan.reset();
  }
  SaveMaterials6(file);
  m_saveScene = nullptr;
  return 1;
}

std::uint32_t CLightwaveIo::TagOf(std::uint32_t materialID) {
  auto it = m_materialTag.find(materialID);
  return it != m_materialTag.end() ? it->second : m_fallbackTag;
}

void CLightwaveIo::SaveMaterialsNames6(st_lwObject& file) {
  m_materialTag.clear();
  std::uint32_t tag = 0;
  MaterialPosition cursor = m_saveScene->GetFirstMaterial();
  while (cursor) {
    C3DMaterial* material = m_saveScene->GetNextMaterial(cursor);
    file.tags.push_back(material->GetName());
    m_materialTag[material->GetMaterialID()] = tag++;
  }
  if (m_fallbackTag != kLwNone) {
    m_fallbackTag = tag;
    file.tags.push_back("Default");
  }
}

void CLightwaveIo::SaveClips6(st_lwObject& file) {
  MaterialPosition cursor = m_saveScene->GetFirstMaterial();
  while (cursor) {
    C3DMaterial* material = m_saveScene->GetNextMaterial(cursor);
    CMaterialMap* map = material->GetDiffuseMaps();
    if (!map)
      continue;
    std::string name = LwLocalNameToClip(map->GetFileName());
    auto [it, inserted] = m_clipIndex.try_emplace(name, std::uint32_t(m_clipIndex.size()));
    m_materialClip[material->GetMaterialID()] = it->second;
    if (!inserted)
      continue;
    st_lwClip& clip = file.clips.emplace_back();
    clip.index = it->second;
    clip.type = lwid::STIL;
    clip.fileName = name;
  }
}

unsigned CLightwaveIo::SaveLayer6(st_lwObject& file, C3DSceneNode* node) {
  st_lwLayer& layer = file.layers.emplace_back();
  layer.number = m_layerCounter++;
  layer.flags = node->IsFlagSet(kNodeHidden) ? 1 : 0;
  layer.name = node->GetName();
  // The nearest ancestor written as a layer, or none.
  layer.parent = 0xFFFF;
  for (C3DSceneNode* up = m_saveScene->GetParent(node); up && !m_saveScene->IsSceneRoot(up);
       up = m_saveScene->GetParent(up))
    if (auto it = m_nodeLayer.find(up); it != m_nodeLayer.end()) {
      layer.parent = it->second;
      break;
    }
  layer.hasParent = true;
  return layer.number;
}

void CLightwaveIo::SaveObjects6(st_lwObject& file, C3DBaseObject* object, std::uint32_t kind) {
  st_lwLayer& layer = file.layers.back();
  const WritePlan& plan = *m_plan;
  const LwPiece& piece = plan.pieces[plan.current];
  C3DPointList* points = object->GetPointList();
  const int pointCount = points ? points->GetSize() : 0;
  if (pointCount > 0) {
    const C3DPoint* pt = points->GetFirst();
    auto put = [&](const C3DPoint& p) { layer.points.push_back(st_lwPoint{{p.x, p.y, p.z}}); };
    if (piece.whole) {
      layer.points.reserve(std::size_t(pointCount));
      for (int i = 0; i < pointCount; ++i)
        put(pt[i]);
    } else {
      layer.points.reserve(piece.points.size());
      for (std::uint32_t op : piece.points)
        put(pt[op]);
    }
  }

  const bool curve = object->GetKindOf() == OBJECT_CURVE;
  C3DFaceList* faces = object->GetFaceList();
  if (!curve && (!faces || faces->GetSize() == 0))
    return;
  const std::uint32_t type = curve ? lwid::CURV : kind == OBJECT_PATCH ? lwid::PACH : lwid::FACE;
  const std::uint32_t curveTag =
      curve ? TagOf(static_cast<C3DCurve*>(object)->GetMaterialID()) : kLwNone;
  if (piece.whole && faces && !curve) {
    layer.polygons.reserve(std::size_t(faces->GetSize()));
    layer.polygonVertices.reserve(std::size_t(faces->GetSize()) * 4);
  }
  CCancelCheck cancel;
  bool bad = false;
  ForEachWrittenPolygon(
      object, [&](int f, const std::uint32_t* c, unsigned n, bool, std::uint32_t) {
        if (cancel.Tick())
          throw CancelledSave{};
        st_lwPolygon poly;
        poly.type = type;
        poly.firstVertex = std::uint32_t(layer.polygonVertices.size());
        poly.vertexCount = std::uint16_t(n);
        poly.tag = curve ? curveTag : TagOf((*faces)[f].GetMaterialID());
        for (unsigned k = 0; k < n; ++k) {
          int op = CornerPoint(object, f, c[k]);
          if (op < 0 || op >= pointCount) {
            bad = true;
            op = 0;
          }
          layer.polygonVertices.push_back(piece.whole ? std::uint32_t(op)
                                                      : std::uint32_t(plan.local[std::size_t(op)]));
        }
        layer.polygons.push_back(poly);
      });
  if (bad)
    throw BadScene{"a face uses a point outside the object's point list"};
}

namespace {

// Entries of one per-polygon map from a channel parallel to the object's faces.
template <class FaceList, class Value>
void AddChannelEntries(st_lwVMap& map, const C3DFaceList& faces, const FaceList& chFaces,
                       int chPointCount, const std::vector<std::int32_t>* local, bool whole, int f,
                       const std::uint32_t* c, unsigned n, bool wholeFace, std::uint32_t polygon,
                       Value value) {
  if (f >= chFaces.GetSize() || f >= faces.GetSize())
    return;
  const auto& cf = chFaces[f];
  if (cf.IsOneFlagSet(kFaceSkipped))
    return;
  const C3DFace& mf = faces[f];
  const int corners = std::min(cf.GetSize(), mf.GetSize());
  auto add = [&](int k) {
    if (k >= corners)
      return;
    int t = cf[k];
    if (t < 0 || t >= chPointCount)
      return;
    map.points.push_back(whole ? std::uint32_t(mf[k])
                               : std::uint32_t((*local)[std::size_t(mf[k])]));
    map.polygons.push_back(polygon);
    value(t, map.values);
  };
  // A whole face lists its corners in the model's order, a piece in its own.
  if (wholeFace)
    for (int k = 0; k < corners; ++k)
      add(k);
  else
    for (unsigned i = 0; i < n; ++i)
      add(int(c[i]));
}

} // namespace

// One per-polygon map of the current layer from a channel parallel to the faces.
template <class FaceList, class Value>
void CLightwaveIo::AddChannelMap(st_lwObject& file, C3DBaseObject* object, std::uint32_t type,
                                 std::uint32_t dimension, const std::string& name,
                                 const FaceList& chFaces, int chPointCount, Value value) {
  st_lwVMap& map = file.layers.back().vmaps.emplace_back();
  map.type = type;
  map.dimension = dimension;
  map.name = name;
  map.perPolygon = true;
  const bool whole = m_plan->pieces[m_plan->current].whole;
  const C3DFaceList& faces = *object->GetFaceList();
  CCancelCheck cancel;
  ForEachWrittenPolygon(object, [&](int f, const std::uint32_t* cs, unsigned n, bool wholeFace,
                                    std::uint32_t polygon) {
    if (cancel.Tick())
      throw CancelledSave{};
    AddChannelEntries(map, faces, chFaces, chPointCount, &m_plan->local, whole, f, cs, n, wholeFace,
                      polygon, value);
  });
}

void CLightwaveIo::SaveUV6(st_lwObject& file, C3DBaseObject* object) {
  CDependentChannels* channels = object->GetChannels();
  C3DFaceList* faces = object->GetFaceList();
  if (!channels || !faces || object->GetKindOf() == OBJECT_CURVE)
    return;
  bool globalSeen = false;
  for (int c = 0; c < channels->GetSize(); ++c) {
    CChannel* channel = channels->GetChannel(c);
    if (!channel || channel->GetType() != CHANNEL_UVW)
      continue;
    auto* uvw = static_cast<CUVWChannel*>(channel);
    CUVWFaceList* chFaces = uvw->GetUVWFaceList();
    CUVWPointList* chPoints = uvw->GetUVWPointList();
    if (!chFaces || !chPoints)
      continue;
    std::string name = "UV Texture " + std::to_string(m_vmapCounter++);
    AddChannelMap(file, object, lwid::TXUV, 2, name, *chFaces, chPoints->GetSize(),
                  [&](int t, std::vector<float>& out) {
                    out.push_back((*chPoints)[t].u);
                    out.push_back(-(*chPoints)[t].v); // Lightwave's v runs the other way
                  });
    m_channelMapName[channel->GetID()] = name;
    // The object's main texture channel places its materials' images.
    bool global = object->GetGlobalUVWChannel() == channel->GetID() ||
                  (object->GetGlobalUVWChannel() == kNoChannel && !globalSeen);
    globalSeen = true;
    if (global)
      for (int i = 0; i < faces->GetSize(); ++i)
        m_materialMapName.try_emplace((*faces)[i].GetMaterialID(), name);
  }
}

void CLightwaveIo::SaveVC6(st_lwObject& file, C3DBaseObject* object) {
  CDependentChannels* channels = object->GetChannels();
  C3DFaceList* faces = object->GetFaceList();
  if (!channels || !faces || object->GetKindOf() == OBJECT_CURVE)
    return;
  for (int c = 0; c < channels->GetSize(); ++c) {
    CChannel* channel = channels->GetChannel(c);
    if (!channel || channel->GetType() != CHANNEL_VC)
      continue;
    auto* vc = static_cast<CVCChannel*>(channel);
    CVCFaceList* chFaces = vc->GetVCFaceList();
    CVCPointList* chPoints = vc->GetVCPointList();
    if (!chFaces || !chPoints)
      continue;
    std::string name = "VC Texture " + std::to_string(m_vmapCounter++);
    AddChannelMap(file, object, lwid::RGBA, 4, name, *chFaces, chPoints->GetSize(),
                  [&](int t, std::vector<float>& out) {
                    const CRGBColor& colour = (*chPoints)[t].GetColor();
                    for (std::uint8_t b : {colour.r, colour.g, colour.b, colour.a})
                      out.push_back(codec::ColorUnit(b));
                  });
    m_channelMapName[channel->GetID()] = name;
  }
}

void CLightwaveIo::SaveMaterials6(st_lwObject& file) {
  for (MaterialPosition cursor = m_saveScene->GetFirstMaterial(); cursor;) {
    const C3DMaterial& material = *m_saveScene->GetNextMaterial(cursor);
    const std::uint32_t id = material.GetMaterialID();
    st_lwSurface& s = file.surfaces.emplace_back();
    s.name = material.GetName();
    const CRGBColor& c = material.GetDiffuseColor();
    s.color[0] = codec::ColorUnit(c.r);
    s.color[1] = codec::ColorUnit(c.g);
    s.color[2] = codec::ColorUnit(c.b);
    s.luminosity = material.GetAmbientFactor();
    s.diffuse = material.GetDiffuseFactor();
    s.specular = material.GetSpecularFactor();
    s.transparency = material.GetTransparencyFactor();
    s.smoothingAngle = material.GetSmoothAngle();
    s.side = 3;
    if (CMaterialMap* map = material.GetDiffuseMaps()) {
      st_lwBlock block;
      block.type = lwid::IMAP;
      block.ordinal = GetOrdinalString(0, 0);
      block.channel = lwid::COLR;
      block.axis = 2;
      block.projection = 5; // UV
      if (auto it = m_channelMapName.find(map->GetChannelID()); it != m_channelMapName.end())
        block.vmapName = it->second;
      else if (auto jt = m_materialMapName.find(id); jt != m_materialMapName.end())
        block.vmapName = jt->second;
      if (auto clip = m_materialClip.find(id); clip != m_materialClip.end())
        block.clip = clip->second;
      if (block.clip != kLwNone || !block.vmapName.empty())
        s.GetChannel(lwid::COLR).blocks.push_back(std::move(block));
    }
    float factor = 1.0f;
    unsigned vcChannel = material.GetVertexColor(factor);
    if (auto it = m_channelMapName.find(vcChannel);
        vcChannel != kNoChannel && it != m_channelMapName.end()) {
      s.vcolName = it->second;
      s.vcolIntensity = factor;
      s.vcolType = lwid::RGBA;
    }
  }
  if (m_fallbackTag != kLwNone) {
    st_lwSurface& s = file.surfaces.emplace_back();
    s.name = "Default";
    s.side = 3;
  }
}

} // namespace meshcore

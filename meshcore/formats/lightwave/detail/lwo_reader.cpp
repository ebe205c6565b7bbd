#include "meshcore/formats/lightwave/detail/lwo_reader.h"
#include "meshcore/formats/lightwave/detail/lwo_vx.h"

#include "meshcore/formats/common/detail/binary_cursor.h"
#include "meshcore/formats/common/detail/chunk_walker.h"
#include "meshcore/platform/cancel.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <exception>
#include <limits>
#include <mutex>
#include <new>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <utility>

namespace meshcore {

namespace {

using codec::CBinaryCursor;
using codec::CFormatError;
using codec::LoadF32BE;
using codec::LoadU16BE;
using codec::LoadU32BE;

// Records between two polls of the cancel flag inside one chunk.
constexpr unsigned kPollPeriod = 8192;
constexpr std::size_t kPollMask = kPollPeriod - 1;

// Thrown from a bulk loop when the operation has been asked to stop.
struct Cancelled {};

// Set on the second thread: the flag it polls instead of the cancel request,
// which is kept per thread and so is not visible there.
thread_local const std::atomic<bool>* tl_laneStop = nullptr;

// What a chunk's indices are checked against, taken when the chunk is met.
struct LayerCounts {
  std::uint64_t points = 0, polygons = 0;
  std::uint32_t pointBase = 0, polygonBase = 0;
};

// Size in bytes of the variable-length index starting at p.
inline unsigned VXSize(const std::uint8_t* p) {
  return p[0] == 0xFF ? 4u : 2u;
}
// Decodes a variable-length index whose bytes are known to be present.
inline std::uint32_t LoadVX(const std::uint8_t* p, unsigned& size) {
  if (p[0] == 0xFF) {
    size = 4;
    return LoadU32BE(p) & 0x00FFFFFFu;
  }
  size = 2;
  return LoadU16BE(p);
}

// A bounded view of one chunk or sub-chunk: the shared cursor plus the two
// encodings of this format, VX and the sub-chunk header.
class Span : public CBinaryCursor {
public:
  Span(const CBinaryCursor& c) : CBinaryCursor(c) {}

  const std::uint8_t* Pos() const { return Data(); }
  bool Empty() const { return AtEnd(); }
  std::uint16_t U2() { return U16(); }
  std::int16_t I2() { return I16(); }
  std::uint32_t U4() { return U32(); }
  std::uint8_t U1() { return U8(); }
  float F4() { return F32(); }
  std::uint32_t VX() {
    Need(2);
    if (Data()[0] == 0xFF)
      Need(4);
    unsigned n;
    auto v = LoadVX(Data(), n);
    Skip(n);
    return v;
  }
  // A zero-terminated string and its pad byte; the pad may be missing at the
  // very end of the chunk.
  std::string S0() { return ZString(true); }
  // The next sub-chunk (ID4, U2 size); an odd size is followed by a pad byte.
  Span SubChunk(std::uint32_t& id) {
    id = Id();
    std::uint16_t size = U16();
    Span s(Sub(size));
    if ((size & 1) && !AtEnd())
      Skip(1);
    return s;
  }
};

bool IsBlockHeader(std::uint32_t id) {
  return id == lwid::IMAP || id == lwid::PROC || id == lwid::GRAD || id == lwid::SHDR;
}

// Walks nested sub-chunks only to check that their sizes hold together.
void CheckSubChunks(Span s) {
  while (!s.Empty()) {
    std::uint32_t id;
    s.SubChunk(id);
  }
}

class Loader {
public:
  Loader(const std::uint8_t* data, std::size_t size, const LwLoadOptions& options,
         LwLoadStatus& status)
      : base_(data), size_(size), options_(options), status_(status), cancel_(size, kPollPeriod) {}

  ~Loader() { StopLane(); }

  std::unique_ptr<st_lwObject> Run();

private:
  void ReadLwo2(std::size_t formEnd);
  void ReadLwob(std::size_t formEnd);
  template <class Handler> void ForEachChunk(std::size_t formEnd, Handler handler);

  void ReadLayer(Span c, bool first);
  void ReadPoints(Span c);
  void DecodePoints(st_lwLayer& layer, const std::uint8_t* p, std::size_t old, std::size_t count);
  void ReadBBox(Span c);
  void ReadPolygons(Span c);
  // Whether points and polygons may stay in the bytes.
  bool Views() const {
    return options_.polygonSpans && !options_.polygonNormals && !options_.pointPolygons &&
           !options_.vertexNormals;
  }
  bool SpansFor(const st_lwLayer& layer) const { return Views() && layer.polygons.empty(); }
  void SpanPolygons(Span c, std::uint32_t type);
  void ReadPolygonTags(Span c);
  void ReadTags(Span c);
  void ReadVMap(Span c, bool perPolygon);
  void DecodeVMap(st_lwLayer& layer, Span c, bool perPolygon, const LayerCounts& counts);
  LayerCounts Counts() {
    st_lwLayer& layer = Layer();
    return {points_, layer.GetPolygonCount(), layer.pointBase, layer.polygonBase};
  }

  // The lane: large point and per-point map chunks depend on nothing but the
  // point count, which the chunk sizes give, so a second thread decodes them
  // while this one reads the polygons. Its chunks keep their file order; the
  // lane is drained before anything that touches what it writes (a new
  // layer, a box, a per-polygon map) and at the end. A failure on the lane
  // is reported as the sequential read would: it came from an earlier chunk.
  struct LaneJob {
    std::uint32_t id;
    Span span;
    st_lwLayer* layer;
    std::size_t old, count; // points
    LayerCounts counts;     // maps
  };
  bool LaneActive() const { return laneThread_.joinable(); }
  // A single processor gains nothing from the lane.
  bool LaneFor(const Span& c) const {
    return c.Remaining() >= options_.laneBytes && std::thread::hardware_concurrency() != 1;
  }
  void Post(LaneJob job);
  void LaneMain();
  void DrainLane(); // waits for the queued chunks, then passes on a failure among them
  void StopLane();  // abandons them
  void ReadClip(Span c);
  void ReadEnvelope(Span c);
  void ReadSurface(Span c);
  void ReadBlock(Span c, st_lwSurface& surface);

  void ReadOldPolygons(Span c, std::uint32_t type, bool curves);
  void ReadOldSurface(Span c);

  void Finish();
  void PollAt(const std::uint8_t* p);

  st_lwLayer& Layer() { return object_->layers.back(); }

  const std::uint8_t* base_;
  std::size_t size_;
  const LwLoadOptions& options_;
  LwLoadStatus& status_;
  std::unique_ptr<st_lwObject> object_;
  CCancelCheck cancel_;
  std::uint64_t points_ = 0; // of the current layer, counting chunks the lane still decodes

  std::mutex laneMutex_;
  std::condition_variable laneWake_;
  std::deque<LaneJob> laneJobs_;
  bool laneClosed_ = false;
  std::atomic<bool> laneStop_{false};
  std::exception_ptr laneError_;
  std::uint32_t laneErrorId_ = 0;
  std::thread laneThread_;
};

void Loader::Post(LaneJob job) {
  if (!LaneActive()) {
    laneClosed_ = false;
    laneStop_ = false;
    try {
      laneThread_ = std::thread([this] { LaneMain(); });
    } catch (const std::system_error&) {
      // No second thread: decode here.
      if (job.id == lwid::PNTS)
        DecodePoints(*job.layer, job.span.Pos(), job.old, job.count);
      else
        DecodeVMap(*job.layer, job.span, false, job.counts);
      return;
    }
  }
  {
    std::lock_guard lock(laneMutex_);
    laneJobs_.push_back(job);
  }
  laneWake_.notify_one();
}

void Loader::LaneMain() {
  tl_laneStop = &laneStop_;
  for (;;) {
    std::optional<LaneJob> next;
    {
      std::unique_lock lock(laneMutex_);
      laneWake_.wait(lock, [&] { return laneClosed_ || !laneJobs_.empty(); });
      if (laneJobs_.empty())
        break;
      next.emplace(laneJobs_.front());
      laneJobs_.pop_front();
    }
    const LaneJob& job = *next;
    try {
      if (job.id == lwid::PNTS)
        DecodePoints(*job.layer, job.span.Pos(), job.old, job.count);
      else
        DecodeVMap(*job.layer, job.span, false, job.counts);
    } catch (...) {
      laneError_ = std::current_exception();
      laneErrorId_ = job.id;
      std::lock_guard lock(laneMutex_);
      laneJobs_.clear(); // later chunks would not have been read
      break;
    }
  }
  tl_laneStop = nullptr;
}

void Loader::DrainLane() {
  if (!LaneActive())
    return;
  {
    std::lock_guard lock(laneMutex_);
    laneClosed_ = true;
  }
  laneWake_.notify_one();
  laneThread_.join();
  if (laneError_) {
    status_.chunkId = laneErrorId_;
    std::rethrow_exception(std::exchange(laneError_, nullptr));
  }
}

void Loader::StopLane() {
  laneStop_ = true;
  try {
    DrainLane();
  } catch (...) {
    // abandoned: its failure no longer matters
  }
}

std::unique_ptr<st_lwObject> Loader::Run() {
  status_ = {};
  if (size_ < 12) {
    status_.position = size_;
    status_.detail = "file of " + std::to_string(size_) + " bytes is too short for a header";
    return nullptr;
  }
  std::uint32_t form = LoadU32BE(base_), formSize = LoadU32BE(base_ + 4),
                type = LoadU32BE(base_ + 8);
  if (form != lwid::FORM || (type != lwid::LWO2 && type != lwid::LWOB)) {
    status_.position = 12;
    status_.detail =
        "not a Lightwave object (" + codec::IdToString(form) + " " + codec::IdToString(type) + ")";
    return nullptr;
  }
  // A form that claims more bytes than the file holds is a truncated file.
  std::uint64_t formEnd = std::uint64_t(formSize) + 8;
  if (formEnd > size_ || formEnd < 12) {
    status_.position = 4;
    status_.detail =
        codec::DescribeFailure("FORM", 4,
                               "size " + std::to_string(formSize) + " but the file has " +
                                   std::to_string(size_ - 8) + " bytes after it");
    return nullptr;
  }
  try {
    object_ = std::make_unique<st_lwObject>();
    object_->formType = type;
    object_->layers.emplace_back();
    try {
      if (type == lwid::LWO2)
        ReadLwo2(std::size_t(formEnd));
      else
        ReadLwob(std::size_t(formEnd));
    } catch (const Cancelled&) {
      StopLane();
      throw;
    } catch (...) {
      DrainLane(); // a failure among the lane's chunks came first
      throw;
    }
    if (status_.cancelled)
      return nullptr;
    DrainLane();
    status_.chunkId = 0;
    status_.position = std::size_t(formEnd);
    Finish();
  } catch (const CFormatError& bad) {
    status_.position = bad.GetOffset();
    status_.detail =
        codec::DescribeFailure(status_.chunkId ? codec::IdToString(status_.chunkId) : std::string(),
                               bad.GetOffset(), bad.GetWhat());
    return nullptr;
  } catch (const Cancelled&) {
    status_.cancelled = true;
    return nullptr;
  } catch (const std::bad_alloc&) {
    status_.detail = "out of memory";
    return nullptr;
  } catch (const std::length_error&) {
    status_.detail = "out of memory";
    return nullptr;
  }
  return std::move(object_);
}

template <class Handler> void Loader::ForEachChunk(std::size_t formEnd, Handler handler) {
  codec::CChunkWalker walker(
      CBinaryCursor(base_, base_ + 12, base_ + formEnd, codec::ByteOrder::Big), codec::kIffChunks,
      options_.cancellable ? &cancel_ : nullptr);
  codec::Chunk chunk;
  for (;;) {
    status_.chunkId = 0;
    bool more = false;
    try {
      more = walker.Next(chunk);
    } catch (const CFormatError&) {
      status_.chunkId = walker.GetCurrentId(); // a bad header names its chunk when it can
      throw;
    }
    if (walker.IsCancelled()) {
      status_.cancelled = true;
      status_.position = walker.GetCurrentOffset();
      return;
    }
    if (!more)
      return;
    status_.chunkId = chunk.id;
    handler(chunk.id, Span(chunk.body));
  }
}

// Polls the cancel flag (and reports how far the bytes are read); bulk loops
// call it every kPollPeriod records.
void Loader::PollAt(const std::uint8_t* p) {
  if (tl_laneStop) {
    if (tl_laneStop->load(std::memory_order_relaxed))
      throw Cancelled{};
    return;
  }
  if (options_.cancellable && cancel_.At(std::uint64_t(p - base_)))
    throw Cancelled{};
}

void Loader::ReadLwo2(std::size_t formEnd) {
  bool firstLayer = true;
  ForEachChunk(formEnd, [&](std::uint32_t id, Span c) {
    switch (id) {
    case lwid::LAYR:
      DrainLane();
      ReadLayer(c, firstLayer);
      firstLayer = false;
      break;
    case lwid::PNTS:
      ReadPoints(c);
      break;
    case lwid::BBOX:
      DrainLane();
      ReadBBox(c);
      break;
    case lwid::POLS:
      ReadPolygons(c);
      break;
    case lwid::PTAG:
      ReadPolygonTags(c);
      break;
    case lwid::TAGS:
      ReadTags(c);
      break;
    case lwid::SURF:
      ReadSurface(c);
      break;
    case lwid::CLIP:
      ReadClip(c);
      break;
    case lwid::ENVL:
      ReadEnvelope(c);
      break;
    case lwid::VMAP:
      ReadVMap(c, false);
      break;
    case lwid::VMAD:
      DrainLane();
      Layer().DecodeSpans(); // its entries attach to polygon vertices
      ReadVMap(c, true);
      break;
    default:
      break;
    }
  });
}

void Loader::ReadLwob(std::size_t formEnd) {
  ForEachChunk(formEnd, [&](std::uint32_t id, Span c) {
    switch (id) {
    case lwid::PNTS:
      ReadPoints(c);
      break;
    case lwid::SRFS:
      ReadTags(c);
      break;
    case lwid::POLS:
      ReadOldPolygons(c, lwid::FACE, false);
      break;
    case lwid::PCHS:
      ReadOldPolygons(c, lwid::PTCH, false);
      break;
    case lwid::CRVS:
      ReadOldPolygons(c, lwid::CURV, true);
      break;
    case lwid::SURF:
      ReadOldSurface(c);
      break;
    default:
      break;
    }
  });
}

void Loader::ReadLayer(Span c, bool first) {
  if (!first)
    object_->layers.emplace_back();
  st_lwLayer& layer = Layer();
  points_ = layer.GetPointCount();
  layer.number = c.U2();
  layer.flags = c.U2();
  for (float& v : layer.pivot)
    v = c.F4();
  layer.name = c.S0();
  if (c.Remaining() >= 2) {
    layer.parent = c.U2();
    layer.hasParent = true;
  }
}

void Loader::ReadPoints(Span c) {
  if (c.Remaining() % 12 != 0)
    c.Fail("size " + std::to_string(c.Remaining()) + " is not a whole number of points");
  st_lwLayer& layer = Layer();
  std::size_t count = c.Remaining() / 12;
  std::size_t old = std::size_t(points_);
  if (old + count > std::numeric_limits<std::uint32_t>::max())
    c.Fail("more than 2^32 points in the layer");
  layer.pointBase = std::uint32_t(old);
  points_ = old + count;
  if (Views() && old == 0) {
    layer.pointBytes = c.Pos();
    layer.viewPoints = count;
    return;
  }
  if (layer.pointBytes) {
    // A second chunk: the first is decoded after all.
    DrainLane();
    const std::uint8_t* first = std::exchange(layer.pointBytes, nullptr);
    DecodePoints(layer, first, 0, std::exchange(layer.viewPoints, 0));
  }
  if (LaneActive() || LaneFor(c))
    Post({lwid::PNTS, c, &layer, old, count, {}});
  else
    DecodePoints(layer, c.Pos(), old, count);
}

void Loader::DecodePoints(st_lwLayer& layer, const std::uint8_t* p, std::size_t old,
                          std::size_t count) {
  layer.points.resize(old + count);
  st_lwPoint* out = layer.points.data() + old;
  // The box is kept up to date while the points are hot, unless the file gives one.
  const bool box = !layer.hasBBox && count > 0;
  float lo[3], hi[3];
  if (box)
    for (int k = 0; k < 3; ++k) {
      lo[k] = old ? layer.bbox[k] : LoadF32BE(p + 4 * k);
      hi[k] = old ? layer.bbox[3 + k] : lo[k];
    }
  for (std::size_t i = 0; i < count; ++i, p += 12) {
    if ((i & kPollMask) == 0)
      PollAt(p);
    out[i].pos[0] = LoadF32BE(p);
    out[i].pos[1] = LoadF32BE(p + 4);
    out[i].pos[2] = LoadF32BE(p + 8);
    if (box)
      for (int k = 0; k < 3; ++k) {
        lo[k] = std::min(lo[k], out[i].pos[k]);
        hi[k] = std::max(hi[k], out[i].pos[k]);
      }
  }
  if (box)
    for (int k = 0; k < 3; ++k) {
      layer.bbox[k] = lo[k];
      layer.bbox[3 + k] = hi[k];
    }
}

void Loader::ReadBBox(Span c) {
  st_lwLayer& layer = Layer();
  for (float& v : layer.bbox)
    v = c.F4();
  layer.hasBBox = true;
}

void Loader::ReadPolygons(Span c) {
  st_lwLayer& layer = Layer();
  std::uint32_t type = c.U4();
  const std::uint8_t* begin = c.Pos();
  const std::uint8_t* end = c.End();
  const std::uint64_t pointCount = points_;
  const std::uint32_t pointBase = layer.pointBase;

  if (SpansFor(layer)) {
    SpanPolygons(c, type);
    return;
  }
  // One pass that checks and decodes. Every vertex takes two bytes or more, so
  // the vertex room is reserved once; pages never written cost nothing.
  const std::size_t oldPolygons = layer.polygons.size();
  const std::size_t oldVertices = layer.polygonVertices.size();
  const std::size_t maxVertices = std::size_t(end - begin) / 2;
  layer.polygonVertices.reserve(oldVertices + maxVertices);
  layer.polygons.reserve(oldPolygons + maxVertices / 4 + 1); // quads with short indices
  auto& verts = layer.polygonVertices;
  for (const std::uint8_t* p = begin; p < end;) {
    if (((layer.polygons.size() - oldPolygons) & kPollMask) == 0)
      PollAt(p);
    if (end - p < 2)
      c.FailAt(p, "polygon " + std::to_string(layer.polygons.size() - oldPolygons) + " cut short");
    LwFetchAhead(p);
    const std::uint16_t word = LoadU16BE(p);
    p += 2;
    const unsigned n = word & 0x03FF;
    const auto first = std::uint32_t(verts.size());
    for (unsigned i = 0; i < n; ++i) {
      if (end - p < 2 || (p[0] == 0xFF && end - p < 4))
        c.FailAt(p, "polygon " + std::to_string(layer.polygons.size() - oldPolygons) +
                        " cut short at vertex " + std::to_string(i) + " of " + std::to_string(n));
      unsigned size;
      const std::uint32_t v = LoadVX(p, size);
      if (std::uint64_t(pointBase) + v >= pointCount)
        c.FailAt(p, "polygon " + std::to_string(layer.polygons.size() - oldPolygons) +
                        " uses point " + std::to_string(std::uint64_t(pointBase) + v) + " of " +
                        std::to_string(pointCount));
      verts.push_back(pointBase + v);
      p += size;
    }
    layer.polygons.push_back(
        st_lwPolygon{type, kLwNone, kLwNone, first, std::uint16_t(n), std::uint16_t(word >> 10)});
  }
  if (layer.polygons.size() > std::numeric_limits<std::uint32_t>::max() ||
      verts.size() > std::numeric_limits<std::uint32_t>::max())
    c.FailAt(begin, "more than 2^32 polygons or vertices in the layer");
  layer.polygonBase = std::uint32_t(oldPolygons);
}

// The same checks as the decoding pass, the same failures, nothing stored
// but the span.
void Loader::SpanPolygons(Span c, std::uint32_t type) {
  st_lwLayer& layer = Layer();
  const std::uint8_t* begin = c.Pos();
  const std::uint8_t* end = c.End();
  const std::uint64_t pointCount = points_;
  const std::uint32_t pointBase = layer.pointBase;
  const std::size_t oldPolygons = layer.spanPolygons;
  std::size_t count = 0, small = 0;
  std::uint64_t vertices = layer.spanVertices;
  for (const std::uint8_t* p = begin; p < end; ++count) {
    if ((count & kPollMask) == 0)
      PollAt(p);
    if (end - p < 2)
      c.FailAt(p, "polygon " + std::to_string(count) + " cut short");
    LwFetchAhead(p);
    const unsigned n = LoadU16BE(p) & 0x03FF;
    p += 2;
    small += n < 3;
    vertices += n;
    // Indices of one width need only the largest checked; anything else
    // (mixed widths, short room, an index out of range) goes through the
    // checking loop, which names the failure.
    std::uint32_t most;
    const std::uint8_t* next;
    if (LwUniformVX(p, end, n, nullptr, most, next) &&
        std::uint64_t(pointBase) + most < pointCount) {
      p = next;
      continue;
    }
    for (unsigned i = 0; i < n; ++i) {
      if (end - p < 2 || (p[0] == 0xFF && end - p < 4))
        c.FailAt(p, "polygon " + std::to_string(count) + " cut short at vertex " +
                        std::to_string(i) + " of " + std::to_string(n));
      unsigned size;
      const std::uint32_t v = LoadVX(p, size);
      if (std::uint64_t(pointBase) + v >= pointCount)
        c.FailAt(p, "polygon " + std::to_string(count) + " uses point " +
                        std::to_string(std::uint64_t(pointBase) + v) + " of " +
                        std::to_string(pointCount));
      p += size;
    }
  }
  if (oldPolygons + count > std::numeric_limits<std::uint32_t>::max() ||
      vertices > std::numeric_limits<std::uint32_t>::max())
    c.FailAt(begin, "more than 2^32 polygons or vertices in the layer");
  layer.polygonSpans.push_back({type, std::uint32_t(oldPolygons), std::uint32_t(count),
                                std::uint32_t(small), pointBase, begin, end});
  layer.spanPolygons = oldPolygons + count;
  layer.spanVertices = vertices;
  layer.polygonBase = std::uint32_t(oldPolygons);
}

void Loader::ReadPolygonTags(Span c) {
  st_lwLayer& layer = Layer();
  std::uint32_t type = c.U4();
  std::vector<std::uint32_t>* extra = nullptr;
  if (type == lwid::PART)
    extra = &layer.partTags;
  else if (type == lwid::SMGP)
    extra = &layer.smoothingGroups;
  else if (type != lwid::SURF)
    return;
  const std::uint64_t count = layer.GetPolygonCount();
  if (!extra && !layer.polygonSpans.empty())
    extra = &layer.spanSurfaces;
  if (extra)
    extra->resize(std::size_t(count), kLwNone);
  std::size_t entry = 0;
  {
    // Entries with room for the longest encoding (VX of 4 bytes, U2) need no
    // check per byte; the last few go through the checking loop below.
    const std::uint8_t* p = c.Pos();
    const std::uint8_t* const end = c.End();
    std::uint32_t* const surfaces = extra ? extra->data() : nullptr;
    for (; end - p >= 6; ++entry) {
      if ((entry & kPollMask) == 0)
        PollAt(p);
      LwFetchAhead(p);
      unsigned size;
      const std::uint64_t poly = std::uint64_t(layer.polygonBase) + LoadVX(p, size);
      if (poly >= count)
        break; // the checking loop reports it
      const std::uint16_t tag = LoadU16BE(p + size);
      if (surfaces)
        surfaces[poly] = tag;
      else
        layer.polygons[poly].tag = tag;
      p += size + 2;
    }
    c.Skip(std::size_t(p - c.Pos()));
  }
  for (; !c.Empty(); ++entry) {
    const std::uint8_t* at = c.Pos();
    if ((entry & kPollMask) == 0)
      PollAt(at);
    std::uint64_t poly = std::uint64_t(layer.polygonBase) + c.VX();
    std::uint16_t tag = c.U2();
    if (poly >= count)
      c.FailAt(at, "polygon " + std::to_string(poly) + " of " + std::to_string(count));
    if (extra)
      (*extra)[poly] = tag;
    else
      layer.polygons[poly].tag = tag;
  }
}

void Loader::ReadTags(Span c) {
  while (!c.Empty())
    object_->tags.push_back(c.S0());
}

void Loader::ReadVMap(Span c, bool perPolygon) {
  if (!perPolygon && (LaneActive() || LaneFor(c)))
    Post({lwid::VMAP, c, &Layer(), 0, 0, Counts()});
  else
    DecodeVMap(Layer(), c, perPolygon, Counts());
}

void Loader::DecodeVMap(st_lwLayer& layer, Span c, bool perPolygon, const LayerCounts& counts) {
  st_lwVMap map;
  map.type = c.U4();
  map.dimension = c.U2();
  map.name = c.S0();
  map.perPolygon = perPolygon;

  const std::uint8_t* begin = c.Pos();
  const std::uint8_t* end = c.End();
  const std::size_t valueBytes = std::size_t(map.dimension) * 4;
  const std::uint64_t pointCount = counts.points, polygonCount = counts.polygons;
  const std::uint64_t pointBase = counts.pointBase, polygonBase = counts.polygonBase;

  // One pass that checks and decodes, into room for the most entries the
  // chunk can hold (pages never written cost nothing).
  const std::size_t minEntry = (perPolygon ? 4 : 2) + valueBytes;
  const std::size_t maxEntries = std::size_t(end - begin) / minEntry;
  map.points.reserve(maxEntries);
  if (perPolygon)
    map.polygons.reserve(maxEntries);
  map.values.reserve(maxEntries * map.dimension);
  // A per-point map is attached to the points as it is read (on the lane,
  // off the main thread's path); Finish redoes it if more points follow.
  if (!perPolygon)
    map.attached.assign(std::size_t(pointCount), -1);
  for (const std::uint8_t* p = begin; p < end;) {
    const std::size_t entry = map.points.size();
    if ((entry & kPollMask) == 0)
      PollAt(p);
    LwFetchAhead(p);
    for (int k = 0; k < (perPolygon ? 2 : 1); ++k) {
      if (end - p < 2 || (p[0] == 0xFF && end - p < 4))
        c.FailAt(p, "entry " + std::to_string(entry) + " cut short");
      unsigned size;
      std::uint64_t v = LoadVX(p, size) + (k == 0 ? pointBase : polygonBase);
      if (v >= (k == 0 ? pointCount : polygonCount))
        c.FailAt(p, "entry " + std::to_string(entry) + " names " +
                        (k == 0 ? "point " : "polygon ") + std::to_string(v) + " of " +
                        std::to_string(k == 0 ? pointCount : polygonCount));
      (k == 0 ? map.points : map.polygons).push_back(std::uint32_t(v));
      if (!perPolygon)
        map.attached[std::size_t(v)] = std::int32_t(entry);
      p += size;
    }
    if (std::size_t(end - p) < valueBytes)
      c.FailAt(p, "entry " + std::to_string(entry) + " values cut short");
    for (std::uint32_t d = 0; d < map.dimension; ++d, p += 4)
      map.values.push_back(LoadF32BE(p));
  }
  layer.vmaps.push_back(std::move(map));
}

void Loader::ReadClip(Span c) {
  st_lwClip clip;
  clip.index = c.U4();
  bool first = true;
  while (!c.Empty()) {
    std::uint32_t id;
    Span s = c.SubChunk(id);
    if (first)
      clip.type = id;
    first = false;
    if (id == lwid::STIL && clip.fileName.empty())
      clip.fileName = s.S0();
  }
  object_->clips.push_back(std::move(clip));
}

void Loader::ReadEnvelope(Span c) {
  st_lwEnvelope env;
  env.index = c.VX();
  while (!c.Empty()) {
    std::uint32_t id;
    c.SubChunk(id);
    if (id == LwId("KEY "))
      ++env.keyCount;
  }
  object_->envelopes.push_back(env);
}

void Loader::ReadSurface(Span c) {
  st_lwSurface surf;
  surf.name = c.S0();
  surf.source = c.S0();
  while (!c.Empty()) {
    std::uint32_t id;
    Span s = c.SubChunk(id);
    switch (id) {
    case lwid::COLR:
      for (float& v : surf.color)
        v = s.F4();
      break;
    case lwid::LUMI:
      surf.luminosity = s.F4();
      break;
    case lwid::DIFF:
      surf.diffuse = s.F4();
      break;
    case lwid::SPEC:
      surf.specular = s.F4();
      break;
    case lwid::REFL:
      surf.reflection = s.F4();
      break;
    case lwid::TRAN:
      surf.transparency = s.F4();
      break;
    case lwid::TRNL:
      surf.translucency = s.F4();
      break;
    case lwid::GLOS:
      surf.glossiness = s.F4();
      break;
    case lwid::SMAN:
      surf.smoothingAngle = s.F4();
      break;
    case lwid::SIDE:
      surf.side = s.U2();
      break;
    case lwid::VCOL:
      surf.vcolIntensity = s.F4();
      s.VX();
      surf.vcolType = s.U4();
      surf.vcolName = s.S0();
      break;
    case lwid::BLOK:
      ReadBlock(s, surf);
      break;
    default:
      break;
    }
  }
  object_->surfaces.push_back(std::move(surf));
}

void Loader::ReadBlock(Span c, st_lwSurface& surface) {
  st_lwBlock block;
  Span header = c.SubChunk(block.type);
  if (!IsBlockHeader(block.type)) {
    CheckSubChunks(c);
    return;
  }
  block.ordinal = header.S0();
  while (!header.Empty()) {
    std::uint32_t id;
    Span s = header.SubChunk(id);
    if (id == lwid::CHAN)
      block.channel = s.U4();
    else if (id == lwid::ENAB)
      block.enabled = s.U2() != 0;
    else if (id == lwid::OPAC) {
      s.U2();
      block.opacity = s.F4();
    } else if (id == lwid::AXIS)
      block.axis = s.U2();
  }
  while (!c.Empty()) {
    std::uint32_t id;
    Span s = c.SubChunk(id);
    switch (id) {
    case lwid::TMAP:
      CheckSubChunks(s);
      break;
    case lwid::PROJ:
      block.projection = s.U2();
      break;
    case lwid::AXIS:
      block.axis = s.U2();
      break;
    case lwid::IMAG:
      block.clip = s.VX();
      break;
    case lwid::VMAP:
      block.vmapName = s.S0();
      break;
    default:
      break;
    }
  }
  surface.GetChannel(block.channel).blocks.push_back(std::move(block));
}

// "POLS", "PCHS" and "CRVS" of the older format: U2 count, U2 indices, I2
// surface (1-based; negative announces detail polygons, counted by a U2 that
// follows); curves end with a U2 of flags.
void Loader::ReadOldPolygons(Span c, std::uint32_t type, bool curves) {
  st_lwLayer& layer = Layer();
  const std::uint8_t* begin = c.Pos();
  const std::uint8_t* end = c.End();
  const std::size_t pointCount = std::size_t(points_);

  std::size_t polygons = 0, vertices = 0;
  for (const std::uint8_t* p = begin; p < end;) {
    if ((polygons & kPollMask) == 0)
      PollAt(p);
    const std::string which = "polygon " + std::to_string(polygons);
    if (end - p < 2)
      c.FailAt(p, which + " cut short");
    unsigned n = LoadU16BE(p);
    p += 2;
    if (std::size_t(end - p) < std::size_t(n) * 2 + 2)
      c.FailAt(p, which + " cut short");
    for (unsigned i = 0; i < n; ++i, p += 2)
      if (LoadU16BE(p) >= pointCount)
        c.FailAt(p, which + " uses point " + std::to_string(LoadU16BE(p)) + " of " +
                        std::to_string(pointCount));
    std::int16_t surf = std::int16_t(LoadU16BE(p));
    if (surf == 0)
      c.FailAt(p, which + " has surface 0");
    p += 2;
    if (curves || surf < 0) {
      // Curve flags, or the count of the detail polygons that simply follow.
      if (end - p < 2)
        c.FailAt(p, which + " cut short");
      p += 2;
    }
    ++polygons;
    vertices += n;
  }
  std::size_t oldPolygons = layer.polygons.size(), oldVertices = layer.polygonVertices.size();
  if (oldPolygons + polygons > std::numeric_limits<std::uint32_t>::max() ||
      oldVertices + vertices > std::numeric_limits<std::uint32_t>::max())
    c.FailAt(begin, "more than 2^32 polygons or vertices in the layer");
  layer.polygonBase = std::uint32_t(oldPolygons);
  layer.polygons.resize(oldPolygons + polygons);
  layer.polygonVertices.resize(oldVertices + vertices);

  st_lwPolygon* poly = layer.polygons.data() + oldPolygons;
  std::uint32_t* verts = layer.polygonVertices.data();
  std::uint32_t next = std::uint32_t(oldVertices);
  for (const std::uint8_t* p = begin; p < end; ++poly) {
    unsigned n = LoadU16BE(p);
    p += 2;
    poly->type = type;
    poly->vertexCount = std::uint16_t(n);
    poly->firstVertex = next;
    for (unsigned i = 0; i < n; ++i, p += 2)
      verts[next++] = LoadU16BE(p);
    std::int16_t surf = std::int16_t(LoadU16BE(p));
    p += 2;
    poly->tag = std::uint32_t(std::abs(int(surf)) - 1);
    if (curves) {
      poly->flags = LoadU16BE(p);
      p += 2;
    } else if (surf < 0) {
      p += 2;
    }
  }
}

std::uint32_t OldTextureChannel(std::uint32_t id) {
  switch (id) {
  case LwId("CTEX"):
    return lwid::COLR;
  case LwId("DTEX"):
    return lwid::DIFF;
  case LwId("STEX"):
    return lwid::SPEC;
  case LwId("RTEX"):
    return lwid::REFL;
  case LwId("TTEX"):
    return lwid::TRAN;
  case LwId("LTEX"):
    return lwid::LUMI;
  case LwId("BTEX"):
    return lwid::BUMP;
  default:
    return 0;
  }
}

void Loader::ReadOldSurface(Span c) {
  st_lwSurface surf;
  surf.name = c.S0();
  std::uint32_t flags = 0;
  bool haveAngle = false;
  st_lwBlock* texture = nullptr; // the texture that T* sub-chunks describe
  std::uint32_t nextClip = 1;
  for (const auto& clip : object_->clips)
    nextClip = std::max(nextClip, clip.index + 1);

  while (!c.Empty()) {
    std::uint32_t id;
    Span s = c.SubChunk(id);
    switch (id) {
    case lwid::COLR:
      for (float& v : surf.color)
        v = s.U1() / 255.0f;
      break;
    case LwId("FLAG"):
      flags = s.U2();
      break;
    case lwid::LUMI:
      surf.luminosity = s.U2() / 256.0f;
      break;
    case lwid::DIFF:
      surf.diffuse = s.U2() / 256.0f;
      break;
    case lwid::SPEC:
      surf.specular = s.U2() / 256.0f;
      break;
    case lwid::REFL:
      surf.reflection = s.U2() / 256.0f;
      break;
    case lwid::TRAN:
      surf.transparency = s.U2() / 256.0f;
      break;
    case LwId("VLUM"):
      surf.luminosity = s.F4();
      break;
    case LwId("VDIF"):
      surf.diffuse = s.F4();
      break;
    case LwId("VSPC"):
      surf.specular = s.F4();
      break;
    case LwId("VRFL"):
      surf.reflection = s.F4();
      break;
    case LwId("VTRN"):
      surf.transparency = s.F4();
      break;
    case lwid::SMAN:
      surf.smoothingAngle = s.F4();
      haveAngle = true;
      break;
    case LwId("TIMG"):
      if (texture) {
        std::string name = s.S0();
        if (!name.empty() && name != "(none)") {
          st_lwClip clip;
          clip.index = nextClip++;
          clip.type = lwid::STIL;
          clip.fileName = std::move(name);
          texture->clip = clip.index;
          object_->clips.push_back(std::move(clip));
        }
      }
      break;
    case LwId("TFLG"):
      if (texture) {
        std::uint16_t f = s.U2();
        texture->axis = (f & 1) ? 0 : (f & 2) ? 1 : 2;
      }
      break;
    default:
      if (std::uint32_t channel = OldTextureChannel(id)) {
        std::string kind = s.S0();
        st_lwBlock block;
        block.channel = channel;
        block.ordinal = "\x80";
        bool image = kind.find("Image Map") != std::string::npos;
        block.type = image ? lwid::IMAP : lwid::PROC;
        if (kind.rfind("Planar", 0) == 0)
          block.projection = 0;
        else if (kind.rfind("Cylindrical", 0) == 0)
          block.projection = 1;
        else if (kind.rfind("Spherical", 0) == 0)
          block.projection = 2;
        else if (kind.rfind("Cubic", 0) == 0)
          block.projection = 3;
        else if (kind.rfind("Front", 0) == 0)
          block.projection = 4;
        auto& blocks = surf.GetChannel(channel).blocks;
        blocks.push_back(std::move(block));
        texture = &blocks.back();
      }
      break;
    }
  }
  // Smoothing and double-sidedness are flag bits in this generation.
  if (!(flags & 4))
    surf.smoothingAngle = 0.0f;
  else if (!haveAngle)
    surf.smoothingAngle = 89.5f * 3.14159265f / 180.0f;
  surf.side = (flags & 0x100) ? 3 : 1;
  object_->surfaces.push_back(std::move(surf));
}

void Loader::Finish() {
  bool vertexNormals = options_.vertexNormals;
  for (auto& layer : object_->layers) {
    // Without a BBOX chunk the points were boxed as they were read.
    if (!layer.partTags.empty())
      layer.partTags.resize(layer.GetPolygonCount(), kLwNone);
    if (!layer.smoothingGroups.empty())
      layer.smoothingGroups.resize(layer.GetPolygonCount(), kLwNone);
    if (options_.polygonNormals || vertexNormals)
      LwComputePolygonNormals(layer);
    if (options_.pointPolygons || vertexNormals)
      LwBuildPointPolygons(layer);
  }
  if (!LwResolveSurfaces(*object_))
    throw CFormatError(size_, "a polygon names a tag past the " +
                                  std::to_string(object_->tags.size()) + " of the tag table");
  for (auto& layer : object_->layers) {
    if (vertexNormals)
      LwComputeVertexNormals(layer, object_->surfaces);
    LwAttachVertexMaps(layer);
  }
}

} // namespace

std::unique_ptr<st_lwObject> LoadLightwaveObject(const void* data, std::size_t size,
                                                 const LwLoadOptions& options,
                                                 LwLoadStatus* status) {
  LwLoadStatus local;
  Loader loader(static_cast<const std::uint8_t*>(data), size, options, status ? *status : local);
  return loader.Run();
}

void LwComputeBoundingBox(st_lwLayer& layer) {
  if (layer.points.empty()) {
    std::fill(std::begin(layer.bbox), std::end(layer.bbox), 0.0f);
    return;
  }
  float lo[3], hi[3];
  for (int k = 0; k < 3; ++k)
    lo[k] = hi[k] = layer.points[0].pos[k];
  for (const auto& p : layer.points)
    for (int k = 0; k < 3; ++k) {
      lo[k] = std::min(lo[k], p.pos[k]);
      hi[k] = std::max(hi[k], p.pos[k]);
    }
  for (int k = 0; k < 3; ++k) {
    layer.bbox[k] = lo[k];
    layer.bbox[3 + k] = hi[k];
  }
}

void LwComputePolygonNormals(st_lwLayer& layer) {
  layer.DecodeSpans();
  layer.polygonNormals.assign(layer.polygons.size() * 3, 0.0f);
  for (std::size_t i = 0; i < layer.polygons.size(); ++i) {
    const auto& poly = layer.polygons[i];
    if (poly.vertexCount < 3)
      continue;
    const std::uint32_t* v = layer.Vertices(poly);
    const float* p0 = layer.points[v[0]].pos;
    const float* p1 = layer.points[v[1]].pos;
    const float* pn = layer.points[v[poly.vertexCount - 1]].pos;
    float a[3] = {p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]};
    float b[3] = {pn[0] - p0[0], pn[1] - p0[1], pn[2] - p0[2]};
    float n[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
    float len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    if (len > 0.0f && std::isfinite(len))
      for (int k = 0; k < 3; ++k)
        layer.polygonNormals[i * 3 + k] = n[k] / len;
  }
}

void LwBuildPointPolygons(st_lwLayer& layer) {
  layer.DecodeSpans();
  const std::size_t points = layer.points.size();
  layer.pointPolygonStart.assign(points + 1, 0);
  for (const auto& poly : layer.polygons) {
    const std::uint32_t* v = layer.Vertices(poly);
    for (unsigned i = 0; i < poly.vertexCount; ++i)
      ++layer.pointPolygonStart[v[i] + 1];
  }
  for (std::size_t i = 0; i < points; ++i)
    layer.pointPolygonStart[i + 1] += layer.pointPolygonStart[i];
  layer.pointPolygons.resize(layer.pointPolygonStart[points]);
  std::vector<std::uint32_t> fill(layer.pointPolygonStart.begin(),
                                  layer.pointPolygonStart.end() - 1);
  for (std::size_t p = 0; p < layer.polygons.size(); ++p) {
    const auto& poly = layer.polygons[p];
    const std::uint32_t* v = layer.Vertices(poly);
    for (unsigned i = 0; i < poly.vertexCount; ++i)
      layer.pointPolygons[fill[v[i]]++] = std::uint32_t(p);
  }
}

void LwComputeVertexNormals(st_lwLayer& layer, const std::vector<st_lwSurface>& surfaces) {
  layer.DecodeSpans();
  // A point shared by very many polygons is smoothed over the first of them
  // only, so that a hostile file cannot make this quadratic.
  constexpr std::uint32_t kMaxNeighbours = 1024;
  layer.vertexNormals.assign(layer.polygonVertices.size() * 3, 0.0f);
  const float* normals = layer.polygonNormals.data();
  for (std::size_t p = 0; p < layer.polygons.size(); ++p) {
    const auto& poly = layer.polygons[p];
    const float* own = normals + p * 3;
    float angle = poly.surface < surfaces.size() ? surfaces[poly.surface].smoothingAngle : 0.0f;
    float limit = std::cos(angle);
    const std::uint32_t* v = layer.Vertices(poly);
    for (unsigned i = 0; i < poly.vertexCount; ++i) {
      float* out = &layer.vertexNormals[(std::size_t(poly.firstVertex) + i) * 3];
      float n[3] = {own[0], own[1], own[2]};
      if (angle > 0.0f) {
        std::uint32_t b = layer.pointPolygonStart[v[i]], e = layer.pointPolygonStart[v[i] + 1];
        e = std::min(e, b + kMaxNeighbours);
        n[0] = n[1] = n[2] = 0.0f;
        for (std::uint32_t k = b; k < e; ++k) {
          const float* m = normals + std::size_t(layer.pointPolygons[k]) * 3;
          float dot = m[0] * own[0] + m[1] * own[1] + m[2] * own[2];
          if (dot >= limit || layer.pointPolygons[k] == p)
            for (int c = 0; c < 3; ++c)
              n[c] += m[c];
        }
        float len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        if (len > 0.0f && std::isfinite(len))
          for (float& c : n)
            c /= len;
      }
      for (int c = 0; c < 3; ++c)
        out[c] = n[c];
    }
  }
}

bool LwResolveSurfaces(st_lwObject& object) {
  // Untagged polygons take the first tag, or a "Default" surface when the
  // file has no tags at all. Room for every default surface is reserved first
  // so that the names the lookup refers to never move.
  object.surfaces.reserve(object.surfaces.size() + object.tags.size() + 1);
  std::unordered_map<std::string_view, std::uint32_t> byName;
  for (std::size_t i = object.surfaces.size(); i-- > 0;)
    byName[object.surfaces[i].name] = std::uint32_t(i);
  auto surfaceFor = [&](const std::string& name) -> std::uint32_t {
    auto it = byName.find(name);
    if (it != byName.end())
      return it->second;
    st_lwSurface def;
    def.name = name;
    object.surfaces.push_back(std::move(def));
    auto index = std::uint32_t(object.surfaces.size() - 1);
    byName[object.surfaces.back().name] = index;
    return index;
  };
  std::vector<std::uint32_t> tagSurface(object.tags.size(), kLwNone);
  std::uint32_t untagged = kLwNone;
  auto resolve = [&](std::uint32_t tag, std::uint32_t& surface) {
    if (tag == kLwNone && !object.tags.empty())
      tag = 0;
    if (tag == kLwNone) {
      if (untagged == kLwNone)
        untagged = surfaceFor("Default");
      surface = untagged;
      return true;
    }
    if (tag >= object.tags.size())
      return false;
    if (tagSurface[tag] == kLwNone)
      tagSurface[tag] = surfaceFor(object.tags[tag]);
    surface = tagSurface[tag];
    return true;
  };
  for (auto& layer : object.layers) {
    for (auto& poly : layer.polygons)
      if (!resolve(poly.tag, poly.surface))
        return false;
    if (!layer.polygonSpans.empty()) {
      // Tags become surfaces in place.
      layer.spanSurfaces.resize(layer.spanPolygons, kLwNone);
      for (std::uint32_t& entry : layer.spanSurfaces)
        if (!resolve(entry, entry))
          return false;
      layer.spanSurfacesResolved = true;
    }
  }
  return true;
}

void LwAttachVertexMaps(st_lwLayer& layer) {
  for (auto& map : layer.vmaps) {
    if (!map.perPolygon) {
      if (map.attached.size() == layer.GetPointCount())
        continue; // attached when it was read
      map.attached.assign(layer.GetPointCount(), -1);
      for (std::size_t e = 0; e < map.points.size(); ++e)
        map.attached[map.points[e]] = std::int32_t(e);
      continue;
    }
    // Per-polygon entries attach to the polygon's vertex that is that point;
    // an entry whose point is not in its polygon is ignored.
    map.attached.assign(layer.polygonVertices.size(), -1);
    for (std::size_t e = 0; e < map.points.size(); ++e) {
      const auto& poly = layer.polygons[map.polygons[e]];
      const std::uint32_t* v = layer.Vertices(poly);
      for (unsigned i = 0; i < poly.vertexCount; ++i)
        if (v[i] == map.points[e]) {
          map.attached[std::size_t(poly.firstVertex) + i] = std::int32_t(e);
          break;
        }
    }
  }
}

} // namespace meshcore

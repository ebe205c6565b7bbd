#include "meshcore/formats/lightwave/detail/lwo_writer.h"

#include "meshcore/platform/cancel.h"

#include <algorithm>
#include <cstring>

namespace meshcore {

using codec::StoreF32BE;
using codec::StoreU16BE;
using codec::StoreU32BE;

namespace {
constexpr codec::CBinaryWriter::SizeField kLongSize{4, false, 0, true, true};
constexpr codec::CBinaryWriter::SizeField kShortSize{2, false, 0, true, true};
constexpr std::size_t kPollMask = 8191;
} // namespace

codec::CBinaryWriter::ChunkScope CLwoWriter::BeginChunk(std::uint32_t id) {
  return Chunk(id, 4, kLongSize);
}

codec::CBinaryWriter::ChunkScope CLwoWriter::BeginSubChunk(std::uint32_t id) {
  return Chunk(id, 4, kShortSize);
}

int CLwoWriter::WriteVXChunk(std::uint32_t index) {
  if (index < 0xFF00) {
    WriteU2(std::uint16_t(index));
    return 2;
  }
  if (index > 0x00FFFFFFu) {
    Invalidate();
    return 0;
  }
  WriteU4(0xFF000000u | index);
  return 4;
}

void CLwoWriter::WriteShortChunk(std::uint16_t value, std::uint32_t id) {
  auto chunk = BeginSubChunk(id);
  WriteU2(value);
}

void CLwoWriter::WriteIntChunk(std::uint32_t value, std::uint32_t id) {
  auto chunk = BeginSubChunk(id);
  WriteU4(value);
}

void CLwoWriter::WriteFloatChunk(float value, std::uint32_t id) {
  auto chunk = BeginSubChunk(id);
  WriteF4(value);
}

void CLwoWriter::WriteFloatEnvChunk(float value, std::uint32_t id) {
  auto chunk = BeginSubChunk(id);
  WriteF4(value);
  WriteVXChunk(0);
}

void CLwoWriter::WriteColorChunk(const float rgb[3], std::uint32_t id) {
  auto chunk = BeginSubChunk(id);
  for (int i = 0; i < 3; ++i)
    WriteF4(rgb[i]);
  WriteVXChunk(0);
}

std::string GetOrdinalString(int, int) {
  return "\x80";
}

namespace {

// Bytes of a VX holding index.
inline std::size_t VXBytes(std::uint32_t index) {
  return index < 0xFF00 ? 2 : 4;
}

// Encodes a VX at p (the index is known to fit) and returns the next byte.
inline std::uint8_t* PutVX(std::uint8_t* p, std::uint32_t index) {
  if (index < 0xFF00) {
    StoreU16BE(p, std::uint16_t(index));
    return p + 2;
  }
  StoreU32BE(p, 0xFF000000u | index);
  return p + 4;
}

// Thrown out of the bulk loops; caught by WriteLightwaveObject.
struct Stop {
  LwWriteResult result;
};

class Encoder {
public:
  Encoder(CLwoWriter& w, bool cancellable, std::uint64_t total)
      : w_(w), cancellable_(cancellable), cancel_(total) {}

  void Object(const st_lwObject& object);

private:
  void Poll(std::size_t i) {
    if (cancellable_ && (i & kPollMask) == 0 && cancel_.At(w_.GetPosition()))
      throw Stop{LwWriteResult::Cancelled};
  }
  static void Check(bool fits) {
    if (!fits)
      throw Stop{LwWriteResult::DoesNotFit};
  }
  void Points(const st_lwLayer& layer);
  void Polygons(const st_lwLayer& layer, std::size_t begin, std::size_t end);
  void SurfaceTags(const st_lwLayer& layer, std::size_t begin, std::size_t end);
  void VMap(const st_lwVMap& map, std::size_t begin, std::size_t end);
  void Layer(const st_lwLayer& layer);
  void Block(const st_lwBlock& block);
  void Surface(const st_lwSurface& surf);

  CLwoWriter& w_;
  bool cancellable_;
  CCancelCheck cancel_;
};

void Encoder::Points(const st_lwLayer& layer) {
  auto chunk = w_.BeginChunk(lwid::PNTS);
  std::uint8_t* p = w_.Extend(layer.points.size() * 12);
  const std::size_t start = w_.GetPosition();
  for (std::size_t i = 0; i < layer.points.size(); ++i, p += 12) {
    if (cancellable_ && (i & kPollMask) == 0 && cancel_.At(start + i * 12))
      throw Stop{LwWriteResult::Cancelled};
    const auto& pt = layer.points[i];
    StoreF32BE(p, pt.pos[0]);
    StoreF32BE(p + 4, pt.pos[1]);
    StoreF32BE(p + 8, pt.pos[2]);
  }
}

// POLS of polygons [begin, end), all of one type.
void Encoder::Polygons(const st_lwLayer& layer, std::size_t begin, std::size_t end) {
  auto chunk = w_.BeginChunk(lwid::POLS);
  w_.WriteID(layer.polygons[begin].type);
  std::size_t bytes = 0;
  for (std::size_t i = begin; i < end; ++i) {
    const auto& poly = layer.polygons[i];
    Check(poly.vertexCount <= 0x3FF);
    bytes += 2;
    const std::uint32_t* v = layer.Vertices(poly);
    for (unsigned k = 0; k < poly.vertexCount; ++k) {
      Check(v[k] <= 0x00FFFFFFu);
      bytes += VXBytes(v[k]);
    }
  }
  std::uint8_t* p = w_.Extend(bytes);
  for (std::size_t i = begin; i < end; ++i) {
    Poll(i - begin);
    const auto& poly = layer.polygons[i];
    StoreU16BE(p, std::uint16_t(poly.vertexCount | ((poly.flags & 0x3F) << 10)));
    p += 2;
    const std::uint32_t* v = layer.Vertices(poly);
    for (unsigned k = 0; k < poly.vertexCount; ++k)
      p = PutVX(p, v[k]);
  }
}

void Encoder::SurfaceTags(const st_lwLayer& layer, std::size_t begin, std::size_t end) {
  std::size_t bytes = 0;
  for (std::size_t i = begin; i < end; ++i)
    if (layer.polygons[i].tag != kLwNone) {
      Check(layer.polygons[i].tag <= 0xFFFF && i - begin <= 0x00FFFFFFu);
      bytes += VXBytes(std::uint32_t(i - begin)) + 2;
    }
  if (bytes == 0)
    return;
  auto chunk = w_.BeginChunk(lwid::PTAG);
  w_.WriteID(lwid::SURF);
  std::uint8_t* p = w_.Extend(bytes);
  for (std::size_t i = begin; i < end; ++i)
    if (layer.polygons[i].tag != kLwNone) {
      Poll(i - begin);
      p = PutVX(p, std::uint32_t(i - begin));
      StoreU16BE(p, std::uint16_t(layer.polygons[i].tag));
      p += 2;
    }
}

// One VMAP, or the entries of one VMAD whose polygons lie in [begin, end).
void Encoder::VMap(const st_lwVMap& map, std::size_t begin, std::size_t end) {
  std::size_t bytes = 0, valueBytes = std::size_t(map.dimension) * 4;
  auto inRun = [&](std::size_t e) {
    return !map.perPolygon || (map.polygons[e] >= begin && map.polygons[e] < end);
  };
  for (std::size_t e = 0; e < map.points.size(); ++e) {
    if (!inRun(e))
      continue;
    Check(map.points[e] <= 0x00FFFFFFu);
    bytes += VXBytes(map.points[e]) + valueBytes;
    if (map.perPolygon) {
      Check(map.polygons[e] - begin <= 0x00FFFFFFu);
      bytes += VXBytes(std::uint32_t(map.polygons[e] - begin));
    }
  }
  if (map.perPolygon && bytes == 0)
    return;
  Check(map.dimension <= 0xFFFF);
  auto chunk = w_.BeginChunk(map.perPolygon ? lwid::VMAD : lwid::VMAP);
  w_.WriteID(map.type);
  w_.WriteU2(std::uint16_t(map.dimension));
  w_.WriteString(map.name);
  std::uint8_t* p = w_.Extend(bytes);
  const float* values = map.values.data();
  for (std::size_t e = 0; e < map.points.size(); ++e) {
    if (!inRun(e))
      continue;
    Poll(e);
    p = PutVX(p, map.points[e]);
    if (map.perPolygon)
      p = PutVX(p, std::uint32_t(map.polygons[e] - begin));
    const float* v = values + e * map.dimension;
    for (std::uint32_t d = 0; d < map.dimension; ++d, p += 4)
      StoreF32BE(p, v[d]);
  }
}

void Encoder::Layer(const st_lwLayer& layer) {
  {
    auto chunk = w_.BeginChunk(lwid::LAYR);
    w_.WriteU2(std::uint16_t(layer.number));
    w_.WriteU2(std::uint16_t(layer.flags));
    for (float v : layer.pivot)
      w_.WriteF4(v);
    w_.WriteString(layer.name);
    w_.WriteU2(std::uint16_t(layer.parent));
  }
  if (!layer.points.empty())
    Points(layer);
  for (const auto& map : layer.vmaps)
    if (!map.perPolygon)
      VMap(map, 0, 0);
  for (std::size_t begin = 0; begin < layer.polygons.size();) {
    std::size_t end = begin + 1;
    while (end < layer.polygons.size() && layer.polygons[end].type == layer.polygons[begin].type)
      ++end;
    Polygons(layer, begin, end);
    SurfaceTags(layer, begin, end);
    for (const auto& map : layer.vmaps)
      if (map.perPolygon)
        VMap(map, begin, end);
    begin = end;
  }
}

void Encoder::Block(const st_lwBlock& block) {
  auto blok = w_.BeginSubChunk(lwid::BLOK);
  {
    auto head = w_.BeginSubChunk(lwid::IMAP);
    w_.WriteString(block.ordinal.empty() ? GetOrdinalString(0, 0) : block.ordinal);
    {
      auto chan = w_.BeginSubChunk(lwid::CHAN);
      w_.WriteID(block.channel);
    }
    w_.WriteShortChunk(block.enabled ? 1 : 0, lwid::ENAB);
    {
      auto opac = w_.BeginSubChunk(lwid::OPAC);
      w_.WriteU2(0);
      w_.WriteF4(block.opacity);
      w_.WriteVXChunk(0);
    }
    w_.WriteShortChunk(std::uint16_t(block.axis), lwid::AXIS);
  }
  w_.WriteShortChunk(std::uint16_t(block.projection), lwid::PROJ);
  if (block.clip != kLwNone) {
    auto imag = w_.BeginSubChunk(lwid::IMAG);
    w_.WriteVXChunk(block.clip);
  }
  if (!block.vmapName.empty()) {
    auto vmap = w_.BeginSubChunk(lwid::VMAP);
    w_.WriteString(block.vmapName);
  }
}

void Encoder::Surface(const st_lwSurface& surf) {
  auto chunk = w_.BeginChunk(lwid::SURF);
  w_.WriteString(surf.name);
  w_.WriteString(surf.source);
  w_.WriteColorChunk(surf.color, lwid::COLR);
  w_.WriteFloatEnvChunk(surf.luminosity, lwid::LUMI);
  w_.WriteFloatEnvChunk(surf.diffuse, lwid::DIFF);
  w_.WriteFloatEnvChunk(surf.specular, lwid::SPEC);
  w_.WriteFloatEnvChunk(surf.transparency, lwid::TRAN);
  w_.WriteFloatEnvChunk(surf.smoothingAngle, lwid::SMAN);
  w_.WriteShortChunk(std::uint16_t(surf.side), lwid::SIDE);
  for (const auto& channel : surf.channels)
    for (const auto& block : channel.blocks)
      if (block.type == lwid::IMAP && (block.clip != kLwNone || !block.vmapName.empty()))
        Block(block);
  if (!surf.vcolName.empty()) {
    auto vcol = w_.BeginSubChunk(lwid::VCOL);
    w_.WriteF4(surf.vcolIntensity);
    w_.WriteU2(0);
    w_.WriteID(surf.vcolType ? surf.vcolType : lwid::RGBA);
    w_.WriteString(surf.vcolName);
  }
}

void Encoder::Object(const st_lwObject& object) {
  auto form = w_.BeginChunk(lwid::FORM);
  w_.WriteID(lwid::LWO2);
  if (!object.tags.empty()) {
    auto tags = w_.BeginChunk(lwid::TAGS);
    for (const auto& tag : object.tags)
      w_.WriteString(tag);
  }
  for (const auto& clip : object.clips) {
    auto chunk = w_.BeginChunk(lwid::CLIP);
    w_.WriteU4(clip.index);
    auto stil = w_.BeginSubChunk(lwid::STIL);
    w_.WriteString(clip.fileName);
  }
  for (const auto& layer : object.layers)
    Layer(layer);
  for (const auto& surf : object.surfaces)
    Surface(surf);
}

} // namespace

LwWriteResult WriteLightwaveObject(const st_lwObject& object, CLwoWriter& w, bool cancellable) {
  std::size_t estimate = 64;
  for (const auto& layer : object.layers) {
    estimate +=
        layer.points.size() * 12 + layer.polygons.size() * 8 + layer.polygonVertices.size() * 2;
    for (const auto& map : layer.vmaps)
      estimate += map.points.size() * (map.perPolygon ? 4 : 2) + map.values.size() * 4;
  }
  w.Reserve(w.GetPosition() + estimate);
  try {
    Encoder(w, cancellable, estimate).Object(object);
  } catch (const Stop& stop) {
    return stop.result;
  }
  return w.IsValid() ? LwWriteResult::Ok : LwWriteResult::DoesNotFit;
}

} // namespace meshcore

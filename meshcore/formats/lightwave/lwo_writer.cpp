#include "meshcore/formats/lightwave/lwo_writer.h"

#include "meshcore/formats/lightwave/lwo_bytes.h"

#include <algorithm>
#include <cstring>

namespace meshcore {

using namespace lwbytes;

std::uint8_t* CLwoWriter::Extend(std::size_t n) {
  std::size_t old = m_buffer.size();
  m_buffer.resize(old + n);
  return m_buffer.data() + old;
}

void CLwoWriter::WriteU2(std::uint16_t v) {
  StoreU2(Extend(2), v);
}
void CLwoWriter::WriteU4(std::uint32_t v) {
  StoreU4(Extend(4), v);
}
void CLwoWriter::WriteF4(float v) {
  StoreF4(Extend(4), v);
}

std::size_t CLwoWriter::BeginWriteChunk(std::uint32_t id, bool longChunk) {
  WriteID(id);
  std::size_t position = m_buffer.size();
  if (longChunk)
    WriteU4(0);
  else
    WriteU2(0);
  return position;
}

void CLwoWriter::EndWriteChunk(std::size_t position, bool longChunk) {
  std::size_t length = m_buffer.size() - position - (longChunk ? 4 : 2);
  if (length & 1) {
    m_buffer.push_back(0);
    ++length;
  }
  if (longChunk) {
    if (length > 0xFFFFFFFFu)
      m_valid = false;
    StoreU4(m_buffer.data() + position, std::uint32_t(length));
  } else {
    if (length > 0xFFFFu)
      m_valid = false;
    StoreU2(m_buffer.data() + position, std::uint16_t(length));
  }
}

void CLwoWriter::WriteString(std::string_view s) {
  s = s.substr(0, std::min(s.size(), s.find('\0')));
  std::size_t total = s.size() + 1;
  total += total & 1;
  std::uint8_t* p = Extend(total);
  std::memcpy(p, s.data(), s.size());
  std::memset(p + s.size(), 0, total - s.size());
}

int CLwoWriter::WriteVXChunk(std::uint32_t index) {
  if (index < 0xFF00) {
    WriteU2(std::uint16_t(index));
    return 2;
  }
  if (index > 0x00FFFFFFu) {
    m_valid = false;
    return 0;
  }
  WriteU4(0xFF000000u | index);
  return 4;
}

void CLwoWriter::WriteShortChunk(std::uint16_t value, std::uint32_t id) {
  auto pos = BeginWriteChunk(id, false);
  WriteU2(value);
  EndWriteChunk(pos, false);
}

void CLwoWriter::WriteIntChunk(std::uint32_t value, std::uint32_t id) {
  auto pos = BeginWriteChunk(id, false);
  WriteU4(value);
  EndWriteChunk(pos, false);
}

void CLwoWriter::WriteFloatChunk(float value, std::uint32_t id) {
  auto pos = BeginWriteChunk(id, false);
  WriteF4(value);
  EndWriteChunk(pos, false);
}

void CLwoWriter::WriteFloatEnvChunk(float value, std::uint32_t id) {
  auto pos = BeginWriteChunk(id, false);
  WriteF4(value);
  WriteVXChunk(0);
  EndWriteChunk(pos, false);
}

void CLwoWriter::WriteColorChunk(const float rgb[3], std::uint32_t id) {
  auto pos = BeginWriteChunk(id, false);
  for (int i = 0; i < 3; ++i)
    WriteF4(rgb[i]);
  WriteVXChunk(0);
  EndWriteChunk(pos, false);
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
    StoreU2(p, std::uint16_t(index));
    return p + 2;
  }
  StoreU4(p, 0xFF000000u | index);
  return p + 4;
}

void WritePoints(const st_lwLayer& layer, CLwoWriter& w) {
  auto pos = w.BeginWriteChunk(lwid::PNTS, true);
  std::uint8_t* p = w.Extend(layer.points.size() * 12);
  for (const auto& pt : layer.points) {
    StoreF4(p, pt.pos[0]);
    StoreF4(p + 4, pt.pos[1]);
    StoreF4(p + 8, pt.pos[2]);
    p += 12;
  }
  w.EndWriteChunk(pos, true);
}

// POLS of polygons [begin, end), all of one type.
bool WritePolygons(const st_lwLayer& layer, std::size_t begin, std::size_t end, CLwoWriter& w) {
  auto pos = w.BeginWriteChunk(lwid::POLS, true);
  w.WriteID(layer.polygons[begin].type);
  std::size_t bytes = 0;
  for (std::size_t i = begin; i < end; ++i) {
    const auto& poly = layer.polygons[i];
    if (poly.vertexCount > 0x3FF)
      return false;
    bytes += 2;
    const std::uint32_t* v = layer.Vertices(poly);
    for (unsigned k = 0; k < poly.vertexCount; ++k) {
      if (v[k] > 0x00FFFFFFu)
        return false;
      bytes += VXBytes(v[k]);
    }
  }
  std::uint8_t* p = w.Extend(bytes);
  for (std::size_t i = begin; i < end; ++i) {
    const auto& poly = layer.polygons[i];
    StoreU2(p, std::uint16_t(poly.vertexCount | ((poly.flags & 0x3F) << 10)));
    p += 2;
    const std::uint32_t* v = layer.Vertices(poly);
    for (unsigned k = 0; k < poly.vertexCount; ++k)
      p = PutVX(p, v[k]);
  }
  w.EndWriteChunk(pos, true);
  return true;
}

bool WriteSurfaceTags(const st_lwLayer& layer, std::size_t begin, std::size_t end, CLwoWriter& w) {
  std::size_t bytes = 0;
  for (std::size_t i = begin; i < end; ++i)
    if (layer.polygons[i].tag != kLwNone) {
      if (layer.polygons[i].tag > 0xFFFF || i - begin > 0x00FFFFFFu)
        return false;
      bytes += VXBytes(std::uint32_t(i - begin)) + 2;
    }
  if (bytes == 0)
    return true;
  auto pos = w.BeginWriteChunk(lwid::PTAG, true);
  w.WriteID(lwid::SURF);
  std::uint8_t* p = w.Extend(bytes);
  for (std::size_t i = begin; i < end; ++i)
    if (layer.polygons[i].tag != kLwNone) {
      p = PutVX(p, std::uint32_t(i - begin));
      StoreU2(p, std::uint16_t(layer.polygons[i].tag));
      p += 2;
    }
  w.EndWriteChunk(pos, true);
  return true;
}

// One VMAP, or the entries of one VMAD whose polygons lie in [begin, end).
bool WriteVMap(const st_lwVMap& map, std::size_t begin, std::size_t end, CLwoWriter& w) {
  std::size_t bytes = 0, valueBytes = std::size_t(map.dimension) * 4;
  auto inRun = [&](std::size_t e) {
    return !map.perPolygon || (map.polygons[e] >= begin && map.polygons[e] < end);
  };
  for (std::size_t e = 0; e < map.points.size(); ++e) {
    if (!inRun(e))
      continue;
    if (map.points[e] > 0x00FFFFFFu)
      return false;
    bytes += VXBytes(map.points[e]) + valueBytes;
    if (map.perPolygon) {
      if (map.polygons[e] - begin > 0x00FFFFFFu)
        return false;
      bytes += VXBytes(std::uint32_t(map.polygons[e] - begin));
    }
  }
  if (map.perPolygon && bytes == 0)
    return true;
  if (map.dimension > 0xFFFF)
    return false;
  auto pos = w.BeginWriteChunk(map.perPolygon ? lwid::VMAD : lwid::VMAP, true);
  w.WriteID(map.type);
  w.WriteU2(std::uint16_t(map.dimension));
  w.WriteString(map.name);
  std::uint8_t* p = w.Extend(bytes);
  const float* values = map.values.data();
  for (std::size_t e = 0; e < map.points.size(); ++e) {
    if (!inRun(e))
      continue;
    p = PutVX(p, map.points[e]);
    if (map.perPolygon)
      p = PutVX(p, std::uint32_t(map.polygons[e] - begin));
    const float* v = values + e * map.dimension;
    for (std::uint32_t d = 0; d < map.dimension; ++d, p += 4)
      StoreF4(p, v[d]);
  }
  w.EndWriteChunk(pos, true);
  return true;
}

bool WriteLayer(const st_lwLayer& layer, CLwoWriter& w) {
  auto pos = w.BeginWriteChunk(lwid::LAYR, true);
  w.WriteU2(std::uint16_t(layer.number));
  w.WriteU2(std::uint16_t(layer.flags));
  for (float v : layer.pivot)
    w.WriteF4(v);
  w.WriteString(layer.name);
  w.WriteU2(std::uint16_t(layer.parent));
  w.EndWriteChunk(pos, true);

  if (!layer.points.empty())
    WritePoints(layer, w);
  for (const auto& map : layer.vmaps)
    if (!map.perPolygon && !WriteVMap(map, 0, 0, w))
      return false;
  for (std::size_t begin = 0; begin < layer.polygons.size();) {
    std::size_t end = begin + 1;
    while (end < layer.polygons.size() && layer.polygons[end].type == layer.polygons[begin].type)
      ++end;
    if (!WritePolygons(layer, begin, end, w) || !WriteSurfaceTags(layer, begin, end, w))
      return false;
    for (const auto& map : layer.vmaps)
      if (map.perPolygon && !WriteVMap(map, begin, end, w))
        return false;
    begin = end;
  }
  return true;
}

void WriteBlock(const st_lwBlock& block, CLwoWriter& w) {
  auto blok = w.BeginWriteChunk(lwid::BLOK, false);
  auto head = w.BeginWriteChunk(lwid::IMAP, false);
  w.WriteString(block.ordinal.empty() ? GetOrdinalString(0, 0) : block.ordinal);
  auto chan = w.BeginWriteChunk(lwid::CHAN, false);
  w.WriteID(block.channel);
  w.EndWriteChunk(chan, false);
  w.WriteShortChunk(block.enabled ? 1 : 0, lwid::ENAB);
  auto opac = w.BeginWriteChunk(lwid::OPAC, false);
  w.WriteU2(0);
  w.WriteF4(block.opacity);
  w.WriteVXChunk(0);
  w.EndWriteChunk(opac, false);
  w.WriteShortChunk(std::uint16_t(block.axis), lwid::AXIS);
  w.EndWriteChunk(head, false);
  w.WriteShortChunk(std::uint16_t(block.projection), lwid::PROJ);
  if (block.clip != kLwNone) {
    auto imag = w.BeginWriteChunk(lwid::IMAG, false);
    w.WriteVXChunk(block.clip);
    w.EndWriteChunk(imag, false);
  }
  if (!block.vmapName.empty()) {
    auto vmap = w.BeginWriteChunk(lwid::VMAP, false);
    w.WriteString(block.vmapName);
    w.EndWriteChunk(vmap, false);
  }
  w.EndWriteChunk(blok, false);
}

void WriteSurface(const st_lwSurface& surf, CLwoWriter& w) {
  auto pos = w.BeginWriteChunk(lwid::SURF, true);
  w.WriteString(surf.name);
  w.WriteString(surf.source);
  w.WriteColorChunk(surf.color, lwid::COLR);
  w.WriteFloatEnvChunk(surf.luminosity, lwid::LUMI);
  w.WriteFloatEnvChunk(surf.diffuse, lwid::DIFF);
  w.WriteFloatEnvChunk(surf.specular, lwid::SPEC);
  w.WriteFloatEnvChunk(surf.transparency, lwid::TRAN);
  w.WriteFloatEnvChunk(surf.smoothingAngle, lwid::SMAN);
  w.WriteShortChunk(std::uint16_t(surf.side), lwid::SIDE);
  for (const auto& channel : surf.channels)
    for (const auto& block : channel.blocks)
      if (block.type == lwid::IMAP && (block.clip != kLwNone || !block.vmapName.empty()))
        WriteBlock(block, w);
  if (!surf.vcolName.empty()) {
    auto vcol = w.BeginWriteChunk(lwid::VCOL, false);
    w.WriteF4(surf.vcolIntensity);
    w.WriteU2(0);
    w.WriteID(surf.vcolType ? surf.vcolType : lwid::RGBA);
    w.WriteString(surf.vcolName);
    w.EndWriteChunk(vcol, false);
  }
  w.EndWriteChunk(pos, true);
}

} // namespace

bool WriteLightwaveObject(const st_lwObject& object, CLwoWriter& w) {
  std::size_t estimate = 64;
  for (const auto& layer : object.layers)
    estimate +=
        layer.points.size() * 12 + layer.polygons.size() * 8 + layer.polygonVertices.size() * 2;
  w.Reserve(w.GetPosition() + estimate);

  auto form = w.BeginWriteChunk(lwid::FORM, true);
  w.WriteID(lwid::LWO2);
  if (!object.tags.empty()) {
    auto tags = w.BeginWriteChunk(lwid::TAGS, true);
    for (const auto& tag : object.tags)
      w.WriteString(tag);
    w.EndWriteChunk(tags, true);
  }
  for (const auto& clip : object.clips) {
    auto pos = w.BeginWriteChunk(lwid::CLIP, true);
    w.WriteU4(clip.index);
    auto stil = w.BeginWriteChunk(lwid::STIL, false);
    w.WriteString(clip.fileName);
    w.EndWriteChunk(stil, false);
    w.EndWriteChunk(pos, true);
  }
  for (const auto& layer : object.layers)
    if (!WriteLayer(layer, w))
      return false;
  for (const auto& surf : object.surfaces)
    WriteSurface(surf, w);
  w.EndWriteChunk(form, true);
  return w.IsValid();
}

} // namespace meshcore

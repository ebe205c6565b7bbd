#include "meshcore/formats/lightwave/detail/lwo_object.h"

#include "meshcore/formats/common/detail/binary_cursor.h"
#include "meshcore/formats/lightwave/detail/lwo_vx.h"

namespace meshcore {

std::string LwIdToString(std::uint32_t id) {
  std::string s(4, ' ');
  for (int i = 0; i < 4; ++i)
    s[i] = char((id >> (24 - 8 * i)) & 0xFF);
  return s;
}

const _lwChannelInfo* st_lwSurface::FindChannel(std::uint32_t channel) const {
  for (const auto& c : channels)
    if (c.channel == channel)
      return &c;
  return nullptr;
}

_lwChannelInfo& st_lwSurface::GetChannel(std::uint32_t channel) {
  for (auto& c : channels)
    if (c.channel == channel)
      return c;
  channels.push_back({channel, {}});
  return channels.back();
}

namespace {

// Decodes the variable-length index at p (its bytes were checked when the
// span was made) and steps past it.
inline std::uint32_t TakeVX(const std::uint8_t*& p) {
  if (p[0] == 0xFF) {
    const std::uint32_t v = codec::LoadU32BE(p) & 0x00FFFFFFu;
    p += 4;
    return v;
  }
  const std::uint32_t v = codec::LoadU16BE(p);
  p += 2;
  return v;
}

} // namespace

void st_lwLayer::GetPoint(std::size_t i, float out[3]) const {
  if (!pointBytes) {
    for (int k = 0; k < 3; ++k)
      out[k] = points[i].pos[k];
    return;
  }
  const std::uint8_t* p = pointBytes + i * 12;
  for (int k = 0; k < 3; ++k)
    out[k] = codec::LoadF32BE(p + 4 * k);
}

void st_lwLayer::DecodeSpans() {
  if (polygonSpans.empty())
    return;
  polygons.clear();
  polygonVertices.clear();
  polygons.reserve(spanPolygons);
  polygonVertices.reserve(std::size_t(spanVertices));
  for (const PolygonSpan& span : polygonSpans) {
    for (const std::uint8_t* p = span.begin; p < span.end;) {
      const std::uint16_t word = codec::LoadU16BE(p);
      p += 2;
      const unsigned n = word & 0x03FF;
      const auto index = polygons.size();
      const std::uint32_t entry = SurfaceOf(index);
      polygons.push_back(st_lwPolygon{
          span.type, spanSurfacesResolved ? kLwNone : entry, spanSurfacesResolved ? entry : kLwNone,
          std::uint32_t(polygonVertices.size()), std::uint16_t(n), std::uint16_t(word >> 10)});
      for (unsigned i = 0; i < n; ++i)
        polygonVertices.push_back(span.pointBase + TakeVX(p));
    }
  }
  polygonSpans.clear();
  spanPolygons = 0;
  spanVertices = 0;
  spanSurfaces = {};
  spanSurfacesResolved = false;
}

std::vector<LwPolygonRun> LwPolygonRuns(const st_lwLayer& layer) {
  std::vector<LwPolygonRun> runs;
  auto add = [&](std::uint32_t type, std::size_t first, std::size_t end) {
    if (first == end)
      return;
    if (!runs.empty() && runs.back().type == type && runs.back().end == first)
      runs.back().end = end;
    else
      runs.push_back({type, first, end});
  };
  if (layer.polygonSpans.empty())
    for (std::size_t p = 0; p < layer.polygons.size(); ++p)
      add(layer.polygons[p].type, p, p + 1);
  else
    for (const auto& span : layer.polygonSpans)
      add(span.type, span.first, std::size_t(span.first) + span.count);
  return runs;
}

LwPolygonWalk::LwPolygonWalk(const st_lwLayer& layer, std::size_t first)
    : layer_(layer), index_(first) {
  if (layer_.polygonSpans.empty()) {
    Load();
    return;
  }
  // The span holding `first`, then the polygons before it in that span.
  const auto& spans = layer_.polygonSpans;
  while (span_ + 1 < spans.size() && std::size_t(spans[span_].first) + spans[span_].count <= first)
    ++span_;
  if (span_ < spans.size()) {
    at_ = spans[span_].begin;
    for (std::size_t i = spans[span_].first; i < first && at_ < spans[span_].end; ++i) {
      unsigned n = codec::LoadU16BE(at_) & 0x03FF;
      at_ += 2;
      for (unsigned k = 0; k < n; ++k)
        at_ += at_[0] == 0xFF ? 4 : 2;
    }
  }
  Load();
}

void LwPolygonWalk::Load() {
  if (index_ >= layer_.GetPolygonCount()) {
    count_ = 0;
    return;
  }
  if (layer_.polygonSpans.empty()) {
    const st_lwPolygon& poly = layer_.polygons[index_];
    count_ = poly.vertexCount;
    firstVertex_ = poly.firstVertex;
    return;
  }
  // Empty chunks leave spans without polygons.
  while (at_ >= layer_.polygonSpans[span_].end) {
    ++span_;
    at_ = layer_.polygonSpans[span_].begin;
  }
  LwFetchAhead(at_);
  count_ = codec::LoadU16BE(at_) & 0x03FF;
  next_ = nullptr;
}

const std::uint32_t* LwPolygonWalk::Vertices() {
  if (layer_.polygonSpans.empty())
    return layer_.polygonVertices.data() + firstVertex_;
  if (!next_) {
    const std::uint8_t* p = at_ + 2;
    const auto& span = layer_.polygonSpans[span_];
    std::uint32_t most;
    if (LwUniformVX(p, span.end, count_, buffer_, most, next_)) {
      for (unsigned k = 0; k < count_; ++k)
        buffer_[k] += span.pointBase;
    } else {
      for (unsigned k = 0; k < count_; ++k)
        buffer_[k] = span.pointBase + TakeVX(p);
      next_ = p;
    }
  }
  return buffer_;
}

void LwPolygonWalk::Next() {
  if (!layer_.polygonSpans.empty()) {
    if (next_) {
      at_ = next_;
    } else {
      at_ += 2;
      std::uint32_t most;
      const std::uint8_t* next;
      if (LwUniformVX(at_, layer_.polygonSpans[span_].end, count_, nullptr, most, next))
        at_ = next;
      else
        for (unsigned k = 0; k < count_; ++k)
          at_ += at_[0] == 0xFF ? 4 : 2;
    }
  }
  ++index_;
  Load();
}

const st_lwClip* st_lwObject::FindClip(std::uint32_t index) const {
  for (const auto& c : clips)
    if (c.index == index)
      return &c;
  return nullptr;
}

int st_lwObject::FindSurface(std::string_view name) const {
  for (std::size_t i = 0; i < surfaces.size(); ++i)
    if (surfaces[i].name == name)
      return int(i);
  return -1;
}

std::string LwClipNameToLocal(std::string_view fileName) {
  std::string s(fileName);
  for (auto& c : s)
    if (c == '/')
      c = '\\';
  auto colon = s.find(':');
  if (colon == std::string::npos)
    return ".\\" + s;
  // "Drive:dir" gains the separator the local form needs; "C:/dir" already has one.
  if (colon + 1 >= s.size() || s[colon + 1] != '\\')
    s.insert(colon + 1, 1, '\\');
  return s;
}

std::string LwLocalNameToClip(std::string_view localName) {
  // Either separator may appear: the local form may already be the platform's.
  auto isSep = [](char c) { return c == '\\' || c == '/'; };
  std::string s(localName);
  bool rooted = s.find(':') != std::string::npos || (!s.empty() && isSep(s[0]));
  if (!rooted) {
    if (s.size() >= 2 && s[0] == '.' && isSep(s[1]))
      s.erase(0, 2);
  } else {
    auto colon = s.find(':');
    if (colon != std::string::npos && colon + 1 < s.size() && isSep(s[colon + 1]))
      s.erase(colon + 1, 1);
  }
  for (auto& c : s)
    if (c == '\\')
      c = '/';
  return s;
}

} // namespace meshcore

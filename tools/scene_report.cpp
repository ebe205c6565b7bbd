// What `meshcore info` says about a scene, as text and as JSON.
#include "tools/tool.h"

#include "meshcore/geometry/matrix_4x4.h"
#include "meshcore/mesh/channel.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/scene.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>
#include <thread>

namespace meshcore::tool {

namespace {

// Kind names for JSON and the tree: fixed, so that scripts can match them.
const char* KindKey(std::uint32_t kind) {
  switch (kind) {
  case OBJECT_POLYGONAL:
    return "polygonal";
  case OBJECT_CURVE:
    return "curve";
  case OBJECT_PATCH:
    return "patch";
  case OBJECT_GROUP:
    return "group";
  default:
    return "unknown";
  }
}

// Shortest text that reads back to the same float, in the C locale.
std::string Number(float value) {
  if (!std::isfinite(value))
    return "null";
  char buffer[32];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

std::string Point(const C3DPoint& p) {
  return "[" + Number(p.x) + ", " + Number(p.y) + ", " + Number(p.z) + "]";
}

// Folds points [begin, end) into the box lo..hi; world is null for identity.
void FoldBox(const C3DPointList& points, int begin, int end, const C4x4Matrix* world, float lo[3],
             float hi[3]) {
  // Plain floats in registers: the loop runs over millions of points.
  float l[3] = {lo[0], lo[1], lo[2]};
  float h[3] = {hi[0], hi[1], hi[2]};
  auto add = [&](const C3DPoint& p) {
    l[0] = std::min(l[0], p.x);
    l[1] = std::min(l[1], p.y);
    l[2] = std::min(l[2], p.z);
    h[0] = std::max(h[0], p.x);
    h[1] = std::max(h[1], p.y);
    h[2] = std::max(h[2], p.z);
  };
  if (!world)
    for (int i = begin; i < end; ++i)
      add(points[i]);
  else
    for (int i = begin; i < end; ++i)
      add(points[i] * *world);
  for (int k = 0; k < 3; ++k) {
    lo[k] = l[k];
    hi[k] = h[k];
  }
}

// Adds the object's points, carried to world space by the node's matrices.
void AddToBox(SceneStats& stats, const C3DSceneNode& node, const C3DBaseObject& object) {
  const C3DPointList* points = object.GetPointList();
  if (!points || points->GetSize() == 0)
    return;
  C4x4Matrix matrix;
  node.GetMatrix(NODE_MATRIX_TRANSFORM, matrix, 0);
  const C4x4Matrix* world = matrix.IsIdentity() ? nullptr : &matrix;
  const int n = points->GetSize();
  int i = 0;
  if (!stats.hasBox) {
    stats.boxMin = stats.boxMax = world ? (*points)[0] * *world : (*points)[0];
    stats.hasBox = true;
    i = 1;
  }
  float lo[3] = {stats.boxMin.x, stats.boxMin.y, stats.boxMin.z};
  float hi[3] = {stats.boxMax.x, stats.boxMax.y, stats.boxMax.z};
  // A large object is boxed in two halves on two threads. Both start from the
  // same box, so a point with a NaN coordinate is passed over exactly as in
  // one pass; the halves' boxes then merge.
  constexpr int kSplitFrom = 1 << 18;
  const int mid = i + (n - i) / 2;
  std::thread other;
  float lo2[3] = {lo[0], lo[1], lo[2]}, hi2[3] = {hi[0], hi[1], hi[2]};
  if (n - i >= kSplitFrom && std::thread::hardware_concurrency() != 1) {
    try {
      other = std::thread([&] { FoldBox(*points, mid, n, world, lo2, hi2); });
    } catch (const std::system_error&) {
      // no second thread: one pass below
    }
  }
  FoldBox(*points, i, other.joinable() ? mid : n, world, lo, hi);
  if (other.joinable()) {
    other.join();
    for (int k = 0; k < 3; ++k) {
      lo[k] = std::min(lo[k], lo2[k]);
      hi[k] = std::max(hi[k], hi2[k]);
    }
  }
  stats.boxMin = C3DPoint(lo[0], lo[1], lo[2]);
  stats.boxMax = C3DPoint(hi[0], hi[1], hi[2]);
}

void PrintSubtree(std::FILE* out, const C3DSceneNode* node, const std::string& indent) {
  for (; node; node = static_cast<const C3DSceneNode*>(node->GetRight())) {
    const bool last = node->GetRight() == nullptr;
    const C3DBaseObject* object = node->GetBaseObject();
    std::string what = object ? KindKey(object->GetKindOf()) : "empty";
    if (object && object->GetKindOf() != OBJECT_GROUP)
      what += ", " + std::to_string(object->GetPointNbr()) + " points, " +
              std::to_string(object->GetFaceNbr()) + " faces";
    if (node->IsClone())
      what += ", clone";
    std::fprintf(out, "%s%s %s [%s]\n", indent.c_str(), last ? "`--" : "|--",
                 node->GetName().empty() ? "(unnamed)" : node->GetName().c_str(), what.c_str());
    PrintSubtree(out, static_cast<const C3DSceneNode*>(node->GetChild()),
                 indent + (last ? "    " : "|   "));
  }
}

std::string TreeJson(const C3DSceneNode* node) {
  std::string json = "[";
  for (bool first = true; node; node = static_cast<const C3DSceneNode*>(node->GetRight())) {
    if (!first)
      json += ", ";
    first = false;
    const C3DBaseObject* object = node->GetBaseObject();
    json += "{\"name\": " + JsonString(node->GetName());
    json += ", \"kind\": \"" + std::string(object ? KindKey(object->GetKindOf()) : "empty") + "\"";
    if (object && object->GetKindOf() != OBJECT_GROUP)
      json += ", \"points\": " + std::to_string(object->GetPointNbr()) +
              ", \"faces\": " + std::to_string(object->GetFaceNbr());
    json += ", \"children\": " + TreeJson(static_cast<const C3DSceneNode*>(node->GetChild()));
    json += "}";
  }
  return json + "]";
}

} // namespace

SceneStats CollectStats(C3DScene& scene) {
  SceneStats stats;
  const C3DBaseObject* object = nullptr;
  C3DSceneNode* cursor = scene.GetFirstNode(nullptr);
  while (cursor) {
    C3DSceneNode* node = scene.GetNextNode(object, cursor, nullptr);
    ++stats.nodes;
    if (!object)
      continue;
    switch (object->GetKindOf()) {
    case OBJECT_POLYGONAL:
      ++stats.polygonal;
      break;
    case OBJECT_CURVE:
      ++stats.curves;
      break;
    case OBJECT_PATCH:
      ++stats.patches;
      break;
    case OBJECT_GROUP:
      ++stats.groups;
      break;
    default:
      break;
    }
    if (const CDependentChannels* channels = object->GetChannels()) {
      stats.textureChannels += channels->GetChannelsNumber(CHANNEL_UVW, 1);
      stats.colourChannels += channels->GetChannelsNumber(CHANNEL_VC, 1);
    }
    if (object->GetKindOf() != OBJECT_GROUP)
      AddToBox(stats, *node, *object);
  }
  stats.points = scene.GetPointNbr();
  stats.faces = scene.GetFaceNbr();
  stats.materials = scene.GetMaterialNumber();
  return stats;
}

void PrintStats(std::FILE* out, const std::string& file, const SceneStats& s) {
  std::fprintf(out, "%s\n", file.c_str());
  std::fprintf(out, "  nodes      %d (%d polygonal, %d curves, %d patches, %d groups)\n", s.nodes,
               s.polygonal, s.curves, s.patches, s.groups);
  std::fprintf(out, "  points     %lld\n", s.points);
  std::fprintf(out, "  faces      %lld\n", s.faces);
  std::fprintf(out, "  materials  %d\n", s.materials);
  std::fprintf(out, "  channels   %d texture, %d colour\n", s.textureChannels, s.colourChannels);
  if (s.hasBox)
    std::fprintf(out, "  bbox       %s .. %s\n", Point(s.boxMin).c_str(), Point(s.boxMax).c_str());
  else
    std::fprintf(out, "  bbox       (empty)\n");
}

void PrintTree(std::FILE* out, C3DScene& scene) {
  std::fprintf(out, "  tree\n");
  PrintSubtree(out, scene.GetFirstNode(nullptr), "    ");
}

std::string JsonString(const std::string& text) {
  std::string json = "\"";
  for (unsigned char c : text) {
    switch (c) {
    case '"':
      json += "\\\"";
      break;
    case '\\':
      json += "\\\\";
      break;
    case '\n':
      json += "\\n";
      break;
    case '\t':
      json += "\\t";
      break;
    default:
      if (c < 0x20) {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
        json += escaped;
      } else {
        json += static_cast<char>(c); // UTF-8 passes through
      }
    }
  }
  return json + "\"";
}

std::string StatsToJson(const std::string& file, const SceneStats& s, C3DScene* treeOf) {
  std::string json = "{\"file\": " + JsonString(file);
  json += ", \"nodes\": {\"total\": " + std::to_string(s.nodes) +
          ", \"polygonal\": " + std::to_string(s.polygonal) +
          ", \"curve\": " + std::to_string(s.curves) + ", \"patch\": " + std::to_string(s.patches) +
          ", \"group\": " + std::to_string(s.groups) + "}";
  json += ", \"points\": " + std::to_string(s.points);
  json += ", \"faces\": " + std::to_string(s.faces);
  json += ", \"materials\": " + std::to_string(s.materials);
  json += ", \"channels\": {\"texture\": " + std::to_string(s.textureChannels) +
          ", \"colour\": " + std::to_string(s.colourChannels) + "}";
  json += ", \"bbox\": ";
  json += s.hasBox ? "{\"min\": " + Point(s.boxMin) + ", \"max\": " + Point(s.boxMax) + "}"
                   : std::string("null");
  if (treeOf)
    json += ", \"tree\": " + TreeJson(treeOf->GetFirstNode(nullptr));
  return json + "}";
}

} // namespace meshcore::tool

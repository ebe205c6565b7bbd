#pragma once
// In-memory Lightwave object: what the chunk loader produces and the chunk
// writer consumes. Plain records in flat arrays, so that a million polygons
// cost a handful of allocations rather than millions.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace meshcore {

// Four ASCII bytes, most significant first, as one integer.
constexpr std::uint32_t LwId(const char (&s)[5]) {
  return (std::uint32_t(std::uint8_t(s[0])) << 24) | (std::uint32_t(std::uint8_t(s[1])) << 16) |
         (std::uint32_t(std::uint8_t(s[2])) << 8) | std::uint32_t(std::uint8_t(s[3]));
}
std::string LwIdToString(std::uint32_t id);

namespace lwid {
inline constexpr std::uint32_t FORM = LwId("FORM"), LWO2 = LwId("LWO2"), LWOB = LwId("LWOB");
inline constexpr std::uint32_t LAYR = LwId("LAYR"), PNTS = LwId("PNTS"), BBOX = LwId("BBOX");
inline constexpr std::uint32_t POLS = LwId("POLS"), PTAG = LwId("PTAG"), TAGS = LwId("TAGS");
inline constexpr std::uint32_t SURF = LwId("SURF"), CLIP = LwId("CLIP"), ENVL = LwId("ENVL");
inline constexpr std::uint32_t VMAP = LwId("VMAP"), VMAD = LwId("VMAD"), SRFS = LwId("SRFS");
inline constexpr std::uint32_t CRVS = LwId("CRVS"), PCHS = LwId("PCHS");
// Polygon types.
inline constexpr std::uint32_t FACE = LwId("FACE"), CURV = LwId("CURV"), PTCH = LwId("PTCH");
inline constexpr std::uint32_t SUBD = LwId("SUBD"), PACH = LwId("PACH");
// Tag types.
inline constexpr std::uint32_t PART = LwId("PART"), SMGP = LwId("SMGP");
// Vertex-map types.
inline constexpr std::uint32_t TXUV = LwId("TXUV"), RGB_ = LwId("RGB "), RGBA = LwId("RGBA");
// Surface sub-chunks and channels.
inline constexpr std::uint32_t COLR = LwId("COLR"), DIFF = LwId("DIFF"), LUMI = LwId("LUMI");
inline constexpr std::uint32_t SPEC = LwId("SPEC"), REFL = LwId("REFL"), TRAN = LwId("TRAN");
inline constexpr std::uint32_t TRNL = LwId("TRNL"), GLOS = LwId("GLOS"), SMAN = LwId("SMAN");
inline constexpr std::uint32_t SIDE = LwId("SIDE"), VCOL = LwId("VCOL"), BLOK = LwId("BLOK");
inline constexpr std::uint32_t BUMP = LwId("BUMP");
// Texture blocks.
inline constexpr std::uint32_t IMAP = LwId("IMAP"), PROC = LwId("PROC"), GRAD = LwId("GRAD");
inline constexpr std::uint32_t SHDR = LwId("SHDR"), CHAN = LwId("CHAN"), ENAB = LwId("ENAB");
inline constexpr std::uint32_t OPAC = LwId("OPAC"), AXIS = LwId("AXIS"), NEGA = LwId("NEGA");
inline constexpr std::uint32_t TMAP = LwId("TMAP"), PROJ = LwId("PROJ"), IMAG = LwId("IMAG");
inline constexpr std::uint32_t WRAP = LwId("WRAP");
// Clips.
inline constexpr std::uint32_t STIL = LwId("STIL");
} // namespace lwid

inline constexpr std::uint32_t kLwNone = 0xFFFFFFFFu;

struct st_lwPoint {
  float pos[3];
};

struct st_lwPolygon {
  std::uint32_t type = lwid::FACE;
  std::uint32_t tag = kLwNone;     // surface tag (index into the tag table), kLwNone if untagged
  std::uint32_t surface = kLwNone; // index into the object's surfaces once resolved
  std::uint32_t firstVertex = 0;   // into st_lwLayer::polygonVertices
  std::uint16_t vertexCount = 0;
  std::uint16_t flags = 0; // the high 6 bits of the count word
};

// One VMAP (per point) or VMAD (per polygon vertex) chunk. Entries are stored
// as parallel arrays; values hold dimension floats per entry.
struct st_lwVMap {
  std::uint32_t type = 0;
  std::uint32_t dimension = 0;
  std::string name;
  bool perPolygon = false;
  std::vector<std::uint32_t> points;   // layer point index per entry
  std::vector<std::uint32_t> polygons; // layer polygon index per entry (per-polygon maps)
  std::vector<float> values;           // entries * dimension
  // Filled by the finishing steps: the entry attached to each point (per-point
  // maps) or to each polygon vertex (per-polygon maps), -1 when there is none.
  std::vector<std::int32_t> attached;

  std::size_t EntryCount() const { return points.size(); }
  const float* Value(std::size_t entry) const { return values.data() + entry * dimension; }
};

struct st_lwLayer {
  std::uint32_t number = 0;
  std::uint32_t flags = 0; // bit 0: hidden
  float pivot[3] = {0, 0, 0};
  std::string name;
  std::uint32_t parent = 0; // 0 when absent
  bool hasParent = false;
  float bbox[6] = {0, 0, 0, 0, 0, 0}; // min xyz, max xyz
  bool hasBBox = false;

  std::vector<st_lwPoint> points;
  std::vector<st_lwPolygon> polygons;
  std::vector<std::uint32_t> polygonVertices; // point indices of every polygon, in file order
  // Optional per-polygon tags of the PART and SMGP kinds (empty when the file has none).
  std::vector<std::uint32_t> partTags;
  std::vector<std::uint32_t> smoothingGroups;
  std::vector<st_lwVMap> vmaps;

  // Three floats per polygon, built on request.
  std::vector<float> polygonNormals;
  // Point -> polygons that use it (compressed rows), built on request.
  std::vector<std::uint32_t> pointPolygonStart; // points + 1 offsets
  std::vector<std::uint32_t> pointPolygons;
  // One normal per polygon vertex (parallel to polygonVertices), built on request.
  std::vector<float> vertexNormals;

  // Where indices of the next POLS/PTAG/VMAP/VMAD start (the count before the
  // last PNTS and POLS chunk).
  std::uint32_t pointBase = 0;
  std::uint32_t polygonBase = 0;

  // Polygons left in the loaded bytes (a loader option for callers that walk
  // them once): each POLS chunk as a checked view, decoded only as it is
  // walked, so that `polygons` and `polygonVertices` stay empty. The bytes
  // must outlive the layer.
  struct PolygonSpan {
    std::uint32_t type = lwid::FACE;
    std::uint32_t first = 0, count = 0; // layer polygons [first, first + count)
    std::uint32_t small = 0;            // polygons of fewer than 3 vertices
    std::uint32_t pointBase = 0;
    const std::uint8_t* begin = nullptr; // count word of the first polygon
    const std::uint8_t* end = nullptr;
  };
  std::vector<PolygonSpan> polygonSpans;
  std::size_t spanPolygons = 0;
  std::uint64_t spanVertices = 0;
  // With spans: each polygon's tag (kLwNone if untagged; missing at the end
  // reads as untagged) until surfaces are resolved, its surface after.
  std::vector<std::uint32_t> spanSurfaces;
  bool spanSurfacesResolved = false;

  // Points left in the loaded bytes (the same loader option): the layer's one
  // "PNTS" chunk, 3 x F4 big-endian each; `points` then stays empty and no
  // box is computed.
  const std::uint8_t* pointBytes = nullptr;
  std::size_t viewPoints = 0;

  std::size_t GetPointCount() const { return pointBytes ? viewPoints : points.size(); }
  void GetPoint(std::size_t i, float out[3]) const;
  std::size_t GetPolygonCount() const {
    return polygonSpans.empty() ? polygons.size() : spanPolygons;
  }
  std::uint32_t SurfaceOf(std::size_t polygon) const {
    if (polygonSpans.empty())
      return polygons[polygon].surface;
    return polygon < spanSurfaces.size() ? spanSurfaces[polygon] : kLwNone;
  }
  const std::uint32_t* Vertices(const st_lwPolygon& p) const {
    return polygonVertices.data() + p.firstVertex;
  }
  // Decodes the spans into `polygons` and `polygonVertices`.
  void DecodeSpans();
};

// One run of polygons of one type, [first, end) in layer order.
struct LwPolygonRun {
  std::uint32_t type;
  std::size_t first, end;
};
std::vector<LwPolygonRun> LwPolygonRuns(const st_lwLayer& layer);

// Walks a layer's polygons in order from a given one, whether they are
// decoded or still spans of bytes.
class LwPolygonWalk {
public:
  LwPolygonWalk(const st_lwLayer& layer, std::size_t first);
  std::size_t Index() const { return index_; }
  unsigned Count() const { return count_; }
  std::uint32_t Surface() const { return layer_.SurfaceOf(index_); }
  // Offset of the polygon's vertices in `polygonVertices` (decoded polygons only).
  std::uint32_t FirstVertex() const { return firstVertex_; }
  // Layer point indices in file order.
  const std::uint32_t* Vertices();
  void Next();

private:
  void Load();

  const st_lwLayer& layer_;
  std::size_t index_;
  unsigned count_ = 0;
  std::uint32_t firstVertex_ = 0;
  // Span walking.
  std::size_t span_ = 0;
  const std::uint8_t* at_ = nullptr;   // the current polygon's count word
  const std::uint8_t* next_ = nullptr; // past its vertices, once they are decoded
  std::uint32_t buffer_[1024];
};

// One texture layer of a surface channel.
struct st_lwBlock {
  std::uint32_t type = 0; // IMAP, PROC, GRAD, SHDR
  std::string ordinal;
  std::uint32_t channel = lwid::COLR;
  bool enabled = true;
  float opacity = 1.0f;
  std::uint32_t projection = 0; // 0 planar, 1 cylindrical, 2 spherical, 3 cubic, 4 front, 5 UV
  std::uint32_t axis = 0;
  std::uint32_t clip = kLwNone; // clip index for image maps
  std::string vmapName;         // texture map of UV-projected image maps
};

// The blocks of one surface channel (colour, diffuse, ...).
struct _lwChannelInfo {
  std::uint32_t channel = 0;
  std::vector<st_lwBlock> blocks;
};

struct st_lwSurface {
  std::string name;
  std::string source;
  float color[3] = {200.0f / 255.0f, 200.0f / 255.0f, 200.0f / 255.0f};
  float luminosity = 0.0f;
  float diffuse = 1.0f;
  float specular = 0.0f;
  float reflection = 0.0f;
  float transparency = 0.0f;
  float translucency = 0.0f;
  float glossiness = 0.4f;
  float smoothingAngle = 0.0f; // radians
  std::uint32_t side = 1;      // 1 front, 3 both
  // Vertex-colour map (VCOL), empty name when none.
  float vcolIntensity = 1.0f;
  std::uint32_t vcolType = 0;
  std::string vcolName;
  std::vector<_lwChannelInfo> channels;

  const _lwChannelInfo* FindChannel(std::uint32_t channel) const;
  _lwChannelInfo& GetChannel(std::uint32_t channel);
};

struct st_lwClip {
  std::uint32_t index = 0;
  std::uint32_t type = 0; // ID of the first sub-chunk: STIL, ISEQ, ANIM, XREF, STCC
  std::string fileName;   // still image
};

struct st_lwEnvelope {
  std::uint32_t index = 0;
  std::uint32_t keyCount = 0;
};

struct st_lwObject {
  std::uint32_t formType = lwid::LWO2;
  std::vector<st_lwLayer> layers;
  std::vector<st_lwEnvelope> envelopes;
  std::vector<st_lwClip> clips;
  std::vector<st_lwSurface> surfaces;
  std::vector<std::string> tags;

  std::size_t GetLayerNbr() const { return layers.size(); }
  const st_lwClip* FindClip(std::uint32_t index) const;
  // The surface of that name, or -1.
  int FindSurface(std::string_view name) const;
};

} // namespace meshcore

namespace meshcore {

// Image names as the file stores them ("dir/image.png", "Drive:dir/image.png")
// and as materials keep them (".\dir\image.png", "Drive:\dir\image.png").
std::string LwClipNameToLocal(std::string_view fileName);
std::string LwLocalNameToClip(std::string_view localName);

} // namespace meshcore

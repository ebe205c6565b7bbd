#pragma once
// Wavefront OBJ and MTL text into flat records: the vertex arrays with every
// index already resolved to a 0-based position, and per node the faces, lines
// and points in file order. Building the scene from them is the codec's job.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace meshcore::obj {

inline constexpr std::int32_t kNone = -1;

struct ObjCorner {
  std::int32_t v = kNone;
  std::int32_t t = kNone;
  std::int32_t n = kNone;
};

// Everything one `o`/`g` pair holds, in file order.
struct ObjNode {
  std::string object;                      // name of the enclosing `o`, empty when none
  std::string group;                       // first name of the `g`, empty when none
  std::vector<std::uint32_t> faceStart{0}; // corners of face i: [faceStart[i], faceStart[i+1])
  std::vector<ObjCorner> corners;
  std::vector<std::int32_t> faceMaterial;   // index into ObjData::materialNames, kNone for none
  std::vector<std::uint32_t> faceSmoothing; // smoothing group, 0 = off
  std::vector<std::uint32_t> lineStart{0};
  std::vector<std::int32_t> lineVertices;
  std::vector<std::int32_t> lineMaterial;
  std::vector<std::int32_t> points;
  bool hasTexture = false;
  bool hasNormal = false;

  std::size_t FaceCount() const { return faceStart.size() - 1; }
  std::size_t LineCount() const { return lineStart.size() - 1; }
};

struct ObjData {
  std::vector<float> positions; // x y z per vertex
  std::vector<float> colours;   // r g b per vertex once any vertex has one (else empty)
  std::vector<float> texcoords; // u v w
  std::vector<float> normals;   // x y z
  std::vector<ObjNode> nodes;
  std::vector<std::string> materialNames; // as `usemtl` names them, first use first
  std::vector<std::string> libraries;     // `mtllib` arguments, raw, in order
  bool hasSmoothing = false;              // some `s` statement was met
  std::size_t droppedFaces = 0;           // faces of fewer than three corners

  std::size_t VertexCount() const { return positions.size() / 3; }
};

// Throws codec::CFormatError at the first statement it cannot accept. Polls
// the cancel flag and throws ObjCancelled when asked to stop.
struct ObjCancelled {};
void ParseObj(const char* text, std::size_t size, ObjData& out);

struct ObjMap {
  int role = 0; // MapType: 1 diffuse, 2 ambient, 3 specular, 4 transparency
  std::string file;
};

struct ObjMaterial {
  std::string name;
  bool hasKa = false, hasKd = false, hasKs = false;
  float ka[3] = {0, 0, 0}, kd[3] = {0, 0, 0}, ks[3] = {0, 0, 0};
  bool hasTransparency = false;
  float transparency = 0.0f;
  std::vector<ObjMap> maps;
};

// MTL is read leniently: a statement it cannot read is skipped, so a damaged
// library costs only what it damages.
void ParseMtl(const char* text, std::size_t size, std::vector<ObjMaterial>& out);

// Number forms: a leading '+', ".5", "2.", exponents. A number followed by
// other characters reads as its leading part (as C's atof would), which old
// exporters rely on; NaN and infinities are refused. False when no number starts the token.
bool ParseNumber(std::string_view token, float& value);
bool ParseNumber(std::string_view token, double& value);

// The text of a file's bytes: UTF-8 as it is (without its byte-order mark),
// UTF-16 of either byte order converted to UTF-8. False for bytes that are not
// text (a binary file under a text extension).
bool DecodeText(const std::uint8_t* data, std::size_t size, std::string& converted,
                std::string_view& text);

// The file names of a `mtllib` argument: the whole argument when `exists`
// says it names a file, else its blank-separated words.
template <class Exists>
std::vector<std::string> SplitLibraries(std::string_view argument, Exists exists);

// Blanks of a statement: space, tab, vertical tab, form feed.
inline bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\v' || c == '\f';
}
inline std::string_view TrimBlanks(std::string_view s) {
  while (!s.empty() && IsBlank(s.front()))
    s.remove_prefix(1);
  while (!s.empty() && IsBlank(s.back()))
    s.remove_suffix(1);
  return s;
}
// The next blank-separated word; s moves past it. Inline: it runs per number.
inline std::string_view NextWord(std::string_view& s) {
  std::size_t b = 0;
  while (b < s.size() && IsBlank(s[b]))
    ++b;
  std::size_t e = b;
  while (e < s.size() && !IsBlank(s[e]))
    ++e;
  std::string_view word = s.substr(b, e - b);
  s.remove_prefix(e);
  return word;
}

template <class Exists>
std::vector<std::string> SplitLibraries(std::string_view argument, Exists exists) {
  std::vector<std::string> names;
  argument = TrimBlanks(argument);
  if (argument.empty())
    return names;
  if (exists(std::string(argument))) {
    names.emplace_back(argument);
    return names;
  }
  for (std::string_view w = NextWord(argument); !w.empty(); w = NextWord(argument))
    names.emplace_back(w);
  return names;
}

} // namespace meshcore::obj

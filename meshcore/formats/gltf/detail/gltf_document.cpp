#include "meshcore/formats/gltf/detail/gltf_document.h"

#include "meshcore/formats/common/detail/byte_order.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace meshcore::gltf {

std::pair<std::uint32_t, std::uint8_t*> Document::AddView(std::size_t size, ViewTarget target) {
  const std::size_t offset = (buffer.size() + 3) & ~std::size_t(3);
  buffer.resize(offset + size);
  bufferViews.push_back({offset, size, 0, target});
  return {std::uint32_t(bufferViews.size() - 1), buffer.data() + offset};
}

std::uint32_t Document::AddView(const void* data, std::size_t size, ViewTarget target) {
  auto [view, bytes] = AddView(size, target);
  if (size)
    std::memcpy(bytes, data, size);
  return view;
}

std::uint32_t Document::AddAccessor(Accessor accessor) {
  accessors.push_back(std::move(accessor));
  return std::uint32_t(accessors.size() - 1);
}

namespace {

// JSON text built by appending; numbers through to_chars (shortest form that
// reads back the same float, whatever the locale).
class Json {
public:
  std::string out;

  void Raw(const char* s) { out += s; }
  void Key(const char* k) {
    String(k);
    out += ':';
    comma_ = false; // the value follows the colon directly
  }
  void String(const std::string& s) {
    Comma();
    out += '"';
    for (unsigned char c : s) {
      switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (c < 0x20) {
          static const char* hex = "0123456789abcdef";
          out += "\\u00";
          out += hex[c >> 4];
          out += hex[c & 15];
        } else {
          out += char(c);
        }
      }
    }
    out += '"';
    Done();
  }
  void Number(std::uint64_t v) {
    Comma();
    char buf[32];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    out.append(buf, r.ptr);
    Done();
  }
  void Int(long long v) {
    Comma();
    char buf[32];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    out.append(buf, r.ptr);
    Done();
  }
  void Float(float v) {
    Comma();
    if (!std::isfinite(v))
      v = 0.0f; // JSON has no NaN or infinity
    if (v == 0.0f)
      v = 0.0f; // no "-0"
    char buf[32];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    out.append(buf, r.ptr);
    Done();
  }
  void Bool(bool v) {
    Comma();
    out += v ? "true" : "false";
    Done();
  }
  void BeginObject() {
    Comma();
    out += '{';
    comma_ = false;
  }
  void EndObject() {
    out += '}';
    Done();
  }
  void BeginArray() {
    Comma();
    out += '[';
    comma_ = false;
  }
  void EndArray() {
    out += ']';
    Done();
  }
  template <class T> void IntArray(const char* key, const std::vector<T>& values) {
    Key(key);
    BeginArray();
    for (T v : values)
      Number(std::uint64_t(v));
    EndArray();
  }
  void FloatArray(const char* key, const float* values, std::size_t n) {
    Key(key);
    BeginArray();
    for (std::size_t i = 0; i < n; ++i)
      Float(values[i]);
    EndArray();
  }

private:
  // A value or key after another one at the same level takes a comma.
  void Comma() {
    if (comma_)
      out += ',';
  }
  void Done() { comma_ = true; }

  bool comma_ = false;
};

} // namespace

std::string EncodeJson(const Document& doc, const std::string& binUri) {
  Json j;
  j.BeginObject();
  j.Key("asset");
  j.BeginObject();
  j.Key("version");
  j.String("2.0");
  j.Key("generator");
  j.String("Meshcore");
  j.EndObject();
  j.Key("scene");
  j.Number(0);
  j.Key("scenes");
  j.BeginArray();
  j.BeginObject();
  j.IntArray("nodes", doc.sceneNodes);
  j.EndObject();
  j.EndArray();

  j.Key("nodes");
  j.BeginArray();
  for (const Node& n : doc.nodes) {
    j.BeginObject();
    if (!n.name.empty()) {
      j.Key("name");
      j.String(n.name);
    }
    if (!n.children.empty())
      j.IntArray("children", n.children);
    if (n.mesh >= 0) {
      j.Key("mesh");
      j.Number(std::uint64_t(n.mesh));
    }
    if (n.hasMatrix)
      j.FloatArray("matrix", n.matrix.data(), 16);
    j.EndObject();
  }
  j.EndArray();

  if (!doc.meshes.empty()) {
    j.Key("meshes");
    j.BeginArray();
    for (const Mesh& m : doc.meshes) {
      j.BeginObject();
      if (!m.name.empty()) {
        j.Key("name");
        j.String(m.name);
      }
      j.Key("primitives");
      j.BeginArray();
      for (const Primitive& p : m.primitives) {
        j.BeginObject();
        j.Key("attributes");
        j.BeginObject();
        for (const auto& [name, accessor] : p.attributes) {
          j.Key(name);
          j.Number(accessor);
        }
        j.EndObject();
        if (p.indices >= 0) {
          j.Key("indices");
          j.Number(std::uint64_t(p.indices));
        }
        if (p.material >= 0) {
          j.Key("material");
          j.Number(std::uint64_t(p.material));
        }
        if (p.mode != 4) {
          j.Key("mode");
          j.Number(std::uint64_t(p.mode));
        }
        j.EndObject();
      }
      j.EndArray();
      j.EndObject();
    }
    j.EndArray();
  }

  if (!doc.materials.empty()) {
    j.Key("materials");
    j.BeginArray();
    for (const Material& m : doc.materials) {
      j.BeginObject();
      j.Key("name");
      j.String(m.name);
      j.Key("pbrMetallicRoughness");
      j.BeginObject();
      j.FloatArray("baseColorFactor", m.baseColor.data(), 4);
      if (m.texture >= 0) {
        j.Key("baseColorTexture");
        j.BeginObject();
        j.Key("index");
        j.Number(std::uint64_t(m.texture));
        j.EndObject();
      }
      j.Key("metallicFactor");
      j.Float(m.metallic);
      j.Key("roughnessFactor");
      j.Float(m.roughness);
      j.EndObject();
      if (m.blend) {
        j.Key("alphaMode");
        j.String("BLEND");
      }
      j.Key("doubleSided");
      j.Bool(m.doubleSided);
      j.EndObject();
    }
    j.EndArray();
  }

  if (!doc.textures.empty()) {
    j.Key("samplers");
    j.BeginArray();
    j.BeginObject();
    j.Key("magFilter");
    j.Number(9729); // linear
    j.Key("minFilter");
    j.Number(9987); // linear mipmap linear
    j.EndObject();
    j.EndArray();
    j.Key("textures");
    j.BeginArray();
    for (const Texture& t : doc.textures) {
      j.BeginObject();
      j.Key("sampler");
      j.Number(0);
      j.Key("source");
      j.Number(t.source);
      j.EndObject();
    }
    j.EndArray();
    j.Key("images");
    j.BeginArray();
    for (const Image& im : doc.images) {
      j.BeginObject();
      if (!im.name.empty()) {
        j.Key("name");
        j.String(im.name);
      }
      if (im.bufferView >= 0) {
        j.Key("bufferView");
        j.Number(std::uint64_t(im.bufferView));
        j.Key("mimeType");
        j.String(im.mimeType);
      } else {
        j.Key("uri");
        j.String(im.uri);
      }
      j.EndObject();
    }
    j.EndArray();
  }

  if (!doc.accessors.empty()) {
    j.Key("accessors");
    j.BeginArray();
    for (const Accessor& a : doc.accessors) {
      j.BeginObject();
      j.Key("bufferView");
      j.Number(a.bufferView);
      if (a.offset) {
        j.Key("byteOffset");
        j.Number(a.offset);
      }
      j.Key("componentType");
      j.Number(std::uint64_t(a.componentType));
      if (a.normalized) {
        j.Key("normalized");
        j.Bool(true);
      }
      j.Key("count");
      j.Number(a.count);
      j.Key("type");
      j.String(a.type);
      if (!a.min.empty()) {
        j.FloatArray("min", a.min.data(), a.min.size());
        j.FloatArray("max", a.max.data(), a.max.size());
      }
      j.EndObject();
    }
    j.EndArray();
  }

  if (!doc.buffer.empty()) {
    j.Key("bufferViews");
    j.BeginArray();
    for (const BufferView& v : doc.bufferViews) {
      j.BeginObject();
      j.Key("buffer");
      j.Number(0);
      if (v.offset) {
        j.Key("byteOffset");
        j.Number(v.offset);
      }
      j.Key("byteLength");
      j.Number(v.length);
      if (v.stride) {
        j.Key("byteStride");
        j.Number(v.stride);
      }
      if (v.target != ViewTarget::None) {
        j.Key("target");
        j.Number(std::uint64_t(v.target));
      }
      j.EndObject();
    }
    j.EndArray();
    j.Key("buffers");
    j.BeginArray();
    j.BeginObject();
    j.Key("byteLength");
    j.Number(doc.buffer.size());
    if (!binUri.empty()) {
      j.Key("uri");
      j.String(binUri);
    }
    j.EndObject();
    j.EndArray();
  }
  j.EndObject();
  return std::move(j.out);
}

std::vector<std::uint8_t> EncodeGlbHead(const Document& doc, std::size_t& padding) {
  std::string json = EncodeJson(doc, {});
  while (json.size() % 4)
    json += ' ';
  const std::size_t binLength = (doc.buffer.size() + 3) & ~std::size_t(3);
  padding = binLength - doc.buffer.size();
  const std::size_t head = 12 + 8 + json.size() + (doc.buffer.empty() ? 0 : 8);
  const std::size_t total = head + (doc.buffer.empty() ? 0 : binLength);
  std::vector<std::uint8_t> out(head, 0);
  std::uint8_t* p = out.data();
  codec::StoreU32LE(p, 0x46546C67); // "glTF"
  codec::StoreU32LE(p + 4, 2);
  codec::StoreU32LE(p + 8, std::uint32_t(total));
  codec::StoreU32LE(p + 12, std::uint32_t(json.size()));
  codec::StoreU32LE(p + 16, 0x4E4F534A); // "JSON"
  std::memcpy(p + 20, json.data(), json.size());
  if (!doc.buffer.empty()) {
    std::uint8_t* b = p + 20 + json.size();
    codec::StoreU32LE(b, std::uint32_t(binLength));
    codec::StoreU32LE(b + 4, 0x004E4942); // "BIN"
  }
  return out;
}

std::vector<std::uint8_t> EncodeGlb(const Document& doc) {
  std::size_t padding = 0;
  std::vector<std::uint8_t> out = EncodeGlbHead(doc, padding);
  if (!doc.buffer.empty()) {
    out.insert(out.end(), doc.buffer.begin(), doc.buffer.end());
    out.insert(out.end(), padding, 0);
  }
  return out;
}

} // namespace meshcore::gltf

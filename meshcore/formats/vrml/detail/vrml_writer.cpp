#include "meshcore/formats/vrml/detail/vrml_writer.h"

#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <charconv>
#include <memory>
#include <unordered_map>
#include <vector>

namespace meshcore::vrml {

namespace {

constexpr std::uint32_t kNodeHidden = 1;
constexpr const char* kInfoText = "\"Scene created by Quillmesh (https://meshcore.dev)\"";

struct Cancelled {};

class CWriter {
public:
  CWriter(C3DScene& scene, std::string& out) : m_scene(scene), m_out(out) {
    for (MaterialPosition pos = scene.GetFirstMaterial(); pos;) {
      C3DMaterial* m = scene.GetNextMaterial(pos);
      m_materials.emplace(m->GetMaterialID(), m);
    }
  }

  void WriteScene() {
    m_out += "#VRML V1.0 ascii\n";
    SeparatorBegin(nullptr);
    Line();
    m_out += "Info {\n";
    Indent();
    Line();
    m_out += "string ";
    m_out += kInfoText;
    m_out += '\n';
    Outdent();
    Close();
    const C3DBaseObject* object = nullptr;
    C3DSceneNode* cursor = m_scene.GetFirstNode(nullptr);
    while (cursor) {
      C3DSceneNode* node = m_scene.GetNextNode(object, cursor, nullptr);
      if (!node)
        break;
      C3DBaseObject* o = node->GetBaseObject();
      if (o && !node->IsFlagSet(kNodeHidden) && !o->IsFlagSet(OBJECT_EMPTY) &&
          o->GetKindOf() != OBJECT_GROUP)
        WriteNode(*node, *o);
    }
    Outdent();
    Line();
    m_out += "} # scene end\n";
  }

private:
  // Output primitives.
  void Line() { m_out += m_indent; }
  void Indent() { m_indent += '\t'; }
  void Outdent() {
    if (!m_indent.empty())
      m_indent.pop_back();
  }
  void Open(const char* name) {
    Line();
    m_out += name;
    m_out += " {\n";
    Indent();
  }
  void Close() {
    Line();
    m_out += "}\n";
  }
  void OpenList(const char* name) {
    Line();
    m_out += name;
    m_out += " [\n";
  }
  void CloseList() {
    Line();
    m_out += "]\n";
  }
  void Fixed(double v, int digits) {
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed, digits);
    if (r.ec != std::errc())
      m_out += "0";
    else
      m_out.append(buf, r.ptr);
  }
  void Int(long long v) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    m_out.append(buf, r.ptr);
  }
  void Tick() {
    if (m_cancel.Tick())
      throw Cancelled{};
  }
  // Text inside a comment or a string must not end the line or the string.
  void Text(const std::string& s, bool quoted) {
    for (char c : s) {
      if (c == '\n' || c == '\r')
        c = ' ';
      if (quoted && (c == '"' || c == '\\'))
        m_out += '\\';
      m_out += c;
    }
  }

  void SeparatorBegin(const C3DSceneNode* node) {
    Line();
    std::string label = "Scene";
    if (node) {
      label = VrmlLabel(node->GetName());
      m_out += "DEF ";
      m_out += label;
      m_out += ' ';
    }
    m_out += "Separator { # ";
    m_out += label;
    m_out += " beginning\n";
    Indent();
    Open("WWWAnchor");
    Line();
    m_out += "name \"";
    m_out += label;
    m_out += "\"\n";
    Outdent();
    Close();
  }

  void SeparatorEnd(const C3DSceneNode& node) {
    Outdent();
    Line();
    m_out += "} # ";
    Text(node.GetName(), false);
    m_out += " end\n";
  }

  void WriteNode(const C3DSceneNode& node, C3DBaseObject& object) {
    SeparatorBegin(&node);
    switch (object.GetKindOf()) {
    case OBJECT_POLYGONAL:
    case OBJECT_PATCH:
      WriteMesh(object);
      break;
    case OBJECT_CURVE:
      WriteLineSet(object);
      break;
    default:
      break;
    }
    SeparatorEnd(node);
  }

  void WriteShapeHints(const C3DBaseObject& object) {
    Open("ShapeHints");
    Line();
    m_out += "creaseAngle ";
    Fixed(object.GetSmoothAngle(), 2);
    m_out += '\n';
    Line();
    m_out += "vertexOrdering UNKNOWN_ORDERING\n";
    Outdent();
    Close();
  }

  void WriteCoordinates(const C3DBaseObject& object) {
    Open("Coordinate3");
    OpenList("point");
    if (const C3DPointList* points = object.GetPointList()) {
      const int n = points->GetSize();
      for (int i = 0; i < n; ++i) {
        Tick();
        const C3DPoint& p = (*points)[i];
        Line();
        Fixed(p.x, 4);
        m_out += ' ';
        Fixed(p.y, 4);
        m_out += ' ';
        Fixed(p.z, 4);
        m_out += ",\n";
      }
    }
    CloseList();
    Outdent();
    Close();
  }

  void WriteTextureCoordinates(const CUVWChannel& channel) {
    Open("TextureCoordinate2");
    OpenList("point");
    if (const CUVWPointList* points = channel.GetUVWPointList()) {
      const int n = points->GetSize();
      for (int i = 0; i < n; ++i) {
        Tick();
        const CUVWPoint& p = (*points)[i];
        Line();
        Fixed(p.u, 4);
        m_out += ' ';
        Fixed(1.0 - double(p.v), 4);
        m_out += ",\n";
      }
    }
    CloseList();
    Outdent();
    Close();
  }

  const C3DMaterial& MaterialOf(std::uint32_t id) {
    auto it = m_materials.find(id);
    if (it != m_materials.end())
      return *it->second;
    // Faces may name a material the scene lacks: they get the default look.
    if (!m_fallback)
      m_fallback = std::make_unique<C3DMaterial>();
    return *m_fallback;
  }

  void WriteTexture(const C3DMaterial& material) {
    const CMaterialMap* map = material.GetDiffuseMaps();
    if (!map)
      return;
    Open("Texture2");
    Line();
    m_out += "filename \"";
    Text(map->GetFileName(), true);
    m_out += "\"\n";
    Outdent();
    Close();
  }

  void WriteMaterialBinding() {
    Open("MaterialBinding");
    Line();
    m_out += m_table.size() > 1 ? "value PER_FACE_INDEXED\n" : "value OVERALL\n";
    Outdent();
    Close();
  }

  void WriteColours(const char* name, const CRGBColor& (C3DMaterial::*get)() const) {
    OpenList(name);
    for (std::uint32_t id : m_table) {
      const CRGBColor& c = (MaterialOf(id).*get)();
      Line();
      Fixed(c.r / 255.0, 2);
      m_out += ' ';
      Fixed(c.g / 255.0, 2);
      m_out += ' ';
      Fixed(c.b / 255.0, 2);
      m_out += ",\n";
    }
    CloseList();
  }

  void WriteValues(const char* name, float (C3DMaterial::*get)() const) {
    OpenList(name);
    for (std::uint32_t id : m_table) {
      Line();
      Fixed((MaterialOf(id).*get)(), 2);
      m_out += ",\n";
    }
    CloseList();
  }

  void WriteMaterial() {
    Open("Material");
    WriteColours("diffuseColor", &C3DMaterial::GetDiffuseColor);
    WriteColours("ambientColor", &C3DMaterial::GetAmbientColor);
    WriteColours("specularColor", &C3DMaterial::GetSpecularColor);
    WriteValues("transparency", &C3DMaterial::GetTransparencyFactor);
    WriteValues("shininess", &C3DMaterial::GetSpecularFactor);
    Outdent();
    Close();
  }

  template <class FaceList>
  void WriteIndexList(const FaceList& faces, int first, int last, const int* order) {
    for (int pos = first; pos <= last; ++pos) {
      Tick();
      const int f = order ? order[pos] : pos;
      Line();
      if (f >= 0 && f < faces.GetSize()) {
        const auto& face = faces[f];
        for (int k = 0; k < face.GetSize(); ++k) {
          Int(face[k]);
          m_out += ", ";
        }
      }
      m_out += "-1,\n";
    }
  }

  void WriteFaceSet(const C3DBaseObject& object, const CUVWChannel* uvw, int first, int last,
                    const int* order) {
    const C3DFaceList& faces = *object.GetFaceList();
    Open("IndexedFaceSet");
    OpenList("coordIndex");
    WriteIndexList(faces, first, last, order);
    CloseList();
    if (uvw) {
      OpenList("textureCoordIndex");
      if (const CUVWFaceList* tf = uvw->GetUVWFaceList())
        WriteIndexList(*tf, first, last, order);
      CloseList();
    }
    if (m_table.size() >= 2) {
      std::unordered_map<std::uint32_t, int> position;
      for (std::size_t i = 0; i < m_table.size(); ++i)
        position.emplace(m_table[i], int(i));
      OpenList("materialIndex");
      Line();
      for (int pos = first; pos <= last; ++pos) {
        Tick();
        auto it = position.find(faces[pos].GetMaterialID());
        Int(it != position.end() ? it->second : 0);
        m_out += ", ";
        if ((pos - first + 1) % 4 == 0 && pos != last) {
          m_out += '\n';
          Line();
        }
      }
      m_out += '\n';
      CloseList();
    }
    Outdent();
    Close();
  }

  void WriteMesh(C3DBaseObject& object) {
    WriteShapeHints(object);
    WriteCoordinates(object);
    C3DFaceList* faces = object.GetFaceList();
    const int n = faces ? faces->GetSize() : 0;
    const CUVWChannel* uvw = nullptr;
    if (object.GetGlobalUVWChannel() != kNoChannel && object.GetChannels())
      uvw = static_cast<const CUVWChannel*>(
          object.GetChannel(object.GetGlobalUVWChannel(), CHANNEL_UVW));
    if (!uvw) {
      m_table.clear();
      if (CHashUInt* used = object.GetMaterialsHash()) {
        std::uint32_t id = 0;
        for (int pos = used->GetFirst(); pos >= 0;) {
          used->GetNext(pos, id);
          m_table.push_back(id);
        }
      }
      WriteMaterialBinding();
      WriteMaterial();
      if (n > 0)
        WriteFaceSet(object, nullptr, 0, n - 1, nullptr);
      else
        WriteEmptyFaceSet();
      return;
    }
    WriteTextureCoordinates(*uvw);
    if (n == 0)
      return;
    std::unique_ptr<int[]> order(faces->SortByMaterial());
    // The face at which the material changes ends the group before it, and a
    // group opened on the last face is not written: files of this writer have
    // always been cut this way.
    int start = -1;
    std::uint32_t groupMaterial = 0;
    for (int pos = 0; pos < n; ++pos) {
      Tick();
      const std::uint32_t material = (*faces)[order[pos]].GetMaterialID();
      if (start < 0) {
        start = pos;
        groupMaterial = material;
        continue;
      }
      if (pos != n - 1 && material == groupMaterial)
        continue;
      m_table.assign(1, groupMaterial);
      const C3DMaterial& m = MaterialOf(groupMaterial);
      WriteTexture(m);
      WriteMaterialBinding();
      WriteMaterial();
      WriteFaceSet(object, uvw, start, pos, order.get());
      start = -1;
    }
  }

  // An object without faces still gets a well-formed (empty) face set.
  void WriteEmptyFaceSet() {
    Open("IndexedFaceSet");
    OpenList("coordIndex");
    CloseList();
    Outdent();
    Close();
  }

  void WriteLineSet(const C3DBaseObject& object) {
    const int n = object.GetPointList() ? object.GetPointList()->GetSize() : 0;
    Open("IndexedLineSet");
    OpenList("coordIndex");
    Line();
    for (int i = 0; i < n; ++i) {
      Tick();
      Int(i);
      m_out += ", ";
    }
    m_out += "-1,\n";
    CloseList();
    Outdent();
    Close();
    WriteCoordinates(object);
  }

  C3DScene& m_scene;
  std::string& m_out;
  std::string m_indent;
  std::unordered_map<std::uint32_t, C3DMaterial*> m_materials;
  std::unique_ptr<C3DMaterial> m_fallback;
  std::vector<std::uint32_t> m_table;
  CCancelCheck m_cancel;
};

} // namespace

std::string VrmlLabel(const std::string& name) {
  std::string label;
  for (char c : name)
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'))
      label += c;
  return label.empty() ? LoadString(IDS_OBJECT) : label;
}

WriteResult WriteVrmlScene(C3DScene& scene, std::string& out) {
  try {
    CWriter writer(scene, out);
    writer.WriteScene();
  } catch (const Cancelled&) {
    return WriteResult::Cancelled;
  }
  return WriteResult::Ok;
}

} // namespace meshcore::vrml

#include "meshcore/formats/maya/maya_io.h"

#include "meshcore/formats/common/detail/color_bytes.h"
#include "meshcore/formats/common/detail/file_input.h"
#include "meshcore/formats/common/detail/file_output.h"
#include "meshcore/formats/maya/detail/maya_edges.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/io/io_file.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <vector>

namespace meshcore {

namespace {

constexpr std::uint32_t kNodeSkipped = 1;
constexpr const char* kMakerAddress = "https://quillmesh.example";

struct Cancelled {};

char* PutInt(char* p, long long v) {
  p = std::to_chars(p, p + 24, v).ptr;
  *p++ = ' ';
  return p;
}

constexpr std::size_t kFloatChars = 64;
char* PutFloat(char* p, float v) {
  if (!std::isfinite(v))
    v = 0.0f;
  p = std::to_chars(p, p + kFloatChars - 1, v, std::chars_format::fixed, 6).ptr;
  *p++ = ' ';
  return p;
}

char* PutText(char* p, const char* text, std::size_t n) {
  std::memcpy(p, text, n);
  return p + n;
}

// Appends to a string through a raw pointer: the millions of small numbers
// of a large mesh then cost one bounds check per line, not one per piece.
// Nothing else may append to the string while a sink is open on it.
class CTextSink {
public:
  CTextSink(std::string& out, std::size_t expected) : m_out(out), m_length(out.size()) {
    m_out.resize(m_length + expected);
  }
  ~CTextSink() { m_out.resize(m_length); }
  CTextSink(const CTextSink&) = delete;
  CTextSink& operator=(const CTextSink&) = delete;

  // Room for n more bytes at the returned pointer; Commit the end written.
  char* Reserve(std::size_t n) {
    if (m_length + n > m_out.size())
      m_out.resize(std::max(m_out.size() * 2, m_length + n));
    return m_out.data() + m_length;
  }
  void Commit(char* end) { m_length = std::size_t(end - m_out.data()); }

private:
  std::string& m_out;
  std::size_t m_length;
};

// A face is written when it has three corners or more, all in the point list,
// and is not left out of the mesh's graphs.
bool IsWritable(const C3DFace& face, int pointCount) {
  if (face.IsFlagSet(FACE_EXCLUDED) || face.GetSize() < 3)
    return false;
  for (int k = 0; k < face.GetSize(); ++k)
    if (face[k] < 0 || face[k] >= pointCount)
      return false;
  return true;
}

// What a save writes, decided once so that the meshes and the material
// connections name the same nodes.
struct WrittenNode {
  C3DSceneNode* node;
  C3DBaseObject* object;
  std::string name;
  bool curve;
};
struct WrittenMaterial {
  C3DMaterial* material;
  std::string name;
};
struct Plan {
  std::vector<WrittenNode> nodes;
  std::vector<WrittenMaterial> materials;
};

class NameSet {
public:
  bool Used(const std::string& name) const { return m_used.count(name) != 0; }
  void Use(const std::string& name) { m_used.insert(name); }
  // base, or base followed by the first number that makes it free (and, for
  // materials, its engine and info names too).
  std::string Make(const std::string& base, bool material) {
    auto free = [&](const std::string& n) {
      return !Used(n) && (!material || (!Used("SE_" + n) && !Used("MI_" + n)));
    };
    std::string name = base;
    if (!free(name)) {
      long long& next = m_next[base];
      do
        name = base + std::to_string(++next);
      while (!free(name));
    }
    Use(name);
    if (material) {
      Use("SE_" + name);
      Use("MI_" + name);
    }
    return name;
  }

private:
  std::set<std::string> m_used;
  std::map<std::string, long long> m_next;
};

Plan MakePlan(C3DScene* scene) {
  Plan plan;
  NameSet names;
  const C3DBaseObject* found = nullptr;
  for (C3DSceneNode* cursor = scene->GetFirstNode(nullptr); cursor;) {
    C3DSceneNode* node = scene->GetNextNode(found, cursor, nullptr);
    if (!node)
      break;
    C3DBaseObject* object = node->GetBaseObject();
    if (!object || node->IsFlagSet(kNodeSkipped) || object->IsFlagSet(OBJECT_EMPTY) ||
        object->GetKindOf() == OBJECT_GROUP)
      continue;
    const bool curve = object->GetKindOf() == OBJECT_CURVE;
    C3DPointList* points = object->GetPointList();
    C3DFaceList* faces = object->GetFaceList();
    // A degree-1 curve needs two points; a mesh needs points and faces.
    if (curve ? (!points || points->GetSize() < 2)
              : (!points || !faces || points->GetSize() == 0 || faces->GetSize() == 0))
      continue;
    plan.nodes.push_back(
        {node, object, names.Make(MakeMayaName(node->GetName(), curve ? "curve" : "mesh"), false),
         curve});
  }
  for (MaterialPosition pos = scene->GetFirstMaterial(); pos;) {
    C3DMaterial* material = scene->GetNextMaterial(pos);
    plan.materials.push_back(
        {material, names.Make(MakeMayaName(material->GetName(), "material"), true)});
  }
  return plan;
}

} // namespace

std::string MakeMayaName(const std::string& name, const std::string& fallback) {
  if (name.empty())
    return fallback;
  std::string safe;
  safe.reserve(name.size() + 1);
  if (name[0] >= '0' && name[0] <= '9')
    safe += '_';
  for (char c : name) {
    const bool ok =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    safe += ok ? c : '_';
  }
  return safe;
}

void RegisterMayaCodec() {
  fileRegisterCodecOf<CMayaIo>(fileMakeClassCode("MAYA"));
}

CMayaIo::CMayaIo(CFileIo& owner) : C3DParser(owner) {}
CMayaIo::~CMayaIo() = default;

std::string CMayaIo::IntString(int value) {
  char buf[32];
  return std::string(buf, PutInt(buf, value));
}

std::string CMayaIo::FloatString(float value) {
  char buf[kFloatChars];
  return std::string(buf, PutFloat(buf, value));
}

void CMayaIo::WriteString(std::string& out, const char* text, int indent) {
  if (indent)
    out.append(std::size_t(std::max(m_tab, 0)), '\t');
  out += text;
}

int CMayaIo::Save(const std::string& name, C3DScene* scene, unsigned flags) {
  std::string text;
  if (!SaveToText(name, scene, flags, text))
    return 0;
  return codec::SaveWholeFile(*this, name, text.data(), text.size());
}

int CMayaIo::SaveToText(const std::string& name, C3DScene* scene, unsigned flags,
                        std::string& out) {
  if (!scene) {
    SetIoError(IO_FILE_EMPTY);
    return 0;
  }
  int changed = 0;
  C3DScene* exported = scene->InitExport(int(flags), changed);
  int result = 0;
  try {
    result = SaveScene(out, std::filesystem::path(name).filename().string(), exported);
  } catch (const std::bad_alloc&) {
    SetIoError(IO_FILE_NO_MEMORY);
  }
  exported->ReleaseExport(exported, exported != scene);
  return result;
}

int CMayaIo::SaveScene(std::string& out, const std::string& fileName, C3DScene* scene) {
  if (!scene || scene->GetNodeNbr(1) == 0)
    return 1;
  // The name sits in comment lines: keep it on one line.
  std::string shown = fileName;
  for (char& c : shown)
    if (c == '\n' || c == '\r')
      c = '_';
  const Plan plan = MakePlan(scene);
  m_tab = 0;
  try {
    SaveHeader(out, shown);
    for (const WrittenNode& w : plan.nodes) {
      if (w.curve)
        SaveCurve(out, w.node, w.object, w.name);
      else
        SaveMesh(out, w.node, w.object, w.name);
    }
  } catch (const Cancelled&) {
    m_tab = 0;
    SetIoError(IO_FILE_CANCELLED);
    return 0;
  }
  WriteString(out, ("// End of file " + shown + "\n").c_str(), 0);
  return 1;
}

void CMayaIo::SaveHeader(std::string& out, const std::string& fileName) {
  WriteString(out, "//Maya ASCII 2.0 scene\n", 0);
  WriteString(out, ("//Name : " + fileName + "\n").c_str(), 0);
  WriteString(out, "//Write by Quillmesh or a Qel Tool.\n", 0);
  WriteString(out, (std::string("//Connect ") + kMakerAddress + "\n").c_str(), 0);
  WriteString(out, "requires maya \"2.0\";\n", 0);
  WriteString(out, "currentUnit -l centimeter -a degree -t film;\n", 0);
}

int CMayaIo::SaveMesh(std::string& out, C3DSceneNode*, C3DBaseObject* object,
                      const std::string& nodeName) {
  const C3DPointList* points = object->GetPointList();
  const C3DFaceList& faces = *object->GetFaceList();
  const int pointCount = points->GetSize();
  CCancelCheck cancel;

  // Faces Maya could not take are left out; the edges are then those of the rest.
  std::vector<int> written;
  written.reserve(std::size_t(faces.GetSize()));
  for (int f = 0; f < faces.GetSize(); ++f)
    if (IsWritable(faces[f], pointCount))
      written.push_back(f);
  if (written.empty())
    return 1;
  maya::EdgeNumbering numbering;
  if (!maya::NumberEdges(faces, written, pointCount, numbering, cancel))
    throw Cancelled{};
  const int edgeCount = int(numbering.edges.size());
  const int faceCount = int(written.size());

  // One allocation for the whole mesh: growing a string of a hundred
  // megabytes would copy it each time.
  constexpr std::size_t kPointLine = 48, kEdgeText = 20, kFaceLine = 12, kSideText = 10;
  out.reserve(out.size() + std::size_t(pointCount) * kPointLine +
              std::size_t(edgeCount) * kEdgeText + std::size_t(faceCount) * kFaceLine +
              numbering.sides.size() * kSideText + 1024);
  WriteString(out, ("createNode \"mesh\" -n \"" + nodeName + "\";\n").c_str(), 1);
  AddTab();
  WriteString(out, "setAttr -k off \".v\";\n", 1);

  WriteString(out, "setAttr -s ", 1);
  out += IntString(pointCount);
  out += "\".vt\";\n";
  WriteString(
      out, ("setAttr \".vt[0:" + std::to_string(pointCount - 1) + "]\" -type \"float3\"\n").c_str(),
      1);
  AddTab();
  const int tabs = std::clamp(m_tab, 0, 8);
  {
    CTextSink sink(out, std::size_t(pointCount) * kPointLine);
    const C3DPoint* p = points->GetFirst();
    for (int i = 0; i < pointCount; ++i) {
      if (cancel.Tick())
        throw Cancelled{};
      char* w = sink.Reserve(std::size_t(tabs) + 3 * kFloatChars + 2);
      w = PutText(w, "\t\t\t\t\t\t\t\t", std::size_t(tabs));
      w = PutFloat(w, p[i].x);
      w = PutFloat(w, p[i].y);
      w = PutFloat(w, p[i].z);
      w = i + 1 < pointCount ? PutText(w, "\n", 1) : PutText(w, ";\n", 2);
      sink.Commit(w);
    }
  }
  RemoveTab();

  WriteString(out, "setAttr -s ", 1);
  out += IntString(edgeCount);
  out += "\".ed\";\n";
  WriteString(out, ("setAttr \".ed[0:" + std::to_string(edgeCount - 1) + "]\"\n").c_str(), 1);
  AddTab();
  {
    CTextSink sink(out, std::size_t(edgeCount) * kEdgeText);
    for (int e = 0; e < edgeCount; ++e) {
      if (cancel.Tick())
        throw Cancelled{};
      char* w = sink.Reserve(std::size_t(tabs) + 64);
      if (e % 10 == 0)
        w = PutText(w, "\t\t\t\t\t\t\t\t", std::size_t(tabs));
      const C3DEdge& edge = numbering.edges[std::size_t(e)];
      w = PutInt(w, edge.first);
      w = PutInt(w, edge.second);
      w = PutText(w, "0 ", 2); // not a hard edge
      if (e + 1 == edgeCount)
        w = PutText(w, ";\n", 2);
      else if (e % 10 == 9)
        w = PutText(w, "\n", 1);
      sink.Commit(w);
    }
  }
  RemoveTab();

  WriteString(out, "setAttr -s ", 1);
  out += IntString(faceCount);
  out += "\".fc\";\n";
  WriteString(
      out,
      ("setAttr \".fc[0:" + std::to_string(faceCount - 1) + "]\" -type \"polyFaces\"\n").c_str(),
      1);
  AddTab();
  {
    CTextSink sink(out, std::size_t(faceCount) * kFaceLine + numbering.sides.size() * kSideText);
    const int* side = numbering.sides.data();
    for (int i = 0; i < faceCount; ++i) {
      if (cancel.Tick())
        throw Cancelled{};
      const int n = faces[written[std::size_t(i)]].GetSize();
      char* w = sink.Reserve(std::size_t(tabs) + 4 + 13 * (std::size_t(n) + 1));
      w = PutText(w, "\t\t\t\t\t\t\t\t", std::size_t(tabs));
      w = PutText(w, "f ", 2);
      w = PutInt(w, n);
      for (int k = 0; k < n; ++k)
        w = PutInt(w, *side++);
      w = i + 1 < faceCount ? PutText(w, "\n", 1) : PutText(w, ";\n", 2);
      sink.Commit(w);
    }
  }
  RemoveTab();
  RemoveTab();
  return 1;
}

int CMayaIo::SaveCurve(std::string& out, C3DSceneNode*, C3DBaseObject* curve,
                       const std::string& nodeName) {
  const C3DPointList* points = curve->GetPointList();
  const int count = points->GetSize();
  CCancelCheck cancel;
  WriteString(out, ("curve -n \"" + nodeName + "\" -d 1\n").c_str(), 1);
  AddTab();
  const C3DPoint* p = points->GetFirst();
  for (int i = 0; i < count; ++i) {
    if (cancel.Tick())
      throw Cancelled{};
    WriteString(out, "-p ", 1);
    out += FloatString(p[i].x);
    out += FloatString(p[i].y);
    out += FloatString(p[i].z);
    out += i + 1 < count ? "\n" : ";\n";
  }
  RemoveTab();
  return 1;
}

void CMayaIo::SaveMaterials(std::string& out, C3DScene* scene) {
  if (!scene)
    return;
  const Plan plan = MakePlan(scene);
  m_tab = 0;
  for (const WrittenMaterial& m : plan.materials) {
    WriteString(out, ("createNode \"lambert\" -n \"" + m.name + "\";\n").c_str(), 1);
    AddTab();
    // "- type" is what this writer has always put.
    WriteString(out, "setAttr \".c\" - type \"float3\" ", 1);
    const CRGBColor& c = m.material->GetDiffuseColor();
    out += FloatString(codec::ColorUnit(c.r));
    out += FloatString(codec::ColorUnit(c.g));
    out += FloatString(codec::ColorUnit(c.b));
    out += ";\n";
    RemoveTab();
    WriteString(out, ("createNode \"shadingEngine\" -n \"SE_" + m.name + "\";\n").c_str(), 1);
    AddTab();
    WriteString(out, "setAttr \".an\" -type \"string\" \"\";\n", 1);
    WriteString(out, "setAttr \".ro\" yes;\n", 1);
    RemoveTab();
    WriteString(out, ("createNode \"materialInfo\" -n \"MI_" + m.name + "\";\n").c_str(), 1);
  }
}

void CMayaIo::ConnectMaterials(std::string& out, C3DScene* scene) {
  if (!scene)
    return;
  const Plan plan = MakePlan(scene);
  // The materials each written mesh uses, from the faces that are written.
  std::vector<std::set<std::uint32_t>> used(plan.nodes.size());
  for (std::size_t i = 0; i < plan.nodes.size(); ++i) {
    if (plan.nodes[i].curve)
      continue;
    const C3DFaceList& faces = *plan.nodes[i].object->GetFaceList();
    const int pointCount = plan.nodes[i].object->GetPointList()->GetSize();
    for (int f = 0; f < faces.GetSize(); ++f)
      if (IsWritable(faces[f], pointCount))
        used[i].insert(faces[f].GetMaterialID());
  }
  m_tab = 0;
  for (const WrittenMaterial& m : plan.materials) {
    WriteString(out, ("connectAttr \"SE_" + m.name + ".msg\" \"MI_" + m.name + ".sg\";\n").c_str(),
                1);
    WriteString(out, ("connectAttr \"" + m.name + ".oc\" \"SE_" + m.name + ".ss\";\n").c_str(), 1);
    const std::uint32_t id = m.material->GetMaterialID();
    for (std::size_t i = 0; i < plan.nodes.size(); ++i)
      if (used[i].count(id))
        WriteString(
            out,
            ("connectAttr \"" + plan.nodes[i].name + ".iog\" \"SE_" + m.name + ".dsm\";\n").c_str(),
            1);
  }
}

void CMayaIo::SaveMaterials(IoFile* file, C3DScene* scene) {
  std::string text;
  SaveMaterials(text, scene);
  file->WriteString(text);
}

void CMayaIo::ConnectMaterials(IoFile* file, C3DScene* scene) {
  std::string text;
  ConnectMaterials(text, scene);
  file->WriteString(text);
}

int CMayaIo::AppendMaterials(const std::string& name, C3DScene* scene) {
  std::string text;
  {
    codec::CFileInput input;
    if (const int result = input.Open(name); result != IO_FILE_OK) {
      SetIoError(result);
      return 0;
    }
    text.assign(reinterpret_cast<const char*>(input.GetData()), input.GetSize());
  }
  SaveMaterials(text, scene);
  ConnectMaterials(text, scene);
  return codec::SaveWholeFile(*this, name, text.data(), text.size());
}

} // namespace meshcore

#include "meshcore/formats/vrml/vrml_io.h"

#include "meshcore/formats/common/detail/color_bytes.h"
#include "meshcore/formats/common/detail/corner_values.h"
#include "meshcore/formats/common/detail/file_input.h"
#include "meshcore/formats/common/detail/file_output.h"
#include "meshcore/formats/common/detail/unique_names.h"
#include "meshcore/formats/vrml/detail/vrml_shapes.h"
#include "meshcore/formats/vrml/detail/vrml_writer.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/vc_channel.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/platform/thread_id.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"
#include "meshcore/vrml_parser/qv_graph.h"
#include "meshcore/vrml_parser/qv_inventor_nodes.h"
#include "meshcore/vrml_parser/qv_nodes.h"
#include "meshcore/vrml_parser/qv_state.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <new>
#include <unordered_map>
#include <unordered_set>

namespace meshcore {

namespace {

// Readers by thread, so that the traversal's callbacks find their codec.
std::mutex g_readersMutex;
std::unordered_map<std::uint32_t, CVrmlIo*>& Readers() {
  static std::unordered_map<std::uint32_t, CVrmlIo*> readers;
  return readers;
}

class ReaderRegistration {
public:
  explicit ReaderRegistration(CVrmlIo* io) : m_thread(GetCurrentThreadId32()) {
    std::lock_guard lock(g_readersMutex);
    Readers()[m_thread] = io;
  }
  ~ReaderRegistration() {
    std::lock_guard lock(g_readersMutex);
    Readers().erase(m_thread);
  }
  ReaderRegistration(const ReaderRegistration&) = delete;
  ReaderRegistration& operator=(const ReaderRegistration&) = delete;

private:
  std::uint32_t m_thread;
};

// Conversion stops here: a small file that USEs big shapes many times could
// otherwise ask for more memory than any machine has.
struct TooLarge {};
struct Cancelled {};

// Default elements of the standard, for shapes met before any such node.
const QvMaterial& DefaultMaterial() {
  static const QvMaterial material;
  return material;
}

template <class T> const T& Entry(const std::vector<T>& values, std::size_t i, const T& fallback) {
  if (values.empty())
    return fallback;
  return values[std::min(i, values.size() - 1)];
}

bool IsDefaultIndexList(const std::vector<std::int32_t>& v) {
  return v.empty() || (v.size() == 1 && v[0] == -1);
}

// One corner of a face being built: indices into the state's lists, -1 for none.
struct Corner {
  std::int32_t coord;
  std::int32_t tex;
  std::int32_t colour;
};

struct FaceRec {
  std::uint32_t first;
  std::uint32_t count;
  std::int64_t material; // entry of the material element, -1 for the default material
};

struct FacesOut {
  std::vector<Corner>* corners;
  std::vector<FaceRec>* faces;
};

// Colour entry i of packed Inventor colours (0xRRGGBBAA) as 0..1 values.
std::array<float, 4> Unpack(std::int32_t packed) {
  const auto v = std::uint32_t(packed);
  return {float(v >> 24) / 255.0f, float((v >> 16) & 0xFF) / 255.0f,
          float((v >> 8) & 0xFF) / 255.0f, float(v & 0xFF) / 255.0f};
}

} // namespace

// A shape as faces over the state's coordinates.
struct CVrmlIo::ShapeFaces {
  std::vector<Corner> corners;
  std::vector<FaceRec> faces;
  bool textured = false;
  bool coloured = false;
};

struct CVrmlIo::ReadContext {
  C3DScene* scene = nullptr;
  QvState* state = nullptr;
  bool cancelled = false;
  bool tooLarge = false;
  std::uint64_t budget = 0; // points and corners that may still be built
  CCancelCheck cancel;
  // Materials already made: by the nodes and entry they came from, and, for
  // untextured ones, by their parameters.
  std::map<std::tuple<const void*, const void*, const void*, std::size_t>, unsigned> byState;
  std::map<std::vector<float>, unsigned> byParameters;
  // Line sets that the writer follows with their coordinates.
  std::unordered_map<const QvNode*, const QvCoordinate3*> trailingCoordinates;
  std::unordered_map<const QvNode*, std::string> separatorNames;
  std::set<std::string> usedNames;
  std::vector<std::unique_ptr<C3DSceneNode>> nodes; // in the order the walk made them

  void Spend(std::uint64_t n) {
    if (n > budget) {
      tooLarge = true;
      throw TooLarge{};
    }
    budget -= n;
  }
  void Tick() {
    if (cancel.Tick()) {
      cancelled = true;
      throw Cancelled{};
    }
  }
};

CVrmlIo* GetVrmlReaderOfThread() {
  std::lock_guard lock(g_readersMutex);
  auto& readers = Readers();
  auto it = readers.find(GetCurrentThreadId32());
  return it == readers.end() ? nullptr : it->second;
}

void RegisterVrmlCodec() {
  fileRegisterCodecOf<CVrmlIo>(fileMakeClassCode("VRML"));
  // Inventor ascii files are read as VRML; the row keeps its description.
  CFileExt ext;
  if (fileGetExtensionInfo(fileMakeClassCode("VRML"), ext) &&
      ext.GetExtension().find(".iv") == std::string::npos) {
    std::string description = ext.GetDescription();
    if (const std::size_t dash = description.find(" - "); dash != std::string::npos)
      description.erase(0, dash + 3);
    CFileExt merged(description, ext.GetExtension() + "|.iv", ext.GetClass(), ext.GetContents(),
                    ext.GetLoader(), ext.GetSaver());
    fileRegisterFile(merged);
  }
}

CVrmlIo::CVrmlIo(CFileIo& owner) : C3DParser(owner) {}
CVrmlIo::~CVrmlIo() = default;

// ---------------------------------------------------------------------------
// Reading

C3DScene* CVrmlIo::Read(const std::string& name, unsigned flags) {
  codec::CFileInput input;
  if (const int opened = input.Open(name); opened != IO_FILE_OK) {
    // A file that cannot be opened leaves the error code as it was.
    if (opened != IO_FILE_CANT_OPEN)
      SetIoError(IO_FILE_BAD_FORMAT, codec::CFileInput::FailureText(opened));
    return nullptr;
  }
  std::string dir = std::filesystem::path(name).parent_path().string();
  if (dir.empty())
    dir = ".";
  m_rootFile = name;
  C3DScene* scene = ReadText(reinterpret_cast<const char*>(input.GetData()), input.GetSize(), flags,
                             dir, [&] { input.Close(); });
  m_rootFile.clear();
  return scene;
}

C3DScene* CVrmlIo::ReadFromMemory(const void* data, std::size_t size, unsigned flags,
                                  const std::string& baseDir) {
  return ReadText(static_cast<const char*>(data), size, flags, baseDir, [] {});
}

namespace {

// "VRML read error: <what>\n\tOccurred at line <n>\n" -> "line <n>: <what>".
std::string DescribeParserMessage(const std::string& text) {
  static const std::string kPrefix = "VRML read error: ";
  static const std::string kLine = "Occurred at line";
  std::string what = text;
  if (what.compare(0, kPrefix.size(), kPrefix) == 0)
    what.erase(0, kPrefix.size());
  std::string line;
  if (const std::size_t at = what.find(kLine); at != std::string::npos) {
    line = what.substr(at + kLine.size());
    what.erase(what.rfind('\n', at) == std::string::npos ? at : what.rfind('\n', at));
  }
  while (!what.empty() && (what.back() == '\n' || what.back() == '\t'))
    what.pop_back();
  line.erase(std::remove_if(line.begin(), line.end(), [](char c) { return c < '0' || c > '9'; }),
             line.end());
  return line.empty() ? what : "line " + line + ": " + what;
}

// Found once before the walk: the Coordinate3 that follows a line set (this
// codec writes the coordinates of a curve after its line set), and for shapes
// without a name of their own the name of the separator around them (where
// this codec puts a node's name).
void ScanGraph(QvNode& root, std::unordered_map<const QvNode*, const QvCoordinate3*>& trailing,
               std::unordered_map<const QvNode*, std::string>& names) {
  std::unordered_set<const QvNode*> seen;
  std::vector<std::pair<QvNode*, const std::string*>> stack{{&root, nullptr}};
  while (!stack.empty()) {
    auto [node, name] = stack.back();
    stack.pop_back();
    if (node->IsShape() && node->GetName().empty() && name)
      names.emplace(node, *name);
    const bool group = node->CanHaveChildren() || node->GetType() == QV_NODE_TYPE::File;
    if (!group || !seen.insert(node).second)
      continue;
    if (node->GetType() == QV_NODE_TYPE::Separator && !node->GetName().empty() &&
        node->GetName()[0] != '+')
      name = &node->GetName();
    const auto& children = static_cast<QvGroup*>(node)->children;
    for (std::size_t i = children.size(); i-- > 0;) {
      stack.push_back({children[i], name});
      if (i + 1 < children.size() && children[i]->GetType() == QV_NODE_TYPE::IndexedLineSet &&
          children[i + 1]->GetType() == QV_NODE_TYPE::Coordinate3)
        trailing.emplace(children[i], static_cast<const QvCoordinate3*>(children[i + 1]));
    }
  }
}

// The nodes of the files that File nodes name, each read once, relative to
// the file that names it; a file that (through others) names itself is left out.
class CFileLoader {
public:
  static constexpr int kMaxDepth = 8;
  static constexpr std::size_t kMaxFiles = 256;

  // The file being read, so that a file naming itself is seen as a loop.
  void SetRootFile(const std::string& path) {
    std::error_code ec;
    const std::filesystem::path p = std::filesystem::weakly_canonical(path, ec);
    if (!ec)
      m_chain.insert(p.string());
  }

  void Load(QvNode& root, const std::filesystem::path& dir, int depth) {
    std::vector<QvNode*> stack{&root};
    while (!stack.empty()) {
      QvNode* node = stack.back();
      stack.pop_back();
      if (!m_seen.insert(node).second)
        continue;
      if (node->GetType() == QV_NODE_TYPE::File) {
        LoadFile(static_cast<QvFile&>(*node), dir, depth);
        continue;
      }
      if (node->CanHaveChildren())
        for (QvNode* child : static_cast<QvGroup*>(node)->children)
          stack.push_back(child);
    }
  }
  std::uint64_t GetBytes() const { return m_bytes; }

private:
  void LoadFile(QvFile& file, const std::filesystem::path& dir, int depth) {
    if (file.name.value.empty() || depth >= kMaxDepth)
      return;
    std::error_code ec;
    std::filesystem::path path(file.name.value);
    if (path.is_relative())
      path = dir / path;
    path = std::filesystem::weakly_canonical(path, ec);
    if (ec)
      return;
    const std::string key = path.string();
    if (m_chain.count(key))
      return;
    QvNode* root = nullptr;
    if (auto it = m_loaded.find(key); it != m_loaded.end()) {
      root = it->second;
    } else {
      if (m_loaded.size() >= kMaxFiles)
        return;
      m_loaded[key] = nullptr;
      codec::CFileInput input;
      if (input.Open(key) != IO_FILE_OK)
        return;
      m_bytes += input.GetSize();
      QvTextSource in;
      in.SetErrorSink([](const std::string&) {});
      in.SetBuffer(std::string(reinterpret_cast<const char*>(input.GetData()), input.GetSize()));
      input.Close();
      std::unique_ptr<QvGraph> graph = QvGraph::Read(in);
      if (!graph)
        return;
      root = graph->GetRoot();
      m_graphs.push_back(std::move(graph));
      m_loaded[key] = root;
      m_chain.insert(key);
      Load(*root, path.parent_path(), depth + 1);
      m_chain.erase(key);
    }
    if (root)
      file.children.assign(1, root);
  }

  std::vector<std::unique_ptr<QvGraph>> m_graphs;
  std::map<std::string, QvNode*> m_loaded;
  std::set<std::string> m_chain;
  std::unordered_set<const QvNode*> m_seen;
  std::uint64_t m_bytes = 0;
};

template <void (CVrmlIo::*Fn)(QvNode&, QvState&)> QvState::ShapeCallback Forward() {
  return [](QvNode& shape, QvState& state) {
    CVrmlIo* io = GetVrmlReaderOfThread();
    if (!io)
      return;
    (io->*Fn)(shape, state);
  };
}

} // namespace

C3DScene* CVrmlIo::ReadText(const char* data, std::size_t textSize, unsigned flags,
                            const std::string& baseDir, const std::function<void()>& parsed) {
  QvTextSource in;
  std::string firstError;
  in.SetErrorSink([&](const std::string& message) {
    if (firstError.empty())
      firstError = message;
  });
  in.SetView(data, textSize);
  std::unique_ptr<QvGraph> graph;
  try {
    graph = QvGraph::Read(in);
  } catch (const std::bad_alloc&) {
    graph.reset();
    firstError = "out of memory";
  }
  // The graph holds copies of everything it needs: the text may go.
  parsed();
  if (!graph) {
    if (ShouldCancel()) {
      SetIoError(IO_FILE_CANCELLED);
      return nullptr;
    }
    SetIoError(IO_FILE_BAD_FORMAT, firstError.empty() ? std::string("no node in the file")
                                                      : DescribeParserMessage(firstError));
    return nullptr;
  }

  // Files named by File nodes are read only for files on disk.
  CFileLoader files;
  if (!baseDir.empty()) {
    files.SetRootFile(m_rootFile);
    try {
      files.Load(*graph->GetRoot(), baseDir, 0);
    } catch (const std::bad_alloc&) {
      SetIoError(IO_FILE_BAD_FORMAT, "out of memory");
      return nullptr;
    }
  }

  auto scene = std::make_unique<C3DScene>();
  m_read = std::make_unique<ReadContext>();
  m_read->scene = scene.get();
  m_read->budget = (std::uint64_t(1) << 22) + 4 * (std::uint64_t(textSize) + files.GetBytes());
  ScanGraph(*graph->GetRoot(), m_read->trailingCoordinates, m_read->separatorNames);

  QvState state;
  state.SetErrorSink([](const std::string&) {});
  m_read->state = &state;
  for (QV_NODE_TYPE t :
       {QV_NODE_TYPE::IndexedFaceSet, QV_NODE_TYPE::IndexedTriangleStripSet, QV_NODE_TYPE::FaceSet,
        QV_NODE_TYPE::TriangleStripSet, QV_NODE_TYPE::QuadMesh})
    state.SetCallback(t, Forward<&CVrmlIo::FaceSetCallback>());
  state.SetCallback(QV_NODE_TYPE::IndexedLineSet, Forward<&CVrmlIo::LineSetCallback>());
  state.SetCallback(QV_NODE_TYPE::PointSet, Forward<&CVrmlIo::PointSetCallback>());
  for (QV_NODE_TYPE t :
       {QV_NODE_TYPE::Cube, QV_NODE_TYPE::Sphere, QV_NODE_TYPE::Cone, QV_NODE_TYPE::Cylinder})
    state.SetCallback(t, Forward<&CVrmlIo::PrimitiveCallback>());
  bool outOfMemory = false;
  {
    ReaderRegistration registration(this);
    try {
      state.Traverse(*graph->GetRoot());
    } catch (const std::bad_alloc&) {
      outOfMemory = true;
    }
  }
  const bool cancelled = m_read->cancelled || ShouldCancel();
  const bool tooLarge = m_read->tooLarge;
  if (!cancelled && !outOfMemory && !tooLarge) {
    // A node added to a parent becomes its first child: adding them from the
    // last keeps the file's order.
    for (auto it = m_read->nodes.rbegin(); it != m_read->nodes.rend(); ++it)
      scene->AddNode(nullptr, it->release());
  }
  m_read.reset();
  graph.reset();
  if (cancelled) {
    SetIoError(IO_FILE_CANCELLED);
    return nullptr;
  }
  if (outOfMemory || tooLarge) {
    SetIoError(IO_FILE_BAD_FORMAT, outOfMemory ? "out of memory"
                                               : "the shapes of the file expand to more geometry "
                                                 "than the file could describe");
    return nullptr;
  }

  // VRML's y-up space becomes the library's z-up space, x mirrored.
  C4x4Matrix axes(1);
  const float kAxes[4][4] = {{-1, 0, 0, 0}, {0, 0, 1, 0}, {0, -1, 0, 0}, {0, 0, 0, 1}};
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c)
      axes.m[r][c] = kAxes[r][c];
  scene->GetRoot()->SetMatrix(NODE_MATRIX_TRANSFORM, axes);
  scene->CheckoutImport(int(flags));
  if (scene->GetNodeNbr(0) == 0) {
    SetIoError(IO_FILE_EMPTY);
    return nullptr;
  }
  return scene.release();
}

unsigned CVrmlIo::MaterialFromState(QvState& state, std::size_t entry) {
  ReadContext& rc = *m_read;
  const QvMaterial* node = state.GetMaterial();
  const QvMaterial& m = node ? *node : DefaultMaterial();
  const QvTexture2* texture = state.GetTexture2();
  if (texture && texture->filename.value.empty())
    texture = nullptr;
  const QvMFLong* packed = state.GetPackedColor();
  if (packed && packed->values.empty())
    packed = nullptr;
  const auto key = std::make_tuple(static_cast<const void*>(&m), static_cast<const void*>(texture),
                                   static_cast<const void*>(packed), entry);
  if (auto it = rc.byState.find(key); it != rc.byState.end())
    return it->second;

  static const std::array<float, 3> kBlack{0, 0, 0};
  static const std::array<float, 3> kGrey{0.8f, 0.8f, 0.8f};
  static const std::array<float, 3> kAmbient{0.2f, 0.2f, 0.2f};
  static const float kZero = 0, kShine = 0.2f;
  auto colour = [](const std::array<float, 3>& c) {
    return CRGBColor(codec::ColorByte(c[0]), codec::ColorByte(c[1]), codec::ColorByte(c[2]), 255);
  };
  C3DMaterial made;
  made.SetDiffuseColor(colour(Entry(m.diffuseColor.values, entry, kGrey)));
  made.SetAmbientColor(colour(Entry(m.ambientColor.values, entry, kAmbient)));
  made.SetSpecularColor(colour(Entry(m.specularColor.values, entry, kBlack)));
  // The writer puts the specular factor into shininess: read it back from there.
  made.SetSpecularFactor(Entry(m.shininess.values, entry, kShine));
  made.SetTransparencyFactor(Entry(m.transparency.values, entry, kZero));
  if (packed) {
    const auto c = Unpack(Entry(packed->values, entry, std::int32_t(-1)));
    made.SetDiffuseColor(colour({c[0], c[1], c[2]}));
    made.SetTransparencyFactor(1.0f - c[3]);
  }
  if (texture)
    made.AddMaterialMap(texture->filename.value, kNoChannel, MAP_DIFFUSE);

  unsigned id = 0;
  std::vector<float> params;
  if (!texture) {
    for (const CRGBColor* c :
         {&made.GetDiffuseColor(), &made.GetAmbientColor(), &made.GetSpecularColor()})
      for (int i = 0; i < 4; ++i)
        params.push_back((*c)[i]);
    params.push_back(made.GetSpecularFactor());
    params.push_back(made.GetTransparencyFactor());
    params.push_back(made.GetAmbientFactor());
    params.push_back(made.GetDiffuseFactor());
  }
  // Materials made here are found through their parameters; the scene is
  // searched as well while it is small (it may hold its default material),
  // so that files of many colours do not cost a search per colour.
  auto found = texture ? rc.byParameters.end() : rc.byParameters.find(params);
  C3DMaterial* same = nullptr;
  if (found == rc.byParameters.end() && !texture && rc.scene->GetMaterialNumber() <= 64)
    same = rc.scene->FindMaterial(made, 0);
  if (found != rc.byParameters.end()) {
    id = found->second;
  } else if (same) {
    id = same->GetMaterialID();
  } else {
    C3DMaterial* created = rc.scene->CreateNewMaterial();
    *created = made;
    if (!m.GetName().empty()) {
      std::string name = m.GetName();
      if (m.diffuseColor.values.size() > 1)
        name += "_" + std::to_string(entry);
      created->SetName(codec::MakeUniqueName(rc.usedNames, name));
    }
    id = created->GetMaterialID();
  }
  if (!texture)
    rc.byParameters.emplace(std::move(params), id);
  rc.byState.emplace(key, id);
  return id;
}

void CVrmlIo::AddObjectNode(C3DBaseObject* object, const QvNode& shape, QvState& state) {
  auto* node = new C3DSceneNode(object, 1);
  if (!shape.GetName().empty()) {
    node->SetName(shape.GetName());
  } else if (auto it = m_read->separatorNames.find(&shape); it != m_read->separatorNames.end()) {
    node->SetName(it->second);
  }
  node->SetMatrix(NODE_MATRIX_TRANSFORM, state.GetMatrix());
  m_read->nodes.emplace_back(node);
}

namespace {

unsigned FaceMode(const QvState& state) {
  unsigned mode = 0;
  if (const QvShapeHints* hints = state.GetShapeHints()) {
    if (hints->vertexOrdering.value == QvShapeHints::CLOCKWISE)
      mode |= kVrmlFaceModeClockwise;
    else if (hints->vertexOrdering.value == QvShapeHints::COUNTERCLOCKWISE)
      mode |= kVrmlFaceModeCounterClockwise;
    if (hints->shapeType.value == QvShapeHints::SOLID)
      mode |= kVrmlFaceModeSolid;
  }
  return mode;
}

// The material entry of a face under the binding in force, -1 for the default.
// Strip sets bind PER_PART to their strips and PER_FACE to their triangles;
// face sets have one part per face.
std::int64_t FaceMaterial(int binding, std::size_t face, std::size_t part, std::size_t count,
                          const std::vector<std::int32_t>& materialIndex) {
  std::size_t i = face;
  switch (binding) {
  case QV_BINDING_DEFAULT:
  case QV_BINDING_OVERALL:
  case QV_BINDING_PER_VERTEX:
  case QV_BINDING_PER_VERTEX_INDEXED:
    return 0;
  case QV_BINDING_PER_PART:
    i = part;
    [[fallthrough]];
  case QV_BINDING_PER_FACE:
    return i < count ? std::int64_t(i) : -1;
  case QV_BINDING_PER_PART_INDEXED:
    i = part;
    [[fallthrough]];
  case QV_BINDING_PER_FACE_INDEXED:
    if (i < materialIndex.size() && materialIndex[i] >= 0 && std::size_t(materialIndex[i]) < count)
      return materialIndex[i];
    return -1;
  default:
    return -1;
  }
}

bool IsPerVertex(int binding) {
  return binding == QV_BINDING_PER_VERTEX || binding == QV_BINDING_PER_VERTEX_INDEXED;
}

std::size_t ColourCount(const QvState& state) {
  if (const QvMFLong* packed = state.GetPackedColor())
    return std::max<std::size_t>(1, packed->values.size());
  const QvMaterial* m = state.GetMaterial();
  if (!m)
    return 1;
  return std::max<std::size_t>({1, m->diffuseColor.values.size(), m->ambientColor.values.size(),
                                m->specularColor.values.size(), m->shininess.values.size(),
                                m->transparency.values.size()});
}

// Runs of corners (faces, or strips to be cut into triangles) of one shape.
class CornerRuns {
public:
  CornerRuns(FacesOut sf, int binding, std::size_t count,
             const std::vector<std::int32_t>& materialIndex, bool strips)
      : m_sf(sf), m_binding(binding), m_count(count), m_materialIndex(materialIndex),
        m_strips(strips) {}

  void Add(const Corner& c) { m_run.push_back(c); }
  // Ends the current run (nothing when it is empty and `always` is false).
  void End(bool always) {
    if (m_run.empty() && !always)
      return;
    if (!m_strips) {
      Face(m_run.data(), m_run.size(), m_part);
    } else {
      for (std::size_t t = 0; t + 2 < m_run.size(); ++t) {
        // Every other triangle of a strip turns the other way.
        const Corner tri[3] = {m_run[t + (t & 1)], m_run[t + 1 - (t & 1)], m_run[t + 2]};
        Face(tri, 3, m_part);
      }
    }
    ++m_part;
    m_run.clear();
  }

private:
  void Face(const Corner* c, std::size_t n, std::size_t part) {
    const std::uint32_t first = std::uint32_t(m_sf.corners->size());
    m_sf.corners->insert(m_sf.corners->end(), c, c + n);
    m_sf.faces->push_back(
        {first, std::uint32_t(n), FaceMaterial(m_binding, m_face, part, m_count, m_materialIndex)});
    ++m_face;
  }

  FacesOut m_sf;
  int m_binding;
  std::size_t m_count;
  const std::vector<std::int32_t>& m_materialIndex;
  bool m_strips;
  std::vector<Corner> m_run;
  std::size_t m_face = 0, m_part = 0;
};

} // namespace

void CVrmlIo::FaceSetCallback(QvNode& shape, QvState& state) {
  if (!m_read || m_read->cancelled)
    return;
  ReadContext& rc = *m_read;
  if (ShouldCancel()) {
    rc.cancelled = true;
    state.Stop();
    return;
  }
  const QvCoordinate3* coords = state.GetCoordinate3();
  if (!coords || coords->point.values.empty())
    return;
  const std::int64_t npts = std::int64_t(coords->point.values.size());
  const int binding = state.GetMaterialBindingValue();
  const std::size_t count = ColourCount(state);
  static const std::vector<std::int32_t> kNoIndex;
  ShapeFaces sf;
  sf.textured = state.GetTextureCoordinate2() != nullptr;
  sf.coloured = IsPerVertex(binding);
  const QV_NODE_TYPE type = shape.GetType();

  try {
    if (type == QV_NODE_TYPE::IndexedFaceSet || type == QV_NODE_TYPE::IndexedTriangleStripSet) {
      const auto& set = static_cast<const QvIndexedFaceSet&>(shape);
      const std::vector<std::int32_t>& index = set.coordIndex.values;
      // One face per -1, and one more for a last face without it.
      std::size_t faceCount = std::size_t(std::count(index.begin(), index.end(), -1));
      if (!index.empty() && index.back() != -1)
        ++faceCount;
      if (faceCount == 0)
        return;
      const std::vector<std::int32_t>& materialIndex = set.materialIndex.values;
      const QvTextureCoordinateBinding* tb = state.GetTextureCoordinateBinding();
      const bool texSequential = tb && tb->value.value == QV_BINDING_PER_VERTEX;
      const bool texIndexed = !IsDefaultIndexList(set.textureCoordIndex.values);
      const std::vector<std::int32_t>& texIndex = texIndexed ? set.textureCoordIndex.values : index;
      const bool colourIndexed = !IsDefaultIndexList(materialIndex);
      CornerRuns runs({&sf.corners, &sf.faces}, binding, count, materialIndex,
                      type == QV_NODE_TYPE::IndexedTriangleStripSet);
      sf.corners.reserve(index.size());
      sf.faces.reserve(faceCount);
      std::size_t vertex = 0;
      for (std::size_t p = 0; p < index.size(); ++p) {
        rc.Tick();
        if (index[p] == -1) {
          runs.End(true);
          continue;
        }
        Corner c{index[p], -1, -1};
        if (sf.textured)
          c.tex = texSequential ? std::int32_t(std::min<std::size_t>(vertex, 0x7FFFFFFF))
                                : (p < texIndex.size() ? texIndex[p] : -1);
        if (binding == QV_BINDING_PER_VERTEX)
          c.colour = std::int32_t(std::min<std::size_t>(vertex, 0x7FFFFFFF));
        else if (binding == QV_BINDING_PER_VERTEX_INDEXED)
          c.colour = colourIndexed ? (p < materialIndex.size() ? materialIndex[p] : -1) : index[p];
        runs.Add(c);
        ++vertex;
      }
      runs.End(false);
    } else {
      // Shapes of consecutive coordinates: every per-vertex value follows the coordinate.
      auto corner = [&](std::int64_t i) {
        const auto v = std::int32_t(std::clamp<std::int64_t>(i, -1, 0x7FFFFFFF));
        return Corner{v, sf.textured ? v : -1, v};
      };
      if (type == QV_NODE_TYPE::QuadMesh) {
        const auto& mesh = static_cast<const QvQuadMesh&>(shape);
        const std::int64_t start = std::max<std::int64_t>(0, mesh.startIndex.value);
        const std::int64_t rows = mesh.verticesPerColumn.value;
        const std::int64_t cols = mesh.verticesPerRow.value;
        if (rows < 2 || cols < 2 || start + rows * cols > npts)
          return;
        CornerRuns runs({&sf.corners, &sf.faces}, binding, count, kNoIndex, false);
        for (std::int64_t r = 0; r + 1 < rows; ++r)
          for (std::int64_t c = 0; c + 1 < cols; ++c) {
            rc.Tick();
            const std::int64_t a = start + r * cols + c;
            for (std::int64_t v : {a, a + cols, a + cols + 1, a + 1})
              runs.Add(corner(v));
            runs.End(true);
          }
      } else {
        const auto& set = static_cast<const QvFaceSet&>(shape);
        std::int64_t next = std::max<std::int64_t>(0, set.startIndex.value);
        CornerRuns runs({&sf.corners, &sf.faces}, binding, count, kNoIndex,
                        type == QV_NODE_TYPE::TriangleStripSet);
        for (std::int32_t n : set.numVertices.values) {
          if (next >= npts)
            break;
          const std::int64_t len = n < 0 ? npts - next : std::min<std::int64_t>(n, npts - next);
          for (std::int64_t k = 0; k < len; ++k) {
            rc.Tick();
            runs.Add(corner(next + k));
          }
          runs.End(true);
          next += len;
        }
      }
    }
    // Charged whether or not faces come of it: a shape of bad indices used
    // many times must not make the walk endless.
    rc.Spend(sf.corners.size());
    BuildMesh(shape, state, sf);
  } catch (const TooLarge&) {
    state.Stop();
  } catch (const Cancelled&) {
    state.Stop();
  }
}

void CVrmlIo::BuildMesh(const QvNode& shape, QvState& state, const ShapeFaces& sf) {
  ReadContext& rc = *m_read;
  const QvCoordinate3* coordNode = state.GetCoordinate3();
  if (!coordNode)
    return;
  const auto& coords = coordNode->point.values;
  const std::size_t npts = coords.size();
  if (npts == 0 || npts > std::size_t(0x7FFFFFFF))
    return;
  // Faces that name a point outside the coordinates are dropped, as are those
  // with fewer than three corners.
  std::vector<bool> keep(sf.faces.size(), false);
  std::size_t kept = 0;
  for (std::size_t f = 0; f < sf.faces.size(); ++f) {
    const FaceRec& rec = sf.faces[f];
    if (rec.count < 3)
      continue;
    bool ok = true;
    for (std::uint32_t k = 0; k < rec.count && ok; ++k) {
      const std::int32_t c = sf.corners[rec.first + k].coord;
      ok = c >= 0 && std::size_t(c) < npts;
    }
    keep[f] = ok;
    kept += ok;
  }
  if (kept == 0 || kept > std::size_t(0x7FFFFFFF))
    return;
  rc.Spend(npts + sf.corners.size());

  auto object = std::make_unique<C3DObject>();
  auto points = std::make_unique<C3DPointList>();
  points->SetSize(int(npts));
  C3DPoint* out = points->GetFirst();
  for (std::size_t i = 0; i < npts; ++i) {
    rc.Tick();
    out[i].x = coords[i][0];
    out[i].y = coords[i][1];
    out[i].z = coords[i][2];
  }
  object->SetPointList(points.release());

  auto faceList = std::make_unique<C3DFaceList>();
  faceList->SetSize(int(kept));
  std::unordered_map<std::int64_t, unsigned> materialOf;
  auto material = [&](std::int64_t entry) {
    auto it = materialOf.find(entry);
    if (it != materialOf.end())
      return it->second;
    unsigned id;
    if (entry < 0) {
      id = rc.scene->GetMaterial(0)->GetMaterialID(); // made on first use
    } else {
      id = MaterialFromState(state, std::size_t(entry));
    }
    materialOf.emplace(entry, id);
    return id;
  };
  int f = 0;
  for (std::size_t r = 0; r < sf.faces.size(); ++r) {
    if (!keep[r])
      continue;
    rc.Tick();
    const FaceRec& rec = sf.faces[r];
    C3DFace& face = (*faceList)[f++];
    face.SetSize(int(rec.count));
    int* idx = face.GetData();
    for (std::uint32_t k = 0; k < rec.count; ++k)
      idx[k] = sf.corners[rec.first + k].coord;
    face.SetMaterialID(material(rec.material));
  }
  object->SetFaceList(faceList.release());
  object->SetFaceMode(C3DBaseObject::_faceModeEnum(FaceMode(state)));
  object->SetSmoothAngle(-1.0f);

  if (const QvTextureCoordinate2* texNode = state.GetTextureCoordinate2(); sf.textured && texNode) {
    const auto& tex = texNode->point.values;
    auto channel = std::make_unique<CUVWChannel>();
    CUVWFaceList& tfaces = *channel->GetUVWFaceList();
    CUVWPointList& tpoints = *channel->GetUVWPointList();
    tfaces.SetSize(int(kept));
    bool needDefault = false;
    int t = 0;
    for (std::size_t r = 0; r < sf.faces.size(); ++r) {
      if (!keep[r])
        continue;
      rc.Tick();
      const FaceRec& rec = sf.faces[r];
      CUVWFace& face = tfaces[t++];
      face.SetSize(int(rec.count));
      int* idx = face.GetData();
      for (std::uint32_t k = 0; k < rec.count; ++k) {
        std::int32_t c = sf.corners[rec.first + k].tex;
        if (c < 0 || std::size_t(c) >= tex.size()) {
          needDefault = true;
          c = std::int32_t(tex.size());
        }
        idx[k] = c;
      }
    }
    tpoints.SetSize(int(tex.size() + (needDefault ? 1 : 0)));
    for (std::size_t i = 0; i < tex.size(); ++i)
      tpoints[int(i)].SetUV(tex[i][0], 1.0f - tex[i][1], 0.0f);
    const unsigned id = channel->GetID();
    object->AddChannel(channel.release());
    object->SetGlobalUVWChannel(id);
    for (const auto& [entry, mid] : materialOf)
      if (C3DMaterial* m = rc.scene->GetMaterial(mid))
        if (CMaterialMap* map = m->GetDiffuseMaps(); map && map->GetChannelID() == kNoChannel)
          map->SetChannelID(id);
  }

  if (sf.coloured) {
    const QvMaterial* mnode = state.GetMaterial();
    const QvMaterial& m = mnode ? *mnode : DefaultMaterial();
    const auto& diffuse = m.diffuseColor.values;
    const auto& transparency = m.transparency.values;
    const QvMFLong* packed = state.GetPackedColor();
    const std::size_t colours = packed ? packed->values.size() : diffuse.size();
    codec::CCornerValues values;
    auto channel = std::make_unique<CVCChannel>();
    CVCFaceList& cfaces = *channel->GetVCFaceList();
    cfaces.SetSize(int(kept));
    int c = 0;
    for (std::size_t r = 0; r < sf.faces.size(); ++r) {
      if (!keep[r])
        continue;
      rc.Tick();
      const FaceRec& rec = sf.faces[r];
      CVCFace& face = cfaces[c++];
      face.SetSize(int(rec.count));
      int* idx = face.GetData();
      for (std::uint32_t k = 0; k < rec.count; ++k) {
        const Corner& corner = sf.corners[rec.first + k];
        codec::CCornerValues::Value v;
        v.v[0] = v.v[1] = v.v[2] = v.v[3] = 1.0f;
        if (corner.colour >= 0 && std::size_t(corner.colour) < colours) {
          const auto i = std::size_t(corner.colour);
          if (packed) {
            const auto p = Unpack(packed->values[i]);
            std::copy(p.begin(), p.end(), v.v);
          } else {
            std::copy(diffuse[i].begin(), diffuse[i].end(), v.v);
            v.v[3] = 1.0f - Entry(transparency, i, 0.0f);
          }
        }
        idx[k] = values.Get(std::uint32_t(corner.coord), v);
      }
    }
    CVCPointList& cpoints = *channel->GetVCPointList();
    cpoints.SetSize(int(values.GetSize()));
    for (std::size_t i = 0; i < values.GetSize(); ++i) {
      const float* v = values.GetValues()[i].v;
      cpoints[int(i)].SetColor(CRGBColor(codec::ColorByte(v[0]), codec::ColorByte(v[1]),
                                         codec::ColorByte(v[2]), codec::ColorByte(v[3])));
    }
    object->AddChannel(channel.release());
  }
  AddObjectNode(object.release(), shape, state);
}

void CVrmlIo::LineSetCallback(QvNode& shape, QvState& state) {
  if (!m_read || m_read->cancelled)
    return;
  ReadContext& rc = *m_read;
  if (ShouldCancel()) {
    rc.cancelled = true;
    state.Stop();
    return;
  }
  const QvCoordinate3* coordNode = state.GetCoordinate3();
  if (!coordNode) {
    auto it = rc.trailingCoordinates.find(&shape);
    if (it != rc.trailingCoordinates.end())
      coordNode = it->second;
  }
  if (!coordNode || coordNode->point.values.empty())
    return;
  const auto& coords = coordNode->point.values;
  const auto& index = static_cast<const QvIndexedLineSet&>(shape).coordIndex.values;
  try {
    rc.Spend(index.size());
    std::size_t start = 0;
    for (std::size_t p = 0; p <= index.size(); ++p) {
      rc.Tick();
      if (p < index.size() && index[p] != -1)
        continue;
      const std::size_t n = p - start;
      bool ok = n >= 2;
      for (std::size_t k = start; k < p && ok; ++k)
        ok = index[k] >= 0 && std::size_t(index[k]) < coords.size();
      if (ok) {
        rc.Spend(n);
        auto curve = std::make_unique<C3DCurve>();
        auto points = std::make_unique<C3DPointList>();
        points->SetSize(int(n));
        for (std::size_t k = 0; k < n; ++k) {
          const auto& c = coords[std::size_t(index[start + k])];
          (*points)[int(k)] = C3DPoint(c[0], c[1], c[2]);
        }
        curve->SetPointList(points.release());
        curve->SetMaterialID(MaterialFromState(state, 0));
        AddObjectNode(curve.release(), shape, state);
      }
      start = p + 1;
    }
  } catch (const TooLarge&) {
    state.Stop();
  } catch (const Cancelled&) {
    state.Stop();
  }
}

void CVrmlIo::PointSetCallback(QvNode& shape, QvState& state) {
  if (!m_read || m_read->cancelled)
    return;
  ReadContext& rc = *m_read;
  const QvCoordinate3* coordNode = state.GetCoordinate3();
  if (!coordNode || coordNode->point.values.empty())
    return;
  const auto& coords = coordNode->point.values;
  const auto& set = static_cast<const QvPointSet&>(shape);
  const std::int64_t start = std::max<std::int64_t>(0, set.startIndex.value);
  if (start >= std::int64_t(coords.size()))
    return;
  std::int64_t n = std::int64_t(coords.size()) - start;
  if (set.numPoints.value >= 0)
    n = std::min<std::int64_t>(n, set.numPoints.value);
  if (n <= 0)
    return;
  try {
    rc.Spend(std::uint64_t(n));
    // Only points: an object without faces.
    auto object = std::make_unique<C3DObject>();
    auto points = std::make_unique<C3DPointList>();
    points->SetSize(int(n));
    for (std::int64_t i = 0; i < n; ++i) {
      const auto& c = coords[std::size_t(start + i)];
      (*points)[int(i)] = C3DPoint(c[0], c[1], c[2]);
    }
    object->SetPointList(points.release());
    object->SetFaceList(new C3DFaceList);
    AddObjectNode(object.release(), shape, state);
  } catch (const TooLarge&) {
    state.Stop();
  }
}

void CVrmlIo::PrimitiveCallback(QvNode& shape, QvState& state) {
  if (!m_read || m_read->cancelled)
    return;
  ReadContext& rc = *m_read;
  if (ShouldCancel()) {
    rc.cancelled = true;
    state.Stop();
    return;
  }
  vrml::PrimitiveMesh mesh;
  switch (shape.GetType()) {
  case QV_NODE_TYPE::Cube: {
    const auto& cube = static_cast<const QvCube&>(shape);
    mesh = vrml::MakeCube(cube.width.value, cube.height.value, cube.depth.value);
    break;
  }
  case QV_NODE_TYPE::Sphere:
    mesh = vrml::MakeSphere(static_cast<const QvSphere&>(shape).radius.value);
    break;
  case QV_NODE_TYPE::Cylinder: {
    const auto& cyl = static_cast<const QvCylinder&>(shape);
    mesh = vrml::MakeCylinder(cyl.radius.value, cyl.height.value, cyl.parts.value);
    break;
  }
  case QV_NODE_TYPE::Cone: {
    const auto& cone = static_cast<const QvCone&>(shape);
    mesh = vrml::MakeCone(cone.bottomRadius.value, cone.height.value, cone.parts.value);
    break;
  }
  default:
    return;
  }
  if (mesh.faces.empty())
    return;
  try {
    rc.Spend(mesh.points.size() + mesh.faces.size() * 4);
  } catch (const TooLarge&) {
    state.Stop();
    return;
  }
  auto object = std::make_unique<C3DObject>();
  auto points = std::make_unique<C3DPointList>();
  points->SetSize(int(mesh.points.size()));
  for (std::size_t i = 0; i < mesh.points.size(); ++i) {
    const auto& p = mesh.points[i];
    (*points)[int(i)] = C3DPoint(p[0], p[1], p[2]);
  }
  object->SetPointList(points.release());
  auto faces = std::make_unique<C3DFaceList>();
  faces->SetSize(int(mesh.faces.size()));
  const unsigned material = MaterialFromState(state, 0);
  for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
    C3DFace& face = (*faces)[int(f)];
    face.SetSize(int(mesh.faces[f].size()));
    std::copy(mesh.faces[f].begin(), mesh.faces[f].end(), face.GetData());
    face.SetMaterialID(material);
  }
  object->SetFaceList(faces.release());
  object->SetFaceMode(
      C3DBaseObject::_faceModeEnum(kVrmlFaceModeCounterClockwise | kVrmlFaceModeSolid));
  auto channel = std::make_unique<CUVWChannel>();
  CUVWFaceList& tfaces = *channel->GetUVWFaceList();
  tfaces.SetSize(int(mesh.texFaces.size()));
  for (std::size_t f = 0; f < mesh.texFaces.size(); ++f) {
    tfaces[int(f)].SetSize(int(mesh.texFaces[f].size()));
    std::copy(mesh.texFaces[f].begin(), mesh.texFaces[f].end(), tfaces[int(f)].GetData());
  }
  CUVWPointList& tpoints = *channel->GetUVWPointList();
  tpoints.SetSize(int(mesh.texPoints.size()));
  for (std::size_t i = 0; i < mesh.texPoints.size(); ++i)
    tpoints[int(i)].SetUV(mesh.texPoints[i][0], 1.0f - mesh.texPoints[i][1], 0.0f);
  const unsigned id = channel->GetID();
  object->AddChannel(channel.release());
  object->SetGlobalUVWChannel(id);
  if (C3DMaterial* m = rc.scene->GetMaterial(material))
    if (CMaterialMap* map = m->GetDiffuseMaps(); map && map->GetChannelID() == kNoChannel)
      map->SetChannelID(id);
  AddObjectNode(object.release(), shape, state);
}

// ---------------------------------------------------------------------------
// Writing

int CVrmlIo::Save(const std::string& name, C3DScene* scene, unsigned flags) {
  // An empty scene still makes a valid (empty) file.
  if (!scene) {
    SetIoError(IO_FILE_EMPTY);
    return 0;
  }
  std::string text;
  if (!SaveToMemory(scene, flags, text))
    return 0;
  return codec::SaveWholeFile(*this, name, text.data(), text.size());
}

int CVrmlIo::SaveToMemory(C3DScene* scene, unsigned flags, std::string& out) {
  if (!scene) {
    SetIoError(IO_FILE_EMPTY);
    return 0;
  }
  int changed = 0;
  C3DScene* exported = scene->InitExport(int(flags), changed);
  std::string text;
  vrml::WriteResult result = vrml::WriteResult::Ok;
  bool outOfMemory = false;
  try {
    result = vrml::WriteVrmlScene(*exported, text);
  } catch (const std::bad_alloc&) {
    outOfMemory = true;
  }
  exported->ReleaseExport(exported, exported != scene);
  if (outOfMemory) {
    SetIoError(IO_FILE_NO_MEMORY);
    return 0;
  }
  if (result == vrml::WriteResult::Cancelled) {
    SetIoError(IO_FILE_CANCELLED);
    return 0;
  }
  out = std::move(text);
  return 1;
}

} // namespace meshcore

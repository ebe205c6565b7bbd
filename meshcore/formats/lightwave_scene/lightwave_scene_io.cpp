#include "meshcore/formats/lightwave_scene/lightwave_scene_io.h"

#include "meshcore/formats/common/detail/file_input.h"
#include "meshcore/formats/common/detail/file_output.h"
#include "meshcore/formats/common/detail/text_cursor.h"
#include "meshcore/formats/lightwave_scene/detail/lws_paths.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/platform/host.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/preferences.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <filesystem>
#include <new>
#include <system_error>
#include <type_traits>

namespace meshcore {

namespace {

namespace fs = std::filesystem;

// The "LWOB" record of object nodes and its layer number + 1; spelt here
// rather than taken from the object codec, which this one only reaches
// through the format dispatch.
constexpr unsigned kObjectRecord = 0x4C574F42; // 'LWOB'
constexpr unsigned kLayerNumber = 0x4C59524E;  // 'LYRN'
constexpr std::uint32_t kNodeHidden = 1;
constexpr int kChannelCount = 9;
constexpr int kKeyValues = 9;

// A scene that names a scene that names ... is read this deep at most; deeper
// items are skipped, so a file that names itself cannot recurse for ever.
constexpr std::size_t kMaxNesting = 8;

// The scene files being read on this thread, outermost first.
thread_local std::vector<std::string> t_reading;

class ReadingGuard {
public:
  explicit ReadingGuard(std::string path) : m_pushed(!path.empty()) {
    if (m_pushed)
      t_reading.push_back(std::move(path));
  }
  ~ReadingGuard() {
    if (m_pushed)
      t_reading.pop_back();
  }
  ReadingGuard(const ReadingGuard&) = delete;
  ReadingGuard& operator=(const ReadingGuard&) = delete;

private:
  bool m_pushed;
};

std::string CanonicalPath(const std::string& path) {
  std::error_code ec;
  fs::path canonical = fs::weakly_canonical(fs::path(path), ec);
  return ec ? fs::path(path).lexically_normal().string() : canonical.string();
}

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\v' || c == '\f' || c == '\r';
}

std::string_view TrimBlanks(std::string_view text) {
  while (!text.empty() && IsBlank(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back()))
    text.remove_suffix(1);
  return text;
}

bool IsHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Newer scene files put the item id (eight hex digits) before a name; the
// name without it, or empty when the text does not start that way.
std::string_view AfterItemId(std::string_view text) {
  if (text.size() < 10)
    return {};
  for (int i = 0; i < 8; ++i)
    if (!IsHexDigit(text[std::size_t(i)]))
      return {};
  if (!IsBlank(text[8]))
    return {};
  return TrimBlanks(text.substr(9));
}

template <class T> bool LeadingNumber(std::string_view token, T& value, int base = 10) {
  return codec::CTextCursor::ParseLeading(token, value, base);
}

C4x4Matrix Rotation(float angle, float x, float y, float z) {
  C4x4Matrix r(1);
  r.InitRotation(angle, x, y, z);
  return r;
}

// The rotation and scale part of m applied to v (no translation).
C3DVector Turn(const C4x4Matrix& m, const C3DVector& v) {
  return {m.m[0][0] * v.x + m.m[0][1] * v.y + m.m[0][2] * v.z,
          m.m[1][0] * v.x + m.m[1][1] * v.y + m.m[1][2] * v.z,
          m.m[2][0] * v.x + m.m[2][1] * v.y + m.m[2][2] * v.z};
}

} // namespace

struct CLightwaveSceneIo::Item {
  C3DSceneNode* node = nullptr;
  int number = 0;
  bool hasParent = false;
  int parent = 0;
  bool hasPivot = false;
  float pivot[3] = {0, 0, 0};
  // The first key of each channel met, in the order met.
  std::vector<std::pair<int, std::array<float, kKeyValues>>> keys;

  const float* Key(int channel) const {
    for (const auto& [n, values] : keys)
      if (n == channel)
        return values.data();
    return nullptr;
  }
  float Channel(int channel, float absent) const {
    const float* key = Key(channel);
    return key ? key[0] : absent;
  }
};

struct CLightwaveSceneIo::Placement {
  C4x4Matrix rotation{1};
  C3DVector position;
};

struct CLightwaveSceneIo::Lines {
  Lines(const void* data, std::size_t size) : cursor(data, size, size + 1) {}
  codec::CTextCursor cursor;
  CCancelCheck cancel{0, 1024};
};

void RegisterLightwaveSceneCodec() {
  fileRegisterCodecOf<CLightwaveSceneIo>(fileMakeClassCode("LIGS"));
}

CLightwaveSceneIo::CLightwaveSceneIo(CFileIo& owner) : C3DParser(owner) {}
CLightwaveSceneIo::~CLightwaveSceneIo() = default;

// ---------------------------------------------------------------------------
// Lexical layer

bool CLightwaveSceneIo::ReadString() {
  std::string_view line;
  if (!m_lines->cursor.NextLine(line))
    return false;
  line = TrimBlanks(line);
  m_line.assign(line.begin(), line.end());
  for (char& c : m_line)
    if (c >= 'A' && c <= 'Z')
      c = char(c + 32);
  m_linePos = 0;
  return true;
}

bool CLightwaveSceneIo::ReadToken(std::string_view& token) {
  for (;;) {
    if (m_eof || m_cancelled)
      return false;
    while (m_linePos < m_line.size() && IsBlank(m_line[m_linePos]))
      ++m_linePos;
    if (m_linePos < m_line.size()) {
      std::size_t end = m_linePos;
      while (end < m_line.size() && !IsBlank(m_line[end]))
        ++end;
      token = std::string_view(m_line).substr(m_linePos, end - m_linePos);
      m_linePos = end;
      if (m_lines->cancel.Tick()) {
        m_cancelled = true;
        return false;
      }
      return true;
    }
    if (!ReadString()) {
      m_eof = true;
      return false;
    }
  }
}

std::string CLightwaveSceneIo::ReadEndOfLine() {
  std::string_view rest = std::string_view(m_line).substr(std::min(m_linePos, m_line.size()));
  rest = rest.substr(0, rest.find('\r'));
  m_linePos = m_line.size();
  return std::string(TrimBlanks(rest));
}

bool CLightwaveSceneIo::ReadInt(int& value) {
  std::string_view token;
  return ReadToken(token) && LeadingNumber(token, value);
}

bool CLightwaveSceneIo::ReadFloat(float& value) {
  std::string_view token;
  return ReadToken(token) && LeadingNumber(token, value);
}

bool CLightwaveSceneIo::ReadHex(std::uint32_t& value) {
  std::string_view token;
  if (!ReadToken(token))
    return false;
  return LeadingNumber(token.substr(0, 8), value, 16);
}

// ---------------------------------------------------------------------------
// Reading

C3DScene* CLightwaveSceneIo::Read(const std::string& name, unsigned flags) {
  codec::CFileInput input;
  if (int result = input.Open(name); result != IO_FILE_OK) {
    if (result == IO_FILE_CANT_OPEN)
      SetIoError(IO_FILE_CANT_OPEN);
    else
      SetIoError(IO_FILE_BAD_FORMAT, codec::CFileInput::FailureText(result));
    return nullptr;
  }
  m_directory = fs::path(name).parent_path().string();
  const std::string self = CanonicalPath(name);
  ReadingGuard guard(self);
  return ReadText(input.GetData(), input.GetSize(), flags);
}

C3DScene* CLightwaveSceneIo::ReadFromMemory(const void* data, std::size_t size, unsigned flags,
                                            const std::string& directory) {
  m_directory = directory;
  return ReadText(data, size, flags);
}

C3DScene* CLightwaveSceneIo::ReadText(const void* data, std::size_t size, unsigned flags) {
  m_finder = std::make_unique<lws::CObjectFinder>(C3DPreferences::Get3DPreferences().GetLWPaths());
  m_lines = std::make_unique<Lines>(data, size);
  m_line.clear();
  m_linePos = 0;
  m_eof = m_cancelled = false;
  m_current = -1;
  m_itemCounter = 0;
  m_items.clear();
  m_itemOfNode.clear();
  m_itemOfNumber.clear();
  m_cache.clear();
  m_found.clear();

  auto scene = std::make_unique<C3DScene>();
  m_scene = scene.get();
  bool outOfMemory = false;
  try {
    int pluginDepth = 0;
    std::string_view token;
    while (ReadToken(token)) {
      if (token == "plugin") {
        ++pluginDepth;
        continue;
      }
      if (token == "endplugin") {
        // A stray end does not hide the rest of the file.
        if (pluginDepth > 0)
          --pluginDepth;
        continue;
      }
      if (pluginDepth != 0)
        continue;
      if (token == "loadobjectlayer") {
        ReadObject();
      } else if (token == "loadobject") {
        // Only the layered form names what to load; the item takes no number.
        m_current = -1;
      } else if (token == "addlight" || token == "addcamera" || token == "addbone") {
        if (m_itemCounter < INT_MAX)
          ++m_itemCounter;
        m_current = -1;
      } else if (token == "addnullobject") {
        AddNullObject();
      } else if (token == "showobject") {
        SetObjectState();
      } else if (token == "channel") {
        ReadChannel();
      } else if (token == "parentitem") {
        ReadParentItem();
      } else if (token == "pivotposition") {
        ReadPivotPoint();
      }
    }
  } catch (const std::bad_alloc&) {
    outOfMemory = true;
  }
  m_lines.reset();
  m_line.clear();
  m_line.shrink_to_fit();
  m_cache.clear();
  m_found.clear();
  m_finder.reset();
  m_scene = nullptr;

  if (outOfMemory) {
    m_items.clear();
    SetIoError(IO_FILE_BAD_FORMAT, "out of memory");
    return nullptr;
  }
  if (m_cancelled || ShouldCancel()) {
    m_items.clear();
    SetIoError(IO_FILE_CANCELLED);
    return nullptr;
  }
  m_scene = scene.get();
  StoreRecords();
  UpdateScene();
  m_scene = nullptr;
  m_items.clear();
  m_itemOfNode.clear();
  m_itemOfNumber.clear();
  m_placements.clear();
  m_placeState.clear();
  scene->CheckoutImport(int(flags));
  if (scene->GetNodeNbr(0) == 0) {
    SetIoError(IO_FILE_EMPTY);
    return nullptr;
  }
  return scene.release();
}

CLightwaveSceneIo::Item* CLightwaveSceneIo::Current() {
  return m_current >= 0 ? &m_items[std::size_t(m_current)] : nullptr;
}

int CLightwaveSceneIo::ItemIndex(const C3DSceneNode* node) const {
  auto it = m_itemOfNode.find(node);
  return it == m_itemOfNode.end() ? -1 : it->second;
}

void CLightwaveSceneIo::NewItem(C3DSceneNode* node) {
  Item item;
  item.node = node;
  item.number = m_itemCounter;
  if (m_itemCounter < INT_MAX)
    ++m_itemCounter;
  m_current = int(m_items.size());
  m_itemOfNode[node] = m_current;
  m_itemOfNumber.emplace(item.number, m_current);
  m_items.push_back(std::move(item));
}

C3DScene* CLightwaveSceneIo::LoadObjectFile(const std::string& path) {
  auto cached = m_cache.find(path);
  if (cached != m_cache.end())
    return cached->second.get();
  std::unique_ptr<C3DScene> loaded;
  // A scene file already being read, or scenes nested too deep, load nothing.
  const std::string canonical = CanonicalPath(path);
  const bool nested = std::find(t_reading.begin(), t_reading.end(), canonical) != t_reading.end();
  if (!nested && t_reading.size() < kMaxNesting) {
    unsigned ioFlags = FILE_PARSER_LOADING;
    if (IsSilentMode())
      ioFlags |= FILE_PARSER_SILENT;
    if (IsFlagSet(FILE_PARSER_NO_PREFS))
      ioFlags |= FILE_PARSER_NO_PREFS;
    C3DIo io(path, ioFlags, GetMeshcoreHost().GetMainWindow());
    loaded = io.ReadScene();
  }
  C3DScene* result = loaded.get();
  m_cache.emplace(path, std::move(loaded));
  return result;
}

void CLightwaveSceneIo::ReadObject() {
  m_current = -1;
  int layer = 0;
  if (!ReadInt(layer))
    return;
  const std::string name = ReadEndOfLine();
  if (name.empty())
    return;

  auto found = m_found.find(name);
  if (found == m_found.end()) {
    std::string path = m_finder->FindObjectFile(m_directory, name);
    // "<item id> <file>" in newer files, unless a file is named so whole.
    if (path.empty())
      if (std::string_view rest = AfterItemId(name); !rest.empty())
        path = m_finder->FindObjectFile(m_directory, rest);
    found = m_found.emplace(name, std::move(path)).first;
  }
  if (found->second.empty())
    return;
  C3DScene* loaded = LoadObjectFile(found->second);
  if (!loaded)
    return;
  C3DSceneNode* source = GetNodeFromScene(loaded, layer);
  if (!source)
    return;
  C3DSceneNode* copy = loaded->CopyNode(m_scene, source, nullptr, 0, nullptr);
  if (copy)
    NewItem(copy);
}

C3DSceneNode* CLightwaveSceneIo::GetNodeFromScene(C3DScene* scene, int layer) {
  if (!scene)
    return nullptr;
  for (CTreeNode* n = scene->CTree::GetFirstNode(nullptr); n; n = CTree::GetNextNode(n, nullptr)) {
    auto* node = static_cast<C3DSceneNode*>(n);
    CCustomData record;
    int number = 0;
    if (node->GetCustomData().GetCustomData(kObjectRecord, record) &&
        record.GetInt(kLayerNumber, number) && number == layer)
      return node;
  }
  return nullptr;
}

void CLightwaveSceneIo::AddNullObject() {
  m_current = -1;
  std::string name = ReadEndOfLine();
  if (name.empty())
    return;
  if (std::string_view rest = AfterItemId(name); !rest.empty())
    name = std::string(rest);
  auto* node = new C3DSceneNode(new C3DGroup, 1);
  node->SetName(name);
  m_scene->AddNode(nullptr, node);
  NewItem(node);
}

void CLightwaveSceneIo::SetObjectState() {
  int visibility = 0, colour = 0;
  if (!ReadInt(visibility) || !ReadInt(colour))
    return;
  Item* item = Current();
  if (!item || visibility != 0)
    return;
  const C3DBaseObject* object = item->node->GetBaseObject();
  if (!object || object->GetKindOf() != OBJECT_GROUP)
    return;
  for (CTreeNode* n = CTree::GetNextNode(item->node, item->node); n;
       n = CTree::GetNextNode(n, item->node))
    static_cast<C3DSceneNode*>(n)->SetFlag(kNodeHidden, 1);
}

void CLightwaveSceneIo::ReadChannel() {
  int channel = 0;
  if (!ReadInt(channel))
    return;
  bool keyed = false;
  std::string_view token;
  while (ReadToken(token) && token != "}") {
    if (token != "key" || keyed)
      continue;
    keyed = true;
    Item* item = Current();
    if (!item)
      continue;
    std::array<float, kKeyValues> values{};
    for (float& v : values)
      if (!ReadFloat(v))
        return;
    if (channel >= 0 && channel <= 0xFF && !item->Key(channel))
      item->keys.emplace_back(channel, values);
  }
}

void CLightwaveSceneIo::ReadParentItem() {
  std::uint32_t code = 0;
  if (!ReadHex(code))
    return;
  Item* item = Current();
  // Only object parents place an object; lights, cameras and bones do not.
  if (item && (code >> 28) == 1) {
    item->hasParent = true;
    item->parent = int(code & 0x0FFFFFFFu);
  }
}

void CLightwaveSceneIo::ReadPivotPoint() {
  float p[3];
  for (float& v : p)
    if (!ReadFloat(v))
      return;
  if (Item* item = Current()) {
    item->hasPivot = true;
    std::copy(p, p + 3, item->pivot);
  }
}

// ---------------------------------------------------------------------------
// Placement

void CLightwaveSceneIo::StoreRecords() {
  for (const Item& item : m_items) {
    CCustomData record;
    record.SetInt(kCustomItemNumber, item.number);
    if (item.hasParent)
      record.SetInt(kCustomParentItem, item.parent);
    if (item.hasPivot)
      record.SetCustom(kCustomPivot, item.pivot, sizeof item.pivot);
    for (const auto& [n, values] : item.keys)
      record.SetCustom(kCustomChannelKey + unsigned(n), values.data(),
                       unsigned(values.size() * sizeof(float)));
    item.node->GetCustomData().SetCustomData(kCustomLightwaveScene, record);
  }
}

C3DSceneNode* CLightwaveSceneIo::GetParentItem(int number) const {
  auto it = m_itemOfNumber.find(number);
  return it == m_itemOfNumber.end() ? nullptr : m_items[std::size_t(it->second)].node;
}

// Each item is placed once, parents first. A parent chain that comes back to
// an item already on it is cut there: that item is placed as if it had no
// parent, so a loop neither recurses nor runs for ever.
const CLightwaveSceneIo::Placement& CLightwaveSceneIo::Place(int index) {
  enum : std::uint8_t { kOpen = 0, kOnChain = 1, kPlaced = 2 };
  if (m_placements.size() != m_items.size()) {
    m_placements.assign(m_items.size(), Placement{});
    m_placeState.assign(m_items.size(), kOpen);
  }
  if (m_placeState[std::size_t(index)] == kPlaced)
    return m_placements[std::size_t(index)];

  std::vector<int> chain;
  int top = index;
  while (top >= 0 && m_placeState[std::size_t(top)] == kOpen) {
    m_placeState[std::size_t(top)] = kOnChain;
    chain.push_back(top);
    const Item& item = m_items[std::size_t(top)];
    top = item.hasParent ? ItemIndex(GetParentItem(item.parent)) : -1;
  }
  int parent = top >= 0 && m_placeState[std::size_t(top)] == kPlaced ? top : -1;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    const Item& item = m_items[std::size_t(*it)];
    Placement& place = m_placements[std::size_t(*it)];
    const float h = item.Channel(3, 0.0f), p = item.Channel(4, 0.0f), b = item.Channel(5, 0.0f);
    C4x4Matrix local = Rotation(-h, 0, 1, 0);
    local *= Rotation(-p, 1, 0, 0);
    local *= Rotation(-b, 0, 0, 1);
    local.Scale(item.Channel(6, 1.0f), item.Channel(7, 1.0f), item.Channel(8, 1.0f));
    C3DVector position(item.Channel(0, 0.0f), item.Channel(1, 0.0f), item.Channel(2, 0.0f));
    if (parent >= 0) {
      const Placement& up = m_placements[std::size_t(parent)];
      place.rotation = up.rotation * local;
      position = Turn(up.rotation, position) + up.position;
    } else {
      place.rotation = local;
    }
    const C3DVector pivot(-item.pivot[0], -item.pivot[1], -item.pivot[2]);
    place.position = position + Turn(place.rotation, pivot);
    m_placeState[std::size_t(*it)] = kPlaced;
    parent = *it;
  }
  return m_placements[std::size_t(index)];
}

C4x4Matrix CLightwaveSceneIo::EvalRotation(C3DSceneNode* node) {
  const int index = ItemIndex(node);
  return index < 0 ? C4x4Matrix(1) : Place(index).rotation;
}

C3DVector CLightwaveSceneIo::EvalPosition(C3DSceneNode* node) {
  const int index = ItemIndex(node);
  return index < 0 ? C3DVector() : Place(index).position;
}

C3DVector CLightwaveSceneIo::EvalPivot(C3DSceneNode* node) {
  const int index = ItemIndex(node);
  if (index < 0)
    return {};
  const Item& item = m_items[std::size_t(index)];
  return Turn(Place(index).rotation, C3DVector(-item.pivot[0], -item.pivot[1], -item.pivot[2]));
}

// The placement is carried into the points of the objects below each item:
// every writer and every host then sees the objects where the scene puts them,
// whether or not it applies node matrices.
void CLightwaveSceneIo::UpdateScene() {
  C3DSceneNode* root = m_scene->GetRoot();
  for (CTreeNode* n = CTree::GetChild(root); n; n = CTree::GetRight(n)) {
    auto* node = static_cast<C3DSceneNode*>(n);
    C4x4Matrix m = EvalRotation(node);
    const C3DVector position = EvalPosition(node);
    m.Translate(position.x, position.y, position.z);
    const C3DBaseObject* object = node->GetBaseObject();
    if (m.IsIdentity() || !object || object->GetKindOf() != OBJECT_GROUP)
      continue;
    for (CTreeNode* below = CTree::GetNextNode(node, node); below;
         below = CTree::GetNextNode(below, node)) {
      auto* child = static_cast<C3DSceneNode*>(below);
      C3DBaseObject* o = child->GetBaseObject();
      if (!o || child->IsClone() || o->GetKindOf() == OBJECT_GROUP || !o->GetPointList())
        continue;
      o->GetPointList()->MatrixTransform(m);
      o->InvalidateBoundingBoxes();
    }
  }
}

// ---------------------------------------------------------------------------
// Saving

int CLightwaveSceneIo::Save(const std::string& name, C3DScene* scene, unsigned flags) {
  if (codec::WriteWholeFile(name, "", 0, IsSilentMode()) != IO_FILE_OK) {
    SetIoError(IO_FILE_CANT_OPEN);
    return 0;
  }
  if (scene) {
    int changed = 0;
    C3DScene* exported = scene->InitExport(int(flags), changed);
    exported->ReleaseExport(exported, exported != scene);
  }
  return 0;
}

} // namespace meshcore

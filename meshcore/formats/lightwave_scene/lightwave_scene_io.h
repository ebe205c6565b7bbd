#pragma once
// The codec of Lightwave scene files (".lws"): reads the objects a scene names,
// places them by their motion channels, parents and pivots, and returns them
// as one scene. Scene files are not written.

#include "meshcore/geometry/matrix_4x4.h"
#include "meshcore/geometry/vector_3d.h"
#include "meshcore/io/parser_3d.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace meshcore {

class C3DScene;
class C3DSceneNode;
namespace lws {
class CObjectFinder;
}

// Custom-data record that every item node carries, and its keys.
inline constexpr unsigned kCustomLightwaveScene = 0x4C575343; // 'LWSC'
inline constexpr unsigned kCustomItemNumber = 0x49544944;     // 'ITID'
inline constexpr unsigned kCustomParentItem = 0x50524944;     // 'PRID'
inline constexpr unsigned kCustomPivot = 0x5049564F;          // 'PIVO'
// The first key of motion channel n is kept under kCustomChannelKey + n.
inline constexpr unsigned kCustomChannelKey = 0x43484E00; // 'CHN\0'

// Makes CLightwaveSceneIo the codec of "LIGS" files; called at library start.
void RegisterLightwaveSceneCodec();

class CLightwaveSceneIo : public C3DParser {
public:
  explicit CLightwaveSceneIo(CFileIo& owner);
  ~CLightwaveSceneIo() override;

  // A new scene, or null with the owner's error set: -1 when the file cannot
  // be opened, -9 when cancelled, -7 when no item could be built.
  C3DScene* Read(const std::string& name, unsigned flags) override;
  // Scene files are not written: the file is created empty and 0 returned
  // (-1 when it cannot be created).
  int Save(const std::string& name, C3DScene* scene, unsigned flags) override;

  // Reads scene text held in memory; object files are looked up from
  // directory as they would be from the scene file's folder.
  C3DScene* ReadFromMemory(const void* data, std::size_t size, unsigned flags,
                           const std::string& directory);

protected:
  // Lexical layer over the current line (lower-cased, trimmed).
  bool ReadString();
  bool ReadToken(std::string_view& token);
  std::string ReadEndOfLine();
  bool ReadInt(int& value);
  bool ReadFloat(float& value);
  bool ReadHex(std::uint32_t& value);

  // Keyword handlers.
  void ReadObject();
  void AddNullObject();
  void SetObjectState();
  void ReadChannel();
  void ReadParentItem();
  void ReadPivotPoint();

  // The first node of scene whose object record names layer (counted from 1).
  static C3DSceneNode* GetNodeFromScene(C3DScene* scene, int layer);
  // The node of the item numbered number, or null.
  C3DSceneNode* GetParentItem(int number) const;
  // World placement of an item; parents compose, a parent loop is cut.
  C3DVector EvalPosition(C3DSceneNode* node);
  C4x4Matrix EvalRotation(C3DSceneNode* node);
  C3DVector EvalPivot(C3DSceneNode* node);
  void UpdateScene();

private:
  struct Item;
  struct Placement;
  C3DScene* ReadText(const void* data, std::size_t size, unsigned flags);
  Item* Current();
  int ItemIndex(const C3DSceneNode* node) const;
  void NewItem(C3DSceneNode* node);
  void StoreRecords();
  const Placement& Place(int item);
  C3DScene* LoadObjectFile(const std::string& path);

  // Reading state.
  C3DScene* m_scene = nullptr;
  std::string m_directory;
  std::unique_ptr<lws::CObjectFinder> m_finder;
  struct Lines;
  std::unique_ptr<Lines> m_lines;
  std::string m_line;
  std::size_t m_linePos = 0;
  bool m_eof = false;
  bool m_cancelled = false;
  int m_current = -1;
  int m_itemCounter = 0;
  std::vector<Item> m_items;
  std::unordered_map<const C3DSceneNode*, int> m_itemOfNode;
  std::unordered_map<int, int> m_itemOfNumber; // item number -> first item with it
  std::vector<Placement> m_placements;
  std::vector<std::uint8_t> m_placeState;
  // Object files by their path, loaded once per read (null when the load failed).
  std::map<std::string, std::unique_ptr<C3DScene>> m_cache;
  // Object names already looked up, with the file found (empty when none).
  std::map<std::string, std::string> m_found;
};

} // namespace meshcore

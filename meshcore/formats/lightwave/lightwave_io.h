#pragma once
// The codec of Lightwave object files: reads "LWOB" and "LWO2" into a scene,
// writes a scene as one "LWO2" file.

#include "meshcore/io/parser_3d.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace meshcore {

class C3DBaseObject;
class C3DScene;
class C3DSceneNode;
class CUVWChannel;
struct st_lwObject;
struct st_lwLayer;
struct st_lwPolygon;
struct st_lwVMap;
class LwPolygonWalk;

// Custom-data record that object and layer-group nodes carry, and the layer
// number + 1 in it.
inline constexpr unsigned kCustomLightwave = 0x4C574F42;   // 'LWOB'
inline constexpr unsigned kCustomLayerNumber = 0x4C59524E; // 'LYRN'

// Makes CLightwaveIo the codec of "LIGT" files; called at library start.
void RegisterLightwaveCodec();

class CLightwaveIo : public C3DParser {
public:
  explicit CLightwaveIo(CFileIo& owner);
  ~CLightwaveIo() override;

  // A new scene, or null with the owner's error set: -3 for a file that is
  // not a valid Lightwave object, -9 when cancelled, -7 when nothing results.
  C3DScene* Read(const std::string& name, unsigned flags) override;
  // 1, or 0 with -1 (cannot open), -7 (no node), -8 (something does not fit the format).
  int Save(const std::string& name, C3DScene* scene, unsigned flags) override;

  // The same from and to memory.
  C3DScene* ReadFromMemory(const void* data, std::size_t size, unsigned flags);
  int SaveToMemory(C3DScene* scene, unsigned flags, std::vector<std::uint8_t>& out);

  // Where a layer's points or polygons run past what a VX index can name, the
  // object continues in a new layer; tests lower the limit to reach it cheaply.
  void SetLayerIndexLimit(std::uint32_t limit) { m_indexLimit = limit; }
  // Runs of at least this many faces are filled on two threads; smaller ones
  // would pay more for the thread than they gain. Tests move it.
  void SetParallelFaces(std::size_t faces) { m_parallelFaces = faces; }

  // While reading: the layer being converted and the number of layers.
  const st_lwLayer* GetActiveLayer() const { return m_activeLayer; }
  int GetLayerNbr() const;

protected:
  // Reading steps.
  unsigned GetMaterial(C3DBaseObject* object, std::uint32_t surface);
  void CreateUVWChannel(C3DBaseObject* object, const st_lwLayer& layer, std::size_t first,
                        std::size_t end, int faceCount);
  void CreateVCChannel(C3DBaseObject* object, const st_lwLayer& layer, std::size_t first,
                       std::size_t end, int faceCount);
  // Gives a filled texture channel to the object and places the image maps of
  // the run's materials by it.
  void AddUVWChannel(C3DBaseObject* object, std::unique_ptr<CUVWChannel> channel);
  C3DSceneNode* CreateNode(C3DScene* scene, C3DBaseObject* object, const st_lwLayer& layer);

  // Writing steps: each converts part of the scene into the Lightwave object
  // that the writer then encodes.
  int SaveLightwave6(st_lwObject& file, C3DScene* scene);
  void SaveMaterialsNames6(st_lwObject& file);
  void SaveClips6(st_lwObject& file);
  // Appends a layer for the node and returns its number.
  unsigned SaveLayer6(st_lwObject& file, C3DSceneNode* node);
  void SaveObjects6(st_lwObject& file, C3DBaseObject* object, std::uint32_t kind);
  void SaveUV6(st_lwObject& file, C3DBaseObject* object);
  void SaveVC6(st_lwObject& file, C3DBaseObject* object);
  void SaveMaterials6(st_lwObject& file);

private:
  struct WritePlan;
  template <class Fn> void ForEachWrittenPolygon(C3DBaseObject* object, Fn fn);
  template <class FaceList, class Value>
  void AddChannelMap(st_lwObject& file, C3DBaseObject* object, std::uint32_t type,
                     std::uint32_t dimension, const std::string& name, const FaceList& chFaces,
                     int chPointCount, Value value);
  bool LoadObject(const void* data, std::size_t size);
  C3DScene* BuildScene(unsigned flags);
  void ConvertLayer(const st_lwLayer& layer);
  void ConvertRun(const st_lwLayer& layer, std::size_t first, std::size_t end);
  void ConvertCurve(const st_lwLayer& layer, LwPolygonWalk& poly);
  std::uint32_t TagOf(std::uint32_t materialID);
  void PlanPieces(C3DBaseObject* object);
  void BeginPiece(C3DBaseObject* object, std::size_t piece);
  void ResetReadState();
  void ResetWriteState();

  // Reading state.
  C3DScene* m_scene = nullptr;
  std::unique_ptr<st_lwObject> m_object;
  const st_lwLayer* m_activeLayer = nullptr;
  // The active layer's one texture map when it covers every point, else null.
  const st_lwVMap* m_wholeUVWMap = nullptr;
  std::vector<std::int64_t> m_surfaceMaterial; // surface -> material id, -1 until converted
  std::vector<std::string> m_surfaceUVMap;     // surface -> texture map of its image block
  std::set<std::string> m_materialNames;       // names used so far
  std::map<std::uint32_t, C3DSceneNode*> m_layerGroups;
  std::vector<std::int32_t> m_pointRemap; // layer point -> object point, -1 when unused
  std::vector<std::uint32_t> m_runPoints; // object point -> layer point of the run being converted
  std::vector<std::uint32_t> m_runSurfaces; // distinct surfaces of that run, in first-use order

  // Writing state.
  unsigned m_layerCounter = 0;
  unsigned m_vmapCounter = 0;
  C3DScene* m_saveScene = nullptr;
  std::unordered_map<std::uint32_t, std::uint32_t> m_materialTag;
  std::uint32_t m_fallbackTag = 0xFFFFFFFFu; // for faces whose material is missing
  std::unordered_map<unsigned, std::string> m_channelMapName;
  std::unordered_map<std::uint32_t, std::string> m_materialMapName;
  std::map<std::string, std::uint32_t> m_clipIndex; // image file -> clip index
  std::unordered_map<std::uint32_t, std::uint32_t> m_materialClip;
  std::unordered_map<const C3DSceneNode*, unsigned> m_nodeLayer; // written node -> layer number
  std::uint32_t m_indexLimit = 0x01000000;
  std::size_t m_parallelFaces = 65536;
  // How the object being written is spread over layers (one unless it is past a limit).
  std::unique_ptr<WritePlan> m_plan;
};

} // namespace meshcore

#pragma once
// The context handed to every mesh operation: the lists it reads (source) and
// writes (destination), the channels that must follow the edit, and the
// object, scene node and scene they belong to. It owns none of them.

#include <utility>
#include <vector>

namespace meshcore {

class C3DBaseObject;
class C3DFaceList;
class C3DPointList;
class C3DScene;
class C3DSceneNode;
class CDependentChannels;
class CFaceList;
class CPointList;

class CGeomInfo {
public:
  CGeomInfo() = default;
  // Source lists and channels of the object (or of the node's object). These
  // two are defined with the object classes, in the layer above.
  explicit CGeomInfo(C3DBaseObject* object);
  explicit CGeomInfo(C3DSceneNode* node);
  // Source and initial lists; no object, node or channels.
  CGeomInfo(C3DFaceList* faces, C3DPointList* points);
  CGeomInfo(CFaceList* faces, CPointList* points);
  virtual ~CGeomInfo() = default;

  // Clears every field and both pair arrays.
  void Reset();
  // What the object and node constructors do: Reset, then the object, the node
  // and the object's lists and channels as sources.
  void InitSource(C3DBaseObject* object, C3DSceneNode* node, C3DPointList* points,
                  C3DFaceList* faces, CDependentChannels* channels);

  C3DBaseObject* GetObject() const { return m_object; }
  C3DSceneNode* GetSceneNode() const { return m_node; }
  void SetScene(C3DScene* scene) { m_scene = scene; }
  C3DScene* GetScene() const { return m_scene; }

  // Ignored when both are null; otherwise src becomes the source (and initial)
  // list and dst the destination.
  void SetPoints(CPointList* src, CPointList* dst);
  void GetPoints(CPointList*& src, CPointList*& dst) const {
    src = m_srcPoints;
    dst = m_dstPoints;
  }
  // As SetPoints, and both pair arrays are emptied.
  void SetFaces(CFaceList* src, CFaceList* dst);
  void GetFaces(CFaceList*& src, CFaceList*& dst) const {
    src = m_srcFaces;
    dst = m_dstFaces;
  }
  CPointList* GetPointList() const { return m_srcPoints; }
  CFaceList* GetFaceList() const { return m_srcFaces; }
  // The source lists when they are mesh lists, else null.
  C3DPointList* Get3DPointList() const;
  C3DFaceList* Get3DFaceList() const;
  CPointList* GetInitialPointList() const { return m_initialPoints; }
  CFaceList* GetInitialFaceList() const { return m_initialFaces; }

  // Takes src and dst as source and destination channels only when every
  // channel of dst has a channel of the same id among the current source
  // channels; otherwise changes nothing and returns 0.
  int SetChannels(CDependentChannels* src, CDependentChannels* dst);
  CDependentChannels* GetChannels() const { return m_srcChannels; }
  CDependentChannels* GetDstChannels() const { return m_dstChannels; }
  // Valid source channels of any type; 0 without channels.
  int GetChannelsSize() const;

  // Additional (source, destination) pairs for operations on several lists.
  void AddFacesList(CFaceList* src, CFaceList* dst, int reset);
  void AddPointsList(CPointList* src, CPointList* dst, int reset);
  // Pair i; throws CInvalidArgException for a bad index.
  void GetFacesList(int i, CFaceList*& src, CFaceList*& dst) const;
  void GetPointsList(int i, CPointList*& src, CPointList*& dst) const;
  int GetFacesListSize() const { return static_cast<int>(m_facePairs.size()); }
  int GetPointsListSize() const { return static_cast<int>(m_pointPairs.size()); }
  void ResetFacesList() { m_facePairs.clear(); }
  void ResetPointsList() { m_pointPairs.clear(); }

private:
  C3DSceneNode* m_node = nullptr;
  C3DBaseObject* m_object = nullptr;
  C3DScene* m_scene = nullptr;
  CPointList* m_dstPoints = nullptr;
  CFaceList* m_dstFaces = nullptr;
  std::vector<std::pair<CFaceList*, CFaceList*>> m_facePairs;
  std::vector<std::pair<CPointList*, CPointList*>> m_pointPairs;
  CPointList* m_srcPoints = nullptr;
  CFaceList* m_srcFaces = nullptr;
  CPointList* m_initialPoints = nullptr;
  CFaceList* m_initialFaces = nullptr;
  CDependentChannels* m_srcChannels = nullptr;
  CDependentChannels* m_dstChannels = nullptr;
};

} // namespace meshcore

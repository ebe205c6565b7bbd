#pragma once
// The common behaviour of every face list: list and face flags, the two
// adjacency graphs (point to faces, edge to faces), the neighbourhood queries
// answered from them, and the compactions that keep points and channels in step.

#include "meshcore/containers/element_array.h"
#include "meshcore/containers/hash_table.h"
#include "meshcore/containers/int_array_id.h"
#include "meshcore/mesh/edge_graph.h"
#include "meshcore/mesh/face.h"
#include "meshcore/mesh/index_map.h"

#include <cstdint>
#include <new>
#include <vector>

namespace meshcore {

class CArchive;
class CGeomInfo;

enum _FACELIST_PROPERTIES : std::uint32_t {
  FL_NONE = 0x0,
  FL_CHANGED = 0x1, // faces were edited or removed: the graphs must be rebuilt
};

// How two elements are neighbours in the queries below.
enum _ConnectionInfoType : int {
  CONNECTION_POINT = 1, // they share at least one point
  CONNECTION_EDGE = 2,  // they share an edge (points: they are consecutive corners of a face)
};

// Custom-data key under which SaveFacesIndex stores each face's index.
inline constexpr unsigned kFaceIndexKey = 0x46414F49;

// What a face list's clean does to each face's indices: removes each index
// equal to the next one (the last is not compared with the first, so
// (1, 2, 1) is left as it is); fewer than three left flags the face FACE_INVALID.
void RemoveRepeatedIndices(CFace& face);

class CFaceList : public CElementArray {
  MESHCORE_DECLARE_DYNAMIC(CFaceList)

public:
  CFaceList(std::uint32_t memoryRecordSize, std::uint32_t archiveRecordSize);
  ~CFaceList() override;

  CFace& ElementAt(int i) { return *static_cast<CFace*>(CElementArray::operator[](i)); }
  const CFace& ElementAt(int i) const {
    return *static_cast<const CFace*>(CElementArray::operator[](i));
  }
  CFace& operator[](int i) { return ElementAt(i); }
  const CFace& operator[](int i) const { return ElementAt(i); }
  CFace* GetFirst() { return static_cast<CFace*>(CElementArray::GetFirst()); }
  CFace* GetNext(CFace* p) { return static_cast<CFace*>(CElementArray::GetNext(p)); }

  // When the list is marked changed: rebuilds the graphs that exist, clears the
  // mark and returns 1. Graphs never built stay unbuilt.
  virtual int UpdateList(CGeomInfo* info);
  virtual void Inherit(const CFaceList& src) { m_listFlags = src.m_listFlags; }
  // Faces and the storage's identity number, then the list flags; drops both graphs.
  virtual CFaceList& operator=(const CFaceList& src);

  void SetFlag(_FACELIST_PROPERTIES flag, int on) {
    if (on)
      m_listFlags |= flag;
    else
      m_listFlags &= ~static_cast<std::uint32_t>(flag);
  }
  bool IsFlagSet(_FACELIST_PROPERTIES flag) const { return (m_listFlags & flag) == flag; }
  std::uint32_t GetListFlags() const { return m_listFlags; }
  // Sets or clears flag on every face.
  void SetFlag(_FACE_PROPERTIES flag, int on);
  // Faces whose all-bits test of flag equals set; set must be 0 or 1.
  int GetNumberOfFaces(_FACE_PROPERTIES flag, int set) const;
  // Kept as the stub it has always been: answers 0.
  int GetNumberOfFaces(int) const { return 0; }
  // Face by face, sets apply where src's face has all bits of test, clears it
  // elsewhere unless keep; 0 when the lists differ in size.
  int InheritFlags(const CFaceList& src, _FACE_PROPERTIES test, _FACE_PROPERTIES apply, int keep);
  // Stores each face's index in its custom data under kFaceIndexKey.
  void SaveFacesIndex();
  // Flags FACE_INVALID every face whose index is not a key of keep.
  void InvalidateFaces(CGeomInfo* info, const CIndexMap& keep);
  // Replaces every point index that is a key of map by its value.
  void UpdateIndex(const CIndexMap& map);
  // Flags FACE_BORDER the faces of the edges that only one face uses (edge graph).
  void SetBorderFacesStatus();

  // Graphs. Faces flagged FACE_EXCLUDED are left out of both.
  void InitPointToFaceGraph(CGeomInfo* info);
  void InitEdgeToFaceGraph(CGeomInfo* info);
  void DeletePointToFaceGraph();
  void DeleteEdgeToFaceGraph();
  bool IsPointToFaceGraphBuilt() const { return m_pointGraphBuilt != 0; }
  bool IsEdgeToFaceGraphBuilt() const { return m_edgeGraphBuilt != 0; }
  const CEdgeGraph& GetEdgeGraph() const { return m_edgeGraph; }
  // Number of points the point-to-face graph covers.
  int GetPointToFaceGraphSize() const { return static_cast<int>(m_pointToFace.size()); }
  // The faces using point, increasing (a face using it twice is listed twice).
  // Throws CInvalidArgException when point lies outside the graph.
  const int* GetFacesConnectedToPoint(int point, int& count) const;
  // The faces using the edge (either direction), increasing; null when unknown.
  const int* GetFacesConnectedToEdge(const C3DEdge& edge, int& count) const;
  // Faces other than face connected to it, increasing; returns their number.
  int GetFacesConnectedToFace(int face, CIntArrayID& out,
                              _ConnectionInfoType type = CONNECTION_EDGE) const;
  // 1 when no edge of face is used by another face (edge graph).
  int IsIsolatedFace(int face) const;
  // 1 when a and b are consecutive corners of some face (point-to-face graph).
  int IsPointNeighbourg(int a, int b) const;
  // 1 when face uses the edge (edge graph).
  int DoesEdgeBelongToFace(const C3DEdge& edge, int face) const;
  // Removes face from the arrays of its points; returns how many were left empty.
  int GraphRemoveFaceReference(int face);
  // Moves merged's face references into kept's array, keeping it increasing.
  void GraphMergePointConnectivity(int kept, int merged);
  // The edges used exactly once by the faces of the set (a set's outline).
  void GetEdgesOnBorder(CGeomInfo* info, CHashTable<C3DEdge>& edges,
                        const CHashTable<int>& faces) const;

  // Neighbourhood queries. Each builds the graph it needs through info and
  // fills out with its result, increasing and without repeats unless said
  // otherwise; the return value is the result's size.

  // Points other than point connected to it: by an edge, or by any shared face.
  int GetPointsNeighbourg(CGeomInfo* info, int point, CIntArrayID& out, _ConnectionInfoType type);
  // Faces other than face sharing an edge, or at least one point, with it.
  int GetFacesNeighbourg(CGeomInfo* info, int face, CIntArrayID& out, _ConnectionInfoType type);
  // Faces using at least one of the points, or (by edge) having an edge whose
  // two ends are both among them.
  int GetFacesConnectedToPoints(CGeomInfo* info, const CIntArrayID& points, CIntArrayID& out,
                                _ConnectionInfoType type);
  // Points outside the set connected to a point of it (as GetPointsNeighbourg).
  int GetPointsConnectedToPoints(CGeomInfo* info, const CIntArrayID& points, CIntArrayID& out,
                                 _ConnectionInfoType type);
  // Points of the faces around an edge other than its two ends: by edge, only
  // the corners next to the edge in each face (the opposite corner of a
  // triangle); by point, every other corner of those faces.
  int GetPointsConnectedToEdge(CGeomInfo* info, const C3DEdge& edge, CIntArrayID& out,
                               _ConnectionInfoType type);
  // The strip of quadrilaterals crossed by a line through the edge and then,
  // face after face, through the opposite edge. Faces come in strip order from
  // one end to the other (the walk from the lower-numbered face of the edge
  // runs last); the walk stops at an edge without exactly two faces, at a face
  // that is not a quadrilateral (which is included) or back at its start.
  int GetFacesByOppositeEdges(CGeomInfo* info, const C3DEdge& edge, CIntArrayID& out);
  // Removes that strip with the mesh clean (so points and channels follow);
  // returns the number of faces removed.
  int DeleteFacesByOppositeEdges(CGeomInfo* info, const C3DEdge& edge);
  // 1 when faces a and b (distinct) share an edge, or a point.
  int AreFacesConnected(int a, int b, _ConnectionInfoType type) const;
  // The connected region around seed: faces reached through shared edges (or
  // points), never crossing faces flagged FACE_INVALID or FACE_EXCLUDED.
  int CreateFaceGroup(CGeomInfo* info, int seed, CIntArrayID& out, _ConnectionInfoType type);
  // CFace::ReplaceIndex on the faces that use oldIndex, found through the
  // point-to-face graph, which is kept exact; the edge graph is dropped. Returns
  // the number of faces changed. Does nothing when either index lies outside the graph.
  int ReplaceIndex(CGeomInfo* info, int oldIndex, int newIndex);

  // Face compaction: drops faces flagged FACE_INVALID (after index cleaning when
  // cleanIndices); oldToNew (emptied first) receives the kept faces' new
  // indices. Returns 1 when the list changed.
  int Clean(CGeomInfo* info, int cleanIndices, CIndexMap* oldToNew);
  // Mesh clean: faces, then the points of info that no face uses, then info's
  // channels. Returns 1 only when both faces and points were removed.
  // Also drops faces on PT_INVALID or out-of-range points: channels must not keep lost points.
  int Clean(CGeomInfo* info);

protected:
  void CreatePointToFaceGraph(CGeomInfo* info);
  void CreateEdgeToFaceGraph();
  // Removes each index equal to the next one without wrapping: (1, 2, 1) stays.
  // Flags FACE_INVALID the faces left with fewer than three indices.
  void CleanPointsIndex();
  // Drops the faces flagged FACE_INVALID, kept being how many are not; as Clean.
  int Compact(int kept, CIndexMap* oldToNew);

  std::vector<CIntArrayID> m_pointToFace;
  int m_pointGraphBuilt = 0;
  CEdgeGraph m_edgeGraph;
  int m_edgeGraphBuilt = 0;
  std::uint32_t m_listFlags = 0;
};

// Element hooks and typed access for one face kind.
template <class T, std::uint32_t ArchivedSize> class CFaceListOf : public CFaceList {
public:
  explicit CFaceListOf(std::uint32_t archiveRecordSize)
      : CFaceList(static_cast<std::uint32_t>(sizeof(T)), archiveRecordSize) {}
  ~CFaceListOf() override { RemoveAll(); }

  T& ElementAt(int i) { return *static_cast<T*>(CElementArray::operator[](i)); }
  const T& ElementAt(int i) const { return *static_cast<const T*>(CElementArray::operator[](i)); }
  T& operator[](int i) { return ElementAt(i); }
  const T& operator[](int i) const { return ElementAt(i); }
  T* GetFirst() { return static_cast<T*>(CElementArray::GetFirst()); }
  T* GetNext(T* p) { return p + 1; }

  void ConstructElement(void* p) override { new (p) T(); }
  void DestructElement(void* p) override { static_cast<T*>(p)->~T(); }
  void CopyElement(void* dst, void* src) override {
    *static_cast<T*>(dst) = *static_cast<const T*>(src);
  }
  void SerializeElement(CArchive& ar, void* p) override { static_cast<T*>(p)->Serialize(ar); }
  std::uint32_t GetMinArchivedElementSize() const override { return ArchivedSize; }

  // Typed loops: the element's own constructor, destructor and assignment are
  // called directly and inlined.
  void ConstructElements(void* p, int n) override {
    T* e = static_cast<T*>(p);
    int k = 0;
    try {
      for (; k < n; ++k)
        new (e + k) T();
    } catch (...) {
      DestructElements(p, k);
      throw;
    }
  }
  void DestructElements(void* p, int n) override {
    T* e = static_cast<T*>(p);
    for (int k = 0; k < n; ++k)
      e[k].T::~T();
  }
  void CopyElements(void* dst, const void* src, int n) override {
    T* d = static_cast<T*>(dst);
    const T* s = static_cast<const T*>(src);
    for (int k = 0; k < n; ++k)
      d[k] = s[k];
  }
};

} // namespace meshcore

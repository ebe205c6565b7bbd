#pragma once
// The common behaviour of every point list: list flags, per-point flags in bulk,
// compaction against a face list and border marking. CPointListOf supplies the
// element hooks and typed access of each concrete kind.

#include "meshcore/containers/element_array.h"
#include "meshcore/geometry/pt.h"
#include "meshcore/mesh/edge_graph.h"
#include "meshcore/mesh/index_map.h"

#include <cstdint>
#include <new>
#include <vector>

namespace meshcore {

class CArchive;
class CFaceList;
class CGeomInfo;

enum _POINTLIST_PROPERTIES : std::uint32_t {
  PL_NONE = 0x0,
  PL_CHANGED = 0x1, // points moved or were removed: derived data must be rebuilt
};

// Custom-data key under which SavePointsIndex stores each point's index.
inline constexpr unsigned kPointIndexKey = 0x504F4F49;

class CPointList : public CElementArray {
  MESHCORE_DECLARE_DYNAMIC(CPointList)

public:
  // memoryRecordSize is the stride of the storage (at least the element's size);
  // archiveRecordSize is the record size the list's archive form carries.
  CPointList(std::uint32_t memoryRecordSize, std::uint32_t archiveRecordSize);

  // Typed access as the point root; meaningless for lists of bare vectors
  // (HasPointElements() false), whose operations below then do nothing.
  CPt& ElementAt(int i) { return *static_cast<CPt*>(CElementArray::operator[](i)); }
  const CPt& ElementAt(int i) const {
    return *static_cast<const CPt*>(CElementArray::operator[](i));
  }
  CPt& operator[](int i) { return ElementAt(i); }
  const CPt& operator[](int i) const { return ElementAt(i); }
  CPt* GetFirst() { return static_cast<CPt*>(CElementArray::GetFirst()); }
  CPt* GetNext(CPt* p) { return static_cast<CPt*>(CElementArray::GetNext(p)); }

  virtual bool HasPointElements() const { return true; }

  virtual void Inherit(const CPointList& src) { m_listFlags = src.m_listFlags; }
  // Elements and the storage's identity number, then the list flags.
  virtual CPointList& operator=(const CPointList& src);

  void SetFlag(_POINTLIST_PROPERTIES flag, int on) {
    if (on)
      m_listFlags |= flag;
    else
      m_listFlags &= ~static_cast<std::uint32_t>(flag);
  }
  bool IsFlagSet(_POINTLIST_PROPERTIES flag) const { return (m_listFlags & flag) == flag; }
  std::uint32_t GetListFlags() const { return m_listFlags; }

  // Sets or clears flag on every point.
  void SetFlag(_POINT_PROPERTIES flag, int on);
  // Points whose all-bits test of flag equals set; set must be 0 or 1.
  int GetNumberOfPoints(_POINT_PROPERTIES flag, int set) const;
  // Stores each point's index in its custom data under kPointIndexKey, so that
  // points can be traced through reordering operations.
  void SavePointsIndex();
  // Flags PT_INVALID every point whose index is not a key of keep.
  void InvalidatePoints(CGeomInfo* info, const CIndexMap& keep);
  // Adds PT_BORDER to both ends of edges used by one face and PT_INNER_EDGE to
  // those of the others; flags are only added.
  void SetBorderPointsStatus(const CEdgeGraph& edges);
  // Removes the points that no valid face of faces uses and those already
  // flagged PT_INVALID. oldToNew (emptied first) receives the new index of every
  // kept point when something was removed. Returns 1 when the list changed.
  int Clean(CFaceList* faces, CIndexMap* oldToNew);
  // The same with the new indices in a table by old index (-1 for a removed
  // point); the table is left empty when nothing moved.
  int Clean(CFaceList* faces, std::vector<int>& oldToNew);
  // The same with the points in use given by a flag per point (null: all).
  int Clean(const std::vector<unsigned char>* used, std::vector<int>& oldToNew);

protected:
  friend class CGeomInfo;
  friend class CChannel;
  // Clears PL_CHANGED; 1 when it was set (derived data must then be rebuilt).
  virtual int UpdateList(CGeomInfo* info);

  std::uint32_t m_listFlags = 0;
};

// Element hooks and typed access for one element kind. ArchivedSize is the
// fewest bytes one element takes in an archive.
template <class T, std::uint32_t ArchivedSize> class CPointListOf : public CPointList {
public:
  explicit CPointListOf(std::uint32_t archiveRecordSize)
      : CPointList(static_cast<std::uint32_t>(sizeof(T)), archiveRecordSize) {}
  // Element hooks cannot run from the base destructor.
  ~CPointListOf() override { RemoveAll(); }

  T& ElementAt(int i) { return *static_cast<T*>(CElementArray::operator[](i)); }
  const T& ElementAt(int i) const { return *static_cast<const T*>(CElementArray::operator[](i)); }
  T& operator[](int i) { return ElementAt(i); }
  const T& operator[](int i) const { return ElementAt(i); }
  T* GetFirst() { return static_cast<T*>(CElementArray::GetFirst()); }
  const T* GetFirst() const { return static_cast<const T*>(CElementArray::GetFirst()); }
  T* GetNext(T* p) { return p + 1; }
  const T* GetNext(const T* p) const { return p + 1; }

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

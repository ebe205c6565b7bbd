#pragma once
// A polygon as an ordered list of point indices (the order is the winding),
// with face flags and optional custom data.

#include "meshcore/containers/int_array_id.h"

#include <cstdint>

namespace meshcore {

class CArchive;
class CCustomData;
class CGeomInfo;
struct C4DPoint;

enum _FACE_PROPERTIES : std::uint32_t {
  FACE_NONE = 0x0,
  FACE_SELECTED = 0x1,
  FACE_BORDER = 0x2,  // has an edge that no other face uses
  FACE_INVALID = 0x4, // fewer than three indices or marked for removal; Clean drops it
  FACE_HIDDEN = 0x8,
  FACE_EXCLUDED = 0x40, // left out of the adjacency graphs and of index cleaning
  FACE_ALL = 0xFFFFFFFF
};

constexpr _FACE_PROPERTIES operator|(_FACE_PROPERTIES a, _FACE_PROPERTIES b) {
  return static_cast<_FACE_PROPERTIES>(static_cast<std::uint32_t>(a) |
                                       static_cast<std::uint32_t>(b));
}

// Result of CFace::ReplaceIndex.
enum FACERESULT : int {
  FACE_UNCHANGED = 0,  // the old index does not occur
  FACE_CHANGED = 1,    // replaced; the face still has three indices or more
  FACE_DEGENERATE = 2, // replaced, but fewer than three indices remain (FACE_INVALID set)
};

// Faces live by value in element records moved as raw bytes: no pointer into
// themselves (the index array keeps small faces inline without one).
class CFace : public CIntArrayID {
  MESHCORE_DECLARE_DYNAMIC(CFace)

public:
  CFace() = default;
  // Indices, flags and custom data, as assignment does.
  CFace(const CFace& f);
  ~CFace() override;

  // Writes the flags only: indices and custom data are not part of a face's archive form.
  void Serialize(CArchive& ar) override;
  // Indices only.
  CFace& operator=(const CIntArrayID& indices) override;
  // Indices, flags, and custom data when the source has some.
  virtual CFace& operator=(const CFace& f);
  // Average of the face's points in the point list of info.
  virtual void GetCenter(CGeomInfo* info, C4DPoint& center) const = 0;

  // Resizes the index array (new indices 0); clears FACE_INVALID when n >= 3.
  void SetSize(int n) {
    CIntArrayID::SetSize(n);
    if (n >= 3)
      m_flags &= ~static_cast<std::uint32_t>(FACE_INVALID);
  }
  void SetTriangle(int a, int b, int c);
  // Appends i and returns its position; FACE_INVALID follows whether three indices exist.
  int AddIndex(int i);
  // Removes the last occurrence of i; 0 when absent. Sets FACE_INVALID below three indices.
  int RemoveIndex(int i);
  void ClearIndex();
  bool IsTriangular() const { return GetSize() == 3; }
  // Position of the first occurrence of i, or -1.
  int IsFacePoint(int i) const;
  // Position k where (index[k], index[k+1]) is (a, b), or (b, a) too when not oriented.
  int IsFaceEdge(int a, int b, int oriented) const;
  // Merges oldIndex into newIndex. When newIndex already occurs, that occurrence
  // is removed and oldIndex stays (the two points become one).
  FACERESULT ReplaceIndex(int oldIndex, int newIndex);
  void InvertOrientation();

  void SetFlag(_FACE_PROPERTIES flag, int on) {
    if (on)
      m_flags |= flag;
    else
      m_flags &= ~static_cast<std::uint32_t>(flag);
  }
  bool IsFlagSet(_FACE_PROPERTIES flag) const { return (m_flags & flag) == flag; }
  bool IsOneFlagSet(std::uint32_t mask) const { return (m_flags & mask) != 0; }
  std::uint32_t GetFlags() const { return m_flags; }
  void SetFlags(std::uint32_t flags) { m_flags = flags; }
  // Flags, and custom data when the source has some.
  void InheritFlags(const CFace& src);

  CCustomData* GetCustomData(int create);
  const CCustomData* GetCustomData() const { return m_pCustomData; }

protected:
  void AssignCustomData(const CCustomData* src);

private:
  CCustomData* m_pCustomData = nullptr;
  std::uint32_t m_flags = 0;
};

} // namespace meshcore

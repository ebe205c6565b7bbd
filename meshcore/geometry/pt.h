#pragma once
// Root of the point family: a flags word and an optional custom-data record.

#include "meshcore/platform/object.h"

#include <cstdint>

namespace meshcore {

class CArchive;
class CCustomData;
struct C4DPoint;

// Per-point property bits. Lists test and set them in bulk (selection,
// compaction, border marking, welding), so the values are persisted with the
// points and must not change.
enum _POINT_PROPERTIES : std::uint32_t {
  PT_NONE = 0x0,
  PT_SELECTED = 0x1,   // picked by the user or by an operation's filter
  PT_BORDER = 0x2,     // lies on an edge used by a single face
  PT_INNER_EDGE = 0x4, // lies on an edge shared by two faces or more
  PT_INVALID = 0x8,    // deleted: no face uses it; the next compaction drops it
  PT_WELDED = 0x10,    // merged into another point by welding; kept until compaction
  PT_HIDDEN = 0x20,    // not drawn and not picked
  PT_ALL = 0xFFFFFFFF
};

constexpr _POINT_PROPERTIES operator|(_POINT_PROPERTIES a, _POINT_PROPERTIES b) {
  return static_cast<_POINT_PROPERTIES>(static_cast<std::uint32_t>(a) |
                                        static_cast<std::uint32_t>(b));
}

// Points live by value in large arrays that grow by moving raw bytes, so a
// point must never hold a pointer into itself.
class CPt : public CObject {
  MESHCORE_DECLARE_DYNAMIC(CPt)

public:
  CPt() = default;
  // A copy starts without flags or custom data; assignment is what carries them.
  CPt(const CPt&) : CObject() {}
  ~CPt() override {
    if (m_pCustomData)
      FreeCustomData();
  }

  void Serialize(CArchive& ar) override;

  virtual CPt& operator=(const C4DPoint& p) = 0;
  // Copies the flags, and the custom data only when the source has some: a
  // source without a record leaves ours as it is.
  virtual CPt& operator=(const CPt& src) {
    if (&src != this) {
      m_flags = src.m_flags;
      if (src.m_pCustomData)
        AssignCustomData(*src.m_pCustomData);
    }
    return *this;
  }
  virtual void To4DPoint(C4DPoint& p) const = 0;

  // The record, created empty on demand when create is non-zero.
  CCustomData* GetCustomData(int create) {
    if (m_pCustomData || !create)
      return m_pCustomData;
    return CreateCustomData();
  }
  const CCustomData* GetCustomData() const { return m_pCustomData; }

  void SetFlag(_POINT_PROPERTIES flag, int on) {
    if (on)
      m_flags |= flag;
    else
      m_flags &= ~static_cast<std::uint32_t>(flag);
  }
  bool IsFlagSet(_POINT_PROPERTIES flag) const { return (m_flags & flag) == flag; }
  bool IsOneFlagSet(std::uint32_t mask) const { return (m_flags & mask) != 0; }
  std::uint32_t GetFlags() const { return m_flags; }
  void SetFlags(std::uint32_t flags) { m_flags = flags; }

protected:
  // Same-kind assignment of the derived classes starts here.
  void AssignBase(const CPt& src) { CPt::operator=(src); }

private:
  CCustomData* CreateCustomData();
  void FreeCustomData();
  void AssignCustomData(const CCustomData& src);

  CCustomData* m_pCustomData = nullptr;
  std::uint32_t m_flags = 0;
};

} // namespace meshcore

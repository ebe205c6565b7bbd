#pragma once
// A per-object attribute layer that follows the mesh: its own point list and,
// for texture and colour channels, a face list whose face i belongs to the
// mesh's face i, corner by corner.

#include "meshcore/containers/custom_data.h"
#include "meshcore/mesh/index_map.h"
#include "meshcore/platform/object.h"

#include <cstdint>
#include <string>

namespace meshcore {

class CArchive;
class CFaceList;
class CGeomInfo;
class CPointList;

// Bit values, so that sets of types are masks.
enum _Channel3DType : std::uint32_t {
  CHANNEL_NONE = 0,
  CHANNEL_UVW = 1,          // texture coordinates
  CHANNEL_VC = 2,           // vertex colours
  CHANNEL_POINT_NORMAL = 4, // one normal per mesh point
  CHANNEL_FACE_NORMAL = 8,  // one normal per mesh face
  CHANNEL_ALL = 0xFFFF
};

// Flags of Copy, InitFrom and CDependentChannels::CopyChannels.
enum _ChannelCopyFlags : unsigned {
  CHANNEL_COPY_KEEP_ID = 1,       // keep the source's id instead of taking a new one
  CHANNEL_COPY_SKIP_INVALID = 2,  // CopyChannels: skip invalid source channels
  CHANNEL_COPY_KEEP_EXISTING = 4, // CopyChannels: keep the destination's channels
  CHANNEL_COPY_NO_LISTS = 8,      // leave the point and face lists empty
  CHANNEL_COPY_SKIP_NORMALS = 16, // CopyChannels: skip point- and face-normal channels
};

// Channel flag: invalid, must be recomputed or dropped.
inline constexpr std::uint32_t CHANNEL_INVALID = 0x1;
// Channel id meaning "none" (and, given to a constructor, "take a new id").
inline constexpr unsigned kNoChannel = 0xFFFFFFFF;

class CChannel : public CObject {
  MESHCORE_DECLARE_SERIAL(CChannel)

public:
  // kNoChannel takes a new id.
  explicit CChannel(unsigned id = kNoChannel);
  CChannel(const CChannel&) = delete;
  CChannel& operator=(const CChannel&) = delete;
  ~CChannel() override; // deletes the lists

  // Writes id, type, flags, the point list and the face list (each as a
  // polymorphic record, null when absent), then the custom data. Reading checks
  // that the lists are of this channel's kinds and that every face index lies
  // in the point list; it throws CArchiveException otherwise.
  void Serialize(CArchive& ar) override;

  // Whether compaction may drop repeated corners of this channel's faces.
  virtual int CleanFaceIndices() const { return 1; }
  // Follows a mesh clean (faceMap, pointMap: old-to-new maps of the mesh, null
  // when nothing was removed). 1 when the channel is still parallel to the mesh;
  // otherwise it is flagged invalid.
  virtual int Clean(CGeomInfo* info, const CIndexMap* faceMap, const CIndexMap* pointMap);
  // Channels for which this returns non-zero are not written to archives.
  virtual int SkipSerialization() const { return 0; }
  // A new channel of the same kind with this one's contents (see _ChannelCopyFlags).
  virtual CChannel* Copy(unsigned flags) const;
  // A new, empty channel of the same kind: type, flags, custom data and the id
  // rule as Copy, but no points or faces.
  virtual CChannel* InitFrom(unsigned flags) const;

  // Next id of the process-wide counter.
  static unsigned CreateID();

  unsigned GetID() const { return m_id; }
  _Channel3DType GetType() const { return m_type; }
  CPointList* GetPointList() const { return m_pPointList; }
  CFaceList* GetFaceList() const { return m_pFaceList; }
  // Sets the three fields; the channel takes the lists over without copying.
  void SetInfo(_Channel3DType type, CPointList* points, CFaceList* faces);
  // The type's display name from the active string table; empty for other types.
  std::string GetTypeString() const;

  void SetFlag(std::uint32_t flag, int on) {
    if (on)
      m_flags |= flag;
    else
      m_flags &= ~flag;
  }
  bool IsFlagSet(std::uint32_t flag) const { return (m_flags & flag) == flag; }
  bool IsOneFlagSet(std::uint32_t mask) const { return (m_flags & mask) != 0; }
  std::uint32_t GetFlags() const { return m_flags; }
  bool IsValid() const { return !IsFlagSet(CHANNEL_INVALID); }

  CCustomData& GetCustomData() { return m_customData; }
  const CCustomData& GetCustomData() const { return m_customData; }

protected:
  // Type, flags, custom data, id (kept with CHANNEL_COPY_KEEP_ID, else new) and,
  // unless CHANNEL_COPY_NO_LISTS, the contents of both lists.
  void CopyFrom(const CChannel& src, unsigned flags);
  // The list kinds this channel keeps; null when it has none of that kind.
  virtual const CRuntimeClass* GetPointListClass() const { return nullptr; }
  virtual const CRuntimeClass* GetFaceListClass() const { return nullptr; }

  unsigned m_id;
  _Channel3DType m_type = CHANNEL_NONE;
  std::uint32_t m_flags = 0;
  CPointList* m_pPointList = nullptr;
  CFaceList* m_pFaceList = nullptr;
  CCustomData m_customData;
};

} // namespace meshcore

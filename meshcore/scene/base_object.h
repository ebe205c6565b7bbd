#pragma once
// The base of every geometric object of a scene: owns the point list, the face
// list and the attribute channels, caches bounding boxes and carries rendering
// hints and custom data.

#include "meshcore/containers/custom_data.h"
#include "meshcore/containers/hash_table.h"
#include "meshcore/geometry/point_3d.h"
#include "meshcore/mesh/channel.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/object.h"

#include <cstdint>
#include <string>

namespace meshcore {

class C3DPointList;
class C3DFaceList;
class CDependentChannels;
class CPointNormalChannel;
class CFaceNormalChannel;
class C3DObject;
class C3DCurve;
class C3DPatch;
class C3DGroup;
class C3DObjectCreator;
class C3DScene;
enum _FACE_PROPERTIES : std::uint32_t;

// Object kinds, one bit each so that sets of kinds test with a mask.
enum _OBJECT_KINDOF : std::uint32_t {
  OBJECT_KIND_NONE = 0,
  OBJECT_POLYGONAL = 1,
  OBJECT_CURVE = 2,
  OBJECT_PATCH = 4,
  OBJECT_GROUP = 8,
};

enum _OBJECT_PROPERTIES : std::uint32_t {
  OBJECT_EMPTY = 16,
  // Requests for bits in this range are ignored by SetFlag.
  OBJECT_RESERVED_PROPERTIES = 0xFF00,
  OBJECT_POINTS_GIVEN = 0x200, // reserved: asked for by SetPointList, never stored
  OBJECT_FACES_GIVEN = 0x400,  // reserved: asked for by SetFaceList, never stored
};

enum _OBJECT_CACHE_PROPERTIES : std::uint32_t {
  OBJECT_CACHE_POINT_BOX = 1,
  OBJECT_CACHE_FACE_BOX = 2,
};

enum _SUBOBJECT_MODE : int {
  SUBOBJECT_VERTEX_COUNT = 1,  // faces with exactly count vertices
  SUBOBJECT_MORE_VERTICES = 3, // faces with more than count vertices
};

// Copy flags of objects.
enum OBJECT_COPY_FLAGS : int {
  OBJECT_COPY_TAG_SOURCE = 16, // the copy records its source's address under 'RFOB'
};

// Custom-data tag of the source address of a copy.
inline constexpr unsigned kCustomSourceObject = 0x52464F42; // 'RFOB'

class C3DBaseObject : public CObject {
  MESHCORE_DECLARE_SERIAL(C3DBaseObject)
public:
  // Face rendering modes; the object only stores them.
  enum _faceModeEnum : std::uint32_t { FACE_MODE_DEFAULT = 0 };

  C3DBaseObject();
  // Takes ownership of both lists.
  C3DBaseObject(C3DPointList* points, C3DFaceList* faces);
  // Deletes point list, face list and channels, in that order.
  ~C3DBaseObject() override;
  C3DBaseObject(const C3DBaseObject&) = delete;
  C3DBaseObject& operator=(const C3DBaseObject&) = delete;

  std::uint32_t GetKindOf() const { return m_kind; }
  // The kind's name from the string table; empty for an unknown kind.
  std::string GetTypeString() const;
  // Unchecked: test GetKindOf first.
  operator C3DObject*();
  operator C3DGroup*();
  operator C3DCurve*();
  operator C3DPatch*();

  // Sets or clears bits; a request touching 0xFF00 is ignored as a whole.
  void SetFlag(std::uint32_t flag, int on);
  int IsFlagSet(std::uint32_t flag) const { return (m_properties & flag) == flag; }
  std::uint32_t GetFlags() const { return m_properties; }

  // Radians; ignored unless within 0 to 180 degrees.
  void SetSmoothAngle(float radians);
  // The stored angle, or the library-wide angle when the stored one is -1.
  float GetSmoothAngle() const;
  void SetFaceMode(_faceModeEnum mode) { m_faceMode = mode; }
  _faceModeEnum GetFaceMode() const { return m_faceMode; }
  void SetGlobalUVWChannel(unsigned id) { m_globalUVWChannel = id; }
  unsigned GetGlobalUVWChannel() const { return m_globalUVWChannel; }
  CCustomData& GetCustomData() { return m_customData; }
  const CCustomData& GetCustomData() const { return m_customData; }

  // The setters store the pointer and do not delete the previous list.
  virtual void SetFaceList(C3DFaceList* faces);
  virtual void SetPointList(C3DPointList* points);
  void SetChannels(CDependentChannels* channels) { m_channels = channels; }
  C3DPointList* GetPointList() const { return m_pointList; }
  C3DFaceList* GetFaceList() const { return m_faceList; }
  CDependentChannels* GetChannels() const { return m_channels; }
  int GetPointNbr() const;
  int GetFaceNbr() const;

  CChannel* GetChannel(unsigned id, _Channel3DType type) const;
  // The channel set takes ownership; returns the channel's index.
  int AddChannel(CChannel* channel);
  // Normals recomputed on every call; null for curves and groups.
  CPointNormalChannel* GetPointNormalChannel();
  CFaceNormalChannel* GetFaceNormalChannel();

  // Material ids used by the faces; null without a face list.
  virtual CHashUInt* GetMaterialsHash();

  // 0 for an empty object (leaving min and max alone) or one without points.
  // facesOnly asks for the box of the points that faces use; without a face
  // list the box of all points is returned instead.
  int GetBoundingBox(C3DPoint& min, C3DPoint& max, int facesOnly);
  // Midpoint of the point box, computed afresh; 0 without a point list.
  int GetCG(C3DPoint& cg) const;
  // Drops the cached boxes; call after changing points or faces directly.
  // Every edit made through the object clears the boxes itself (a new face list the face box).
  void InvalidateBoundingBoxes() { m_cache = 0; }

  // Removes degenerate faces and unused points (with the channels); an object
  // left with nothing gets the empty property. Needs both lists.
  virtual int Clean();
  // Appends other's points, faces and texture/colour channels. A channel that
  // does not end up parallel to the faces is dropped. Mixing a curve with
  // anything else does nothing and returns 1.
  int Concatenate(C3DBaseObject* other, int reset);
  // A new polygonal object (the caller's) with the faces selected by vertex
  // count and only the points they use, renumbered in first-use order; null
  // when nothing is selected or mode is not 1 or 3.
  C3DObject* SubObject(int count, _SUBOBJECT_MODE mode) const;

  // Merges points closer than tolerance (see the welding operation); the
  // counters receive how many points and faces went. Returns 0.
  int Weld3DPoints(float tolerance, int& removedPoints, int& removedFaces);
  // Cuts the selected faces of more than three corners into triangles; a face
  // is selected when "all bits of flag set" equals (set != 0), so (FACE_NONE, 1)
  // selects every face. Returns the number of faces cut.
  int Triangulate(_FACE_PROPERTIES flag, int set);
  // Merges regions of adjacent faces of one material whose normals lie within
  // angleDegrees (degrees, as users give it) into single polygons, channels
  // alike (see the merging operation). The scene is not needed and may be
  // null. Returns the number of faces removed.
  int MergeCoplanarFaces(float angleDegrees, C3DScene* scene);

  // Copies into dst (made by the creator when null). Meshes and patches copy
  // only into meshes and patches, curves into curves, groups into groups; 0 on
  // a mismatch. Flag 16 tags the copy with this object's address ('RFOB').
  virtual int Copy(C3DBaseObject*& dst, int flags, C3DObjectCreator* creator);
  // A new copy, or null.
  virtual C3DBaseObject* Copy(int flags, C3DObjectCreator* creator);
  // dst takes properties, cache and boxes, hints and a copy of the custom data.
  void InheritFlags(C3DBaseObject* dst) const;

  void Serialize(CArchive& ar) override;

protected:
  void SetCacheFlag(std::uint32_t bit, int on);
  int IsCacheValid(std::uint32_t bit) const { return (m_cache & bit) == bit; }

  std::uint32_t m_kind = OBJECT_KIND_NONE;

private:
  void InitObject();

  std::uint32_t m_properties = 0;
  std::uint32_t m_cache = 0;
  CCustomData m_customData;
  C3DPoint m_boxMin;
  C3DPoint m_boxMax;
  C3DPoint m_faceBoxMin;
  C3DPoint m_faceBoxMax;
  float m_smoothAngle = -1.0f;
  _faceModeEnum m_faceMode = FACE_MODE_DEFAULT;
  C3DFaceList* m_faceList = nullptr;
  C3DPointList* m_pointList = nullptr;
  CDependentChannels* m_channels = nullptr;
  std::uint32_t m_globalUVWChannel = 0xFFFFFFFFu;
};

} // namespace meshcore

#pragma once
// Subdivision surfaces: triangles by the Loop scheme, quadrilaterals by the
// Catmull-Clark scheme, larger faces carried unchanged; texture and colour
// channels are subdivided alike (corners copied, edge values averaged). Also
// the control-mesh bookkeeping of patches.

#include <cstdint>

namespace meshcore {

class C3DBaseObject;
class C3DFaceList;
class C3DObject;
class C3DPointList;
class CDependentChannels;

// level Loop passes on an object made of triangles only, in place: the
// object's lists and channels are replaced by new ones (normal channels are
// not carried; texture and colour channels without faces parallel to the mesh
// come through empty). Faces of other sizes are dropped. A level below 1 does
// nothing, and so does a cancel request of the calling thread (SetCancel).
void Subdivide3(C3DBaseObject& object, int level);
// The same with Catmull-Clark passes on an object made of quadrilaterals only.
void Subdivide4(C3DBaseObject& object, int level);

// Subdivides the whole mesh of object level times (at most 8) in place:
// triangles and quadrilaterals by their schemes, larger faces carried; the
// three parts are concatenated (triangles first). Returns 0 when there was
// nothing to do. Each level multiplies the faces by four: ask EstimateLevel
// first. Passes that would overflow the lists' int counts are not made.
//
// The calling thread's cancel request (SetCancel) stops the work within a few
// milliseconds: the object is then left as it was and the result is
// kSubdivideCancelled. Progress is reported (ReportProgress) pass by pass.
inline constexpr int kSubdivideCancelled = -1;
int SubdivideObject(C3DBaseObject& object, int level);

// Number of faces that subdividing object level times would give: 0 without a
// face list, the face count at level 0, otherwise 4^level for every valid
// triangle or quadrilateral (other faces count nothing).
std::uint64_t EstimateLevel(const C3DBaseObject* object, unsigned level);

// What a patch keeps besides its base object: the subdivision level (-1 while
// the base lists are still the control mesh) and the control mesh itself once
// taken over. At level 0 the base lists and the control lists are the same.
struct CPatchControl {
  int level = -1;
  C3DFaceList* sourceFaces = nullptr;
  C3DPointList* sourcePoints = nullptr;
  CDependentChannels* sourceChannels = nullptr;
};

inline constexpr int kMaxPatchLevel = 8;

// Moves the patch's lists into control (the base pointers become null).
void InitPatch(C3DBaseObject& patch, CPatchControl& control);
// Rebuilds the patch at level (clamped to 0..8); the first call takes the
// control mesh over. An unchanged level does nothing. Returns 1 when rebuilt,
// kSubdivideCancelled (the patch as it was, level included) when the thread
// was asked to stop.
int SetPatchLevel(C3DBaseObject& patch, CPatchControl& control, int level);
// Points the base lists at the control mesh and, for a level above 0,
// replaces them by a new subdivided result. False when the thread was asked
// to stop: the base lists then show the control mesh.
bool SubdividePatch(C3DBaseObject& patch, CPatchControl& control, int level);
// Forgets the control mesh: deleted when a level above 0 had replaced it (at
// level 0 the base lists are the control mesh and stay). Level becomes -1.
void ReleasePatch(CPatchControl& control);
// A new plain mesh (the caller's) copying the control mesh.
C3DObject* GetPatchSourceObject(C3DBaseObject& patch, const CPatchControl& control);

} // namespace meshcore

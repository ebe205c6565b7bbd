#pragma once
// Merging of adjacent, nearly coplanar faces into single polygons, with the
// texture and colour faces merged alike so that channels stay parallel.

namespace meshcore {

class C3DBaseObject;
class C3DScene;

struct CMergeCoplanarStats {
  int regions = 0;        // polygons made, each from two faces or more
  int faces = 0;          // faces those polygons replaced
  int removedFaces = 0;   // faces fewer after the clean
  int removedPoints = 0;  // points fewer after the clean (the regions' inner points)
  int refused = 0;        // regions left alone: outline with a hole or touching itself
  bool cancelled = false; // stopped on request: the object is unchanged
};

// Merges regions of faces into one polygon each. A region grows from its
// first face (lowest index) across edges that exactly two faces use in
// opposite directions. A neighbour joins when it has the same material and
// face flags (the border mark aside), its normal lies within angleDegrees of
// both the face it is reached from and the region's first face (so a region
// bends at most that far from its first face's plane), and the two faces use
// the same channel points along the edge in every texture and colour channel
// (a seam is never merged away). Faces flagged FACE_INVALID or FACE_EXCLUDED,
// with a repeated or out-of-range corner, or without a normal take no part.
//
// The polygon is the region's outline, walked along the faces' own winding
// and starting from its first boundary edge met; corners on straight runs
// are kept, since the neighbours outside still use them. A region whose
// outline is not one simple loop (a hole, a vertex met twice, or a seam or
// a third face on an edge between two of its faces) is left as it was. The
// polygon takes the place of the region's first face, the other faces go
// through the object's clean, which drops the points nothing uses any more
// and keeps the channels parallel.
//
// A negative or NaN angle merges nothing; angles over 180 count as 180.
// Polls for cancellation; a cancelled call leaves the object unchanged.
// Returns the number of faces removed.
int MergeCoplanarObject(C3DBaseObject& object, float angleDegrees,
                        CMergeCoplanarStats* stats = nullptr);

struct CMergeCoplanarReport {
  int objects = 0;        // objects that lost faces
  long long faces = 0;    // faces removed
  long long regions = 0;  // polygons made
  bool cancelled = false; // stopped on request; the object at hand is unchanged
};

// Merges the faces of every polygonal object of the scene, each once however
// many nodes show it. Patches are left alone: their faces are a control mesh,
// and merging would change the surface they give. Returns the number of
// objects changed.
int MergeCoplanarScene(C3DScene& scene, float angleDegrees, CMergeCoplanarReport& report);

} // namespace meshcore

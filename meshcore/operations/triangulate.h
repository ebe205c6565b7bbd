#pragma once
// Triangulation of the faces of an object by ear clipping in each face's plane,
// with the texture and colour faces cut alike so that channels stay parallel.
// The single-face step is C3DFace::Triangulate.

#include "meshcore/mesh/face.h"

namespace meshcore {

class C3DBaseObject;

struct CTriangulateStats {
  int faces = 0;     // faces of more than three corners that were cut
  int triangles = 0; // triangles that replaced them
  int fans = 0;      // faces the ear clipper could not finish, cut as a fan instead
};

// Cuts every face with more than three corners that the filter selects and
// replaces it by its triangles, then cleans the object (degenerate faces and
// unused points go, channels follow). A face is selected when "all bits of
// flag set" equals (set != 0), as in the library's other flag filters: flag
// FACE_NONE with set 1 selects every face. Faces flagged FACE_INVALID are left
// alone. A face that ear clipping cannot finish is cut as a fan from its first
// corner, so each face of n corners always gives n - 2 triangles (before the
// clean drops triangles with repeated corners). Returns the number of faces cut.
//
// The calling thread's cancel request (SetCancel) stops the cutting within a
// few milliseconds; the object is then left as it was, the stats are zero and
// the result is kTriangulateCancelled. Progress is reported (ReportProgress)
// face by face. C3DFace::Triangulate answers a cancel request by removing the
// triangles it appended and returning 0.
inline constexpr int kTriangulateCancelled = -1;
int TriangulateObject(C3DBaseObject& object, _FACE_PROPERTIES flag, int set,
                      CTriangulateStats* stats = nullptr);

} // namespace meshcore

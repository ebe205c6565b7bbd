#pragma once
// The geometry operations applied to every object of a scene, with counts for
// the caller to report. Each object is processed once, however many nodes show it.

namespace meshcore {

class C3DScene;

struct CWeldReport {
  int objects = 0;      // objects that lost points or faces
  long long points = 0; // points removed
  long long faces = 0;  // faces removed
};

struct CTriangulateReport {
  int objects = 0;         // objects with faces cut
  long long faces = 0;     // faces of more than three corners replaced
  long long triangles = 0; // triangles that replaced them
  int fans = 0;            // faces cut as a fan because ear clipping could not finish them
};

struct CSubdivideReport {
  int objects = 0;           // objects subdivided
  long long facesBefore = 0; // their faces before
  long long facesAfter = 0;  // and after
};

// Welds the points of every mesh and patch. Returns the number of objects changed.
int WeldScene(C3DScene& scene, float tolerance, CWeldReport& report);
// Triangulates every face of more than three corners of every mesh and patch.
// Returns the number of objects changed.
int TriangulateScene(C3DScene& scene, CTriangulateReport& report);
// Sets the subdivision level of every patch; with everyMesh, plain meshes are
// subdivided level times as well, in place. Returns the number of objects changed.
int SubdivideScene(C3DScene& scene, int level, int everyMesh, CSubdivideReport& report);

} // namespace meshcore

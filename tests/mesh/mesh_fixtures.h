#pragma once
// Small meshes shared by the mesh tests.

#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"

#include <initializer_list>

namespace meshcore::test {

inline void AddFace(C3DFaceList& faces, std::initializer_list<int> idx, unsigned material = 0) {
  C3DFace f;
  for (int i : idx)
    f.AddIndex(i);
  f.SetMaterialID(material);
  faces.Add(&f);
}

// A w x h grid of unit quads in the z = 0 plane; point (i, j) has index j * (w + 1) + i.
// Quads run clockwise seen from +z, the library's front-face winding.
inline void MakeGrid(int w, int h, C3DPointList& points, C3DFaceList& faces) {
  points.SetSize((w + 1) * (h + 1), -1);
  for (int j = 0; j <= h; ++j)
    for (int i = 0; i <= w; ++i) {
      C3DPoint& p = points[j * (w + 1) + i];
      p.x = static_cast<float>(i);
      p.y = static_cast<float>(j);
    }
  faces.SetSize(0, -1);
  for (int j = 0; j < h; ++j)
    for (int i = 0; i < w; ++i) {
      const int a = j * (w + 1) + i;
      AddFace(faces, {a, a + w + 1, a + w + 2, a + 1});
    }
}

} // namespace meshcore::test

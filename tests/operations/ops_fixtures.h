#pragma once
// Meshes built from explicit coordinates for the geometry-operation tests.

#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/uvw_face_list.h"
#include "meshcore/mesh/uvw_point_list.h"
#include "meshcore/mesh/vc_channel.h"
#include "meshcore/mesh/vc_face_list.h"
#include "meshcore/mesh/vc_point_list.h"
#include "meshcore/scene/object_3d.h"

#include <array>
#include <memory>
#include <vector>

namespace meshcore::test {

using P3 = std::array<float, 3>;
using Faces = std::vector<std::vector<int>>;

inline void SetIndices(CFace& face, const std::vector<int>& indices) {
  face.SetSize(static_cast<int>(indices.size()));
  for (std::size_t k = 0; k < indices.size(); ++k)
    face[static_cast<int>(k)] = indices[k];
}

inline void FillFaces(CFaceList& list, const Faces& faces) {
  list.SetSize(static_cast<int>(faces.size()));
  for (std::size_t f = 0; f < faces.size(); ++f)
    SetIndices(list[static_cast<int>(f)], faces[f]);
}

inline std::unique_ptr<C3DObject> MakeMesh(const std::vector<P3>& points, const Faces& faces) {
  auto obj = std::make_unique<C3DObject>(new C3DPointList, new C3DFaceList);
  C3DPointList& pts = *obj->GetPointList();
  pts.SetSize(static_cast<int>(points.size()));
  for (std::size_t i = 0; i < points.size(); ++i) {
    pts[static_cast<int>(i)].x = points[i][0];
    pts[static_cast<int>(i)].y = points[i][1];
    pts[static_cast<int>(i)].z = points[i][2];
  }
  FillFaces(*obj->GetFaceList(), faces);
  return obj;
}

// Texture channel whose point i is (u[i], v[i], 0).
inline CUVWChannel* MakeUVW(const std::vector<std::array<float, 2>>& uv, const Faces& faces) {
  auto* ch = new CUVWChannel;
  CUVWPointList& pts = *ch->GetUVWPointList();
  pts.SetSize(static_cast<int>(uv.size()));
  for (std::size_t i = 0; i < uv.size(); ++i)
    pts[static_cast<int>(i)].SetUV(uv[i][0], uv[i][1], 0.0f);
  FillFaces(*ch->GetUVWFaceList(), faces);
  return ch;
}

inline std::vector<int> Indices(const CFace& face) {
  std::vector<int> v;
  for (int k = 0; k < face.GetSize(); ++k)
    v.push_back(face[k]);
  return v;
}

inline P3 At(const C3DBaseObject& obj, int i) {
  const C3DPoint& p = (*obj.GetPointList())[i];
  return {p.x, p.y, p.z};
}

} // namespace meshcore::test

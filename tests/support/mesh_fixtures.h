#pragma once
// Small meshes and channels built from explicit data, shared by the mesh,
// scene and operation tests.

#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/uvw_face_list.h"
#include "meshcore/mesh/uvw_point_list.h"
#include "meshcore/mesh/vc_channel.h"
#include "meshcore/mesh/vc_face_list.h"
#include "meshcore/mesh/vc_point_list.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/object_creator.h"

#include <array>
#include <initializer_list>
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
inline void SetFace(CFace& face, std::initializer_list<int> indices) {
  SetIndices(face, std::vector<int>(indices));
}
inline void FillFaces(CFaceList& list, const Faces& faces) {
  list.SetSize(static_cast<int>(faces.size()));
  for (std::size_t f = 0; f < faces.size(); ++f)
    SetIndices(list[static_cast<int>(f)], faces[f]);
}
inline std::vector<int> Indices(const CFace& face) {
  std::vector<int> v;
  for (int k = 0; k < face.GetSize(); ++k)
    v.push_back(face[k]);
  return v;
}

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

// Fills obj (which has both lists) with points (i, 10 i, 100 i) and the given
// faces, face f taking material + f.
inline void FillMesh(C3DBaseObject& obj, int pointCount, const Faces& faces,
                     unsigned material = 0) {
  C3DPointList& pts = *obj.GetPointList();
  pts.SetSize(pointCount);
  for (int i = 0; i < pointCount; ++i) {
    pts[i].x = static_cast<float>(i);
    pts[i].y = static_cast<float>(10 * i);
    pts[i].z = static_cast<float>(100 * i);
  }
  C3DFaceList& fl = *obj.GetFaceList();
  FillFaces(fl, faces);
  for (std::size_t f = 0; f < faces.size(); ++f)
    fl[static_cast<int>(f)].SetMaterialID(material + static_cast<unsigned>(f));
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

inline P3 At(const C3DBaseObject& obj, int i) {
  const C3DPoint& p = (*obj.GetPointList())[i];
  return {p.x, p.y, p.z};
}

// A texture channel with its own points (u = i / 10, v = 0.5) and the given faces.
inline CUVWChannel* MakeUVW(unsigned id, int pointCount, const Faces& faces) {
  auto* ch = new CUVWChannel(id);
  CUVWPointList& pts = *ch->GetUVWPointList();
  pts.SetSize(pointCount);
  for (int i = 0; i < pointCount; ++i)
    pts[i].SetUV(static_cast<float>(i) / 10.0f, 0.5f, 0.0f);
  FillFaces(*ch->GetUVWFaceList(), faces);
  return ch;
}

// A texture channel whose point i is (u[i], v[i], 0).
inline CUVWChannel* MakeUVW(const std::vector<std::array<float, 2>>& uv, const Faces& faces) {
  auto* ch = new CUVWChannel;
  CUVWPointList& pts = *ch->GetUVWPointList();
  pts.SetSize(static_cast<int>(uv.size()));
  for (std::size_t i = 0; i < uv.size(); ++i)
    pts[static_cast<int>(i)].SetUV(uv[i][0], uv[i][1], 0.0f);
  FillFaces(*ch->GetUVWFaceList(), faces);
  return ch;
}

// A vertex-colour channel: point i has red = i.
inline CVCChannel* MakeVC(unsigned id, int pointCount, const Faces& faces) {
  auto* ch = new CVCChannel(id);
  CVCPointList& pts = *ch->GetVCPointList();
  pts.SetSize(pointCount);
  for (int i = 0; i < pointCount; ++i)
    pts[i].SetColor(CRGBColor(i, 0, 0, 255));
  FillFaces(*ch->GetVCFaceList(), faces);
  return ch;
}

} // namespace meshcore::test

#pragma once
// Small meshes with texture and colour channels for the scene-layer tests.

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
#include "meshcore/scene/object_creator.h"

#include <initializer_list>
#include <vector>

namespace meshcore::test {

inline void SetFace(CFace& face, std::initializer_list<int> indices) {
  face.SetSize(static_cast<int>(indices.size()));
  int k = 0;
  for (int i : indices)
    face[k++] = i;
}

// Fills obj (which has both lists) with points (i, 10 i, 100 i) and the given faces.
inline void FillMesh(C3DBaseObject& obj, int pointCount, std::vector<std::vector<int>> faces,
                     unsigned material = 0) {
  C3DPointList& pts = *obj.GetPointList();
  pts.SetSize(pointCount);
  for (int i = 0; i < pointCount; ++i) {
    pts[i].x = static_cast<float>(i);
    pts[i].y = static_cast<float>(10 * i);
    pts[i].z = static_cast<float>(100 * i);
  }
  C3DFaceList& fl = *obj.GetFaceList();
  fl.SetSize(static_cast<int>(faces.size()));
  for (std::size_t f = 0; f < faces.size(); ++f) {
    fl[static_cast<int>(f)].SetSize(static_cast<int>(faces[f].size()));
    for (std::size_t k = 0; k < faces[f].size(); ++k)
      fl[static_cast<int>(f)][static_cast<int>(k)] = faces[f][k];
    fl[static_cast<int>(f)].SetMaterialID(material + static_cast<unsigned>(f));
  }
}

// A texture channel with its own points (u = i / 10) and the given faces.
inline CUVWChannel* MakeUVW(unsigned id, int pointCount, std::vector<std::vector<int>> faces) {
  auto* ch = new CUVWChannel(id);
  CUVWPointList& pts = *ch->GetUVWPointList();
  pts.SetSize(pointCount);
  for (int i = 0; i < pointCount; ++i)
    pts[i].SetUV(static_cast<float>(i) / 10.0f, 0.5f, 0.0f);
  CUVWFaceList& fl = *ch->GetUVWFaceList();
  fl.SetSize(static_cast<int>(faces.size()));
  for (std::size_t f = 0; f < faces.size(); ++f) {
    fl[static_cast<int>(f)].SetSize(static_cast<int>(faces[f].size()));
    for (std::size_t k = 0; k < faces[f].size(); ++k)
      fl[static_cast<int>(f)][static_cast<int>(k)] = faces[f][k];
  }
  return ch;
}

// A vertex-colour channel: point i has red = i.
inline CVCChannel* MakeVC(unsigned id, int pointCount, std::vector<std::vector<int>> faces) {
  auto* ch = new CVCChannel(id);
  CVCPointList& pts = *ch->GetVCPointList();
  pts.SetSize(pointCount);
  for (int i = 0; i < pointCount; ++i)
    pts[i].SetColor(CRGBColor(i, 0, 0, 255));
  CVCFaceList& fl = *ch->GetVCFaceList();
  fl.SetSize(static_cast<int>(faces.size()));
  for (std::size_t f = 0; f < faces.size(); ++f) {
    fl[static_cast<int>(f)].SetSize(static_cast<int>(faces[f].size()));
    for (std::size_t k = 0; k < faces[f].size(); ++k)
      fl[static_cast<int>(f)][static_cast<int>(k)] = faces[f][k];
  }
  return ch;
}

inline std::vector<int> Indices(const CFace& face) {
  std::vector<int> v;
  for (int k = 0; k < face.GetSize(); ++k)
    v.push_back(face[k]);
  return v;
}

} // namespace meshcore::test

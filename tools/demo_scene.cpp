// The scene that `meshcore demo` builds, saves and reads back.
#include "tools/tool.h"

#include "meshcore/geometry/rgb_color.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/uvw_face_list.h"
#include "meshcore/mesh/uvw_point_list.h"
#include "meshcore/mesh/vc_channel.h"
#include "meshcore/mesh/vc_face_list.h"
#include "meshcore/mesh/vc_point_list.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/scene.h"

#include <vector>

namespace meshcore::tool {

namespace {

using Faces = std::vector<std::vector<int>>;

template <class FaceList> void FillFaces(FaceList& list, const Faces& faces) {
  list.SetSize(static_cast<int>(faces.size()));
  for (std::size_t f = 0; f < faces.size(); ++f) {
    list[static_cast<int>(f)].SetSize(static_cast<int>(faces[f].size()));
    for (std::size_t k = 0; k < faces[f].size(); ++k)
      list[static_cast<int>(f)][static_cast<int>(k)] = faces[f][k];
  }
}

C3DObject* MakeMesh(const std::vector<C3DPoint>& points, const Faces& faces, unsigned material) {
  auto* mesh = new C3DObject(new C3DPointList, new C3DFaceList);
  C3DPointList& list = *mesh->GetPointList();
  list.SetSize(static_cast<int>(points.size()));
  for (std::size_t i = 0; i < points.size(); ++i)
    list[static_cast<int>(i)] = points[i];
  C3DFaceList& faceList = *mesh->GetFaceList();
  FillFaces(faceList, faces);
  for (int f = 0; f < faceList.GetSize(); ++f)
    faceList[f].SetMaterialID(material);
  return mesh;
}

C3DSceneNode* AddMesh(C3DScene& scene, C3DSceneNode* parent, const char* name, C3DObject* mesh) {
  auto* node = new C3DSceneNode(mesh, 0);
  node->SetName(name);
  scene.AddNode(parent, node);
  return node;
}

C3DMaterial* AddMaterial(C3DScene& scene, const char* name, const CRGBColor& diffuse) {
  C3DMaterial* material = scene.CreateNewMaterial();
  material->SetName(name);
  material->SetDiffuseColor(diffuse);
  material->SetDiffuseFactor(0.8f);
  material->SetSpecularFactor(0.2f);
  return material;
}

} // namespace

C3DScene* BuildDemoScene() {
  auto* scene = new C3DScene;

  C3DMaterial* checker = AddMaterial(*scene, "Checker", CRGBColor(230, 230, 230, 255));
  C3DMaterial* paint = AddMaterial(*scene, "Vertex paint", CRGBColor(255, 255, 255, 255));
  C3DMaterial* ground = AddMaterial(*scene, "Red clay", CRGBColor(170, 60, 40, 255));

  auto* group = new C3DSceneNode(new C3DGroup, 0);
  group->SetName("Demo");
  scene->AddNode(nullptr, group);

  // Nodes go in as first children, so the last added is listed first.
  const float s = 0.5f;
  const std::vector<C3DPoint> grid = [] {
    std::vector<C3DPoint> p;
    for (int z = 0; z <= 3; ++z)
      for (int x = 0; x <= 3; ++x)
        p.emplace_back(-3.0f + 2.0f * x, -0.5f, -3.0f + 2.0f * z);
    return p;
  }();
  Faces gridFaces;
  for (int z = 0; z < 3; ++z)
    for (int x = 0; x < 3; ++x)
      gridFaces.push_back({z * 4 + x, (z + 1) * 4 + x, (z + 1) * 4 + x + 1, z * 4 + x + 1});
  AddMesh(*scene, group, "Ground", MakeMesh(grid, gridFaces, ground->GetMaterialID()));

  // A pyramid whose apex is painted yellow over a blue base.
  C3DObject* pyramid =
      MakeMesh({{2.0f, -0.5f, -1.0f},
                {4.0f, -0.5f, -1.0f},
                {4.0f, -0.5f, 1.0f},
                {2.0f, -0.5f, 1.0f},
                {3.0f, 1.5f, 0.0f}},
               {{0, 1, 2, 3}, {0, 4, 1}, {1, 4, 2}, {2, 4, 3}, {3, 4, 0}}, paint->GetMaterialID());
  auto* colours = new CVCChannel(CChannel::CreateID());
  CVCPointList& colourPoints = *colours->GetVCPointList();
  colourPoints.SetSize(2);
  colourPoints[0].SetColor(CRGBColor(40, 80, 220, 255));
  colourPoints[1].SetColor(CRGBColor(250, 220, 40, 255));
  FillFaces(*colours->GetVCFaceList(), {{0, 0, 0, 0}, {0, 1, 0}, {0, 1, 0}, {0, 1, 0}, {0, 1, 0}});
  pyramid->AddChannel(colours);
  paint->SetVertexColor(colours->GetID(), 1.0f);
  AddMesh(*scene, group, "Pyramid", pyramid);

  // A cube with the whole texture on each side.
  C3DObject* cube =
      MakeMesh({{-s, -s, -s},
                {s, -s, -s},
                {s, s, -s},
                {-s, s, -s},
                {-s, -s, s},
                {s, -s, s},
                {s, s, s},
                {-s, s, s}},
               {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}},
               checker->GetMaterialID());
  auto* uv = new CUVWChannel(CChannel::CreateID());
  CUVWPointList& uvPoints = *uv->GetUVWPointList();
  uvPoints.SetSize(4);
  uvPoints[0].SetUV(0.0f, 0.0f, 0.0f);
  uvPoints[1].SetUV(1.0f, 0.0f, 0.0f);
  uvPoints[2].SetUV(1.0f, 1.0f, 0.0f);
  uvPoints[3].SetUV(0.0f, 1.0f, 0.0f);
  FillFaces(*uv->GetUVWFaceList(), Faces(6, {0, 1, 2, 3}));
  cube->AddChannel(uv);
  cube->SetGlobalUVWChannel(uv->GetID());
  checker->AddMaterialMap("checker.png", uv->GetID(), MAP_DIFFUSE);
  AddMesh(*scene, group, "Cube", cube);

  return scene;
}

} // namespace meshcore::tool

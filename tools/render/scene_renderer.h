#pragma once
// Draws a scene into a picture: every mesh and patch lit by one light with
// ambient, smooth within each object's smoothing angle and flat beyond it,
// curves as lines, optionally the polygon edges, all depth tested.

#include "tools/render/camera.h"
#include "tools/render/image.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace meshcore {
class C3DScene;
class C3DBaseObject;
} // namespace meshcore

namespace meshcore::render {

class CRasterizer;

struct RenderOptions {
  int width = 800;
  int height = 600;
  ViewDirection view = ViewDirection::Iso;
  UpAxis up = UpAxis::Y;
  bool wire = false;
  std::uint32_t background = 0x30343C; // 0xRRGGBB
  // Samples per pixel along each axis.
  int supersampling = 2;
  // Texture files are looked for beside this file when the scene has no
  // file name of its own.
  std::string sourceFile;
};

class CSceneRenderer {
public:
  // Largest picture side: the sample buffers grow with its square.
  static constexpr int kMaxSide = 4096;

  explicit CSceneRenderer(RenderOptions options);
  ~CSceneRenderer();

  // False with error set when the scene holds nothing to draw (or the
  // options are out of range); image is then left alone.
  bool Render(C3DScene& scene, CImage& image, std::string& error);
  // Things drawn otherwise than asked, such as textures that could not be read.
  const std::vector<std::string>& GetWarnings() const { return m_warnings; }

private:
  struct Shading;
  struct Item {
    C3DBaseObject* object;
    std::vector<C3DPoint> points; // in scene space
  };

  void DrawMesh(C3DScene& scene, const Item& item, const CCamera& camera, CRasterizer& raster);
  void DrawCurve(C3DScene& scene, const Item& item, const CCamera& camera, CRasterizer& raster);
  const Shading& MaterialShading(C3DScene& scene, unsigned id);
  const CImage* Texture(C3DScene& scene, const std::string& file);

  RenderOptions m_options;
  std::vector<std::string> m_warnings;
  std::map<unsigned, std::unique_ptr<Shading>> m_materials;
  std::map<std::string, std::unique_ptr<CImage>> m_textures; // null: unusable
  float m_lineBias = 0.0f;
};

} // namespace meshcore::render

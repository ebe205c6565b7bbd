#pragma once
// A material: the shading parameters that faces refer to by material id.

#include "meshcore/geometry/rgb_color.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/object.h"
#include "meshcore/scene/material_map.h"

#include <cstdint>
#include <string>

namespace meshcore {

// Material flags; the library stores them for the host and codecs.
enum _MATERIAL_FLAGS : std::uint32_t {
  MATERIAL_FLAG_NONE = 0,
};

class C3DMaterial : public CObject {
  MESHCORE_DECLARE_SERIAL(C3DMaterial)
public:
  // Every construction, temporaries included, takes the next material id.
  C3DMaterial();
  ~C3DMaterial() override;
  // operator= copies parameters but not the id: whole copies are not offered.
  C3DMaterial(const C3DMaterial&) = delete;

  // The id the next constructed material will get.
  static unsigned PeekNextMaterialID();

  void SetName(const std::string& name) { m_name = name; }
  const std::string& GetName() const { return m_name; }
  unsigned GetMaterialID() const { return m_materialID; }
  // Re-keys the material; the collection that holds it is not told.
  void SetMaterialID(unsigned id) { m_materialID = id; }

  void SetFlag(unsigned bits, int on);
  void SetFlags(unsigned bits, int on) { SetFlag(bits, on); }
  int IsFlagSet(unsigned bits) const { return (m_flags & bits) == bits; }
  int IsOneFlagSet(unsigned bits) const { return (m_flags & bits) != 0; }
  unsigned GetFlags() const { return m_flags; }

  void SetAmbientColor(const CRGBColor& c) { CopyColor(m_ambientColor, c); }
  void SetDiffuseColor(const CRGBColor& c) { CopyColor(m_diffuseColor, c); }
  void SetSpecularColor(const CRGBColor& c) { CopyColor(m_specularColor, c); }
  CRGBColor& GetAmbientColor() { return m_ambientColor; }
  CRGBColor& GetDiffuseColor() { return m_diffuseColor; }
  CRGBColor& GetSpecularColor() { return m_specularColor; }
  const CRGBColor& GetAmbientColor() const { return m_ambientColor; }
  const CRGBColor& GetDiffuseColor() const { return m_diffuseColor; }
  const CRGBColor& GetSpecularColor() const { return m_specularColor; }

  // out[0..2] = channel / 255 * factor; out[3] = alpha / 255, not scaled.
  void FloatGetAmbientColor(float out[4]) const;
  void FloatGetDiffuseColor(float out[4]) const;
  void FloatGetSpecularColor(float out[4]) const;

  // Values above 1 are stored as 1; negative values are stored as given.
  void SetAmbientFactor(float f) { m_ambientFactor = Clamp(f); }
  void SetDiffuseFactor(float f) { m_diffuseFactor = Clamp(f); }
  void SetSpecularFactor(float f) { m_specularFactor = Clamp(f); }
  void SetTransparencyFactor(float f) { m_transparencyFactor = Clamp(f); }
  float GetAmbientFactor() const { return m_ambientFactor; }
  float GetDiffuseFactor() const { return m_diffuseFactor; }
  float GetSpecularFactor() const { return m_specularFactor; }
  float GetTransparencyFactor() const { return m_transparencyFactor; }

  // Radians; ignored unless within 0 to 180 degrees.
  void SetSmoothAngle(float radians);
  // The stored angle, or the library-wide angle when the stored one is -1.
  float GetSmoothAngle() const;

  void SetVertexColor(unsigned channel, float factor);
  // Returns the vertex-colour channel id (0xFFFFFFFF for none).
  unsigned GetVertexColor(float& factor) const;

  // Returns the existing map of that type unchanged (file and channel are then
  // ignored); null for an unknown type.
  CMaterialMap* AddMaterialMap(const std::string& file, unsigned channel, MapType type);
  CMaterialMap* GetMaterialMap(MapType type) const;
  CMaterialMap* GetAmbientMaps() const { return m_ambientMaps; }
  CMaterialMap* GetDiffuseMaps() const { return m_diffuseMaps; }
  CMaterialMap* GetSpecularMaps() const { return m_specularMaps; }
  CMaterialMap* GetTransparencyMaps() const { return m_transparencyMaps; }

  // Copies name, colours, factors, vertex-colour link and smoothing angle, and
  // replaces each map role the source has; id and flags are not copied.
  C3DMaterial& operator=(const C3DMaterial& other);

  // Shading parameters only (no name, flags or id). A map role passes only when
  // both sides share the very same map object or both have none: two
  // materials that each own an equal map are NOT the same.
  bool HasSameParameters(const C3DMaterial& other) const;
  // Same name and HasSameParameters.
  bool operator==(const C3DMaterial& other) const;
  bool operator!=(const C3DMaterial& other) const { return !(*this == other); }

  // Reading raises the library's id counter above the id read.
  void Serialize(CArchive& ar) override;

private:
  static float Clamp(float f) { return f > 1.0f ? 1.0f : f; }
  static void CopyColor(CRGBColor& dst, const CRGBColor& src);
  static void FloatColor(const CRGBColor& c, float factor, float out[4]);
  CMaterialMap*& MapSlot(MapType type);

  std::uint32_t m_flags = 0;
  std::string m_name;
  float m_ambientFactor = 0.2f;
  CRGBColor m_ambientColor;
  CMaterialMap* m_ambientMaps = nullptr;
  float m_diffuseFactor = 1.0f;
  CRGBColor m_diffuseColor;
  CMaterialMap* m_diffuseMaps = nullptr;
  float m_specularFactor = 0.2f;
  CRGBColor m_specularColor;
  CMaterialMap* m_specularMaps = nullptr;
  float m_transparencyFactor = 0.0f;
  CMaterialMap* m_transparencyMaps = nullptr;
  float m_vertexColorFactor = 1.0f;
  std::uint32_t m_vertexColorChannel = 0xFFFFFFFFu;
  float m_smoothAngle = -1.0f;
  std::uint32_t m_materialID;
};

} // namespace meshcore

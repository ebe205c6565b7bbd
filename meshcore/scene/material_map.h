#pragma once
// A texture map of a material: an image file, the texture-coordinate channel
// that places it and a transform applied to those coordinates.

#include "meshcore/geometry/matrix_4x4.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/object.h"

#include <cstdint>
#include <string>

namespace meshcore {

// The role of a map in its material; a material has at most one map per role.
enum MapType : std::uint32_t {
  MAP_NONE = 0,
  MAP_DIFFUSE = 1,
  MAP_AMBIENT = 2,
  MAP_SPECULAR = 3,
  MAP_TRANSPARENCY = 4
};

// Map properties; the library stores them for the host and codecs.
enum MAP_PROPERTIES : std::uint32_t {
  MAP_PROPERTY_NONE = 0,
};

// State of the image behind a map, set by the image loader of the host.
enum MAP_STATUS : std::uint32_t {
  MAP_STATUS_UNKNOWN = 0,
  MAP_STATUS_LOADED = 2, // the only state that survives assignment
};

class CMaterialMap : public CObject {
  MESHCORE_DECLARE_SERIAL(CMaterialMap)
public:
  CMaterialMap();
  ~CMaterialMap() override = default;
  // Assignment copies only part of a map (see operator=); copying whole maps is not offered.
  CMaterialMap(const CMaterialMap&) = delete;

  // New map for file (or the "Unnamed material" text when file is empty).
  static CMaterialMap* Create(const std::string& file, unsigned channel, MapType type);

  // A different name resets the status; the same name changes nothing.
  void SetFileName(const std::string& file);
  void GetFileName(std::string& file) const { file = m_fileName; }
  const std::string& GetFileName() const { return m_fileName; }
  void SetAlphaFileName(const std::string& file) { m_alphaFileName = file; }
  void GetAlphaFileName(std::string& file) const { file = m_alphaFileName; }
  const std::string& GetAlphaFileName() const { return m_alphaFileName; }
  void SetChannelID(unsigned id) { m_channelID = id; }
  unsigned GetChannelID() const { return m_channelID; }
  void SetType(MapType type) { m_type = type; }
  MapType GetType() const { return m_type; }
  void SetStatus(unsigned status) { m_status = status; }
  unsigned GetStatus() const { return m_status; }

  void SetFlag(unsigned flags, int on);
  int IsFlagSet(unsigned flags) const { return (m_flags & flags) == flags; }
  unsigned GetFlags() const { return m_flags; }

  void GetMatrix(C4x4Matrix& m) const { m = m_matrix; }
  const C4x4Matrix& GetMatrix() const { return m_matrix; }
  void SetMatrix(const C4x4Matrix& m) { m_matrix = m; }
  void InitMatrix() { m_matrix.Init(); }
  float* GetMatrixValues() { return static_cast<float*>(m_matrix); }

  // Scales the current matrix.
  void SetUVWRepeat(float u, float v, float w);
  // Replaces the matrix by a translation: earlier repeat and angle are lost.
  void SetUVWOffset(float u, float v, float w);
  // Rotates the current matrix about x, then y, then z.
  void SetUVWAngle(float a, float b, float c);
  // The matrix is not decomposed back: these leave their outputs untouched,
  // so callers initialise them first.
  void GetUVWRepeat(float& u, float& v, float& w) const;
  void GetUVWOffset(float& u, float& v, float& w) const;
  void GetUVWAngle(float& a, float& b, float& c) const;

  // Copies file name, type and channel; status survives only when it is 2.
  // Alpha file name, flags and matrix stay the target's own.
  CMaterialMap& operator=(const CMaterialMap& other);
  bool operator==(const CMaterialMap& other) const;
  bool operator!=(const CMaterialMap& other) const { return !(*this == other); }

  // Stores file name, type, status and channel only; a loaded map has no alpha
  // file, no flags and the identity matrix.
  void Serialize(CArchive& ar) override;

private:
  std::string m_fileName;
  std::string m_alphaFileName;
  std::uint32_t m_channelID = 0xFFFFFFFFu;
  MapType m_type = MAP_NONE;
  std::uint32_t m_flags = 0;
  C4x4Matrix m_matrix{1};
  std::uint32_t m_status = 0;
};

} // namespace meshcore

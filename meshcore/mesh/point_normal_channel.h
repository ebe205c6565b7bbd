#pragma once
// One normal per mesh point, and smooth normals per face corner. Shares the
// face-normal channel's clean: normals are derived data, recomputed after edits.

#include "meshcore/geometry/vector_3d.h"
#include "meshcore/mesh/face_normal_channel.h"

#include <memory>
#include <vector>

namespace meshcore {

class CPointNormalChannel : public CFaceNormalChannel {
  MESHCORE_DECLARE_SERIAL(CPointNormalChannel)

public:
  explicit CPointNormalChannel(unsigned id = kNoChannel);
  ~CPointNormalChannel() override;

  CChannel* Copy(unsigned flags) const override;
  CChannel* InitFrom(unsigned flags) const override;
  // The face-normal form of the base, followed by the smoothing angle.
  void Serialize(CArchive& ar) override;

  // Per mesh point, the normalised sum of the unit normals of the faces around
  // it, each weighted by the face's corner angle at the point; points no face
  // uses get (0, 0, 0). smoothAngle (radians) is kept for GetSmoothNormal.
  // Clears the invalid flag; 0 without mesh lists in info.
  int InitNormals(CGeomInfo* info, float smoothAngle);
  float GetSmoothAngle() const { return m_smoothAngle; }

  // Computes what GetSmoothNormal needs (face normals, corner angles and the
  // point-to-face graph of info's faces) for the given angle in radians.
  int PrepareSmoothing(CGeomInfo* info, float smoothAngle);
  // The normal of corner `corner` of mesh face `face`: the corner-angle weighted
  // average of the unit normals of the faces around that point whose normals lie
  // within the smoothing angle of this face's normal (this face always counts),
  // normalised. 0 when smoothing was not prepared or the corner does not exist.
  int GetSmoothNormal(CGeomInfo* info, int face, int corner, C3DVector& normal);
  // Frees what PrepareSmoothing computed.
  void EndSmoothing();

private:
  struct Smoothing;

  float m_smoothAngle = 1.0f;
  std::unique_ptr<Smoothing> m_smoothing;
};

} // namespace meshcore

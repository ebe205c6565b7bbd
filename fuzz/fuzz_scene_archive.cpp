// Reads a whole scene archive from arbitrary bytes: every input must end in a
// loaded scene or a CException, without leaks or out-of-bounds access; a scene
// that loads must survive the operations a host runs next.

#include "meshcore/platform/archive.h"
#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/exceptions.h"
#include "meshcore/scene/scene.h"

#include <cstddef>
#include <cstdint>
#include <memory>

using namespace meshcore;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  C3DScene scene;
  try {
    CMemFile file(data, size);
    CArchive ar(&file, CArchive::load);
    scene.Serialize(ar);
  } catch (const CException&) {
    return 0;
  }
  scene.GetNodeNbr(0);
  scene.GetPointNbr();
  scene.GetFaceNbr();
  CHashUInt ids;
  scene.GetMaterials(nullptr, ids, 0);
  C3DPoint lo, hi;
  scene.GetRoot()->GetBoundingBox(lo, hi, 1);
  std::unique_ptr<C3DScene> copy(scene.Copy(0, nullptr, nullptr));
  scene.CheckoutImport(0);
  scene.CleanGroups();
  // What loaded writes back out.
  CMemFile out;
  CArchive ar(&out, CArchive::store);
  scene.Serialize(ar);
  ar.Flush();
  return 0;
}

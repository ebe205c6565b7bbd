#include "meshcore/formats/library.h"

#include "meshcore/formats/amapi/amapi_io.h"
#include "meshcore/formats/dxf/dxf_io.h"
#include "meshcore/formats/gltf/gltf_io.h"
#include "meshcore/formats/lightwave/lightwave_io.h"
#include "meshcore/formats/lightwave_scene/lightwave_scene_io.h"
#include "meshcore/formats/maya/maya_io.h"
#include "meshcore/formats/studio3d/studio3d_io.h"
#include "meshcore/formats/truespace/truespace_io.h"
#include "meshcore/formats/vrml/vrml_io.h"
#include "meshcore/formats/wavefront/wavefront_io.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/io/parser_3d.h"
#include "meshcore/scene/global_settings.h"
#include "meshcore/scene/preferences.h"

#include <atomic>
#include <memory>

namespace meshcore {

namespace {
std::atomic<int> g_initialized{0};
} // namespace

void RegisterBuiltinCodecs() {
  RegisterLightwaveCodec();
  RegisterGltfCodec();
  RegisterLightwaveSceneCodec();
  Register3DStudioCodec();
  RegisterWavefrontCodec();
  RegisterAmapiCodec();
  RegisterMayaCodec();
  RegisterVrmlCodec();
  RegisterDxfCodec();
  RegisterTruespaceCodec();
}

void InitMeshcore() {
  if (g_initialized.exchange(1))
    return;
  // The string tables are compiled in, so there are no resources to hand to the host.
  fileRegisterBuiltinTypes();
  RegisterBuiltinCodecs();
  LoadGlobalSettingsFromProfile();
  C3DPreferences::Get3DPreferences().Init();
}

void CloseMeshcore() {
  if (!g_initialized.exchange(0))
    return;
  C3DPreferences::Get3DPreferences().Save();
}

int IsMeshcoreInitialized() {
  return g_initialized.load();
}

} // namespace meshcore

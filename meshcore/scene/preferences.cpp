#include "meshcore/scene/preferences.h"

#include "meshcore/platform/user_paths.h"

namespace meshcore {

C3DPreferences& C3DPreferences::Get3DPreferences() {
  static C3DPreferences preferences;
  return preferences;
}

std::string C3DPreferences::GetPreferencesFile() {
  return GetUserPreferencesPath() + "3dprefs.prefs";
}

void C3DPreferences::Init() {
  if (m_loaded)
    return;
  m_store.LoadFromPrefs(GetPreferencesFile(), kFileTag, kSectionTag);
  m_loaded = 1;
  m_store.GetStringArray(kTexturePaths, m_texturePaths);
  m_store.GetStringArray(kLWPaths, m_lwPaths);
}

int C3DPreferences::Save() {
  m_store.SetStringArray(kTexturePaths, m_texturePaths);
  m_store.SetStringArray(kLWPaths, m_lwPaths);
  return m_store.SaveToPrefs(GetUserPreferencesPath(1) + "3dprefs.prefs", kFileTag, kSectionTag);
}

void C3DPreferences::Reset() {
  m_loaded = 0;
  m_store.RemoveAll();
  m_texturePaths.clear();
  m_lwPaths.clear();
}

} // namespace meshcore

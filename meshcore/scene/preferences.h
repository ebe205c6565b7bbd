#pragma once
// The library's per-user preferences ("3dprefs.prefs"): search paths for
// textures and for Lightwave content, plus whatever else hosts keep in the store.

#include "meshcore/containers/custom_data.h"

#include <string>
#include <vector>

namespace meshcore {

class C3DPreferences {
public:
  static constexpr unsigned kFileTag = 0x33445657;      // '3DVW'
  static constexpr unsigned kSectionTag = 0x50524546;   // 'PREF'
  static constexpr unsigned kTexturePaths = 0x54585450; // 'TXTP'
  static constexpr unsigned kLWPaths = 0x4C575650;      // 'LWVP'

  C3DPreferences() = default;
  virtual ~C3DPreferences() = default;

  // The process's instance.
  static C3DPreferences& Get3DPreferences();
  // The per-user folder followed by "3dprefs.prefs".
  static std::string GetPreferencesFile();

  // Loads the file once; later calls do nothing. A missing file leaves all empty.
  void Init();
  // Writes the path lists into the store and the store to the file; 0 on failure.
  int Save();
  int IsLoaded() const { return m_loaded; }

  const std::vector<std::string>& GetTexturePaths() const { return m_texturePaths; }
  void SetTexturePaths(const std::vector<std::string>& paths) { m_texturePaths = paths; }
  const std::vector<std::string>& GetLWPaths() const { return m_lwPaths; }
  void SetLWPaths(const std::vector<std::string>& paths) { m_lwPaths = paths; }
  CCustomData& GetStore() { return m_store; }
  const CCustomData& GetStore() const { return m_store; }

  // Forgets what was loaded so that the next Init reads the file again (tests).
  void Reset();

private:
  int m_loaded = 0;
  CCustomData m_store;
  std::vector<std::string> m_texturePaths;
  std::vector<std::string> m_lwPaths;
};

} // namespace meshcore

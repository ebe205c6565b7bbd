#pragma once
// What the library needs from the application that hosts it: a main window for
// message boxes and the wait cursor, file dialogs and a settings store. A host
// installs its own CMeshcoreHost; the defaults suit command-line use.

#include <string>

namespace meshcore {

// A window of the host, opaque to the library; null means no window.
using HostWindow = struct HostWindowTag*;

class CMeshcoreHost {
public:
  // Message box icons (may be combined with button bits a host understands).
  enum Icon : unsigned {
    iconNone = 0,
    iconError = 0x10,
    iconQuestion = 0x20,
    iconExclamation = 0x30,
    iconInformation = 0x40
  };
  enum Answer : int { answerOk = 1, answerCancel = 2, answerYes = 6, answerNo = 7 };

  virtual ~CMeshcoreHost() = default;

  // Null: no main window, hence no wait cursor.
  virtual HostWindow GetMainWindow();
  // Returns the button chosen (answerOk by default). Default: "title: text" on stderr.
  virtual int MessageBox(HostWindow parent, const std::string& text, const std::string& title,
                         unsigned icon);
  virtual void BeginWaitCursor(HostWindow window);
  virtual void EndWaitCursor(HostWindow window);
  // fileName is the starting name in and the chosen name out; filter lists the
  // offered types. False when cancelled (the default always cancels).
  virtual bool OpenFileDialog(HostWindow parent, std::string& fileName, const std::string& filter);
  virtual bool SaveFileDialog(HostWindow parent, std::string& fileName, const std::string& filter);

  // Settings by section and key. Default: "profile.ini" in the per-user folder.
  virtual int GetProfileInt(const std::string& section, const std::string& key, int defaultValue);
  virtual bool WriteProfileInt(const std::string& section, const std::string& key, int value);
  virtual std::string GetProfileString(const std::string& section, const std::string& key,
                                       const std::string& defaultValue);
  virtual bool WriteProfileString(const std::string& section, const std::string& key,
                                  const std::string& value);
  // Names per-application files (e.g. "<name>io.prefs"). Default "meshcore".
  virtual std::string GetApplicationName();
};

// Installs host (not owned; it must outlive its use). Null restores the default host.
void SetMeshcoreHost(CMeshcoreHost* host);
// The installed host, or the default one; never null.
CMeshcoreHost& GetMeshcoreHost();

} // namespace meshcore

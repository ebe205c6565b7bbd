#include "meshcore/io/io_3d.h"

#include "meshcore/io/codec_registry.h"
#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/platform/thread_id.h"
#include "meshcore/scene/scene.h"

#include <filesystem>
#include <system_error>

namespace meshcore {

namespace {

namespace fs = std::filesystem;

// Keeps the file that a save replaces until the codec has succeeded. A codec
// may fail after its IoFile has already committed part of the output, or write
// several chunks before noticing a cancel request; on failure the previous file
// comes back, and a file that did not exist before is removed.
class SaveGuard {
public:
  explicit SaveGuard(const std::string& target) : m_target(target) {
    std::error_code ec;
    if (m_target.empty() || !fs::is_regular_file(m_target, ec))
      return;
    m_existed = true;
    m_backup = m_target;
    m_backup += ".meshcore-keep-" + std::to_string(GetCurrentThreadId32());
    fs::remove(m_backup, ec);
    // A second name for the old contents; codecs write through a temporary file
    // and a rename, so the old inode stays as it was.
    fs::create_hard_link(m_target, m_backup, ec);
    if (ec) {
      ec.clear();
      fs::copy_file(m_target, m_backup, fs::copy_options::overwrite_existing, ec);
    }
    m_haveBackup = !ec;
  }
  SaveGuard(const SaveGuard&) = delete;
  SaveGuard& operator=(const SaveGuard&) = delete;
  ~SaveGuard() {
    std::error_code ec;
    if (m_haveBackup)
      fs::remove(m_backup, ec);
  }

  void Rollback() {
    std::error_code ec;
    if (m_target.empty())
      return;
    if (m_haveBackup) {
      // Still the same file when the codec never replaced it: rename() would
      // then do nothing and leave the second name behind.
      if (fs::equivalent(m_backup, m_target, ec))
        return;
      ec.clear();
      fs::rename(m_backup, m_target, ec);
      if (!ec)
        m_haveBackup = false;
    } else if (!m_existed) {
      fs::remove(m_target, ec);
    }
  }

private:
  fs::path m_target;
  fs::path m_backup;
  bool m_existed = false;
  bool m_haveBackup = false;
};

} // namespace

CFileParser* C3DIo::InitParser() {
  CFileIo::InitParser();
  const unsigned classCode = GetClass();
  std::unique_ptr<C3DParser> codec = fileCreateCodec(classCode, *this);
  if (!codec) {
    m_errorText.clear();
    m_errorDetail.clear();
    m_ioError = IO_FILE_UNKNOWN_TYPE;
    return nullptr;
  }
  m_parser = std::move(codec);
  LoadIoParameters(IsLoading(), m_customData, classCode);
  return m_parser.get();
}

C3DScene* C3DIo::Read(int showDialog, unsigned /*flags*/) {
  if (!InitParser())
    return nullptr;
  C3DParser* codec = GetParser();
  if (showDialog && !IsSilentMode())
    codec->LoadOptionsDialog(); // a dismissed dialog still reads, with the stored options

  C3DScene* scene = nullptr;
  try {
    // Codecs get no flags of the caller: what they need is in this object.
    scene = codec->Read(GetCompleteName(), 0);
  } catch (...) {
    m_errorText.clear();
    m_errorDetail.clear();
    m_ioError = IO_FILE_BAD_FORMAT;
    if (!IsSilentMode())
      ReportIoError();
    return nullptr;
  }
  if (scene)
    scene->SetFilename(GetCompleteName());
  return scene;
}

int C3DIo::Save(int showDialog, C3DScene* scene, unsigned flags) {
  if (!InitParser())
    return 0;
  C3DParser* codec = GetParser();
  if (showDialog && !IsSilentMode())
    codec->SaveOptionsDialog(scene);

  SaveGuard guard(GetCompleteName());
  int result = 0;
  try {
    result = codec->Save(GetCompleteName(), scene, flags);
  } catch (...) {
    // A failed save keeps whatever error the codec had set.
    guard.Rollback();
    return 0;
  }
  // The codec's answer stands: a cancel request that came after it finished
  // writing leaves a complete file, which the caller is told about.
  if (result <= 0) {
    guard.Rollback();
    return result;
  }
  if (scene)
    scene->SetFilename(GetCompleteName());
  return result;
}

std::unique_ptr<C3DScene> C3DIo::ReadScene(int showDialog, unsigned flags) {
  return std::unique_ptr<C3DScene>(Read(showDialog, flags));
}

int C3DIo::SaveScene(C3DScene& scene, int showDialog, unsigned flags) {
  return Save(showDialog, &scene, flags);
}

std::string C3DIo::GetParametersInfo(const CCustomData&, unsigned, int) {
  return LoadString(IDS_NO_PARAMETERS);
}

} // namespace meshcore

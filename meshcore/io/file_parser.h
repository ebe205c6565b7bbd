#pragma once
// Base of every codec: the link back to the operation that made it.

#include "meshcore/io/file_io.h"

namespace meshcore {

class CFileParser {
public:
  explicit CFileParser(CFileIo& owner)
      : m_fileIo(&owner), m_customData(&owner.GetCustomData()), m_parentWnd(owner.GetParentWnd()) {}
  CFileParser(const CFileParser&) = default;
  CFileParser& operator=(const CFileParser&) = default;
  virtual ~CFileParser() = default;

  CCustomData* GetCustomData() const { return m_customData; }
  CFileIo* GetFileIo() const { return m_fileIo; }
  HostWindow GetParentWnd() const { return m_parentWnd; }
  int IsFlagSet(unsigned flag) const { return m_fileIo->IsFlagSet(flag); }
  int IsSilentMode() const { return m_fileIo->IsSilentMode(); }
  // 2 when the format's options dialog must be shown for this direction.
  IoShowDialog MustShowDialog() const;
  // Codec failure: clears the override text and stores the error code.
  void SetIoError(int error) const {
    m_fileIo->SetErrorText({});
    m_fileIo->SetIoErrorDetail({});
    m_fileIo->SetIoError(error);
  }
  // The same with where and why it failed.
  void SetIoError(int error, const std::string& detail) const {
    SetIoError(error);
    m_fileIo->SetIoErrorDetail(detail);
  }

protected:
  CFileIo* m_fileIo;
  CCustomData* m_customData;
  HostWindow m_parentWnd;
};

} // namespace meshcore

#include "meshcore/io/file_parser.h"

#include "meshcore/io/file_registry.h"

namespace meshcore {

IoShowDialog CFileParser::MustShowDialog() const {
  const unsigned props = m_fileIo->GetProperties();
  if (m_fileIo->IsLoading() ? (props & FILE_READ_DIALOG) : (props & FILE_WRITE_DIALOG))
    return IO_MUST_SHOW_DIALOG;
  return IO_NO_DIALOG;
}

} // namespace meshcore

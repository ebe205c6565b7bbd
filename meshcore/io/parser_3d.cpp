#include "meshcore/io/parser_3d.h"

#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"

namespace meshcore {

std::string C3DParser::GetParametersInfo() {
  return LoadString(IDS_NO_PARAMETERS);
}

C3DScene* C3DParser::Read(const std::string&, unsigned) {
  return nullptr;
}

int C3DParser::Save(const std::string&, C3DScene*, unsigned) {
  SetIoError(IO_FILE_UNKNOWN_TYPE);
  return 0;
}

} // namespace meshcore

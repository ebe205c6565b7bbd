#include "meshcore/scene/tree_node.h"

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(CTreeNode, CObject, 2)

void CTreeNode::SetFlag(std::uint32_t flag, int on) {
  if (on)
    m_flags |= flag;
  else
    m_flags &= ~flag;
}

int CTreeNode::operator==(const CTreeNode&) const {
  return 1;
}

void CTreeNode::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << static_cast<std::uint32_t>(2) << m_flags;
    m_customData.Serialize(ar);
    return;
  }
  // Nodes written before the version word existed hold only their flags.
  if (ar.GetObjectSchema() < 2) {
    ar >> m_flags;
    return;
  }
  std::uint32_t version = 0;
  ar >> version >> m_flags;
  m_customData.Serialize(ar);
}

} // namespace meshcore

#pragma once
// Common root of the parser's fields and nodes, so that every parser object can be
// owned and deleted through one polymorphic base.

namespace meshcore {

class QvNew {
public:
  QvNew() = default;
  QvNew(const QvNew&) = default;
  QvNew& operator=(const QvNew&) = default;
  virtual ~QvNew() = default;
};

} // namespace meshcore

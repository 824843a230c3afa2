#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "machine/locals.h"
#include "statements/statementtables.h"
#include "statements/statlist.h"

namespace tamber {

/// The statements of a compiled procedure in few bytes, as they are kept: lists with their trees
/// are made of them for as long as somebody lowers or dumps the procedure.
///
/// A statement is its form, its lines and what it refers to; a tree is its nodes, operands before
/// what they are operands of. Numbers take as many bytes as they need.
class PackedStatements {
 public:
  PackedStatements() = default;
  /// `locals`: of the procedure, which every later look is given again.
  PackedStatements(const StatementList& statements, const LocalTable& locals,
                   std::shared_ptr<StatementTables> tables);
  PackedStatements(const PackedStatements&) = delete;
  PackedStatements& operator=(const PackedStatements&) = delete;
  PackedStatements(PackedStatements&&) = default;
  PackedStatements& operator=(PackedStatements&&) = default;

  StatementList Unpack(const LocalTable& locals) const;

 private:
  std::shared_ptr<const StatementTables> tables_;
  std::unique_ptr<char[]> bytes_;
  uint32_t size_ = 0;
};

}  // namespace tamber

#pragma once

#include <memory>
#include <vector>

#include "statements/statbase.h"

/// The statements of a procedure, numbered from 1.
class StatementList {
 public:
  uint32_t GetCount() const { return static_cast<uint32_t>(statements_.size()); }
  /// The statement with this number, on loan.
  const StatementBase& Get(uint32_t index) const { return *statements_[index - 1]; }
  /// Appends and returns the statement's number.
  uint32_t Append(std::unique_ptr<StatementBase> statement) {
    statements_.push_back(std::move(statement));
    return GetCount();
  }
  void Reserve(uint32_t count) { statements_.reserve(count); }
  void Replace(uint32_t index, std::unique_ptr<StatementBase> statement) {
    statements_[index - 1] = std::move(statement);
  }
  /// Hands all statements over to the end of `other`, in order.
  void MoveTo(StatementList& other);
  /// "Statement dump for procedure NAME:" and a line for each statement.
  void Dump(KelString& out, const KelString& procedureName) const;

 private:
  std::vector<std::unique_ptr<StatementBase>> statements_;
};

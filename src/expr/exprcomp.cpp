#include "expr/exprcomp.h"

#include "expr/exprnames.h"
#include "expr/exprnotes.h"
#include "expr/exprparser.h"
#include "expr/lowerexpr.h"
#include "machine/code.h"
#include "machine/machine.h"
#include "text/tokenise.h"
#include "values/cellops.h"
#include "values/errcodes.h"
#include "values/varlist.h"

ExpressionCompiler::ExpressionCompiler(tamber::ExpressionNames& names,
                                       const tamber::LocalTable* locals, bool runtimeLocals)
    : names_(names),
      locals_(locals),
      runtimeLocals_(runtimeLocals),
      prototype_(nullptr, Variable::Delete) {}

ExpressionCompiler::~ExpressionCompiler() = default;

bool ExpressionCompiler::Fail(int32_t code, std::string_view text, uint32_t offset) {
  error_ = code;
  errorOffset_ = offset;
  errorText_ = KelString(text);
  notes_.Clear();
  return false;
}

void ExpressionCompiler::ClearExpression() {
  root_.reset();
  prototype_.reset();
  error_ = 0;
  errorText_.Clear();
}

int32_t ExpressionCompiler::CompileExpression(const char* text, const KelString& terminators) {
  Tokeniser tokeniser(text);
  return CompileExpression(&tokeniser, terminators);
}

int32_t ExpressionCompiler::CompileExpression(Tokeniser* tokeniser, const KelString& terminators) {
  return Compile(*tokeniser, terminators.IsEmpty() ? ",);" : terminators.View(), true);
}

int32_t ExpressionCompiler::Compile(Tokeniser& tokeniser, std::string_view terminators,
                                    bool needsValue) {
  ClearExpression();
  ExpressionScope scope{names_, locals_, runtimeLocals_};
  ExpressionParser parser(*this, scope, tokeniser, 0);
  root_ = parser.Parse(terminators, needsValue);
  return root_ != nullptr;
}

int32_t ExpressionCompiler::CompileDropped(Tokeniser* tokeniser) {
  return Compile(*tokeniser, ";", false);
}

int32_t ExpressionCompiler::CompileAssigned(Tokeniser* tokeniser, const KelString& terminators,
                                            const tamber::TypeDesc& target, std::string_view name) {
  if (!Compile(*tokeniser, terminators.View(), false)) return 0;
  if (root_->Type()->GetKind() == tamber::Kind::None) {
    Fail(ERR_ASSIGNMISMATCH, name, root_->SourceOffset());
    notes_.Note("what is assigned is a call of a procedure without result");
    return 0;
  }
  tamber::AdaptLiterals(*root_, target);
  return 1;
}

int32_t ExpressionCompiler::CompileTarget(Tokeniser* tokeniser) {
  ClearExpression();
  ExpressionScope scope{names_, locals_, runtimeLocals_};
  ExpressionParser parser(*this, scope, *tokeniser, 0);
  tokeniser->ReadToken();
  const std::string_view name = tokeniser->Token();
  tamber::VarUse use;
  if (!parser.FindVariable(name, use)) {
    Variable* external = names_.FindVariable(KelString(name), VARLIST_EXTERNAL);
    if (external == nullptr) {
      Fail(ERR_BADSTATEMENT, name, tokeniser->TokenOffset());
      return 0;
    }
    use = {external->OwnName(), -1, tamber::TypeOf(*external)};
  }
  root_ = parser.ReadVariable(std::move(use));
  return root_ != nullptr;
}

int32_t ExpressionCompiler::Combine(std::unique_ptr<ExpressionBase> left, std::string_view op,
                                    uint32_t opOffset, std::unique_ptr<ExpressionBase> right) {
  ClearExpression();
  auto node = std::make_unique<ExpressionOperator>(TamberOperators::CheckBinaryOperator(op));
  node->SetSourceOffset(opOffset);
  node->AddChild(std::move(left));
  node->AddChild(std::move(right));
  int32_t error = 0;
  std::string text;
  if (const ExpressionBase* wrong = tamber::ResolveTypes(*node, error, text)) {
    Fail(error, text, wrong->SourceOffset());
    tamber::NoteOperands(*wrong, notes_);
    return 0;
  }
  root_ = std::move(node);
  return 1;
}

const tamber::TypeRef& ExpressionCompiler::ResultType() const {
  static const tamber::TypeRef none;
  return root_ ? root_->Type() : none;
}

const Variable* ExpressionCompiler::GetResultType() const {
  if (!root_) return nullptr;
  if (!prototype_) prototype_.reset(tamber::MakeVariable(root_->Type(), tamber::Name()));
  return prototype_.get();
}

int32_t ExpressionCompiler::BecomeDouble() {
  if (!root_ || root_->IsImpure() || root_->CallsFunction()) return 0;
  if (root_->Type()->GetKind() != tamber::Kind::Float) return 0;
  prototype_.reset();
  tamber::AdaptLiterals(*root_, *tamber::TypeDesc::Of(tamber::Kind::Double));
  return root_->Type()->GetKind() == tamber::Kind::Double;
}

int32_t ExpressionCompiler::EvaluateExpression(Stack* stack) {
  if (!root_) return 0;
  tamber::Machine& machine = names_.Evaluator();
  const int32_t evaluated = machine.BeginEvaluation(root_->SourceOffset()) != 0 &&
                            machine.Evaluate(tamber::LowerExpression(*root_), *stack) != 0;
  errorOffset_ = machine.EvaluationStop();
  return evaluated;
}

std::unique_ptr<ExpressionBase> ExpressionCompiler::RemoveExpression() {
  prototype_.reset();
  return std::move(root_);
}

void ExpressionCompiler::Dump(KelString& out) const {
  if (root_) root_->Dump(out);
}

#include "expr/exprnotes.h"

#include "expr/exprnames.h"
#include "expr/exprop.h"
#include "functions/funclist.h"
#include "kel/kelascii.h"
#include "kel/nearestname.h"
#include "machine/callable.h"

namespace tamber {
namespace {

/// Longer lists end with how many there are besides.
constexpr size_t kMostListed = 12;

std::string Quoted(std::string_view name) { return '"' + std::string(name) + '"'; }

std::string Counted(size_t count, std::string_view thing) {
  return std::to_string(count) + ' ' + std::string(thing) + (count == 1 ? "" : "s");
}

/// "a, b, c"; `item` gives the text at a position.
template <class Item>
std::string List(size_t count, const Item& item) {
  std::string list;
  for (size_t i = 0; i < count && i < kMostListed; ++i) list += (i == 0 ? "" : ", ") + item(i);
  if (count > kMostListed) list += " and " + std::to_string(count - kMostListed) + " more";
  return list;
}

std::string ParameterText(const Local& parameter) {
  return parameter.type->Word() + (parameter.isReference ? " &" : " ") +
         std::string(parameter.name.View());
}

/// Whether the only fault of the arguments is that some are numbers in place of strings.
bool GivesNumberForString(const std::vector<TypeRef>& parameters,
                          std::span<const TypeDesc* const> arguments) {
  bool gives = false;
  for (size_t i = 0; i < arguments.size() && i < parameters.size(); ++i) {
    if (parameters[i]->Accepts(*arguments[i])) continue;
    if (parameters[i]->GetKind() != Kind::String || !IsNumeric(arguments[i]->GetKind()))
      return false;
    gives = true;
  }
  return gives && arguments.size() == parameters.size();
}

}  // namespace

void NoteNearest(const kel::NearestName& nearest, ErrorNotes& notes) {
  if (!nearest.Found().empty()) notes.Hint("did you mean " + Quoted(nearest.Found()) + "?");
}

void NoteUnknownName(ExpressionNames& names, const LocalTable* locals, std::string_view name,
                     bool callable, ErrorNotes& notes) {
  kel::NearestName nearest(name);
  for (uint32_t i = 0; !callable && locals != nullptr && i < locals->Count(); ++i)
    nearest.Offer(locals->At(i).name.View());
  names.OfferNames(nearest, callable);
  NoteNearest(nearest, notes);
  if (!nearest.Found().empty() || name.empty()) return;
  if (name[0] >= '0' && name[0] <= '9') {
    notes.Note("it is no number that scripts have; an int goes up to 2147483647");
  } else if (kel::IsAlnum(name[0]) || name[0] == '_') {
    notes.Note(callable ? "there is no procedure or function of this name"
                        : "no variable or constant of this name is declared");
  }
}

void NoteMembers(const StructLayout& layout, std::string_view member, ErrorNotes& notes) {
  const auto& members = layout.Members();
  notes.Note("struct " + std::string(layout.GetName().View()) + " has " +
             List(members.size(), [&](size_t i) { return std::string(members[i].name.View()); }));
  kel::NearestName nearest(member);
  for (const StructLayout::Member& candidate : members) nearest.Offer(candidate.name.View());
  NoteNearest(nearest, notes);
}

void NoteOperands(const ExpressionBase& node, ErrorNotes& notes) {
  if (node.GetKind() != EXPRESSION_OPERATOR || node.GetChildCount() == 0) return;
  const auto& op = static_cast<const ExpressionOperator&>(node);
  const TypeRef& left = node.GetChild(0)->Type();
  if (!left) return;
  if (!op.MemberName().IsEmpty()) {
    if (left->GetKind() == Kind::Struct) {
      NoteMembers(*left->Layout(), op.MemberName().View(), notes);
    } else {
      notes.Note("what stands before \".\" is of type " + left->Word());
    }
    return;
  }
  const std::string name = Quoted(TamberOperators::GetOperatorName(op.GetOperatorIndex()).View());
  if (node.GetChildCount() == 1) {
    notes.Note("the operand of " + name + " is of type " + left->Word());
  } else if (const TypeRef& right = node.GetChild(1)->Type()) {
    notes.Note("the operands of " + name + " are of types " + left->Word() + " and " +
               right->Word());
    const bool hasString = left->GetKind() == Kind::String || right->GetKind() == Kind::String;
    if (hasString && name == "\"&\"") notes.Hint("strings are joined by \"+\"");
  }
}

void NotePrototypes(const FunctionList& functions, std::string_view name,
                    std::span<const TypeDesc* const> arguments, ErrorNotes& notes) {
  const auto type = [&](size_t i) { return arguments[i]->Word(); };
  notes.Note("the call has " + Counted(arguments.size(), "argument") +
             (arguments.empty() ? "" : ": " + List(arguments.size(), type)));
  size_t shown = 0;
  size_t more = 0;
  bool wantsString = false;
  for (uint32_t i = 1; i <= functions.GetFunctionCount(); ++i) {
    if (!kel::EqualsNoCase(functions.GetFunction(i)->GetName(), name)) continue;
    wantsString |= GivesNumberForString(functions.GetFunction(i)->ParameterTypes(), arguments);
    if (shown++ < kMostListed) {
      notes.Note("there is " + functions.PrototypeText(i).Str());
    } else {
      ++more;
    }
  }
  if (more != 0) notes.Note("and " + std::to_string(more) + " more of this name");
  if (wantsString) notes.Hint("a number becomes a string where it is added to one: \"\" + 5");
}

void NoteParameters(const Callable& procedure, size_t arguments, ErrorNotes& notes) {
  const uint32_t count = procedure.GetParameterCount();
  const auto parameter = [&](size_t i) {
    return ParameterText(procedure.Locals().At(static_cast<uint32_t>(i)));
  };
  notes.Note("the call has " + Counted(arguments, "argument") + ", the procedure is " +
             procedure.GetName().Str() + "(" + List(count, parameter) + ")");
}

void NoteArgument(const Callable& procedure, size_t argument, const TypeDesc& type,
                  ErrorNotes& notes) {
  notes.Note("argument " + std::to_string(argument + 1) + " is of type " + type.Word() +
             ", the parameter is " +
             ParameterText(procedure.Locals().At(static_cast<uint32_t>(argument))));
}

}  // namespace tamber

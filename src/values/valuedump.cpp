#include "values/valuedump.h"

#include "kel/kelformat.h"
#include "kel/number.h"
#include "kel/stop.h"
#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/strbuf.h"
#include "values/structdata.h"
#include "values/vararray.h"
#include "values/varestring.h"

namespace tamber {
namespace {

constexpr std::string_view kStep = "    ";
constexpr std::string_view kLineEnd = "\r\n";
/// Arrays within arrays are shown to this depth: a script can nest them without end.
constexpr size_t kMaxIndent = 64 * kStep.size();

bool IsAggregate(Kind kind) { return kind == Kind::Struct || kind == Kind::Array; }

void AppendValueText(std::string& out, Kind kind, Cell cell) {
  switch (kind) {
    case Kind::Bool:
      out += cell.i != 0 ? "TRUE" : "FALSE";
      break;
    case Kind::Char:
    case Kind::Int:
      out += kel::Format("%ld", cell.i);
      break;
    case Kind::Float:
    case Kind::Double:
      out += kel::FormatFixed6(CellToDouble(kind, cell));
      break;
    case Kind::String:
      AppendEscaped(out, TextOf(cell.s));
      break;
    case Kind::EString:
      AppendEscaped(out, static_cast<const VarEString&>(*cell.v).CipherBytes());
      break;
    case Kind::Handle:
      out += kel::Format("0x%lx", CellToInt(kind, cell));
      break;
    default:
      break;
  }
}

void AppendBody(std::string& out, const TypeDesc& type, Cell cell, const std::string& indent);

/// What follows the type word: the value, or the lines of an aggregate at `inner`.
void AppendTail(std::string& out, const TypeDesc& type, Cell cell, const std::string& inner) {
  if (IsAggregate(type.GetKind())) {
    out += ", value:";
    out += kLineEnd;
    AppendBody(out, type, cell, inner);
    return;
  }
  out += ", value=";
  AppendValueText(out, type.GetKind(), cell);
  out += kLineEnd;
}

std::string ElementWord(const TypeDesc& type, Cell cell) {
  const TypeRef& element =
      type.Element() || cell.a == nullptr ? type.Element() : cell.a->ElementType();
  return element ? element->Word() : type.Word();
}

void AppendNamed(std::string& out, std::string_view name, const TypeDesc& type, Cell cell,
                 const std::string& indent) {
  out += indent;
  out += name;
  out += ": type=";
  if (!type.IsArray()) {
    out += type.Word();
    AppendTail(out, type, cell, indent + std::string(kStep));
    return;
  }
  out += ElementWord(type, cell);
  out += kel::Format(", elements=%u", cell.a != nullptr ? cell.a->Count() : 0U);
  out += kLineEnd;
  AppendBody(out, type, cell, indent + std::string(kStep));
}

void AppendElements(std::string& out, const ArrayData& array, const std::string& indent) {
  kel::StopPoll poll(256);
  for (uint32_t i = 0; i < array.Count(); ++i) {
    poll.Step();
    Cell cell = array.Peek(i);
    const TypeDesc* type = array.ElementType().Get();
    if (array.StorageKind() == Kind::Any) {
      type = TypeOf(*cell.v).Get();
      cell = *CellOf(*cell.v);
    }
    out += indent;
    out += kel::Format("[%u]: type=", i + 1);
    out += type->Word();
    AppendTail(out, *type, cell, indent + std::string(kStep));
  }
}

void AppendBody(std::string& out, const TypeDesc& type, Cell cell, const std::string& indent) {
  if (indent.size() > kMaxIndent) {
    out += indent;
    out += "...";
    out += kLineEnd;
  } else if (type.IsArray()) {
    if (cell.a != nullptr) AppendElements(out, *cell.a, indent);
  } else {
    const auto& members = cell.st->Layout()->Members();
    for (uint32_t i = 0; i < members.size(); ++i) {
      AppendNamed(out, members[i].name.View(), *members[i].type, cell.st->Peek(i), indent);
    }
  }
}

const Cell& ValueOf(const Variable& variable) {
  return VariableAccess::CellOf(LookThrough(variable));
}

}  // namespace

void AppendEscaped(std::string& out, std::string_view text) {
  constexpr std::string_view kBytes = "\b\n\r\t'\"\\";
  constexpr std::string_view kLetters = "bnrt'\"\\";
  for (const char c : text) {
    const size_t at = kBytes.find(c);
    if (at != std::string_view::npos) {
      out.push_back('\\');
      out.push_back(kLetters[at]);
    } else if (static_cast<unsigned char>(c) < 32) {
      out += kel::Format("\\x%02x", static_cast<unsigned char>(c));
    } else {
      out.push_back(c);
    }
  }
}

void DumpVariable(std::string& out, const Variable& variable, std::string_view indent) {
  AppendNamed(out, variable.GetVarName().View(), *TypeOf(variable), ValueOf(variable),
              std::string(indent));
}

void DumpVariableValue(std::string& out, const Variable& variable, std::string_view indent) {
  const TypeDesc& type = *TypeOf(variable);
  if (IsAggregate(type.GetKind())) {
    AppendBody(out, type, ValueOf(variable), std::string(indent));
    return;
  }
  out += indent;
  AppendValueText(out, type.GetKind(), ValueOf(variable));
}

}  // namespace tamber

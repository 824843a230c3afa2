#include "machine/disassemble.h"

#include "engine/tambops.h"
#include "kel/kelformat.h"
#include "machine/callable.h"
#include "values/cellops.h"
#include "values/strbuf.h"

namespace tamber {
namespace {

class Disassembler {
 public:
  Disassembler(const Code& code, std::string& out)
      : code_(code),
        out_(out),
        locals_(code.procedure != nullptr ? code.procedure->Locals().Count() : 0) {}

  void Write(uint32_t pc) {
    const Instr& at = code_.instrs[pc];
    const OpInfo& op = InfoOf(at.op);
    out_ += kel::Format("%5u %5u:%-4u %-10s", pc, code_.FindStatement(pc)->line,
                        code_.FindSource(pc) + 1, std::string(op.name).c_str());
    separator_ = " ";
    WriteOperand(op.a, at, at.a, pc);
    WriteOperand(op.b, at, at.b, pc);
    WriteOperand(op.c, at, at.c, pc);
    WriteWays(op, pc);
    out_ += "\r\n";
  }

 private:
  /// Where errors lead from here, for instructions that a run can go on after.
  void WriteWays(const OpInfo& op, uint32_t pc) {
    const StatementEntry& entry = *code_.FindStatement(pc);
    const Detour& detour = code_.FindDetour(entry);
    if (op.Has(OpInfo::Fails)) WriteWay("else", entry.resume);
    if (op.Has(OpInfo::Zero)) WriteWay("empty", detour.resumeEmpty);
    if (op.Has(OpInfo::Fails)) WriteWay("retry", detour.retry);
  }
  void WriteWay(std::string_view name, uint32_t way) {
    if (way == StatementEntry::kNone) return;
    out_ += "  ";
    out_ += name;
    out_ += " ->" + std::to_string(way);
  }
  void Put(std::string_view text) {
    out_ += separator_;
    out_ += text;
    separator_ = ", ";
  }

  std::string Register(uint32_t reg) const {
    if (reg < locals_) return std::string(code_.procedure->Locals().At(reg).name.View());
    return "t" + std::to_string(reg - locals_);
  }

  std::string Constant(uint32_t index) const {
    const Kind kind = code_.constantKinds[index];
    const Cell value = code_.constants[index];
    std::string text;
    AppendCellText(text, kind, value);
    return kind == Kind::String ? '"' + text + '"' : text;
  }

  void WriteOperand(const OperandInfo& info, const Instr& at, uint32_t value, uint32_t pc) {
    if (info.role == Role::None || info.role == Role::Wide) return;
    if (info.role != Role::Index) return Put(Register(value));
    const bool wide = InfoOf(at.op).c.role == Role::Wide && &info == &InfoOf(at.op).b;
    const int32_t number = wide ? at.Wide() : static_cast<int16_t>(value);
    const auto index = wide ? static_cast<uint32_t>(at.Wide()) : value;
    switch (info.holds) {
      case Holds::Kind:
        return Put(TypeDesc::Of(static_cast<Kind>(value))->Word());
      case Holds::Type:
        return Put(code_.types[index]->Word());
      case Holds::Constant:
      case Holds::DoubleConstant:
      case Holds::StringConstant:
        return Put(Constant(index));
      case Holds::StringText:
        return Put('"' + code_.texts[index] + '"');
      case Holds::Global:
      case Holds::GlobalInt:
      case Holds::GlobalDouble:
      case Holds::GlobalArray8:
      case Holds::GlobalArray32:
      case Holds::GlobalArray64:
        return Put(code_.globals[index].name.View());
      case Holds::Local:
      case Holds::Object:
        return Put(Register(index));
      case Holds::Name:
        return Put(code_.names[index].View());
      case Holds::Append:
        return Put(code_.appends[index].value->Word());
      case Holds::Procedure:
        return Put(code_.procedures[index]->GetName().View());
      case Holds::Site:
        return Put(code_.sites[index].function->GetName().View());
      case Holds::Arguments:
        return code_.sites[at.b].arguments > 0 ? Put(Register(value)) : void();
      case Holds::Operator:
        return Put(TamberOperators::GetOperatorName(static_cast<int32_t>(index)).View());
      case Holds::Jump:
        return Put("->" + std::to_string(int64_t{pc} + number));
      case Holds::Member:
        return Put("." + std::to_string(index + 1));
      default:
        return Put(std::to_string(number));
    }
  }

  const Code& code_;
  std::string& out_;
  uint32_t locals_;
  std::string_view separator_;
};

}  // namespace

void Disassemble(const Code& code, std::string& out) {
  out += "Code of ";
  out += code.procedure != nullptr ? code.procedure->GetName().View() : "an expression";
  out += ":\r\n";
  Disassembler disassembler(code, out);
  for (uint32_t pc = 0; pc < code.instrs.size(); ++pc) disassembler.Write(pc);
}

}  // namespace tamber

#include <tamber.h>

#include <cstdint>
#include <iostream>
#include <map>
#include <string>

namespace {

struct Account {
  std::string owner;
  int32_t balance = 0;
};

constexpr const char* kType = "AccountHandle";

/// The accounts that the scripts of one context have open. Scripts hold numbers, which are looked
/// up here, never addresses; a number is used once, so that a closed handle finds nothing.
class Accounts {
 public:
  explicit Accounts(TamberContext& context) {
    context.RegisterObjectType(kType);
    RegisterFunction(context, "AccountHandle AccountOpen (string Owner)",
                     [this](std::string_view owner) { return Open(owner); });
    RegisterFunction(context, "int AccountPay (AccountHandle Account, int Amount)",
                     [this](const Variable* account, int32_t amount) {
                       return Find(account).balance += amount;
                     });
    RegisterFunction(context, "bool AccountClose (AccountHandle Account)",
                     [this](const Variable* account) {
                       Find(account);
                       return open_.erase(account->GetIntegerValue()) == 1;
                     });
  }

  /// At the end of a request: what its scripts left open, and how much that was.
  size_t CloseAll() {
    const size_t left = open_.size();
    open_.clear();
    return left;
  }

 private:
  tamber::VariablePtr Open(std::string_view owner) {
    open_[++last_] = {std::string(owner), 0};
    tamber::VariablePtr handle(new VarHandle("", kType, 0));
    handle->SetHandleValue(reinterpret_cast<void*>(static_cast<intptr_t>(last_)));
    return handle;
  }

  /// Scripts can put any number into a handle variable: they reach what is open here, not more.
  Account& Find(const Variable* handle) {
    const auto found = open_.find(handle->GetIntegerValue());
    if (found == open_.end()) throw tamber::ScriptError(ERR_BADHANDLE, "no open account");
    return found->second;
  }

  std::map<int32_t, Account> open_;
  int32_t last_ = 0;
};

constexpr const char* kScript =
    "AccountHandle kept\n"
    "int Pay(string owner, int amount)\n"
    "  kept = AccountOpen(owner)\n"
    "  AccountPay(kept, amount)\n"
    "  return AccountPay(kept, 1)\n"
    "endproc\n"
    "int PayAgain(int amount)\n"
    "  return AccountPay(kept, amount)\n"
    "endproc\n";

void Show(const tamber::Result<int32_t>& balance) {
  if (balance)
    std::cout << balance.Value() << '\n';
  else
    std::cout << balance.Error().name.Str() << ": " << balance.Error().detail.Str() << '\n';
}

}  // namespace

int main() {
  TamberContext context;
  Accounts accounts(context);
  if (context.CompileScriptBuffer("payments", kScript, 1) == 0) return 1;
  Show(Call<int32_t>(context, "Pay", "Ann", 20));
  Show(Call<int32_t>(context, "PayAgain", 5));
  std::cout << "left open: " << accounts.CloseAll() << '\n';
  Show(Call<int32_t>(context, "PayAgain", 5));
  return 0;
}

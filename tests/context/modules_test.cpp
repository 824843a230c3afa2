#include <gmock/gmock.h>

#include <filesystem>
#include <thread>

#include "context/contextstate.h"
#include "context/registration.h"
#include "functions/modulelist.h"
#include "kel/notice.h"
#include "kel/tempdir.h"
#include "values/cellops.h"
#include "values/vararray.h"
#include "values/varestring.h"
#include "values/varholder.h"
#include "values/varstruct.h"

extern "C" TAMBER_API int cleanupCount;
int cleanupCount = 0;

namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;

class Modules : public TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    cleanupCount = 0;
    kel::SetNoticeHandler(
        [](void* user, const KelString& caption, const KelString& text) {
          static_cast<std::vector<std::string>*>(user)->push_back((caption + ": " + text).Str());
        },
        &notices_);
  }
  void TearDown() override {
    kel::SetNoticeHandler(nullptr, nullptr);
    TempDirTest::TearDown();
  }

  /// Puts a module where a script will find it, under a name of the test's choice.
  static void Install(const std::string& module, const std::string& as) {
    fs::create_directories(fs::path(as).parent_path().empty() ? "." : fs::path(as).parent_path());
    fs::copy_file(fs::path(TEST_MODULES_DIR) / (module + ".so"), as,
                  fs::copy_options::overwrite_existing);
  }

  bool Load(const char* file, const char* script = "") {
    context_->SetContextError(0, "");
    return context_->LoadFunctionModule(file, script, &handle_);
  }

  int32_t Run(const char* function) {
    Stack stack;
    FunctionCallInfo info{context_.get(), &stack, 0, ""};
    const uint32_t index = context_->FindFunction(function);
    EXPECT_NE(index, 0u);
    context_->GetFunction(index)->GetImplementation()(&info);
    code_ = info.errorCode;
    return stack.PopInteger();
  }

  int32_t Constant(const char* name) {
    const Variable* constant = context_->GetVariable(name, VARLIST_CONSTANT);
    return constant != nullptr ? constant->GetIntegerValue() : -1;
  }

  std::vector<std::string> notices_;
  std::unique_ptr<TamberContext> context_ = std::make_unique<TamberContext>();
  void* handle_ = nullptr;
  int32_t code_ = 0;
};

TEST_F(Modules, RegistersEveryListAndTakesItBack) {
  Install("netutil", "netutil.so");
  const uint32_t before = context_->GetFunctionCount();
  ASSERT_TRUE(Load("netutil.so"));
  EXPECT_EQ(Constant("NET_PORT"), 80);
  EXPECT_STREQ(context_->GetVariable("NET_HOST", VARLIST_CONSTANT)->GetStringValue(), "localhost");
  for (const char* type : {"NetHandle", "NetHandle[]", "NetAddress", "NetRange", "NetRange[]"}) {
    EXPECT_NE(context_->GetType(KelString(type)), nullptr) << type;
  }
  EXPECT_EQ(Constant("NET_ERR_SLOW"), Constant("NET_ERR_DOWN") + 1);
  EXPECT_EQ(context_->GetErrorText(Constant("NET_ERR_DOWN")), "The net is down");
  EXPECT_EQ(context_->FindFunction("NetBroken"), 0u);
  EXPECT_NE(context_->FindFunction("NetFind"), 0u) << "its types were there before it";
  EXPECT_EQ(context_->GetFunctionCount(), before + 5) << "one was refused, one replaced another";
  EXPECT_EQ(Run("Rand"), 42);
  Run("NetFail");
  EXPECT_EQ(code_, Constant("NET_ERR_SLOW")) << "as this context counts";
  TamberContext other;
  other.RegisterErrorCode(0, "ERR_MINE", "mine");
  ASSERT_TRUE(other.LoadFunctionModule("netutil.so", "", nullptr));
  EXPECT_EQ(other.GetContextError(), 0) << "what was refused is no error of the script";
  EXPECT_EQ(other.FindErrorCode("NET_ERR_SLOW"), Constant("NET_ERR_SLOW") + 1);
  Run("NetFail");
  EXPECT_EQ(code_, Constant("NET_ERR_SLOW")) << "as this context counts";
  KelString output;
  other.SetOutput(&output);
  other.CompileScriptBuffer("s", "proc main()\n  Print(\"\" + NetReset() + NetTwice(2))\nendproc\n",
                            1);
  EXPECT_EQ(other.RunProcedure("main", nullptr), 1);
  EXPECT_EQ(output.Str(), "1024") << "refused, and the module still there";
  const int32_t code = Constant("NET_ERR_DOWN");

  context_->ResetContext();
  EXPECT_EQ(cleanupCount, 1) << "the one clean-up that is handed the context, and only that";
  EXPECT_EQ(context_->GetFunctionCount(), before);
  EXPECT_EQ(Constant("NET_PORT"), -1);
  EXPECT_EQ(context_->GetType("NetAddress[]"), nullptr);
  EXPECT_NE(Run("Rand"), 42) << "what was replaced is back";
  EXPECT_EQ(context_->FindFunction("NetTwice"), 0u);

  ASSERT_TRUE(Load("netutil.so"));
  EXPECT_EQ(Constant("NET_ERR_DOWN"), code) << "the codes stay reserved for it";
  EXPECT_THAT(notices_, IsEmpty());
}

// A module whose function another one has replaced may go first; what it had replaced comes back
// when the other one goes.
TEST_F(Modules, ThatOverrideEachOtherGoInAnyOrder) {
  const auto record = [](TamberFunctionPtr body) {
    return std::vector<FUNCMOD_FUNCTION>{{"int Rand ()", body, "", {}}, {}};
  };
  const auto first = record([](FunctionCallInfo* call) {
    call->stack->PushInteger(-1);
    return 1;
  });
  const auto second = record([](FunctionCallInfo* call) {
    call->stack->PushInteger(-2);
    return 1;
  });
  const FUNCMOD_REGISTRATION firstLists[] = {{FUNCMOD_REPLACING_FUNCTIONS, first.data()},
                                             {FUNCMOD_END, nullptr}};
  const FUNCMOD_REGISTRATION secondLists[] = {{FUNCMOD_REPLACING_FUNCTIONS, second.data()},
                                              {FUNCMOD_END, nullptr}};
  tamber::ContextRegistration below(*context_);
  tamber::ContextRegistration above(*context_);
  below.Register(firstLists);
  EXPECT_EQ(Run("Rand"), -1);
  above.Register(secondLists);
  EXPECT_EQ(Run("Rand"), -2);
  below.TakeBack();
  EXPECT_EQ(Run("Rand"), -2);
  above.TakeBack();
  EXPECT_GE(Run("Rand"), 0) << "the built-in one";
}

TEST_F(Modules, RefusesWhatIsNoModule) {
  Install("netutil", "other.so");  // exports nothing of that name
  Install("oddities", "nothing.so");
  Install("oddities", "thrower.so");
  Install("foreign", "foreign.so");
  Put("text.so", "this is no library");
  Put("empty.so", "");
  Install("netutil", "netutil.so");
  const std::string good = Get("netutil.so");
  Put("netutil.so", good.substr(0, good.size() / 3));
  std::string machine = good;
  machine[18] = '\xB7';  // the header's machine
  Put("alien.so", machine);
  const uint32_t functions = context_->GetFunctionCount();
  for (const char* file : {"other.so", "nothing.so", "thrower.so", "foreign.so", "text.so",
                           "empty.so", "netutil.so", "alien.so"}) {
    for (int attempt = 0; attempt < 2; ++attempt) {
      EXPECT_FALSE(Load(file)) << file;
      EXPECT_EQ(context_->GetContextError(), 20117) << file;
    }
  }
  EXPECT_EQ(context_->GetFunctionCount(), functions);
  context_.reset();
  EXPECT_EQ(cleanupCount, 0) << "what was not initialised is not cleaned up";
}

TEST_F(Modules, TypesThatAreRefusedSayWhy) {
  EXPECT_EQ(context_->RegisterObjectType("Obj"), 0u);
  EXPECT_EQ(context_->RegisterObjectType("Obj"), context_->FindType("Obj"));
  EXPECT_EQ(context_->RegisterStructure("Pt", "int X;", nullptr), 1);
  EXPECT_EQ(context_->RegisterStructure("Pt", "string Z;", nullptr), 1);
  EXPECT_EQ(context_->GetContextError(), 0);
  const auto failed = [this](int64_t result, int64_t failure) {
    EXPECT_EQ(result, failure);
    const int32_t code = context_->GetContextError();
    context_->SetContextError(0, "");
    return code;
  };
  for (const auto& [name, code] :
       {std::pair("Pt", 20203), {"int", 20203}, {"", 20201}, {"a b", 20201}})
    EXPECT_EQ(failed(context_->RegisterObjectType(name), TypeList::kNotFound), code) << name;
  EXPECT_EQ(context_->FindTypeRef("Pt[]")->Element()->GetKind(), tamber::Kind::Struct);
  for (const auto& [name, code] : {std::pair("Obj", 20203), {"", 20201}, {"a\nb", 20201}})
    EXPECT_EQ(failed(context_->RegisterStructure(name, "int X;", nullptr), 0), code) << name;
  EXPECT_NE(failed(context_->RegisterStructure("R", "nosuch X;", nullptr), 0), 0);
  EXPECT_EQ(failed(context_->RegisterStructure(new VarString("s", 0)), 0), 20013);
  EXPECT_EQ(failed(context_->RegisterStructure(new VarStruct("", 0)), 0), 20201);
  EXPECT_EQ(notices_.size(), 4u);
}

// A host's structure with values of every sort, and everything that can be made of it.
TEST_F(Modules, EverythingMadeOfAStructureBeginsWithItsValues) {
  auto* text = new VarString("s", 0);
  text->SetStringValue("text", 0);
  auto* secret = new VarEString("e", 0);
  secret->SetStringValue("secret", 0);
  auto* list = new VarDoubleArray("d", 0);
  list->SetArraySize(2);
  list->GetArrayElement(2)->SetDoubleValue(2.5);
  auto* mixed = new VarArray("m", 0);
  mixed->AddArrayElement(text->Clone());
  auto* built = new VarStruct("", 0);
  built->SetStructName("Full");
  for (Variable* member : {static_cast<Variable*>(text), static_cast<Variable*>(secret),
                           static_cast<Variable*>(list), static_cast<Variable*>(mixed)}) {
    ASSERT_EQ(built->AddStructElement(member, 1), 1);
  }
  ASSERT_EQ(context_->RegisterStructure(built), 1);
  ASSERT_EQ(context_->CompileScriptBuffer("values", R"(
struct Outer
  Full f
  Full[2] a
endstruct
Full g
Outer o
Full[1] list
string result
string Of(Full v)
  string m
  m = v.m[1]
  return v.s + v.e + v.d[2] + m + " "
endproc
proc main()
  int i
  for (i = 1; i <= 2; i += 1)
    Full l
    Full[1] ls
    result = result + Of(l) + Of(ls[1])
    l.s = "changed"
    l.d += 1
    ls[1].e = "changed"
    l.m[1] = "changed"
  endfor
  list += 1
  result = result + Of(g) + Of(o.f) + Of(o.a[2]) + Of(list[1]) + Of(list[2])
endproc
)",
                                          1),
            1)
      << context_->GetContextErrorText().Str();
  ASSERT_EQ(context_->RunProcedure("main", nullptr), 1);
  std::string wanted;
  for (int i = 0; i < 9; ++i) wanted += "textsecret2.5text ";
  EXPECT_STREQ(context_->GetVariable("result", VARLIST_GLOBAL)->GetStringValue(), wanted.c_str());
}

}  // namespace

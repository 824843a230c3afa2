#include <string>
#include <thread>
#include <vector>

#include "value_testing.h"
#include "values/typelist.h"
#include "values/varestring.h"
#include "values/varhandle.h"
#include "values/varint.h"
#include "values/varstring.h"
#include "values/varstruct.h"

namespace {

class Pools : public ValueTest {
 protected:
  // The table of default types is made once and stays.
  static void SetUpTestSuite() { TypeList().CreateDefaultTypes(); }
};

TEST_F(Pools, VariablesMayDieOnAnotherThread) {
  std::vector<Variable*> made;
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 6000; ++i) {  // more than a thread keeps
      made.push_back(new VarInteger("", 0));
      made.push_back(new VarHandle("", "File", 0));
      made.back()->SetHandleValue(&made);
    }
    std::thread([&] {
      std::vector<Variable*> here;
      for (Variable* variable : made) {
        Variable::Delete(variable);
        here.push_back(new VarString("", 0));
        here.back()->SetStringValue("fresh", 0);
      }
      made = here;
    }).join();
    for (Variable* variable : made) {
      EXPECT_STREQ(variable->GetStringValue(), "fresh");
      Variable::Delete(variable);
    }
    made.clear();
  }
}

TEST_F(Pools, ThreadsShareTheTypesOfAHost) {
  static TypeList& base = *new TypeList;  // as long as the process, like its table
  base.CreateDefaultTypes();
  auto* person = new VarStruct("", 0);
  person->SetStructName("Person");
  auto* name = new VarString("Name", 0);
  name->SetStringValue("nobody", 0);
  person->AddStructElement(name, 1);
  person->AddStructElement(new VarEString("Key", 0), 1);
  base.AddType("Person", person, 1);
  const auto table = base.ShareTypes();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&table] {
      for (int i = 0; i < 500; ++i) {
        TypeList types;
        types.UseTypes(table);
        Held<Variable> made(types.Lookup("person")->CreateVariable("p"));
        EXPECT_STREQ(made->GetStructElement("name")->GetStringValue(), "nobody");
        made->GetStructElement("name")->SetStringValue("me", 0);
        made->GetStructElement("key")->SetStringValue("k", 0);
        Held<Variable> other(types.Lookup("person")->CreateVariable("q"));
        EXPECT_STREQ(other->GetStructElement("name")->GetStringValue(), "nobody");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  KeepsVariables();
}

}  // namespace

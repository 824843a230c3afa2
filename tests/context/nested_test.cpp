
#include "scriptrunner.h"
#include "values/errcodes.h"

namespace {

class Nested : public ScriptRunner {};

TEST_F(Nested, ScriptsThatCallThemselvesWithoutEndAreStopped) {
  Put("forever.tam", "Print(\"x\")\ncall \"forever.tam\"\n");
  ASSERT_EQ(context_.CompileScriptFile("forever.tam"), 1);
  EXPECT_EQ(context_.RunProcedure("main", nullptr), 0);
  EXPECT_EQ(Printed(), std::string(65, 'x'));
  EXPECT_EQ(context_.GetContextError(), ERR_INTERNAL);
}

}  // namespace

#include "kel/lazylibrary.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include "kel/notice.h"

namespace kel {
namespace {

LazyLibrary zlib(KEL_SONAME_ZLIB);
KEL_LAZY(zlib, zlibVersion);
KEL_LAZY(zlib, crc32);

LazyLibrary absent("libtamber-has-no-such.so.1");
constinit LazyFunction<int(int)> absentFunction(absent, "anything");
constinit LazyFunction<int(int)> absentSymbol(zlib, "tamber_has_no_such");

TEST(LazyLibrary, CallsWhatIsThere) {
  EXPECT_STREQ(zlibVersion(), ZLIB_VERSION);
  const unsigned char text[] = "123456789";
  EXPECT_EQ(crc32(0, text, 9), 0xCBF43926U);
}

TEST(LazyLibrary, NamesWhatIsMissingEachTime) {
  std::string seen;
  SetNoticeHandler([](void* user, const KelString&,
                      const KelString& text) { *static_cast<std::string*>(user) = text.Str(); },
                   &seen);
  for (int i = 0; i < 2; ++i) {
    EXPECT_THROW(absentFunction(1), MissingLibrary);
    EXPECT_NE(seen.find("libtamber-has-no-such.so.1"), std::string::npos) << seen;
    EXPECT_THROW(absentSymbol(1), std::bad_alloc);
    EXPECT_NE(seen.find("tamber_has_no_such"), std::string::npos) << seen;
  }
  SetNoticeHandler(nullptr, nullptr);
}

}  // namespace
}  // namespace kel

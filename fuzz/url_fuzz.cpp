// Any text as a URL of a transfer and as the address of a session store.
#include <cstdlib>
#include <string>

#include "kel/storeaddress.h"
#include "kel/url.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using Part = kel::Url::Part;
  const std::string text(reinterpret_cast<const char*>(data), size);
  kel::ServerAddress address;
  const std::string wrong = kel::ParseServerAddress(text, address);
  if (wrong.empty() && (address.port < 1 || address.port > 65535)) std::abort();
  kel::IsStoreAddress(text);
  kel::ShownStoreAddress(text);
  const std::optional<kel::Url> url = kel::Url::Parse(text);
  if (!url) return 0;
  for (int part = 0; part <= static_cast<int>(Part::Query); ++part) {
    for (const bool decoded : {false, true}) {
      for (const char c : url->Get(static_cast<Part>(part), decoded))
        if (static_cast<unsigned char>(c) < ' ' || c == 127) std::abort();
    }
  }
  const std::optional<kel::Url> shown = kel::Url::Parse(url->WithoutSecrets());
  if (shown && !shown->Get(Part::Password).empty()) std::abort();
  kel::Url::Parse(url->WithPath(url->Get(Part::Path, true)));
  return 0;
}

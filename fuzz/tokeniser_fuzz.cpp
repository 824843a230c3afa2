// The tokeniser over any line, with its operations in any order: the bytes before the first line
// feed choose them.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "text/tokenise.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const size_t split = input.find('\n');
  const std::string steps = input.substr(0, split);
  const std::string line = split == std::string::npos ? std::string() : input.substr(split + 1);
  Tokeniser tokeniser(line.c_str());
  for (const char step : steps) {
    switch (step & 7) {
      case 0:
        tokeniser.GetPreviousToken();
        break;
      case 1:
        tokeniser.PeekNextChar();
        break;
      case 2:
        tokeniser.ReadNextChar();
        break;
      case 3:
        tokeniser = Tokeniser(tokeniser);
        break;
      case 4:
        tokeniser.SetSearch(tokeniser.GetSearchPtr());
        break;
      case 5:
        tokeniser.SetHandleComments((step & 8) != 0);
        break;
      default:
        tokeniser.GetNextToken(step & 8, step & 16);
        if (tokeniser.GetTokenLength() > line.size()) std::abort();
    }
  }
  // Every line ends: what is read moves on, or is the empty token.
  tokeniser.ResetLine();
  tokeniser.SetHandleComments(false);
  for (size_t tokens = 0;; ++tokens) {
    tokeniser.GetNextToken(1, 0);
    if (tokeniser.GetTokenLength() == 0) break;
    if (tokens > line.size()) std::abort();
  }
  return 0;
}

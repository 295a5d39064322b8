#include "tests/SimFixture.h"

namespace FabTest {

std::string literal(std::string const& text) {
  std::string out;
  for (char const c : text) {
    if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) {
      out.push_back('\\');
    }
    out.push_back(c);
  }
  return out;
}

}  // namespace FabTest

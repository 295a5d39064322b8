#include "fabvxlan/runtime/Toggle.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>

namespace {

std::optional<bool> parseToggleValue(std::string const& text) {
  if (text == "on" || text == "1" || text == "true") {
    return true;
  }
  if (text == "off" || text == "0" || text == "false") {
    return false;
  }
  return std::nullopt;
}

std::string trimmed(std::string const& text) {
  std::size_t const first = text.find_first_not_of(" \t\r");
  if (first == std::string::npos) {
    return "";
  }
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::optional<bool> fromToggleFile(char const* path, std::string const& name) {
  std::ifstream in(path);
  if (!in) {
    std::fprintf(stderr, "fabvxlan: toggle file %s cannot be read\n", path);
    return std::nullopt;
  }
  std::optional<bool> found;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    line = trimmed(line);
    if (line.empty() || line[0] == '#') {
      continue;
    }
    std::size_t const eq = line.find('=');
    std::optional<bool> const value =
        eq == std::string::npos ? std::nullopt : parseToggleValue(trimmed(line.substr(eq + 1)));
    if (!value) {
      std::fprintf(stderr, "fabvxlan: toggle file %s line %d: expected <name>=on|off\n", path, number);
      continue;
    }
    if (trimmed(line.substr(0, eq)) == name) {
      found = value;
    }
  }
  return found;
}

}  // namespace

bool getToggleState(char const* name, bool defaultState) {
  std::string const variable = std::string("FABVXLAN_TOGGLE_") + name;
  if (char const* env = std::getenv(variable.c_str())) {
    if (std::optional<bool> const value = parseToggleValue(env)) {
      return *value;
    }
    std::fprintf(stderr, "fabvxlan: %s=%s: expected on or off\n", variable.c_str(), env);
  }
  if (char const* path = std::getenv("FABVXLAN_TOGGLE_FILE")) {
    if (std::optional<bool> const value = fromToggleFile(path, name)) {
      return *value;
    }
  }
  return defaultState;
}

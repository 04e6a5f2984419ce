#include "importer/names.h"

namespace zv {

std::string SanitizeNodeName(std::string_view name) {
  std::string out(name);
  for (char& c : out) {
    bool keep = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '@' || c == '_';
    if (!keep) c = '_';
  }
  return out;
}

std::string ConvertBoneName(std::string_view name) {
  std::string out(name);
  for (char& c : out) {
    unsigned char u = static_cast<unsigned char>(c);
    if (u < 0x20 || u > 0x7e || c == '"' || c == '\\') c = '_';
  }
  return out;
}

}  // namespace zv

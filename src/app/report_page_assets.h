#pragma once
// The style and the script of the report page, inline in every page so that it works
// offline and from any folder.

#include <string_view>

namespace zv::app {

std::string_view reportPageStyle();
// Reads the data block (id "data") and builds the page from it.
std::string_view reportPageScript();

}  // namespace zv::app

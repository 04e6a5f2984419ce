#pragma once
// The text form of a Description: key-value text, one "model" section whose keys mirror
// the Description's fields (README.md lists them with an example).

#include <string>
#include <string_view>

#include "base/result.h"
#include "mdlforge/description.h"

namespace zv::mdlforge {

// Errors name the section path and the key, e.g.
// model > bodypart "body" > model "lid" > mesh 0: "material" is not an integer: "x".
Result<Description> parseDescription(std::string_view text);

// The base name of the files written for the description ("crate" for "models/crate.mdl").
std::string outputBaseName(const Description& description);

}  // namespace zv::mdlforge

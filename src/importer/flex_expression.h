#pragma once
// Legacy flex rules are postfix programs; the new tools take infix expressions over
// controller and descriptor names.

#include <span>
#include <string>

#include "base/result.h"
#include "legacy/flex.h"

namespace zv {

// The rule's program as an infix expression: + - * /, unary -, min(a, b), max(a, b),
// parentheses only where precedence needs them, constants with up to 6 significant
// digits. Operands index the two name lists (the loader checked them). Fails, naming
// the op, for an op without an infix form (exp, n-way, eyelids, unknown codes), a
// program that leaves other than one value, or one too long to be a face rule.
Result<std::string> flexRuleExpression(const legacy::FlexRule& rule, std::span<const std::string> controllers,
                                       std::span<const std::string> descriptors);

}  // namespace zv

#include "importer/flex_expression.h"

#include <cmath>
#include <vector>

#include "base/strings.h"

namespace zv {
namespace {

// Real rules hold a few dozen ops; text grows with every op, so a long program is refused
// before it can grow large.
constexpr size_t kMaxOps = 1024;

// Binding strength of what a term's text ends with at its top level.
enum Precedence : int { kAdditive = 1, kMultiplicative = 2, kUnary = 3, kAtom = 4 };

struct Term {
  std::string text;
  int precedence = kAtom;
};

std::string wrapped(const Term& term, bool parenthesise) { return parenthesise ? "(" + term.text + ")" : term.text; }

class InfixBuilder {
 public:
  InfixBuilder(std::span<const std::string> controllers, std::span<const std::string> descriptors)
      : controllers_(controllers), descriptors_(descriptors) {}

  Status apply(const legacy::FlexOp& op) {
    using namespace legacy;
    switch (op.code) {
      case kFlexConst: return constant(op.value);
      case kFlexFetchController: return push({controllers_[size_t(op.index)], kAtom});
      case kFlexFetchDescriptor: return push({descriptors_[size_t(op.index)], kAtom});
      case kFlexAdd: return binary(" + ", kAdditive);
      case kFlexSub: return binary(" - ", kAdditive);
      case kFlexMul: return binary(" * ", kMultiplicative);
      case kFlexDiv: return binary(" / ", kMultiplicative);
      case kFlexNeg: return negate();
      case kFlexOpen: case kFlexClose: case kFlexComma: return Status();  // parser leftovers
      case kFlexMax: return function("max");
      case kFlexMin: return function("min");
      // The two halves of a two-way control: its negative half read as 1..0, its positive half.
      case kFlexTwoWay0: return push({"min(max(-" + controllers_[size_t(op.index)] + ", 0), 1)", kAtom});
      case kFlexTwoWay1: return push({"min(max(" + controllers_[size_t(op.index)] + ", 0), 1)", kAtom});
      case kFlexCombo: return combo(op.index);
      case kFlexDominate: return dominate(op.index);
      default: return Error{format("op %d has no infix form", op.code)};
    }
  }

  Result<std::string> result() const {
    if (stack_.size() != 1) return Error{format("the program leaves %zu values, not 1", stack_.size())};
    return stack_.back().text;
  }

 private:
  Status push(Term term) {
    stack_.push_back(std::move(term));
    return Status();
  }

  Status need(size_t count, const char* what) {
    if (stack_.size() < count) return Error{format("%s needs %zu values, the stack holds %zu", what, count, stack_.size())};
    return Status();
  }

  Term pop() {
    Term term = std::move(stack_.back());
    stack_.pop_back();
    return term;
  }

  Status constant(float value) {
    if (!std::isfinite(value)) return Error{"a constant is not a finite number"};
    std::string text = format("%.6g", double(value));
    return push({text, value < 0 ? kUnary : kAtom});
  }

  // Left operands of equal strength need no parentheses, right ones do: a - (b - c); a
  // negative right operand gets them too: a - (-b).
  Status binary(const char* op, int precedence) {
    if (Status s = need(2, "a binary op"); !s) return s;
    Term b = pop(), a = pop();
    bool wrapRight = b.precedence <= precedence || b.precedence == kUnary;
    return push({wrapped(a, a.precedence < precedence) + op + wrapped(b, wrapRight), precedence});
  }

  Status negate() {
    if (Status s = need(1, "negation"); !s) return s;
    Term a = pop();
    return push({"-" + wrapped(a, a.precedence < kAtom), kUnary});
  }

  Status function(const char* name) {
    if (Status s = need(2, name); !s) return s;
    Term b = pop(), a = pop();
    return push({format("%s(%s, %s)", name, a.text.c_str(), b.text.c_str()), kAtom});
  }

  // The product of the top `count` values, as a term of its own.
  Result<Term> product(int32_t count, const char* what) {
    if (count < 1) return Error{format("%s of %d values", what, count)};
    if (Status s = need(size_t(count), what); !s) return s.error();
    if (count == 1) return pop();
    Term out{"", kMultiplicative};
    size_t first = stack_.size() - size_t(count);
    for (size_t i = first; i < stack_.size(); ++i) {
      if (i > first) out.text += " * ";
      out.text += wrapped(stack_[i], stack_[i].precedence < kMultiplicative);
    }
    stack_.resize(first);
    return out;
  }

  Status combo(int32_t count) {
    auto term = product(count, "combo");
    if (!term) return term.error();
    return push(std::move(*term));
  }

  // The value below the dominators, scaled by 1 minus their product.
  Status dominate(int32_t count) {
    auto dominators = product(count, "dominate");
    if (!dominators) return dominators.error();
    if (Status s = need(1, "dominate"); !s) return s;
    Term base = pop();
    return push({wrapped(base, base.precedence < kMultiplicative) + " * (1 - " +
                     wrapped(*dominators, dominators->precedence <= kAdditive) + ")",
                 kMultiplicative});
  }

  std::span<const std::string> controllers_;
  std::span<const std::string> descriptors_;
  std::vector<Term> stack_;
};

}  // namespace

Result<std::string> flexRuleExpression(const legacy::FlexRule& rule, std::span<const std::string> controllers,
                                       std::span<const std::string> descriptors) {
  if (rule.ops.size() > kMaxOps) return Error{format("it has %zu ops, more than %zu", rule.ops.size(), kMaxOps)};
  InfixBuilder builder(controllers, descriptors);
  for (const legacy::FlexOp& op : rule.ops) {
    if (Status s = builder.apply(op); !s) return s.error();
  }
  return builder.result();
}

}  // namespace zv

#include "mi/expression.h"

#include <cmath>
#include <numbers>

#include <muParser.h>

namespace orvex {

std::optional<double> EvaluateExpression(const std::string& text) {
  if (text.find_first_not_of(" \t") == std::string::npos) return std::nullopt;
  try {
    mu::Parser parser;
    parser.DefineConst("pi", std::numbers::pi);
    parser.DefineConst("e", std::numbers::e);
    parser.SetExpr(text);
    const double v = parser.Eval();
    // "1,5" is two expressions to the parser (it yields the last); a cell holds one value.
    if (parser.GetNumResults() != 1 || !std::isfinite(v)) return std::nullopt;
    return v;
  } catch (const mu::Parser::exception_type&) {
    return std::nullopt;
  }
}

} // namespace orvex

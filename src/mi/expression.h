// Arithmetic in the MI editor's cells: "pi/2", "2*pi*0.25", "sqrt(2)", "-(1+2)/3".
#pragma once

#include <optional>
#include <string>

namespace orvex {

// The value of one arithmetic expression: + - * / ^, parentheses, unary minus, the constants
// pi and e and the usual functions (sqrt, sin, cos, tan, exp, ln, log = natural log, abs, ...).
// Numbers are written with a decimal point. nullopt for anything else: an empty text, an
// unknown name, a list ("1,5"), an assignment, or a result that is not finite (1/0).
std::optional<double> EvaluateExpression(const std::string& text);

} // namespace orvex

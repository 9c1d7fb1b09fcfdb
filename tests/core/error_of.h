// The run-time error a call throws, for tests that look at its number and description.
#pragma once

#include <optional>

#include "workspace/errors.h"

namespace orvex::test {

// Runs `f`; the RuntimeError it threw, or nothing when it threw none.
template <typename F>
std::optional<RuntimeError> ErrorFrom(F&& f) {
  try {
    f();
  } catch (const RuntimeError& e) {
    return e;
  }
  return std::nullopt;
}

// Runs `f`; the number of the RuntimeError it threw, 0 when it threw none.
template <typename F>
int ErrorNumberOf(F&& f) {
  const std::optional<RuntimeError> e = ErrorFrom(f);
  return e ? e->number() : 0;
}

// Runs `f`; the code of the RuntimeError it threw, or nothing when it threw none.
template <typename F>
std::optional<ErrorNumber> ErrorCodeOf(F&& f) {
  const std::optional<RuntimeError> e = ErrorFrom(f);
  return e ? std::optional(e->code()) : std::nullopt;
}

} // namespace orvex::test

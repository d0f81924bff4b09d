#pragma once

#include <TandrellCore/Platform/Error.h>

#include <utility>
#include <variant>

namespace tandrell {

/// The outcome of an operation: a value or the error that took its place.
/// Reading the side that it does not hold is a programming error and stops the process.
template <class T>
class Result {
 public:
  static Result success(T value) { return Result(std::in_place_index<0>, std::move(value)); }
  static Result error(Error error) { return Result(std::in_place_index<1>, std::move(error)); }

  /// Whether it holds a value.
  bool isSuccess() const { return outcome_.index() == 0; }

  /// Only of a success.
  const T& value() const {
    if (const auto* value = std::get_if<0>(&outcome_)) return *value;
    fatalError("Result: read the value of an error; error=" + error().description());
  }

  /// Only where there is no value.
  const Error& error() const {
    if (const auto* error = std::get_if<1>(&outcome_)) return *error;
    fatalError("Result: read the error of a success");
  }

 private:
  template <std::size_t I, class V>
  Result(std::in_place_index_t<I> side, V value) : outcome_(side, std::move(value)) {}

  std::variant<T, Error> outcome_;
};

}  // namespace tandrell

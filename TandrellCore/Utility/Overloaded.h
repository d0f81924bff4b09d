#pragma once

namespace tandrell {

/// Several callables as one, for visiting a variant.
template <class... F>
struct Overloaded : F... {
  using F::operator()...;
};
template <class... F>
Overloaded(F...) -> Overloaded<F...>;

}  // namespace tandrell

// What the C++ library of Debian's Emscripten has not of C++20 and is used here: algorithms over ranges,
// and std::bit_cast. Included in front of every source file by the build.
#pragma once

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>

#if defined(_LIBCPP_VERSION) && _LIBCPP_VERSION < 15000

namespace std {  // NOLINT(cert-dcl58-cpp)
template <class To, class From>
constexpr To bit_cast(const From& from) noexcept {
  return __builtin_bit_cast(To, from);
}
}  // namespace std

namespace std::ranges {  // NOLINT(cert-dcl58-cpp): as the standard has them

template <class Out>
struct Written {
  Out out;
};

template <class Range, class Test, class Get = std::identity>
constexpr auto find_if(Range&& range, Test test, Get get = {}) {
  return std::find_if(std::begin(range), std::end(range),
                      [&](auto&& x) { return std::invoke(test, std::invoke(get, x)); });
}
template <class Range, class Test>
constexpr auto find_if_not(Range&& range, Test test) {
  return std::find_if_not(std::begin(range), std::end(range), test);
}
template <class Range, class Value, class Get = std::identity>
constexpr auto find(Range&& range, const Value& value, Get get = {}) {
  return find_if(
      range, [&](const auto& x) { return x == value; }, get);
}
template <class Range, class Test>
constexpr bool all_of(Range&& range, Test test) {
  return std::all_of(std::begin(range), std::end(range), test);
}
template <class Range, class Test>
constexpr bool any_of(Range&& range, Test test) {
  return std::any_of(std::begin(range), std::end(range), test);
}
template <class A, class B, class Same = std::equal_to<>>
constexpr bool equal(A&& a, B&& b, Same same = {}) {
  return std::equal(std::begin(a), std::end(a), std::begin(b), std::end(b), same);
}

template <class Range, class Out>
constexpr Written<Out> copy(Range&& range, Out out) {
  return {std::copy(std::begin(range), std::end(range), out)};
}
template <class Range, class Value>
constexpr void fill(Range&& range, const Value& value) {
  std::fill(std::begin(range), std::end(range), value);
}
template <class Range>
constexpr void reverse(Range&& range) {
  std::reverse(std::begin(range), std::end(range));
}
template <class Range, class Out, class Change>
constexpr Written<Out> transform(Range&& range, Out out, Change change) {
  return {std::transform(std::begin(range), std::end(range), out, change)};
}

template <class Range, class Before = std::less<>, class Get = std::identity>
constexpr void sort(Range&& range, Before before = {}, Get get = {}) {
  std::sort(std::begin(range), std::end(range), [&](const auto& a, const auto& b) {
    return std::invoke(before, std::invoke(get, a), std::invoke(get, b));
  });
}
template <class Range, class Value, class Before = std::less<>, class Get = std::identity>
constexpr auto lower_bound(Range&& range, const Value& value, Before before = {}, Get get = {}) {
  return std::lower_bound(
      std::begin(range), std::end(range), value,
      [&](const auto& x, const auto& v) { return std::invoke(before, std::invoke(get, x), v); });
}
template <class Range, class Value, class Before = std::less<>, class Get = std::identity>
constexpr auto upper_bound(Range&& range, const Value& value, Before before = {}, Get get = {}) {
  return std::upper_bound(
      std::begin(range), std::end(range), value,
      [&](const auto& v, const auto& x) { return std::invoke(before, v, std::invoke(get, x)); });
}
template <class Range, class Before = std::less<>, class Get = std::identity>
constexpr auto min_element(Range&& range, Before before = {}, Get get = {}) {
  return std::min_element(std::begin(range), std::end(range), [&](const auto& a, const auto& b) {
    return std::invoke(before, std::invoke(get, a), std::invoke(get, b));
  });
}
template <class Range, class Before = std::less<>, class Get = std::identity>
constexpr auto max_element(Range&& range, Before before = {}, Get get = {}) {
  return std::max_element(std::begin(range), std::end(range), [&](const auto& a, const auto& b) {
    return std::invoke(before, std::invoke(get, a), std::invoke(get, b));
  });
}

}  // namespace std::ranges

#endif

#pragma once

#include <bit>
#include <map>
#include <string>
#include <vector>

#include "tessarine/values/PreferenceObject.hpp"

#include <rapidcheck.h>

namespace tessarine {

inline rc::Gen<std::string> arbitraryBytes() {
  return rc::gen::container<std::string>(rc::gen::arbitrary<char>());
}

/// Any bits: NaNs, infinities and negative zeros are as likely as their neighbours.
inline rc::Gen<double> arbitraryDouble() {
  return rc::gen::oneOf(
      rc::gen::element(-0.0, 0.0, std::bit_cast<double>(0x7ff8000000000001U), 1e300),
      rc::gen::map<std::uint64_t>([](auto bits) { return std::bit_cast<double>(bits); }));
}

/// An object that nests up to `depth` deep.
inline rc::Gen<PreferenceObject> arbitraryObject(int depth) {
  using rc::gen::map;
  const auto make = [](const auto& value) { return PreferenceObject(value); };
  auto leaf = rc::gen::oneOf(
      map<bool>(make), map<std::int64_t>(make), map<std::uint64_t>(make), map<float>(make),
      map(arbitraryDouble(), make), map(arbitraryBytes(), make),
      map(arbitraryDouble(), [](double seconds) { return PreferenceObject(Date(seconds)); }),
      map(arbitraryBytes(),
          [](const std::string& text) { return PreferenceObject(Data::fromText(text)); }));
  if (depth == 0) return leaf;
  auto inner = rc::gen::lazy([depth] { return arbitraryObject(depth - 1); });
  return rc::gen::weightedOneOf<PreferenceObject>(
      {{2, std::move(leaf)},
       {1, map(rc::gen::resize(6, rc::gen::container<PreferenceObject::Array>(inner)), make)},
       {1, map(rc::gen::resize(6, rc::gen::container<std::map<std::string, PreferenceObject>>(
                                      arbitraryBytes(), inner)),
               [](const auto& pairs) {
                 return PreferenceObject(PreferenceObject::Dictionary(pairs.begin(), pairs.end()));
               })}});
}

}  // namespace tessarine

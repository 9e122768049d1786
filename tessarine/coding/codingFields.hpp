#pragma once

#include <string_view>
#include <tuple>

namespace tessarine {

/// One described member of a type: the key it is written under, and where it lies.
template <class Owner, class Member>
struct CodingField {
  std::string_view name;
  Member Owner::*member;
};

template <class Owner, class Member>
constexpr CodingField<Owner, Member> field(std::string_view name, Member Owner::*member) {
  return {name, member};
}

/// A type's description, which every encoder and decoder works with. Members are written in this
/// order; reading ignores unknown keys and takes any order. An optional member is left out when it
/// is absent and may be missing; any other has to be there. Two fields of one name do not compile.
///
///     struct Order {
///       std::string id;
///       std::optional<int> quantity;
///       static constexpr auto codingFields =
///           tessarine::fields(tessarine::field("id", &Order::id),
///                             tessarine::field("quantity", &Order::quantity));
///     };
template <class... Fields>
constexpr std::tuple<Fields...> fields(Fields... described) {
  const std::string_view names[] = {std::string_view(), described.name...};
  for (std::size_t i = 1; i <= sizeof...(Fields); ++i) {
    for (std::size_t j = i + 1; j <= sizeof...(Fields); ++j) {
      if (names[i] == names[j]) throw "two coding fields have the same name";
    }
  }
  return {described...};
}

}  // namespace tessarine

#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "JsonScalar.hpp"
#include "tessarine/differencing.hpp"

namespace tessarine::tool {

/// A row or a section by its identifier and value.
struct JsonRow {
  JsonScalar id;
  std::optional<JsonScalar> v;

  const JsonScalar& identifier() const { return id; }
  ElementDifference compare(const JsonRow& old) const {
    const auto isIncomparable = [](const auto& value) {
      return value && value->isText("incomparable");
    };
    if (isIncomparable(v) || isIncomparable(old.v)) return ElementDifference::incomparable;
    return v == old.v ? ElementDifference::unchanged : ElementDifference::needsUpdate;
  }
  static constexpr auto codingFields = fields(field("id", &JsonRow::id), field("v", &JsonRow::v));
};

struct JsonSection : JsonRow {
  std::vector<JsonRow> items;

  static JsonSection decode(Decoder& decoder) {
    auto container = decoder.container();
    JsonSection section;
    section.id = container.decode<JsonScalar>("id");
    section.v = container.decodeIfPresent<JsonScalar>("v");
    section.items = container.decode<std::vector<JsonRow>>("items");
    return section;
  }
};

/// A snapshot as the tool reads it: `[{"id": x, "v": x, "items": [{"id": x, "v": x}]}]`.
struct JsonTable {
  std::vector<JsonSection> all;

  const std::vector<JsonSection>& sections() const { return all; }
  const std::vector<JsonRow>& items(std::int64_t section) const {
    return all[static_cast<std::size_t>(section)].items;
  }
  const JsonRow& row(const IndexPath& path) const {
    return items(path.section())[static_cast<std::size_t>(path.item())];
  }
  static JsonTable decode(Decoder& decoder) {
    JsonTable table;
    auto container = decoder.unkeyedContainer();
    while (!container.isAtEnd()) table.all.push_back(container.decode<JsonSection>());
    return table;
  }
};

}  // namespace tessarine::tool

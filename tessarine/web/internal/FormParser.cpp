#include "tessarine/web/internal/FormParser.hpp"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tessarine/coding/CodingErrors.hpp"
#include "tessarine/values/hexadecimalDigit.hpp"
#include "tessarine/values/utf8.hpp"
#include "tessarine/web/internal/URLEncodedFormTreeEncoder.hpp"

namespace tessarine::internal {
namespace {

using Component = URLEncodedFormComponent;

[[noreturn]] void fail(std::string why, std::size_t offset, CodingPath path = {}) {
  throw DecodingError(DecodingError::Case::dataCorrupted,
                      {std::move(path), "The text is no form: " + std::move(why), nullptr, offset});
}

std::string unescaped(std::string_view text, std::size_t offset) {
  std::string plain;
  plain.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+') {
      plain += ' ';
    } else if (text[i] == '%') {
      const int high = i + 2 < text.size() ? hexadecimalDigit(text[i + 1]) : -1;
      const int low = i + 2 < text.size() ? hexadecimalDigit(text[i + 2]) : -1;
      if (high < 0 || low < 0) fail("an escape that there is not", offset + i);
      plain += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      plain += text[i];
    }
  }
  for (std::string_view rest = plain; !rest.empty();) {
    const std::size_t size = utf8CharacterSize(rest);
    if (size == 0) fail("ill-formed UTF-8", offset);
    rest.remove_prefix(size);
  }
  return plain;
}

/// The pieces of a[b][]: "a", "b" and an empty one. A key of another form is one piece.
std::vector<std::string_view> piecesOf(std::string_view key, std::size_t offset) {
  std::vector<std::string_view> pieces;
  const std::size_t first = std::min(key.find('['), key.size());
  pieces.push_back(key.substr(0, first));
  for (std::string_view rest = key.substr(first); !rest.empty();) {
    const std::size_t end = rest.find(']');
    if (rest.front() != '[' || end == std::string_view::npos) return {key};
    pieces.push_back(rest.substr(1, end - 1));
    if (pieces.back().find('[') != std::string_view::npos) return {key};
    if (pieces.size() > deepestForm) fail("nested deeper than 512 levels", offset);
    rest.remove_prefix(end + 1);
  }
  return pieces;
}

using Pieces = std::vector<std::string_view>;

CodingPath pathOf(const Pieces& pieces) {
  CodingPath path;
  for (const std::string_view piece : pieces) path.emplace_back(piece);
  return path;
}

/// Whether a value may be put at the pieces from `i` on without meeting a text that is there.
bool isFree(const Component& component, const Pieces& pieces, std::size_t i) {
  const Component* place = &component;
  for (; i < pieces.size(); ++i) {
    if (pieces[i].empty()) return place->array() != nullptr;
    if (place->object() == nullptr) return false;
    place = place->object()->find(pieces[i]);
    if (place == nullptr) return true;
  }
  return false;
}

/// Puts one pair's value into the tree.
class Insertion {
 public:
  Insertion(const Pieces& pieces, std::size_t offset) : pieces_(pieces), offset_(offset) {}

  void into(Component& root, std::string value) {
    Component* place = &root;
    bool isNew = false;
    for (std::size_t i = 0; i < pieces_.size(); ++i) {
      place = pieces_[i].empty() && i > 0 ? &element(*place, isNew, i + 1)
                                          : &member(*place, isNew, pieces_[i]);
    }
    if (isNew) {
      *place = std::move(value);
    } else if (std::string* text = place->string()) {  // the key comes again
      *place = Component::Array{std::move(*text), std::move(value)};
    } else if (Component::Array* elements = place->array();
               elements != nullptr && isPlain(*elements)) {
      elements->emplace_back(std::move(value));
    } else {
      conflict();
    }
  }

 private:
  [[noreturn]] void conflict() const {
    fail("one key stands for a text and for something that holds others", offset_, pathOf(pieces_));
  }
  /// Made of texts that came under one key.
  static bool isPlain(const Component::Array& elements) {
    return elements.back().string() != nullptr;
  }

  Component& member(Component& place, bool& isNew, std::string_view key) const {
    if (place.object() == nullptr) conflict();
    isNew = place.object()->find(key) == nullptr;
    return place.object()->valueFor(key);
  }

  /// The element that the pieces from `next` on belong to.
  Component& element(Component& place, bool& isNew, std::size_t next) const {
    if (isNew) place = Component::Array();
    if (place.array() == nullptr) conflict();
    Component::Array& elements = *place.array();
    isNew = elements.empty() || !isFree(elements.back(), pieces_, next);
    return isNew ? elements.emplace_back() : elements.back();
  }

  const Pieces& pieces_;
  std::size_t offset_;
};

}  // namespace

URLEncodedFormComponent parseForm(std::string_view form) {
  Component root;
  for (std::size_t begin = 0; begin < form.size();) {
    const std::size_t end = std::min(form.find('&', begin), form.size());
    const std::string_view pair = form.substr(begin, end - begin);
    if (!pair.empty()) {
      const std::size_t equals = std::min(pair.find('='), pair.size());
      const std::string key = unescaped(pair.substr(0, equals), begin);
      const std::size_t value = std::min(equals + 1, pair.size());
      const Pieces pieces = piecesOf(key, begin);
      Insertion(pieces, begin).into(root, unescaped(pair.substr(value), begin + value));
    }
    begin = end + 1;
  }
  return root;
}

}  // namespace tessarine::internal

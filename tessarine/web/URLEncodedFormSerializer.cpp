#include "tessarine/web/URLEncodedFormSerializer.hpp"

#include <algorithm>
#include <utility>
#include <vector>

#include "tessarine/web/internal/FormTextWriter.hpp"

namespace tessarine {
namespace {

using internal::FormTextWriter;
using internal::TextBuffer;

/// Puts the segments of the text from `begin` on, which end at `ends`, in ascending order.
void sortSegments(TextBuffer& text, std::size_t begin, const std::vector<std::size_t>& ends) {
  const std::string unsorted(text.text().substr(begin));
  std::vector<std::string_view> segments;
  segments.reserve(ends.size());
  for (std::size_t at = begin; const std::size_t end : ends) {
    segments.push_back(std::string_view(unsorted).substr(at - begin, end - at));
    at = end + 1;
  }
  std::sort(segments.begin(), segments.end());
  text.truncate(begin);
  for (bool isFirst = true; const std::string_view segment : segments) {
    if (!std::exchange(isFirst, false)) text.append('&');
    text.append(segment);
  }
}

/// Walks a tree. Each level is a list of segments, one an entry.
class TreeWriter {
 public:
  TreeWriter(FormTextWriter& out, bool isSorted) noexcept : out_(out), isSorted_(isSorted) {}

  void write(const URLEncodedFormComponent::Object& object) {
    writeLevel(object, [&](const URLEncodedFormObject::Pair& pair) {
      const auto mark = out_.enterMember(pair.first);
      write(pair.second);
      out_.leave(mark);
    });
  }
  void write(const URLEncodedFormComponent::Array& array) {
    const auto mark = out_.enterElement();
    writeLevel(array, [&](const URLEncodedFormComponent& element) { write(element); });
    out_.leave(mark);
  }

 private:
  void write(const URLEncodedFormComponent& component) {
    if (const std::string* text = component.string()) {
      out_.writePair(*text);
    } else if (const auto* array = component.array()) {
      write(*array);
    } else {
      write(*component.object());
    }
  }

  template <class Entries, class Write>
  void writeLevel(const Entries& entries, Write writeEntry) {
    const std::size_t begin = out_.text().size();
    std::vector<std::size_t> ends;
    bool isFirst = true;
    for (const auto& entry : entries) {
      if (!std::exchange(isFirst, false)) out_.separate();
      writeEntry(entry);
      if (isSorted_) ends.push_back(out_.text().size());
    }
    if (isSorted_) sortSegments(out_.text(), begin, ends);
  }

  FormTextWriter& out_;
  bool isSorted_;
};

}  // namespace

URLEncodedFormSerializer::URLEncodedFormSerializer(
    bool alphabetizeKeyValuePairs, URLEncodedFormEncoder::ArrayEncoding arrayEncoding,
    URLEncodedFormEncoder::KeyEncoding keyEncoding,
    URLEncodedFormEncoder::SpaceEncoding spaceEncoding, CharacterSet allowedCharacters)
    : alphabetizeKeyValuePairs_(alphabetizeKeyValuePairs),
      arrayEncoding_(arrayEncoding),
      keyEncoding_(std::move(keyEncoding)),
      spaceEncoding_(spaceEncoding),
      allowedCharacters_(std::move(allowedCharacters)) {}

template <class Component>
std::string URLEncodedFormSerializer::text(const Component& component,
                                           const std::string_view* key) const {
  FormTextWriter out(arrayEncoding_, keyEncoding_, spaceEncoding_, allowedCharacters_);
  if (key != nullptr) out.enterMember(*key);
  TreeWriter(out, alphabetizeKeyValuePairs_).write(component);
  return std::string(out.text().text());
}

std::string URLEncodedFormSerializer::serialize(
    const URLEncodedFormComponent::Object& object) const {
  return text(object, nullptr);
}

std::string URLEncodedFormSerializer::serialize(const URLEncodedFormComponent::Object& object,
                                                std::string_view key) const {
  return text(object, &key);
}

std::string URLEncodedFormSerializer::serialize(const URLEncodedFormComponent::Array& array,
                                                std::string_view key) const {
  return text(array, &key);
}

}  // namespace tessarine

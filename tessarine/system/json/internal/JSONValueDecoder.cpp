#include "tessarine/system/json/internal/JSONValueDecoder.hpp"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tessarine/system/json/internal/JSONKeys.hpp"
#include "tessarine/system/json/internal/JSONReader.hpp"

namespace tessarine::internal {
namespace {

/// Below this an object is searched from back to front.
constexpr std::size_t largeObject = 16;

using Token = JSONTokens::Token;

std::unique_ptr<Decoder> decoderAt(JSONDecodingRun& run, std::uint32_t position,
                                   const CodingPathNode* path) {
  return std::make_unique<JSONValueDecoder>(run, position, path);
}

class KeyedBackend final : public KeyedDecodingContainer::Backend {
 public:
  KeyedBackend(JSONDecodingRun& run, std::uint32_t position, const CodingPathNode* path);

  CodingPath codingPath() const override { return tessarine::codingPath(path_); }
  std::vector<AnyCodingKey> allKeys() const override;
  bool contains(CodingKeyView key) const override { return find(key.stringValue()) != nullptr; }
  bool decodeNil(CodingKeyView key) override {
    return run_.tokens().tokenAt(require(key)) == Token::null;
  }
  void decode(DecodableSlot slot, CodingKeyView key) override {
    const std::uint32_t position = require(key);
    const CodingPathNode step{path_, key.stringValue()};
    run_.reader.readAt(position, slot, &step);
  }
  KeyedDecodingContainer nestedContainer(CodingKeyView key) override {
    return decoder(key)->container();
  }
  UnkeyedDecodingContainer nestedUnkeyedContainer(CodingKeyView key) override {
    return decoder(key)->unkeyedContainer();
  }
  std::unique_ptr<Decoder> superDecoder() override { return decoder("super"); }
  std::unique_ptr<Decoder> superDecoder(CodingKeyView key) override { return decoder(key); }

 private:
  struct Member {
    std::string key;
    std::uint32_t position;
  };
  /// The last of the members with that key.
  const Member* find(std::string_view key) const;
  std::uint32_t require(CodingKeyView key) const;
  std::unique_ptr<Decoder> decoder(CodingKeyView key) {
    const std::uint32_t position = require(key);
    return decoderAt(run_, position, run_.member(path_, key.stringValue()));
  }

  JSONDecodingRun& run_;
  std::uint32_t position_;
  const CodingPathNode* path_;
  std::vector<Member> members_;
  std::unordered_map<std::string_view, const Member*> byKey_;  // of a large object
};

KeyedBackend::KeyedBackend(JSONDecodingRun& run, std::uint32_t position, const CodingPathNode* path)
    : run_(run), position_(position), path_(path) {
  const JSONTokens& tokens = run.tokens();
  for (std::uint32_t at = position + 1; tokens.charAt(at) == '"';) {
    members_.push_back(
        {readJSONKey(run.reader.options().keyDecodingStrategy, tokens.stringAt(at), path), at + 2});
    at = tokens.endOf(at + 2);
    if (tokens.charAt(at) == ',') ++at;
  }
  if (members_.size() <= largeObject) return;
  for (const Member& member : members_) byKey_.insert_or_assign(member.key, &member);
}

const KeyedBackend::Member* KeyedBackend::find(std::string_view key) const {
  if (!byKey_.empty()) {
    const auto found = byKey_.find(key);
    return found == byKey_.end() ? nullptr : found->second;
  }
  const auto found = std::find_if(members_.rbegin(), members_.rend(),
                                  [&](const Member& member) { return member.key == key; });
  return found == members_.rend() ? nullptr : &*found;
}

std::uint32_t KeyedBackend::require(CodingKeyView key) const {
  if (const Member* member = find(key.stringValue())) return member->position;
  throw DecodingError::keyNotFound(
      key.toKey(), {codingPath(), "No value for the key \"" + std::string(key.stringValue()) + "\"",
                    nullptr, run_.tokens().offsetOf(position_)});
}

std::vector<AnyCodingKey> KeyedBackend::allKeys() const {
  std::vector<AnyCodingKey> keys;
  keys.reserve(members_.size());
  std::unordered_map<std::string_view, bool> seen;
  for (const Member& member : members_) {
    if (seen.emplace(member.key, true).second) keys.emplace_back(member.key);
  }
  return keys;
}

class UnkeyedBackend final : public UnkeyedDecodingContainer::Backend {
 public:
  UnkeyedBackend(JSONDecodingRun& run, std::uint32_t position, const CodingPathNode* path)
      : run_(run), path_(path), next_(position + 1) {
    const JSONTokens& tokens = run.tokens();
    for (std::uint32_t at = next_; tokens.charAt(at) != ']'; ++count_) {
      at = tokens.endOf(at);
      if (tokens.charAt(at) == ',') ++at;
    }
  }

  CodingPath codingPath() const override { return tessarine::codingPath(path_); }
  std::optional<std::size_t> count() const override { return count_; }
  std::size_t currentIndex() const override { return index_; }
  bool isAtEnd() const override { return index_ == count_; }
  bool decodeNil() override {
    require();
    if (run_.tokens().tokenAt(next_) != Token::null) return false;
    pass();
    return true;
  }
  void decode(DecodableSlot slot) override {
    require();
    const CodingPathNode step{path_, {}, static_cast<std::int64_t>(index_)};
    run_.reader.readAt(next_, slot, &step);
    pass();
  }
  KeyedDecodingContainer nestedContainer() override {
    auto nested = decoder()->container();
    pass();
    return nested;
  }
  UnkeyedDecodingContainer nestedUnkeyedContainer() override {
    auto nested = decoder()->unkeyedContainer();
    pass();
    return nested;
  }
  std::unique_ptr<Decoder> superDecoder() override {
    auto decoder = this->decoder();
    pass();
    return decoder;
  }

 private:
  void require() const {
    if (!isAtEnd()) return;
    throw DecodingError(
        DecodingError::Case::valueNotFound,
        {codingPath(), "There are no more elements.", nullptr, run_.tokens().offsetOf(next_)});
  }
  void pass() {
    next_ = run_.tokens().endOf(next_);
    if (run_.tokens().charAt(next_) == ',') ++next_;
    ++index_;
  }
  std::unique_ptr<Decoder> decoder() {
    require();
    return decoderAt(run_, next_, run_.element(path_, index_));
  }

  JSONDecodingRun& run_;
  const CodingPathNode* path_;
  std::uint32_t next_;
  std::size_t index_ = 0;
  std::size_t count_ = 0;
};

class SingleValueBackend final : public SingleValueDecodingContainer::Backend {
 public:
  SingleValueBackend(JSONDecodingRun& run, std::uint32_t position, const CodingPathNode* path)
      : run_(run), position_(position), path_(path) {}

  CodingPath codingPath() const override { return tessarine::codingPath(path_); }
  bool decodeNil() override { return run_.tokens().tokenAt(position_) == Token::null; }
  void decode(DecodableSlot slot) override { run_.reader.readAt(position_, slot, path_); }
  bool tryDecode(DecodableSlot slot) override {
    return run_.reader.mayRead(position_, slot.shape->kind) && Backend::tryDecode(slot);
  }
  DecodingError dataCorrupted(std::string_view why) const override {
    return run_.reader.dataCorrupted(position_, std::string(why), path_);
  }

 private:
  JSONDecodingRun& run_;
  std::uint32_t position_;
  const CodingPathNode* path_;
};

}  // namespace

const JSONTokens& JSONDecodingRun::tokens() const noexcept { return reader.tokens(); }

const CodingPathNode* JSONDecodingRun::member(const CodingPathNode* parent, std::string_view key) {
  Step& step = steps.emplace_back();
  step.key = key;
  step.node = {parent, step.key};
  return &step.node;
}

const CodingPathNode* JSONDecodingRun::element(const CodingPathNode* parent, std::size_t index) {
  Step& step = steps.emplace_back();
  step.node = {parent, {}, static_cast<std::int64_t>(index)};
  return &step.node;
}

const CodingUserInfo& JSONValueDecoder::userInfo() const { return run_.reader.options().userInfo; }

KeyedDecodingContainer JSONValueDecoder::container() {
  if (run_.tokens().tokenAt(position_) != Token::object) {
    run_.reader.mismatch(position_, ShapeKind::object, path_);
  }
  return KeyedDecodingContainer(std::make_unique<KeyedBackend>(run_, position_, path_));
}

UnkeyedDecodingContainer JSONValueDecoder::unkeyedContainer() {
  if (run_.tokens().tokenAt(position_) != Token::array) {
    run_.reader.mismatch(position_, ShapeKind::sequence, path_);
  }
  return UnkeyedDecodingContainer(std::make_unique<UnkeyedBackend>(run_, position_, path_));
}

SingleValueDecodingContainer JSONValueDecoder::singleValueContainer() {
  return SingleValueDecodingContainer(std::make_unique<SingleValueBackend>(run_, position_, path_));
}

}  // namespace tessarine::internal

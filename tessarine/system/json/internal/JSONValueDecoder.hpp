#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "tessarine/coding/CodingPathNode.hpp"
#include "tessarine/coding/Decoder.hpp"

namespace tessarine::internal {

class JSONReader;
class JSONTokens;

/// What the decoders and containers of one `decode` written by hand have in common.
struct JSONDecodingRun {
  struct Step {
    CodingPathNode node;
    std::string key;
  };

  JSONReader& reader;
  std::deque<Step> steps;  // to nested containers, which may outlive the one they were asked of

  const JSONTokens& tokens() const noexcept;
  const CodingPathNode* member(const CodingPathNode* parent, std::string_view key);
  const CodingPathNode* element(const CodingPathNode* parent, std::size_t index);
};

/// The decoder of the value at one position of a document.
class JSONValueDecoder final : public Decoder {
 public:
  JSONValueDecoder(JSONDecodingRun& run, std::uint32_t position,
                   const CodingPathNode* path) noexcept
      : run_(run), position_(position), path_(path) {}

  CodingPath codingPath() const override { return tessarine::codingPath(path_); }
  const CodingUserInfo& userInfo() const override;
  KeyedDecodingContainer container() override;
  UnkeyedDecodingContainer unkeyedContainer() override;
  SingleValueDecodingContainer singleValueContainer() override;

 private:
  JSONDecodingRun& run_;
  std::uint32_t position_;
  const CodingPathNode* path_;
};

}  // namespace tessarine::internal

#pragma once

#include <deque>
#include <string>

#include "tessarine/coding/CodingPathNode.hpp"
#include "tessarine/coding/Decoder.hpp"
#include "tessarine/web/URLEncodedFormComponent.hpp"
#include "tessarine/web/URLEncodedFormDecoder.hpp"

namespace tessarine::internal {

/// What the decoders and containers of one form have in common.
struct FormDecodingRun {
  struct Step {
    CodingPathNode node;
    std::string key;
  };

  const URLEncodedFormDecoder::Options& options;
  std::deque<Step> steps;  // to nested values, whose addresses stay

  const CodingPathNode* append(const CodingPathNode* parent, CodingKeyView key);
  void read(const URLEncodedFormComponent& component, DecodableSlot slot,
            const CodingPathNode* path);
};

/// The decoder of one component.
class FormValueDecoder final : public Decoder {
 public:
  FormValueDecoder(FormDecodingRun& run, const URLEncodedFormComponent& component,
                   const CodingPathNode* path) noexcept
      : run_(run), component_(component), path_(path) {}

  CodingPath codingPath() const override { return tessarine::codingPath(path_); }
  const CodingUserInfo& userInfo() const override { return run_.options.userInfo; }
  KeyedDecodingContainer container() override;
  UnkeyedDecodingContainer unkeyedContainer() override;
  SingleValueDecodingContainer singleValueContainer() override;

 private:
  FormDecodingRun& run_;
  const URLEncodedFormComponent& component_;
  const CodingPathNode* path_;
};

}  // namespace tessarine::internal

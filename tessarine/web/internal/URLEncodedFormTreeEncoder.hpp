#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>

#include "tessarine/coding/CodingPathNode.hpp"
#include "tessarine/coding/Encoder.hpp"
#include "tessarine/web/URLEncodedFormComponent.hpp"
#include "tessarine/web/URLEncodedFormEncoder.hpp"

namespace tessarine::internal {

/// Nesting beyond this is refused in both directions.
inline constexpr std::size_t deepestForm = 512;

/// Shared by the encoder and all containers of one run, which write into it through their paths.
struct URLEncodedFormContext {
  const URLEncodedFormEncoder::Options& options;
  URLEncodedFormComponent component;

  struct Step {
    CodingPathNode node;
    std::string key;
  };
  std::deque<Step> steps;  // of nested containers, whose addresses stay

  const CodingPathNode* append(const CodingPathNode* parent, CodingKeyView key);
};

/// Walks a value and builds the tree. Only a single value writes to it; a container writes nothing.
class URLEncodedFormTreeEncoder final : public Encoder {
 public:
  URLEncodedFormTreeEncoder(URLEncodedFormContext& context, const CodingPathNode* path) noexcept
      : context_(context), path_(path) {}

  CodingPath codingPath() const override { return tessarine::codingPath(path_); }
  const CodingUserInfo& userInfo() const override;
  KeyedEncodingContainer container() override;
  UnkeyedEncodingContainer unkeyedContainer() override;
  SingleValueEncodingContainer singleValueContainer() override;

  class KeyedContainer;
  class UnkeyedContainer;
  class SingleValueContainer;

 private:
  URLEncodedFormContext& context_;
  const CodingPathNode* path_;
};

/// The text of a scalar in a form; absent for a value of another kind, and for dates and bytes that
/// are left to their own structure.
std::optional<std::string> formText(EncodableValue value,
                                    const URLEncodedFormEncoder::Options& options,
                                    const CodingPathNode* path);

}  // namespace tessarine::internal

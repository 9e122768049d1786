#include "tessarine/coding/CodingErrors.hpp"

#include <utility>

namespace tessarine {
namespace {

std::string textOf(const CodingErrorContext& context) {
  std::string text = context.debugDescription;
  if (!context.codingPath.empty()) text += ": " + description(context.codingPath);
  if (context.byteOffset) text += " (byte " + std::to_string(*context.byteOffset) + ")";
  return text;
}

}  // namespace

EncodingError::EncodingError(std::any value, CodingErrorContext context)
    : value_(std::move(value)), context_(std::move(context)), text_(textOf(context_)) {}

EncodingError EncodingError::invalidValue(std::any value, CodingErrorContext context) {
  return {std::move(value), std::move(context)};
}

DecodingError::DecodingError(Case kind, CodingErrorContext context)
    : kind_(kind), context_(std::move(context)), text_(textOf(context_)) {}

DecodingError DecodingError::keyNotFound(AnyCodingKey key, CodingErrorContext context) {
  DecodingError error(Case::keyNotFound, std::move(context));
  error.key_ = std::move(key);
  return error;
}

}  // namespace tessarine

#pragma once

/// Structured encoding: how a value describes itself, and what encoders and decoders offer it.
#include "tessarine/coding/CodingErrors.hpp"
#include "tessarine/coding/CodingKey.hpp"
#include "tessarine/coding/CodingPathNode.hpp"
#include "tessarine/coding/Decoder.hpp"
#include "tessarine/coding/Encoder.hpp"
#include "tessarine/coding/ShapeOf.hpp"
#include "tessarine/coding/TypeShape.hpp"
#include "tessarine/coding/codingFields.hpp"
#include "tessarine/coding/withIntegerType.hpp"

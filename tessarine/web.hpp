#pragma once

/// Web forms: encoding and decoding of application/x-www-form-urlencoded texts.
#include "tessarine/web/URLEncodedFormComponent.hpp"
#include "tessarine/web/URLEncodedFormDecoder.hpp"
#include "tessarine/web/URLEncodedFormEncoder.hpp"
#include "tessarine/web/URLEncodedFormObject.hpp"
#include "tessarine/web/URLEncodedFormSerializer.hpp"

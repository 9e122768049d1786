#include "tessarine/system/store/CloudTransport.hpp"

namespace tessarine {

CloudTransportError::~CloudTransportError() = default;
CloudTransport::~CloudTransport() = default;

}  // namespace tessarine

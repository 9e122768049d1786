#pragma once

#include <string>
#include <vector>

#include "tessarine/system/store/internal/Domain.hpp"

namespace tessarine::detail {

inline void set(Domain& domain, const std::string& key, const Domain::Object& value) {
  const Domain::Write write{key, value};
  domain.write({&write, 1});
}

inline void setAll(Domain& domain, const PreferenceObject::Dictionary& values) {
  std::vector<Domain::Write> writes;
  for (const auto& [key, value] : values) writes.push_back({key, value});
  domain.write(writes);
}

}  // namespace tessarine::detail

// What the domain of a handle may use: limits on types and tables, by luid.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace kvt {

inline constexpr int kVariantUnlimited = 127;

struct DomainRules {
  struct Rule {
    int variant = kVariantUnlimited;
    bool table_allowed = true;
  };
  std::map<std::string, Rule, std::less<>> by_luid;
};

}  // namespace kvt

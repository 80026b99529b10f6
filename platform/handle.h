// The runtime's own part of a handle.
#pragma once

#include <string>
#include <vector>

#include "kvt/frame.h"
#include "platform/domain.h"
#include "platform/store.h"

namespace kvt {

// The registered copies that the handle has met, by module and index of the static record. They never move and outlive
// every abort, so an entry stays right as long as the handle.
class TypeCache {
 public:
  std::uint32_t find(std::uint32_t number) const {
    const std::vector<std::uint32_t>& module = modules_[number >> 20 & 0xFF];
    std::uint32_t index = number & 0xFFFFF;
    return index < module.size() ? module[index] : 0;
  }
  void put(std::uint32_t number, std::uint32_t copy) {
    std::vector<std::uint32_t>& module = modules_[number >> 20 & 0xFF];
    std::uint32_t index = number & 0xFFFFF;
    if (index >= module.size()) module.resize(index + 1);
    module[index] = copy;
  }

 private:
  std::vector<std::uint32_t> modules_[256];
};

}  // namespace kvt

struct kvt_runtime {
  kvt_handle handle;
  kvt::Store* store;
  kvt_sttr_descriptor tracking;
  kvt_observer observer;
  std::string name;
  kvt::DomainRules rules;
  kvt::TypeCache types;
  bool settling;  // the runtime carries out destroys that waited
  bool raising;   // a commit calls handlers
  bool txn_open;  // of a private store; a database knows its writer
  std::uint32_t txn_last;
  std::uint8_t* workspace;  // see kvtlib_get_handle_ws
  std::int32_t workspace_length;
};

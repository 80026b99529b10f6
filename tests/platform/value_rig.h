// What the tests of field values share: a private handle whose store and announcements are watched.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "kvt/kvt.h"

namespace kvt_test {

inline constexpr std::uint32_t kTxn = 7;

// A handle that fails the allocation it is told to, and keeps a book of blocks and announcements. One at a time.
class ValueRig {
 public:
  ValueRig() {
    int err = 0;
    handle_ = kvt_handle_open_private(nullptr, &err);
    current_ = this;
    alloc_ = handle_->store_alloc;
    free_ = handle_->store_free;
    range_ = handle_->set_range;
    handle_->store_alloc = [](void* store, std::uint32_t txn, std::uint32_t size) -> void* {
      if (current_->fail_after >= 0 && current_->fail_after-- == 0) return nullptr;
      void* block = current_->alloc_(store, txn, size);
      std::memset(block, 0xDD, size);
      current_->blocks_[block] = size;
      return block;
    };
    handle_->store_free = [](void* store, std::uint32_t txn, void* block) {
      const auto found = current_->blocks_.find(block);
      ASSERT_NE(found, current_->blocks_.end()) << "freed twice, or never given out";
      current_->freed.assign(static_cast<char*>(block), found->second);
      current_->blocks_.erase(found);
      current_->free_(store, txn, block);
    };
    handle_->set_range = [](kvt_handle* handle, void* at, std::uint32_t length, std::uint32_t txn, void* owner) {
      current_->announced.push_back({at, length, std::string(static_cast<char*>(at), length)});
      return current_->range_(handle, at, length, txn, owner);
    };
  }
  ~ValueRig() { kvt_handle_close(handle_); }
  ValueRig(const ValueRig&) = delete;
  ValueRig& operator=(const ValueRig&) = delete;

  operator kvt_handle*() { return handle_; }
  std::size_t live_blocks() const { return blocks_.size(); }

  struct Announced {
    void* at;
    std::uint32_t length;
    std::string before;  // the bytes at the time of the announcement
  };
  std::vector<Announced> announced;
  std::string freed;    // content of the block freed last
  int fail_after = -1;  // allocations to let pass before one fails; -1: none fails

 private:
  static inline ValueRig* current_;
  kvt_handle* handle_;
  std::unordered_map<void*, std::uint32_t> blocks_;
  decltype(kvt_handle::store_alloc) alloc_;
  decltype(kvt_handle::store_free) free_;
  decltype(kvt_handle::set_range) range_;
};

// The operations of one primitive type under one roof, so that a rule for all is tested on all.
struct Primitive {
  const char* name;
  std::uint32_t size;  // in an object
  bool owns;           // content in a block
  std::uint32_t (*len)(kvt_handle*, std::uint32_t, const void*);
  std::uint32_t (*marshal)(kvt_handle*, std::uint32_t, std::uint8_t*, const void*, std::int32_t, int*);
  std::uint32_t (*unmarshal)(kvt_handle*, std::uint32_t, const std::uint8_t*, void*, std::int32_t, std::uint32_t, int*);
  std::uint32_t (*print)(kvt_handle*, std::uint32_t, char*, std::uint32_t, const char*, const void*, std::int32_t,
                         int*);
  std::uint32_t (*to_xml)(kvt_handle*, std::uint32_t, const char*, char*, const void*, std::int32_t, std::uint32_t,
                          int*);
  void (*from_xml)(kvt_handle*, std::uint32_t, const char*, kvt_xml_document*, void*, int*, char*, std::size_t);
  std::int32_t (*compare)(const void*, const void*);
  void (*set)(kvt_handle*, std::uint32_t, void*, const void*, int*);
  void (*assign)(kvt_handle*, std::uint32_t, void*, const void*, std::size_t, int*);
  void (*destroy)(kvt_handle*, std::uint32_t, void*, int);
  const kvt_type_record* record;
};

template <class T>
std::int32_t compare_integers(const void* a, const void* b) {
  T left, right;
  std::memcpy(&left, a, sizeof left);
  std::memcpy(&right, b, sizeof right);
  return (left > right) - (left < right);
}

template <class T>
void assign_integer(kvt_handle*, std::uint32_t, void* p, const void* bytes, std::size_t length, int*) {
  std::uint64_t value = 0;
  std::memcpy(&value, bytes, length < sizeof value ? length : sizeof value);
  const T narrow = static_cast<T>(value);
  std::memcpy(p, &narrow, sizeof narrow);
}

#define KVT_TEST_INTEGER(X, T)                                                                      \
  {                                                                                                 \
#X, sizeof(T), false, X##_len, X##_marshal, X##_unmarshal, X##_print, X##_to_xml, X##_from_xml, \
        compare_integers < T>, X##_set, assign_integer < T>, nullptr, &_##X##_type_info_internal    \
  }
#define KVT_TEST_STRING(X)                                                                                      \
  {                                                                                                             \
#X, sizeof(X), true, X##_len, X##_marshal, X##_unmarshal, X##_print, X##_to_xml, X##_from_xml, X##_compare, \
        X##_set, X##_assign, X##_destroy_internal, &_##X##_type_info_internal                                   \
  }

inline const Primitive kPrimitives[] = {
    KVT_TEST_INTEGER(u_int8, std::uint8_t),
    KVT_TEST_INTEGER(u_int16, std::uint16_t),
    KVT_TEST_INTEGER(u_int32, std::uint32_t),
    KVT_TEST_INTEGER(u_int64, std::uint64_t),
    {"kvt_boolean", sizeof(kvt_boolean), false, kvt_boolean_len, kvt_boolean_marshal, kvt_boolean_unmarshal,
     kvt_boolean_print, kvt_boolean_to_xml, kvt_boolean_from_xml, kvt_boolean_compare, kvt_boolean_set,
     assign_integer<kvt_boolean>, nullptr, &_kvt_boolean_type_info_internal},
    KVT_TEST_STRING(kvt_vstring),
    KVT_TEST_STRING(kvt_aes_vstring),
    KVT_TEST_STRING(qep_bytestr)};

// A field of any primitive type, in an object of its own.
struct Field {
  Field(ValueRig* rig, const Primitive& type) : rig_(rig), type_(&type) {}
  ~Field() {
    if (type_->owns) type_->destroy(*rig_, kTxn, bytes, 0);
  }
  Field(const Field&) = delete;
  Field& operator=(const Field&) = delete;
  operator void*() { return bytes; }
  std::string raw() const { return std::string(bytes, sizeof bytes); }
  alignas(8) char bytes[48] = {};

 private:
  ValueRig* rig_;
  const Primitive* type_;
};

inline void PrintTo(const Primitive& type, std::ostream* out) { *out << type.name; }
inline std::string primitive_name(const testing::TestParamInfo<Primitive>& info) { return info.param.name; }

}  // namespace kvt_test

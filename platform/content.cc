// Blocks of string fields, and the order of their bytes.
#include "platform/content.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/messages.h"
#include "platform/ref.h"
#include "platform/report_error.h"

namespace kvt {

void* content_alloc(kvt_handle* handle, std::uint32_t txn, std::size_t size, int* err) {
  void* block =
      size > kMaxContent ? nullptr : handle->store_alloc(handle->store, txn, static_cast<std::uint32_t>(size));
  if (!block) {
    report_error(handle, ENOMEM, err);
    return nullptr;
  }
  if (!in_cage(block)) stop(Message::kOutsideCage);
  return block;
}

std::int32_t bytes_compare(const void* a, std::size_t a_length, const void* b, std::size_t b_length) {
  const std::size_t common = std::min(a_length, b_length);
  const int order = common ? std::memcmp(a, b, common) : 0;
  if (order) return order < 0 ? -1 : 1;
  return (a_length > b_length) - (a_length < b_length);
}

}  // namespace kvt

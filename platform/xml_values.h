// Values of primitive fields out of a document. Each reader gives true with the value, or false with the error
// reported: ENOENT and no message when the element is absent, EINVAL with "Failed xpath: <path>: <reason>" when it says
// nonsense. A path of NULL is the element at which the document stands.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvt/xml.h"

namespace kvt {

// The content of an element: a view into the document, or a block of its own, which is wiped when it goes.
class XmlBytes {
 public:
  XmlBytes() = default;
  ~XmlBytes() {
    if (block_) wipe();
  }
  XmlBytes(const XmlBytes&) = delete;
  XmlBytes& operator=(const XmlBytes&) = delete;
  const char* data() const { return data_; }
  std::size_t size() const { return size_; }
  void view(const char* data, std::size_t size) {
    data_ = data;
    size_ = size;
  }
  // A block of `size` bytes to be filled; NULL when there is no memory.
  char* own(std::size_t size);

 private:
  void wipe();

  const char* data_ = "";
  std::size_t size_ = 0;
  char* block_ = nullptr;
  std::size_t block_size_ = 0;
};

bool xml_read_number(kvt_handle* handle, const char* path, kvt_xml_document* document, std::uint64_t highest,
                     std::uint64_t* value, int* err, char* message, std::size_t size);
bool xml_read_boolean(kvt_handle* handle, const char* path, kvt_xml_document* document, bool* value, int* err,
                      char* message, std::size_t size);
// Text as it stands, or the bytes of encoding="hex".
bool xml_read_bytes(kvt_handle* handle, const char* path, kvt_xml_document* document, XmlBytes* bytes, int* err,
                    char* message, std::size_t size);
// The same, and encoding="sealed" too. No message shows what the element holds.
bool xml_read_secret(kvt_handle* handle, const char* path, kvt_xml_document* document, XmlBytes* bytes, bool* sealed,
                     int* err, char* message, std::size_t size);
// Reports EINVAL with the message. @return false
bool xml_fail(kvt_handle* handle, const char* path, const kvt_xml_document* document, const char* reason, int* err,
              char* message, std::size_t size);

}  // namespace kvt

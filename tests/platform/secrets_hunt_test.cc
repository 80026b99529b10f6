// The hunt for plain text: secrets are put through all that the library does with them, and then looked for in the
// memory of the process, in the database file with its undo log, in frames, in XML and in the trace. Beside each secret
// goes a text of an ordinary field, which must be found in the same places, or the hunt would prove nothing.
//
// Secrets are masked in this program. They are bare only in objects that wipe themselves.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "kvt/kvt.h"
#include "platform/database.h"
#include "platform/sealing.h"
#include "platform/trace.h"
#include "zarn_wlan/zarn_wlan.h"

namespace {

constexpr std::uint8_t kMask = 0xA5;

// Bytes as nobody looks for them.
class Masked {
 public:
  template <std::size_t kSize>
  consteval explicit Masked(const char (&text)[kSize]) : size_(kSize - 1) {
    for (std::size_t i = 0; i < size_; ++i) bytes_[i] = static_cast<std::uint8_t>(text[i]) ^ kMask;
  }
  std::size_t size() const { return size_; }
  std::uint8_t at(std::size_t i) const { return bytes_[i]; }
  char bare(std::size_t i) const { return static_cast<char>(bytes_[i] ^ kMask); }
  std::size_t count_in(const std::uint8_t* begin, std::size_t length) const {
    std::size_t count = 0;
    for (std::size_t i = 0; i + size_ <= length; ++i) count += is_at(begin + i);
    return count;
  }
  bool is_at(const std::uint8_t* p) const {
    for (std::size_t i = 0; i < size_; ++i)
      if ((p[i] ^ kMask) != bytes_[i]) return false;
    return true;
  }

 private:
  std::uint8_t bytes_[72]{};
  std::size_t size_;
};

constexpr Masked kSecret("Tern-Quarry-Saffron-41");
constexpr Masked kOther("Tern-Quarry-Saffron-42");  // alike for long, so that comparing has to read it all
constexpr Masked kOpen("Heron-Meadow-Indigo-77");   // of ordinary fields
constexpr Masked kKeyBytes("\x9d\x04\x71\xe2\x5b\xc8\x33\xaf\x16\x80\xfd\x42\x6e\xb7\x29\xd1");
constexpr Masked kKeyDigits("9d0471e25bc833af1680fd426eb729d1");
constexpr std::size_t kLong = 600;  // too long for what the library keeps on the stack

// Plain bytes for as long as a call needs them.
class Bare {
 public:
  explicit Bare(std::size_t room) : bytes_(room) {}
  ~Bare() { explicit_bzero(bytes_.data(), bytes_.size()); }
  Bare(const Bare&) = delete;
  Bare& operator=(const Bare&) = delete;
  Bare& add(const Masked& masked) {
    for (std::size_t i = 0; i < masked.size(); ++i) put(masked.bare(i));
    return *this;
  }
  Bare& add_hex(const Masked& masked) {
    for (std::size_t i = 0; i < masked.size(); ++i)
      for (const int shift : {4, 0}) put("0123456789abcdef"[(masked.bare(i) >> shift) & 15]);
    return *this;
  }
  Bare& add(const char* text) {
    while (*text) put(*text++);
    return *this;
  }
  char* data() { return bytes_.data(); }
  std::size_t size() const { return size_; }

 private:
  void put(char c) { bytes_.at(size_++) = c; }
  std::vector<char> bytes_;
  std::size_t size_ = 0;
};

// How often each of `wanted` stands in the memory that this process can write to.
template <std::size_t kCount>
std::array<std::size_t, kCount> count_in_memory(const Masked* const (&wanted)[kCount]) {
  constexpr std::size_t kChunk = 1 << 20, kOverlap = 128, kLargestMapping = std::size_t{1} << 30;
  std::array<std::size_t, kCount> found{};
  auto* chunk = static_cast<std::uint8_t*>(
      mmap(nullptr, kChunk + kOverlap, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  const auto own = reinterpret_cast<std::uintptr_t>(chunk);
  const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
  std::FILE* maps = std::fopen("/proc/self/maps", "re");
  EXPECT_TRUE(memory >= 0 && maps);
  char line[600];
  std::uintptr_t begin, end;
  char access[5];
  while (std::fgets(line, sizeof line, maps)) {
    if (std::sscanf(line, "%lx-%lx %4s", &begin, &end, access) != 3 || std::strncmp(access, "rw", 2) != 0) continue;
    if (end - begin > kLargestMapping) continue;  // a sanitizer's shadow
    for (std::uintptr_t at = begin; at < end; at += kChunk) {
      const ssize_t got =
          pread(memory, chunk, std::min<std::size_t>(kChunk + kOverlap, end - at), static_cast<off_t>(at));
      for (std::size_t which = 0; which < kCount; ++which) {
        const Masked& masked = *wanted[which];
        const std::uint8_t* const chunk_end = chunk + std::max<ssize_t>(got, 0);
        const std::uint8_t* hit = chunk;
        while ((hit = static_cast<const std::uint8_t*>(
                    std::memchr(hit, masked.bare(0), static_cast<std::size_t>(chunk_end - hit))))) {
          const std::uint8_t* const here = hit++;
          if (here >= chunk + kChunk || masked.size() > static_cast<std::size_t>(chunk_end - here)) break;
          // What we read ourselves does not count.
          const std::uintptr_t there = at + static_cast<std::size_t>(here - chunk);
          if (there - own >= kChunk + kOverlap) found[which] += masked.is_at(here);
        }
      }
    }
  }
  std::fclose(maps);
  close(memory);
  munmap(chunk, kChunk + kOverlap);
  return found;
}

// Does `work` on a stack of its own, and looks while that stack is as the work has left it.
template <class Work, class Look>
void look_after(Work work, Look look) {
  enum { kWorking, kDone, kSeen };
  std::atomic<int> step{kWorking};
  std::thread worker([&] {
    work();
    step = kDone;
    while (step != kSeen) sched_yield();
  });
  while (step != kDone) sched_yield();
  look();
  step = kSeen;
  worker.join();
}

std::size_t count_in_file(const std::string& path, const Masked& wanted, std::size_t from = 0, std::size_t to = ~0ul) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status {};
  EXPECT_EQ(fstat(fd, &status), 0) << path;
  const auto size = static_cast<std::size_t>(status.st_size);
  void* bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
  close(fd);
  EXPECT_NE(bytes, MAP_FAILED);
  to = std::min(to, size);
  const std::size_t count = wanted.count_in(static_cast<const std::uint8_t*>(bytes) + from, to - from);
  munmap(bytes, size);
  return count;
}

// A form in which objects leave the process.
struct Output {
  const char* name;
  std::string (*write)(kvt_handle* handle, void* secret, void* text);
};

constexpr std::int32_t kRoom = 8192;

constexpr Output kOutputs[] = {
    {"frame",
     [](kvt_handle* handle, void* secret, void* text) {
       std::string out(2 * kRoom, '\0');
       auto* at = reinterpret_cast<std::uint8_t*>(out.data());
       int err = 0;
       at += kvt_aes_vstring_marshal(handle, KVT_NO_TXN, at, secret, kRoom, &err);
       at += kvt_vstring_marshal(handle, KVT_NO_TXN, at, text, kRoom, &err);
       return err ? std::string() : out;
     }},
    {"print",
     [](kvt_handle* handle, void* secret, void* text) {
       std::string out(2 * kRoom, '\0');
       char* at = out.data();
       int err = 0;
       at += kvt_aes_vstring_print(handle, KVT_NO_TXN, at, 2, "secret", secret, kRoom, &err);
       at += kvt_vstring_print(handle, KVT_NO_TXN, at, 2, "text", text, kRoom, &err);
       return err ? std::string() : out;
     }},
    {"XML",
     [](kvt_handle* handle, void* secret, void* text) {
       std::string out(2 * kRoom, '\0');
       char* at = out.data();
       int err = 0;
       at += kvt_aes_vstring_to_xml(handle, KVT_NO_TXN, "secret", at, secret, kRoom, 0, &err);
       at += kvt_vstring_to_xml(handle, KVT_NO_TXN, "text", at, text, kRoom, 0, &err);
       return err ? std::string() : out;
     }},
};

class SecretsHunt : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/secrets_huntXXXXXX";
    folder_ = mkdtemp(name);
    database_ = folder_ + "/db";
    first_trace_ = kvt::trace_count();
    trace_.reserve(1 << 20);
    fenlog_set_level(8);
    fenlog_set_sink([](void* to, std::uint32_t, const char* line) { *static_cast<std::string*>(to) += line; }, &trace_);
  }
  void TearDown() override {
    fenlog_set_sink(nullptr, nullptr);
    fenlog_set_level(6);
    EXPECT_EQ(std::system(("rm -rf " + folder_).c_str()), 0);
  }

  kvt_handle* open_database() {
    kvt_handle_options options;
    kvt_handle_options_init(&options);
    options.create = 1;
    return kvt_handle_open_database(database_.c_str(), &options, &err_);
  }

  template <class Field>
  Field* field(kvt_handle* handle) {
    void* p = handle->store_alloc(handle->store, handle->default_txn, sizeof(Field));
    return static_cast<Field*>(std::memset(p, 0, sizeof(Field)));
  }

  // The secret, and behind it what makes it long.
  void assign(kvt_handle* handle, void* p, const Masked& masked, std::size_t length = 0) {
    Bare bare(kLong + 100);
    bare.add(masked);
    while (bare.size() < length) bare.add(masked);
    kvt_aes_vstring_assign(handle, handle->default_txn, p, bare.data(), bare.size(), &err_);
  }
  void assign_open(kvt_handle* handle, void* p) {
    Bare bare(100);
    // The allocator writes into the first bytes of what is freed.
    bare.add("a text that is not secret: ").add(kOpen);
    kvt_vstring_assign(handle, handle->default_txn, p, bare.data(), bare.size(), &err_);
  }

  // A document with the secret as people type it: in one piece, in two, as digits, and in an element that is refused.
  void read_typed(kvt_handle* handle, void* p) {
    Bare xml(2000);
    xml.add("<r><one>").add(kSecret).add("</one><two>").add(kSecret).add("<![CDATA[").add(kSecret).add("]]></two>");
    xml.add("<hex encoding=\"hex\">").add_hex(kSecret).add("</hex><bad encoding=\"sealed\">").add(kSecret);
    xml.add("</bad></r>");
    char message[200] = "";
    kvt_xml_document* document = kvt_xml_parse(xml.data(), xml.size(), message, sizeof message);
    ASSERT_NE(document, nullptr) << message;
    const auto read = [&](const char* path) {
      kvt_aes_vstring_from_xml(handle, handle->default_txn, path, document, p, &err_, message, sizeof message);
    };
    for (const char* path : {"//one", "//two", "//hex"}) read(path);
    EXPECT_EQ(err_, 0) << message;
    read("//bad");
    EXPECT_EQ(err_, EINVAL);
    EXPECT_EQ(kSecret.count_in(reinterpret_cast<const std::uint8_t*>(message), sizeof message), 0u);
    err_ = 0;
    kvt_xml_free(document);
    // One more that the parser gives up in the middle of.
    Bare cut(200);
    cut.add("<r><one>").add(kSecret).add("</one><two>");
    EXPECT_EQ(kvt_xml_parse(cut.data(), cut.size(), nullptr, 0), nullptr);
  }

  // All that an object's secret goes through; the objects stay.
  void live(kvt_handle* handle, void* secret, void* text) {
    const std::uint32_t txn = handle->default_txn;
    assign(handle, secret, kSecret);
    assign(handle, secret, kSecret, kLong);
    assign_open(handle, text);
    auto* copy = field<kvt_aes_vstring>(handle);
    kvt_aes_vstring_set(handle, txn, copy, secret, &err_);
    EXPECT_EQ(kvt_aes_vstring_compare(secret, copy), 0);
    assign(handle, copy, kSecret, kLong);
    EXPECT_EQ(kvt_aes_vstring_compare(secret, copy), 0);
    EXPECT_EQ(kvt_aes_vstring_hash(secret, 1), kvt_aes_vstring_hash(copy, 1));
    assign(handle, copy, kOther);
    EXPECT_EQ(kvt_aes_vstring_compare(secret, copy), -1);
    kvt_aes_vstring_destroy_internal(handle, txn, copy, 0);

    void* object = st_mpsk_key_info_create(handle, txn);
    void* twin = st_mpsk_key_info_create(handle, txn);
    st_mpsk_key_info_mpsk_key_set(handle, txn, object, secret, &err_);
    st_mpsk_key_info_set(handle, txn, twin, object, &err_);
    EXPECT_EQ(st_mpsk_key_info_compare(object, twin), 0);
    std::vector<std::uint8_t> frame(kRoom);
    const std::uint32_t length = st_mpsk_key_info_marshal(handle, txn, frame.data(), object, kRoom, &err_);
    EXPECT_EQ(err_, 0);
    for (const std::uint32_t room : {length / 2, length})
      st_mpsk_key_info_unmarshal(handle, txn, frame.data(), twin, static_cast<std::int32_t>(room), 0, &(err_ = 0));
    EXPECT_EQ(err_, 0);
    EXPECT_EQ(st_mpsk_key_info_compare(object, twin), 0);
    st_mpsk_key_info_mpsk_key_state_flag_get(handle, txn, object, &err_);
    EXPECT_EQ(err_, EINVAL) << "this is what has to be in the trace";
    err_ = 0;
    read_typed(handle, st_mpsk_key_info_mpsk_key_get(handle, txn, twin, &err_));
    EXPECT_NE(st_mpsk_key_info_hash(object, 1), st_mpsk_key_info_hash(twin, 1));
    void* clone = nullptr;
    st_mpsk_key_info_clone(handle, txn, object, &clone, frame.data(), kRoom, &err_);
    EXPECT_EQ(st_mpsk_key_info_compare(object, clone), 0);
    st_mpsk_key_info_destroy(handle, txn, clone);
    st_mpsk_key_info_destroy(handle, txn, twin);
    st_mpsk_key_info_destroy(handle, txn, object);

    Bare read(kLong + 100);
    EXPECT_GT(kvt_aes_vstring_text(secret, read.data(), kLong + 100), static_cast<std::int64_t>(kLong));
    EXPECT_EQ(err_, 0);
  }

  void expect_masked_outputs(kvt_handle* handle, void* secret, void* text) {
    for (const Output& output : kOutputs) {
      const std::string out = output.write(handle, secret, text);
      const auto* bytes = reinterpret_cast<const std::uint8_t*>(out.data());
      EXPECT_EQ(kSecret.count_in(bytes, out.size()), 0u) << output.name;
      EXPECT_EQ(kOpen.count_in(bytes, out.size()), 1u) << output.name;
    }
  }

  static void expect_not_in_memory(const char* when) {
    const auto found = count_in_memory({&kSecret, &kOther, &kOpen});
    EXPECT_EQ(found[0], 0u) << when;
    EXPECT_EQ(found[1], 0u) << when;
    EXPECT_GT(found[2], 0u) << when;
  }

  void expect_not_in_trace() {
    std::size_t lines = 0;
    kvt::TraceEntry entry;
    for (std::uint64_t i = first_trace_; i < kvt::trace_count(); ++i) {
      if (!kvt::trace_read(i, &entry)) continue;
      ++lines;
      EXPECT_EQ(kSecret.count_in(reinterpret_cast<const std::uint8_t*>(&entry), sizeof entry), 0u);
    }
    EXPECT_GT(lines, 0u);
    EXPECT_FALSE(trace_.empty());
    EXPECT_EQ(kSecret.count_in(reinterpret_cast<const std::uint8_t*>(trace_.data()), trace_.size()), 0u);
  }

  std::string folder_, database_, trace_;
  std::uint64_t first_trace_ = 0;
  int err_ = 0;
};

TEST_F(SecretsHunt, InAPrivateStore) {
  kvt_handle* handle = kvt_handle_open_private(nullptr, &err_);
  auto* secret = field<kvt_aes_vstring>(handle);
  auto* text = field<kvt_vstring>(handle);
  look_after([&] { live(handle, secret, text); }, [] { expect_not_in_memory("while the field holds it"); });
  expect_masked_outputs(handle, secret, text);
  kvt_aes_vstring_destroy_internal(handle, 0, secret, 0);
  kvt_vstring_destroy_internal(handle, 0, text, 0);
  expect_not_in_memory("in freed blocks");
  kvt_handle_close(handle);
  expect_not_in_trace();
}

TEST_F(SecretsHunt, InADatabaseAndWhatItsTransactionsLeave) {
  kvt_handle* handle = open_database();
  kvt_handle* own = kvt_handle_open_private(nullptr, &err_);
  ASSERT_TRUE(handle && own);
  kvtdb_txn_begin(handle, &err_);
  auto* secret = field<kvt_aes_vstring>(handle);
  auto* text = field<kvt_vstring>(handle);
  look_after(
      [&] {
        live(handle, secret, text);
        kvtdb_txn_commit(handle, handle->default_txn, &err_);
      },
      [] { expect_not_in_memory("committed"); });
  expect_masked_outputs(handle, secret, text);

  std::uint32_t txn = kvtdb_txn_begin(handle, &err_);
  // Announced as somebody does who is about to write there, so that the old bytes go to the undo log.
  handle->set_range(handle, kvt_ref_at(secret->sealed), secret->length, txn, nullptr);
  handle->set_range(handle, kvt_ref_at(text->text), text->length, txn, nullptr);
  live(handle, secret, text);
  auto* sealed_anew = field<kvt_aes_vstring>(own);
  kvt_aes_vstring_set(own, 0, sealed_anew, secret, &err_);
  kvt_aes_vstring_set(handle, txn, secret, sealed_anew, &err_);
  EXPECT_EQ(count_in_file(database_, kSecret), 0u) << "in the open transaction";
  EXPECT_EQ(count_in_file(database_, kSecret, kvt::kLogAt, kvt::kFirstPermanentAt), 0u);
  EXPECT_GT(count_in_file(database_, kOpen, kvt::kLogAt, kvt::kFirstPermanentAt), 0u) << "the log holds old bytes";
  kvtdb_txn_abort(handle, txn, &err_);
  expect_not_in_memory("aborted");
  EXPECT_GT(count_in_file(database_, kOpen, kvt::kSegmentSize), 0u) << "the block that is in use";

  txn = kvtdb_txn_begin(handle, &err_);
  kvt_aes_vstring_destroy_internal(handle, txn, secret, 0);
  kvt_vstring_destroy_internal(handle, txn, text, 0);
  kvtdb_txn_commit(handle, txn, &err_);
  expect_not_in_memory("destroyed");
  EXPECT_EQ(err_, 0);
  kvt_handle_close(own);
  kvt_handle_close(handle);
  for (const Masked* masked : {&kSecret, &kOther}) EXPECT_EQ(count_in_file(database_, *masked), 0u);
  expect_not_in_trace();
}

TEST_F(SecretsHunt, KeysAreWipedWithTheirLastHandle) {
  const auto write_key_file = [this](const char* behind) {
    Bare digits(100);
    digits.add(kKeyDigits).add(kKeyDigits).add(behind);
    const int fd = open((database_ + ".key").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    EXPECT_EQ(write(fd, digits.data(), digits.size()), static_cast<ssize_t>(digits.size()));
    close(fd);
  };
  write_key_file(" and more\n");
  std::array<std::size_t, 2> found;
  const auto look = [&found] { found = count_in_memory({&kKeyBytes, &kKeyDigits}); };
  look_after([this] { EXPECT_EQ(open_database(), nullptr); }, look);
  EXPECT_EQ(err_, EINVAL);
  EXPECT_EQ(found[0], 0u) << "of a file that was refused";
  EXPECT_EQ(found[1], 0u) << "of a file that was refused";
  err_ = 0;
  write_key_file("\n");
  kvt_handle *first, *second;
  look_after([&] { first = open_database(); }, look);
  EXPECT_EQ(found[0], 2u) << "the two halves of the key, in one place";
  EXPECT_EQ(found[1], 0u) << "what stood in the file";
  second = open_database();
  ASSERT_TRUE(first && second);
  kvtdb_txn_begin(second, &err_);
  auto* secret = field<kvt_aes_vstring>(second);
  Bare read(kLong + 100);
  kvt_handle_close(first);
  look_after(
      [&] {
        assign(second, secret, kSecret, kLong);
        EXPECT_GT(kvt_aes_vstring_text(secret, read.data(), kLong + 100), 0);
      },
      look);
  EXPECT_EQ(found[0], 2u) << "the second handle needs it";
  EXPECT_EQ(found[1], 0u);
  look_after([&] { kvt_handle_close(second); }, look);
  EXPECT_EQ(found[0], 0u);
  EXPECT_EQ(found[1], 0u);
}

}  // namespace

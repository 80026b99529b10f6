// Damaged database files: opened, a transaction begun, which follows the undo log, and ended; the feed read. Input:
// flags, the size of a file that is cut, then changes {place, length, bytes} to the header, to the first entries of the
// undo log and to the head of the ring of changes. What lies behind those isn't looked at when a file is opened.
#include "platform/database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "fuzz/key_file.h"
#include "fuzz/rig.h"

namespace fuzz {
namespace {

constexpr unsigned kLeftOpen = 1, kMendChecksum = 2, kCut = 4, kAbort = 8, kUse = 16, kWatch = 32;  // flags
constexpr std::size_t kHead = 3;
constexpr std::size_t kWord = 4;
constexpr std::size_t kHeaderWords = sizeof(kvt::DatabaseHeader) / kWord;
constexpr std::size_t kCutUnit = 64;
constexpr std::size_t kRingWord = 240;  // from here on words of the ring of changes
constexpr std::size_t kMostBytes = 8;   // of one change

std::size_t place_of(std::size_t word) {
  if (word < kHeaderWords) return word * kWord;
  return word < kRingWord ? kvt::kLogAt + (word - kHeaderWords) * kWord : kvt::kRingAt + (word - kRingWord) * kWord;
}

// All that the feed has, as often as it can be told.
void read_feed(kvt_handle* h) {
  int err = 0;
  kvt_watch* watch = kvtdb_watch_open(h, KVT_WATCH_FROM_OLDEST, &err);
  if (!watch) return;
  kvt_change change;
  for (unsigned n = 0; kvtdb_watch_next(watch, &change); ++n)
    FUZZ_CHECK(n <= kvt::kRingBytes / 8, "a feed without end");
  kvtdb_watch_close(watch);
}

kvt_handle* open_file(const std::string& path, bool create, char* message, std::size_t size, int* err) {
  kvt_handle_options options;
  kvt_handle_options_init(&options);
  options.create = create;
  options.slot = KVT_DATABASE_SLOTS - 1;
  options.key_file = fixed_key_file().c_str();
  options.message = message;
  options.message_size = size;
  return kvt_handle_open_database(path.c_str(), &options, err);
}

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// A file with a committed object, and the same in the middle of the next transaction.
struct Files {
  std::string whole, left_open;
  Files() {
    const std::string path = scratch_directory() + "/model.db";
    int err = 0;
    kvt_handle* h = open_file(path, true, nullptr, 0, &err);
    FUZZ_CHECK(h, "no database");
    std::uint32_t txn = kvtdb_txn_begin(h, &err);
    void* object = st_wlan_create(h, txn);
    kvtdb_txn_commit(h, txn, &err);
    whole = slurp(path);
    txn = kvtdb_txn_begin(h, &err);
    st_wlan_wlan_id_set_value(h, txn, object, 9, &err);
    st_dtim_destroy(h, txn, st_dtim_create(h, txn));
    left_open = slurp(path);
    kvt_handle_close(h);
    unlink(path.c_str());
    FUZZ_CHECK(!err, "no model of a database");
    FUZZ_CHECK(reinterpret_cast<const kvt::DatabaseHeader*>(left_open.data())->log_last, "no undo log in the model");
  }
};

std::uint32_t checksum_of(const char* header) {
  std::uint32_t sum = 2166136261u;
  for (std::size_t i = 0; i < offsetof(kvt::DatabaseHeader, checksum); i++) {
    sum = (sum ^ static_cast<unsigned char>(header[i])) * 16777619u;
  }
  return sum;
}

// The file that is damaged, and made whole again after each round.
class Damaged {
 public:
  Damaged(const std::string& model, const std::string& path)
      : model_(model), path_(path), fd_(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {
    FUZZ_CHECK(fd_ >= 0, "no file");
    restore(model_.size());
  }
  ~Damaged() { close(fd_); }
  Damaged(const Damaged&) = delete;
  Damaged& operator=(const Damaged&) = delete;
  const std::string& path() const { return path_; }

  void put(std::size_t at, const void* bytes, std::size_t size) {
    FUZZ_CHECK(pwrite(fd_, bytes, size, static_cast<off_t>(at)) == static_cast<ssize_t>(size), "cannot write");
  }
  void mend_checksum() {
    char header[sizeof(kvt::DatabaseHeader)];
    FUZZ_CHECK(pread(fd_, header, sizeof header, 0) == sizeof header, "cannot read");
    const std::uint32_t sum = checksum_of(header);
    put(offsetof(kvt::DatabaseHeader, checksum), &sum, sizeof sum);
  }
  void cut(std::size_t size) {
    if (size < model_.size()) FUZZ_CHECK(ftruncate(fd_, static_cast<off_t>(size)) == 0, "cannot cut");
  }
  // The first bytes again as they were, and the size. What lies behind changes only in a file that was opened.
  void restore(std::size_t bytes) {
    put(0, model_.data(), bytes);
    FUZZ_CHECK(ftruncate(fd_, static_cast<off_t>(model_.size())) == 0, "cannot set the size");
  }

 private:
  const std::string& model_;
  const std::string path_;
  int fd_;
};

void use(kvt_handle* h, std::uint32_t txn) {
  for (int permanent = 0; permanent < 2; ++permanent) {
    constexpr std::uint32_t kSize = 200;
    void* block = permanent ? h->registry_alloc(h->registry_pool, txn, kSize) : h->store_alloc(h->store, txn, kSize);
    if (!block) continue;
    FUZZ_CHECK(kvtlib_database_in_range(h, block), "a block outside the file");
    std::memset(block, 0x77, kSize);
  }
}

// Whether the file opened.
bool open_and_use(const std::string& path, unsigned flags) {
  char message[400] = "";
  int err = 0;
  kvt_handle* h = open_file(path, false, message, sizeof message, &err);
  FUZZ_CHECK((h == nullptr) == (err != 0), "a handle and an error");
  FUZZ_CHECK((h == nullptr) == (message[0] != 0), std::string("a handle and the message ") + message);
  if (!h) return false;
  if (flags & kWatch) read_feed(h);
  const std::uint32_t txn = kvtdb_txn_begin(h, &err);
  FUZZ_CHECK(err == 0 || err == EIO, "begin: error " + std::to_string(err));
  if (!err) {
    if (flags & kUse && !(flags & kLeftOpen)) use(h, txn);
    if (flags & kAbort) {
      kvtdb_txn_abort(h, txn, &err);
    } else {
      kvtdb_txn_commit(h, txn, &err);
    }
    FUZZ_CHECK(err == 0, "end: error " + std::to_string(err));
    if (flags & kWatch) read_feed(h);
  }
  kvt_handle_close(h);
  return true;
}

void run(const std::uint8_t* data, std::size_t size) {
  static const Files files;
  static Damaged whole(files.whole, scratch_directory() + "/whole.db");
  static Damaged left_open(files.left_open, scratch_directory() + "/left_open.db");
  if (size < kHead) return;
  const unsigned flags = data[0];
  Damaged& file = flags & kLeftOpen ? left_open : whole;
  for (std::size_t at = kHead; at + 2 < size;) {
    const std::size_t where = data[at], length = std::min({std::size_t{data[at + 1]} % kMostBytes + 1, size - at - 2});
    file.put(place_of(where), data + at + 2, length);
    at += 2 + length;
  }
  if (flags & kMendChecksum) file.mend_checksum();
  const bool cut = flags & kCut;
  if (cut) file.cut((data[1] | std::size_t{data[2]} << 8) * kCutUnit);
  const bool opened = open_and_use(file.path(), flags);
  file.restore(opened || cut ? (flags & kLeftOpen ? files.left_open : files.whole).size() : kvt::kLogAt + 4096);
}

void seeds(const Sow& sow) {
  const auto input = [](unsigned flags, unsigned cut, const std::string& changes) {
    const char head[kHead] = {static_cast<char>(flags), static_cast<char>(cut), static_cast<char>(cut >> 8)};
    return std::string(head, kHead) + changes;
  };
  for (unsigned flags : {0u, kLeftOpen, kAbort, kLeftOpen | kAbort, kUse, kUse | kAbort}) {
    sow("sound_" + std::to_string(flags), input(flags, 0, ""));
    sow("cut_" + std::to_string(flags), input(flags | kCut, 0x4000, ""));
    flags |= kWatch;
    for (std::size_t word = 0; word < kRingWord + 12; ++word) {
      if ((word > 20 && word < kHeaderWords) || (word > kHeaderWords + 8 && word < kRingWord)) continue;
      for (const std::string& value :
           {std::string("\0\0\0\0", 4), std::string("\xFF\xFF\xFF\xFF"), std::string("\0\0\x10\0", 4)}) {
        const char change[] = {static_cast<char>(word), 3};
        sow("word_" + std::to_string(flags) + "_" + std::to_string(word) + "_" +
                std::to_string(static_cast<unsigned char>(value[2])),
            input(flags | kMendChecksum, 0, std::string(change, 2) + value));
      }
    }
  }
}

}  // namespace

const Target kDatabase{"database", run, seeds, nullptr};

}  // namespace fuzz

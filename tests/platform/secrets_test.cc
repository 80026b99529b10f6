// Tests of kvt_aes_vstring, of the keys of stores and of key files. Where plain text must not be is the subject of
// secrets_hunt_test.cc.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/sealing.h"
#include "tests/platform/value_rig.h"

// In the place of the C library's: at which of the next questions this process is run by another user; 0 for none.
static int stranger_at;
extern "C" uid_t geteuid() noexcept {
  const auto own = static_cast<uid_t>(syscall(SYS_geteuid));
  return stranger_at && --stranger_at == 0 ? own + 1 : own;
}

namespace kvt_test {
namespace {

const Primitive& kSecret = kPrimitives[6];
constexpr char kPassphrase[] = "correct horse battery staple";
constexpr std::size_t kPassphraseSize = sizeof kPassphrase - 1;

std::string sealed_bytes(const void* p) {
  kvt_aes_vstring field;
  std::memcpy(&field, p, sizeof field);
  return std::string(static_cast<const char*>(kvt_ref_at(field.sealed)), field.length);
}

std::string text_of(const void* p) {
  std::string text(static_cast<std::size_t>(kvt_aes_vstring_length(p)) + 1, '\0');
  const std::int64_t length = kvt_aes_vstring_text(p, text.data(), text.size());
  if (length < 0) return "(closed)";
  text.pop_back();
  return text;
}

class SecretField : public testing::Test {
 protected:
  void assign(Field* field, const std::string& text) {
    int err = 0;
    kvt_aes_vstring_assign(rig_, kTxn, *field, text.data(), text.size(), &err);
    ASSERT_EQ(err, 0);
  }
  // A field whose sealed form came from a process with other keys.
  void assign_foreign(Field* field, char fill) {
    std::string wire(4 + kvt::kSealOverhead + 5, fill);
    wire.replace(0, 4, {0, 0, 0, static_cast<char>(kvt::kSealOverhead + 5)});
    int err = 0;
    kvt_aes_vstring_unmarshal(rig_, kTxn, reinterpret_cast<const std::uint8_t*>(wire.data()), *field,
                              static_cast<std::int32_t>(wire.size()), 0, &err);
    ASSERT_EQ(err, 0);
  }
  ValueRig rig_;
};

TEST_F(SecretField, HoldsItsTextSealedAndNeverTwiceAlike) {
  Field a(&rig_, kSecret), b(&rig_, kSecret);
  assign(&a, kPassphrase);
  assign(&b, kPassphrase);
  EXPECT_EQ(sealed_bytes(a).size(), kvt::kSealOverhead + kPassphraseSize);
  EXPECT_EQ(sealed_bytes(a).find("horse"), std::string::npos);
  EXPECT_NE(sealed_bytes(a), sealed_bytes(b));
  EXPECT_EQ(kvt_aes_vstring_compare(a, b), 0);
  EXPECT_EQ(text_of(a), kPassphrase);
}

TEST_F(SecretField, ABlockIsWipedUnderAnnouncementBeforeItIsFreed) {
  Field field(&rig_, kSecret);
  assign(&field, kPassphrase);
  const std::string sealed = sealed_bytes(field);
  rig_.announced.clear();
  kvt_aes_vstring_destroy_internal(rig_, kTxn, field, 0);
  EXPECT_EQ(rig_.freed.substr(0, sealed.size()), std::string(sealed.size(), '\0'));
  ASSERT_EQ(rig_.announced.size(), 2u);
  EXPECT_EQ(rig_.announced[1].before, sealed) << "an undone transaction has to find the secret again";
}

TEST_F(SecretField, ASecretThatDoesNotFitIsMeasuredOnly) {
  Field field(&rig_, kSecret);
  assign(&field, kPassphrase);
  char buffer[kPassphraseSize + 1] = "unchanged";
  EXPECT_EQ(kvt_aes_vstring_text(field, buffer, kPassphraseSize), static_cast<std::int64_t>(kPassphraseSize));
  EXPECT_STREQ(buffer, "unchanged");
  EXPECT_EQ(kvt_aes_vstring_text(field, buffer, sizeof buffer), static_cast<std::int64_t>(kPassphraseSize));
  EXPECT_STREQ(buffer, kPassphrase);
  Field empty(&rig_, kSecret);
  EXPECT_EQ(kvt_aes_vstring_text(empty, buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "");
}

TEST_F(SecretField, AreOrderedByTheirTextAndOnesWithoutAKeyStandBehindAllOthers) {
  Field empty(&rig_, kSecret), long_a(&rig_, kSecret), long_b(&rig_, kSecret), high(&rig_, kSecret);
  Field foreign_low(&rig_, kSecret), foreign_high(&rig_, kSecret);
  assign(&long_a, std::string(5000, 'p') + "a");
  assign(&long_b, std::string(5000, 'p') + "b");
  assign(&high, "\xFF\xFF\xFF");
  assign_foreign(&foreign_low, '\0');
  assign_foreign(&foreign_high, '\x7F');
  EXPECT_EQ(text_of(foreign_low), "(closed)");
  const Field* ascending[] = {&empty, &long_a, &long_b, &high, &foreign_low, &foreign_high};
  for (int a = 0; a < 6; ++a)
    for (int b = 0; b < 6; ++b)
      EXPECT_EQ(kvt_aes_vstring_compare(ascending[a]->bytes, ascending[b]->bytes), (a > b) - (a < b)) << a << b;
}

TEST_F(SecretField, AnyBentBitClosesIt) {
  Field field(&rig_, kSecret);
  assign(&field, "x");
  std::string sealed = sealed_bytes(field);
  for (std::size_t at = 0; at < sealed.size(); ++at) {
    std::string bent = sealed;
    bent[at] ^= 1;
    std::uint8_t plain = 0xEE;
    EXPECT_FALSE(kvt::unseal(reinterpret_cast<const std::uint8_t*>(bent.data()), bent.size(), &plain)) << at;
    EXPECT_NE(plain, 'x') << at;
  }
}

TEST_F(SecretField, ASealedFormTooShortToBeOneIsRefused) {
  for (std::uint8_t length = 1; length < kvt::kSealOverhead; ++length) {
    std::uint8_t wire[64] = {0, 0, 0, length};
    Field field(&rig_, kSecret);
    int err = 0;
    EXPECT_EQ(kvt_aes_vstring_unmarshal(rig_, kTxn, wire, field, sizeof wire, 0, &err), 0u);
    EXPECT_EQ(err, EINVAL);
  }
}

class InFolder : public testing::Test {
 protected:
  InFolder() {
    char name[] = "/tmp/keyfileXXXXXX";
    folder_ = mkdtemp(name);
    kvt_handle_options_init(&options_);
    options_.create = 1;
    options_.message = message_;
    options_.message_size = sizeof message_;
  }
  ~InFolder() override { EXPECT_EQ(std::system(("rm -rf " + folder_).c_str()), 0); }
  std::string at(const std::string& name) const { return folder_ + "/" + name; }
  std::string folder_;
  kvt_handle_options options_;
  char message_[300] = "";
};

// A store with fields in it. In a database all that is done is one transaction, which the end of the object aborts.
class SecretStore {
 public:
  explicit SecretStore(kvt_handle* handle) : handle_(handle) { begin(); }
  ~SecretStore() { close(); }
  SecretStore(const SecretStore&) = delete;
  SecretStore& operator=(const SecretStore&) = delete;
  operator kvt_handle*() { return handle_; }
  std::uint32_t txn() const { return handle_->default_txn; }
  void begin() {
    kvtdb_txn_begin(handle_, &err);
    EXPECT_EQ(err, 0);
  }
  void commit() { kvtdb_txn_commit(handle_, txn(), &err); }
  void close() {
    kvt_handle_close(handle_);
    handle_ = nullptr;
  }
  kvt_aes_vstring* field() {
    void* p = handle_->store_alloc(handle_->store, txn(), sizeof(kvt_aes_vstring));
    return static_cast<kvt_aes_vstring*>(std::memset(p, 0, sizeof(kvt_aes_vstring)));
  }
  kvt_aes_vstring* secret(const std::string& text) {
    kvt_aes_vstring* p = field();
    kvt_aes_vstring_assign(handle_, txn(), p, text.data(), text.size(), &err);
    EXPECT_EQ(err, 0);
    return p;
  }
  int err = 0;

 private:
  kvt_handle* handle_;
};

std::string key_of(const void* field) { return sealed_bytes(field).substr(0, kvt::kKeyIdSize); }

bool opens(const std::string& sealed) {
  std::vector<std::uint8_t> plain(sealed.size() - kvt::kSealOverhead);
  return kvt::unseal(reinterpret_cast<const std::uint8_t*>(sealed.data()), sealed.size(), plain.data());
}

class StoreKeys : public InFolder {
 protected:
  kvt_handle* database(const std::string& name) {
    int err = 0;
    kvt_handle* handle = kvt_handle_open_database(at(name).c_str(), &options_, &err);
    EXPECT_NE(handle, nullptr) << message_;
    return handle;
  }
  int database_error(const std::string& name) {
    int err = 0;
    kvt_handle_close(kvt_handle_open_database(at(name).c_str(), &options_, &err));
    return err;
  }
  kvt_handle* private_store(const char* key_file = nullptr) {
    int err = 0;
    options_.key_file = key_file;
    kvt_handle* handle = kvt_handle_open_private(&options_, &err);
    options_.key_file = nullptr;
    EXPECT_NE(handle, nullptr) << message_;
    return handle;
  }
};

using Bring = void (*)(SecretStore& to, void* field, SecretStore& from, const void* source);

void by_set(SecretStore& to, void* field, SecretStore&, const void* source) {
  kvt_aes_vstring_set(to, to.txn(), field, source, &to.err);
}

// As objects are copied: all their bytes first, then each string.
void by_raw_copy_and_set(SecretStore& to, void* field, SecretStore&, const void* source) {
  std::memcpy(field, source, sizeof(kvt_aes_vstring));
  kvt_aes_vstring_set(to, to.txn(), field, source, &to.err);
}

void by_wire(SecretStore& to, void* field, SecretStore& from, const void* source) {
  std::vector<std::uint8_t> wire(1000);
  const auto room = static_cast<std::int32_t>(kvt_aes_vstring_marshal(from, 0, wire.data(), source, 1000, &to.err));
  kvt_aes_vstring_unmarshal(to, to.txn(), wire.data(), field, room, 0, &to.err);
}

void by_xml(SecretStore& to, void* field, SecretStore& from, const void* source) {
  std::string xml(1000, '\0');
  xml.resize(kvt_aes_vstring_to_xml(from, 0, "f", xml.data(), source, 1000, 0, &to.err));
  kvt_xml_document* document = kvt_xml_parse(xml.data(), xml.size(), nullptr, 0);
  kvt_aes_vstring_from_xml(to, to.txn(), "//f", document, field, &to.err, nullptr, 0);
  kvt_xml_free(document);
}

constexpr std::array<std::pair<const char*, Bring>, 4> kWays = {
    {{"set", by_set}, {"raw copy and set", by_raw_copy_and_set}, {"wire", by_wire}, {"XML", by_xml}}};

TEST_F(StoreKeys, ACopyIsSealedUnderTheReceiversKeyAndOutlivesTheSenders) {
  const struct {
    const char *name, *from, *to;  // null: a private store
  } roads[] = {{"database to database", "a", "b"}, {"to private", "a", nullptr}, {"from private", nullptr, "b"}};
  for (const auto& road : roads) {
    for (const auto& [way, bring] : kWays) {
      SCOPED_TRACE(std::string(road.name) + " by " + way);
      const std::string text = road.name + std::string(300, '.') + way;  // too long for the stack
      SecretStore from(road.from ? database(road.from) : private_store());
      SecretStore to(road.to ? database(road.to) : private_store());
      const void* source = from.secret(text);
      const std::string sealed = sealed_bytes(source);
      void* copy = to.field();
      bring(to, copy, from, source);
      ASSERT_EQ(to.err, 0);
      EXPECT_EQ(key_of(copy), key_of(to.secret("x")));
      EXPECT_NE(key_of(copy), key_of(source));
      EXPECT_EQ(sealed_bytes(source), sealed);
      EXPECT_EQ(kvt_aes_vstring_compare(copy, source), 0);
      from.close();
      EXPECT_FALSE(opens(sealed)) << "the key is still there";
      EXPECT_EQ(text_of(copy), text);
    }
  }
}

TEST_F(StoreKeys, ASecretWhoseKeyIsGoneIsKeptAndPassedOnAsItCame) {
  SecretStore a(database("a"));
  const void* first = a.secret("first");
  const std::string sealed = sealed_bytes(first);
  a.commit();
  SecretStore own(private_store());
  std::string wire(1000, '\0');
  wire.resize(kvt_aes_vstring_marshal(a, 0, reinterpret_cast<std::uint8_t*>(wire.data()), first, 1000, &own.err));
  a.close();
  void* kept = own.field();
  kvt_aes_vstring_unmarshal(own, own.txn(), reinterpret_cast<const std::uint8_t*>(wire.data()), kept,
                            static_cast<std::int32_t>(wire.size()), 0, &own.err);
  EXPECT_EQ(sealed_bytes(kept), sealed);
  EXPECT_EQ(text_of(kept), "(closed)");
  for (const auto& [way, bring] : kWays) {
    void* passed = own.field();
    bring(own, passed, own, kept);
    EXPECT_EQ(sealed_bytes(passed), sealed) << way;
    EXPECT_EQ(kvt_aes_vstring_compare(passed, kept), 0) << way;
  }
  EXPECT_EQ(own.err, 0);
  SecretStore again(database("a"));
  EXPECT_EQ(text_of(kept), "first") << "its key is back";
}

TEST_F(StoreKeys, AKeyIsThereUntilTheLastHandleThatBroughtItCloses) {
  const std::string key_file = at("a.key");
  enum { kDatabase, kAgain, kPrivateWithItsKey, kHandles };
  for (const std::array<int, kHandles>& order :
       {std::array<int, kHandles>{0, 1, 2}, {2, 1, 0}, {1, 2, 0}, {1, 0, 2}, {2, 0, 1}, {0, 2, 1}}) {
    kvt_handle* handles[kHandles] = {};
    handles[kDatabase] = database("a");
    std::string sealed;
    {
      SecretStore writer(database("a"));
      sealed = sealed_bytes(writer.secret("one"));
    }
    handles[kAgain] = database("a");
    handles[kPrivateWithItsKey] = private_store(key_file.c_str());
    for (const int next : order) {
      EXPECT_TRUE(opens(sealed));
      kvt_handle_close(handles[next]);
    }
    EXPECT_FALSE(opens(sealed));
  }
}

TEST_F(StoreKeys, PrivateStoresShareTheProcessKeyWhichGoesWithTheLastOfThem) {
  SecretStore a(private_store()), b(private_store());
  const void* in_a = a.secret("a");
  const std::string sealed = sealed_bytes(in_a);
  EXPECT_EQ(key_of(in_a), key_of(b.secret("b")));
  a.close();
  EXPECT_TRUE(opens(sealed));
  b.close();
  EXPECT_FALSE(opens(sealed));
  SecretStore c(private_store());
  EXPECT_NE(key_of(c.secret("c")), sealed.substr(0, kvt::kKeyIdSize));
}

TEST_F(StoreKeys, ALostKeyIsReplacedOnlyWhenThatIsAskedFor) {
  void* field;
  {
    SecretStore a(database("a"));
    field = a.secret("old");
    a.commit();
  }
  ASSERT_EQ(rename(at("a.key").c_str(), at("lost.key").c_str()), 0);
  EXPECT_EQ(database_error("a"), ENOENT);
  EXPECT_NE(access(at("a.key").c_str(), F_OK), 0) << "a new key would hide that the old one is lost";
  options_.create = 0;
  options_.replace_key = 1;
  SecretStore a(database("a"));
  options_.replace_key = 0;
  EXPECT_EQ(text_of(field), "(closed)");
  // The old key was found: what it sealed is sealed anew by a copy on itself.
  SecretStore finder(private_store(at("lost.key").c_str()));
  EXPECT_EQ(text_of(field), "old");
  void* copy = a.field();
  by_set(a, copy, a, field);
  EXPECT_EQ(key_of(copy), key_of(a.secret("x")));
}

TEST_F(StoreKeys, DatabaseAndKeyFileBelongToTheUser) {
  kvt_handle_close(database("a"));
  for (const int questions : {1, 2}) {  // the first is about the database, the second about its key
    stranger_at = questions;
    EXPECT_EQ(database_error("a"), EACCES);
    EXPECT_EQ(stranger_at, 0) << "nobody asked for the user";
    EXPECT_NE(std::string(message_).find("another user"), std::string::npos) << message_;
    EXPECT_EQ(database_error("a"), 0) << message_;
  }
}

class KeyFile : public InFolder {
 protected:
  KeyFile() { path_ = at("store.key"); }
  static std::string digits(char c = '5') { return std::string(64, c) + "\n"; }
  void write_file(const std::string& content, mode_t mode = 0600) {
    std::ofstream(path_, std::ios::binary) << content;
    ASSERT_EQ(chmod(path_.c_str(), mode), 0);
  }
  int open_key(bool create) {
    options_.key_file = path_.c_str();
    options_.create = create;
    int err = 0;
    kvt_handle_close(kvt_handle_open_private(&options_, &err));
    return err;
  }
  std::size_t files() const {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder_)) ++count;
    return count;
  }
  std::string path_;
};

TEST_F(KeyFile, IsMadeOnceAndReadThereafter) {
  EXPECT_EQ(open_key(false), ENOENT);
  const mode_t old_umask = umask(0277);
  EXPECT_EQ(open_key(true), 0) << message_;
  umask(old_umask);
  struct stat status;
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_EQ(status.st_size, 65);
  std::string first, again;
  std::getline(std::ifstream(path_), first);
  EXPECT_EQ(open_key(true), 0);
  std::getline(std::ifstream(path_), again);
  EXPECT_EQ(first, again);
  EXPECT_EQ(files(), 1u) << "something was left behind";
}

TEST_F(KeyFile, OfManyThatMakeItAtOnceOneWinsAndAllUseItsKey) {
  constexpr int kMakers = 8, kRounds = 10;
  for (int round = 0; round < kRounds; ++round) {
    std::array<std::string, kMakers> keys;
    std::vector<std::thread> makers;
    for (std::string& key : keys)
      makers.emplace_back([&] {
        kvt_handle_options options;
        kvt_handle_options_init(&options);
        options.create = 1;
        options.key_file = path_.c_str();
        int err = 0;
        kvt_handle* handle = kvt_handle_open_private(&options, &err);
        if (!handle) return;
        SecretStore store(handle);
        key = key_of(store.secret("x"));
      });
    for (std::thread& maker : makers) maker.join();
    EXPECT_EQ(std::set<std::string>(keys.begin(), keys.end()).size(), 1u);
    EXPECT_EQ(keys[0].size(), kvt::kKeyIdSize);
    EXPECT_EQ(files(), 1u);
    unlink(path_.c_str());
  }
}

TEST_F(KeyFile, BadOnesAreRefusedWithWords) {
  const struct {
    const char* name;
    std::string content;
    mode_t mode;
    int code;
  } refusals[] = {
      {"GroupMayRead", digits(), 0640, EACCES},
      {"OthersMayRead", digits(), 0604, EACCES},
      {"SetUserId", digits(), 04600, EACCES},
      {"Empty", "", 0600, EINVAL},
      {"NoLineEnd", std::string(64, 'a'), 0600, EINVAL},
      {"OneDigitShort", digits().substr(1), 0600, EINVAL},
      {"MoreBehindIt", digits() + "\n", 0600, EINVAL},
      {"NoDigits", digits('g'), 0600, EINVAL},
  };
  for (const auto& refusal : refusals) {
    write_file(refusal.content, refusal.mode);
    EXPECT_EQ(open_key(true), refusal.code) << refusal.name;
    EXPECT_NE(std::string(message_).find(path_), std::string::npos) << refusal.name;
    unlink(path_.c_str());
  }
}

TEST_F(KeyFile, WhatIsNoRegularFileOfTheUsersIsRefused) {
  write_file(digits());
  ASSERT_EQ(symlink(path_.c_str(), at("link").c_str()), 0);
  ASSERT_EQ(symlink(at("target").c_str(), at("link to nothing").c_str()), 0);
  ASSERT_EQ(mkfifo(at("fifo").c_str(), 0600), 0);
  // /etc/passwd is root's; root gives a file away.
  const bool is_root = geteuid() == 0;
  if (is_root) {
    ASSERT_EQ(chown(path_.c_str(), 12345, 12345), 0);
  }
  const std::string others = is_root ? path_ : "/etc/passwd";
  for (const std::string& path : {at("link"), at("link to nothing"), at("fifo"), folder_, others}) {
    path_ = path;
    EXPECT_EQ(open_key(true), EACCES) << path;
  }
  EXPECT_NE(std::string(message_).find("another user"), std::string::npos) << message_;
  EXPECT_NE(access(at("target").c_str(), F_OK), 0) << "a link to nothing must not be filled";
}

}  // namespace
}  // namespace kvt_test

// Tests of kvt_aes_vstring and of key files.
#include "platform/secrets.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>

#include "platform/sealing.h"
#include "tests/platform/value_rig.h"

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

TEST_F(SecretField, SerialFormsCarryTheSealedBytes) {
  Field from(&rig_, kSecret), wire_copy(&rig_, kSecret), set_copy(&rig_, kSecret);
  assign(&from, kPassphrase);
  std::string buffer(1000, '\0');
  int err = 0;
  const std::uint32_t used = kvt_aes_vstring_marshal(rig_, kTxn, reinterpret_cast<std::uint8_t*>(buffer.data()), from,
                                                     static_cast<std::int32_t>(buffer.size()), &err);
  EXPECT_EQ(buffer.substr(4, used - 4), sealed_bytes(from));
  kvt_aes_vstring_unmarshal(rig_, kTxn, reinterpret_cast<std::uint8_t*>(buffer.data()), wire_copy,
                            static_cast<std::int32_t>(used), 0, &err);
  kvt_aes_vstring_set(rig_, kTxn, set_copy, from, &err);
  EXPECT_EQ(err, 0);
  EXPECT_EQ(text_of(wire_copy), kPassphrase);
  EXPECT_EQ(sealed_bytes(set_copy), sealed_bytes(from));
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

TEST_F(SecretField, LongSecretsCompareByTheirTextToo) {
  Field a(&rig_, kSecret), b(&rig_, kSecret);
  assign(&a, std::string(5000, 'p') + "a");
  assign(&b, std::string(5000, 'p') + "b");
  EXPECT_EQ(kvt_aes_vstring_compare(a, b), -1);
  EXPECT_EQ(kvt_aes_vstring_compare(b, a), 1);
}

TEST_F(SecretField, OnesWithoutAKeyStandBehindAllOthers) {
  Field foreign_low(&rig_, kSecret), foreign_high(&rig_, kSecret), open(&rig_, kSecret), empty(&rig_, kSecret);
  assign_foreign(&foreign_low, '\0');
  assign_foreign(&foreign_high, '\x7F');
  assign(&open, "\xFF\xFF\xFF");
  EXPECT_EQ(text_of(foreign_low), "(closed)");
  const Field* ascending[] = {&empty, &open, &foreign_low, &foreign_high};
  for (int a = 0; a < 4; ++a)
    for (int b = 0; b < 4; ++b)
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

class KeyFile : public testing::Test {
 protected:
  KeyFile() {
    char name[] = "/tmp/keyfileXXXXXX";
    folder_ = mkdtemp(name);
    path_ = folder_ + "/store.key";
  }
  ~KeyFile() override { EXPECT_EQ(std::system(("rm -rf " + folder_).c_str()), 0); }
  void write_file(const std::string& content, mode_t mode = 0600) {
    std::ofstream(path_, std::ios::binary) << content;
    ASSERT_EQ(chmod(path_.c_str(), mode), 0);
  }
  int open_key(bool create) { return kvt_keyring_open(path_.c_str(), create, message_, sizeof message_); }
  static std::string digits(char c = '5') { return std::string(64, c) + "\n"; }

  std::string folder_, path_;
  char message_[300] = "";
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
  EXPECT_EQ(std::system(("test $(ls " + folder_ + " | wc -l) = 1").c_str()), 0) << "something was left behind";
}

TEST_F(KeyFile, OpenedLastSealsAndEarlierOnesStillOpen) {
  ValueRig rig;
  Field first(&rig, kSecret), second(&rig, kSecret);
  int err = 0;
  kvt_aes_vstring_assign(rig, kTxn, first, "one", 3, &err);
  write_file(digits('7'));
  ASSERT_EQ(open_key(false), 0) << message_;
  kvt_aes_vstring_assign(rig, kTxn, second, "two", 3, &err);
  EXPECT_NE(sealed_bytes(first).substr(0, 8), sealed_bytes(second).substr(0, 8));
  EXPECT_EQ(text_of(first), "one");
  EXPECT_EQ(text_of(second), "two");
}

// Runs in a process of its own, whose first secret comes before its first key file.
bool early_secret_is_sealed_again(const std::string& key_file) {
  ValueRig rig;
  Field early(&rig, kSecret), copy(&rig, kSecret), late(&rig, kSecret);
  int err = 0;
  kvt_aes_vstring_assign(rig, kTxn, early, "early", 5, &err);
  if (kvt_keyring_open(key_file.c_str(), 0, nullptr, 0)) return false;
  kvt_aes_vstring_set(rig, kTxn, copy, early, &err);
  kvt_aes_vstring_assign(rig, kTxn, late, "late", 4, &err);
  const std::string key_id = sealed_bytes(late).substr(0, 8);
  return !err && sealed_bytes(early).substr(0, 8) != key_id && sealed_bytes(copy).substr(0, 8) == key_id &&
         text_of(copy) == "early";
}

using KeyFileDeathTest = KeyFile;

TEST_F(KeyFileDeathTest, ACopyOfASecretOlderThanTheKeyFileIsSealedWithIt) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  write_file(digits('8'));
  const auto run = [this] {
    const bool good = early_secret_is_sealed_again(path_);
    unlink(path_.c_str());
    rmdir(folder_.c_str());
    std::_Exit(good ? 0 : 1);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

struct Refusal {
  const char* name;
  std::string content;
  mode_t mode;
  int code;
};

TEST_F(KeyFile, BadOnesAreRefusedWithWords) {
  const Refusal refusals[] = {
      {"GroupMayRead", digits(), 0640, EACCES},
      {"OthersMayRead", digits(), 0604, EACCES},
      {"OwnerMayExecute", digits(), 0700, EACCES},
      {"SetUserId", digits(), 04600, EACCES},
      {"Empty", "", 0600, EINVAL},
      {"NoLineEnd", std::string(64, 'a'), 0600, EINVAL},
      {"OneDigitShort", digits().substr(1), 0600, EINVAL},
      {"MoreBehindIt", digits() + "\n", 0600, EINVAL},
      {"NoDigits", digits('g'), 0600, EINVAL},
  };
  for (const Refusal& refusal : refusals) {
    write_file(refusal.content, refusal.mode);
    EXPECT_EQ(open_key(true), refusal.code) << refusal.name;
    EXPECT_NE(std::string(message_).find(path_), std::string::npos) << refusal.name;
    unlink(path_.c_str());
  }
}

TEST_F(KeyFile, WhatIsNoRegularFileIsRefused) {
  write_file(digits());
  const std::string target = path_;
  path_ = folder_ + "/link.key";
  ASSERT_EQ(symlink(target.c_str(), path_.c_str()), 0);
  EXPECT_EQ(open_key(true), EACCES);
  path_ = folder_ + "/fifo.key";
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(open_key(true), EACCES);
  path_ = folder_;
  EXPECT_EQ(open_key(true), EACCES);
}

TEST_F(KeyFile, OfAnotherUserIsRefused) {
  if (geteuid() == 0) {
    write_file(digits());
    ASSERT_EQ(chown(path_.c_str(), 12345, 12345), 0);
  } else {
    path_ = "/etc/passwd";  // root's, and readable by all
  }
  EXPECT_EQ(open_key(true), EACCES);
  EXPECT_NE(std::string(message_).find("another user"), std::string::npos);
}

}  // namespace
}  // namespace kvt_test

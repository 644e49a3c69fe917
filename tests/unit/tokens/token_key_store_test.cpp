#include "security/token_key_store.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/http/recording_logger.h"
#include "tests/unit/tokens/signing_key.h"
#include "tests/unit/tokens/token_folder.h"

namespace {

namespace fs = std::filesystem;
using Lumo::Transport::TestSupport::RecordingLogger;
using Ryn::Authn::TokenKeyStore;
using Lines = std::vector<std::string>;

constexpr uid_t kNobody = 65534;

class TokenKeyStoreTest : public testing::Test {
 protected:
  /// The one complaint about the key "lab", and that there was no second one.
  void ExpectRefused(std::string const& problem) {
    EXPECT_EQ(store.Find("lab"), nullptr);
    EXPECT_EQ(logger->TakeLines(),
              Lines{"4 Token key " + folder.path().string() + "/lab.pem can't be used: " + problem});
    EXPECT_EQ(store.Find("lab"), nullptr);
    EXPECT_EQ(logger->TakeLines(), Lines{}) << "logged again";
  }
  void ExpectFolderRefused(fs::path const& place, std::string const& problem) {
    EXPECT_EQ(store.Find("lab"), nullptr);
    EXPECT_EQ(logger->TakeLines(), Lines{"4 Token keys can't be used: " + place.string() + ": " + problem});
    EXPECT_EQ(store.Find("other"), nullptr);
    EXPECT_EQ(logger->TakeLines(), Lines{}) << "logged again";
  }
  bool Verifies(SigningKey const& pair) {
    auto const key = store.Find("lab");
    return key && key->Verifies(Token(R"({"alg":"ES256"})", "{}", pair));
  }

  TokenFolder folder;
  std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
  std::chrono::system_clock::time_point wall = std::chrono::system_clock::now();
  TokenKeyStore store{logger, folder.path().string(), [this] { return wall; }};
};

TEST(TokenKeyStore, NamesAreThoseOfFilesInTheFolder) {
  for (std::string_view const good : {"lab", "a", "0", "lab-1", "lab_1", "lab.example.com", "A..b"}) {
    EXPECT_TRUE(TokenKeyStore::IsKeyName(good)) << good;
  }
  EXPECT_TRUE(TokenKeyStore::IsKeyName(std::string(128, 'x')));
  for (std::string_view const bad :
       {"", ".", "..", ".lab", "-lab", "_lab", "../lab", "a/b", "/etc/passwd", "a\\b", "a b", "lab\n",
        "l\xc3\xa4", "a:b", "%2e%2e", "a*", "lab.pem/", "~lab"}) {
    EXPECT_FALSE(TokenKeyStore::IsKeyName(bad)) << bad;
  }
  EXPECT_FALSE(TokenKeyStore::IsKeyName(std::string(129, 'x')));
  EXPECT_FALSE(TokenKeyStore::IsKeyName(std::string_view("lab\0", 4)));
}

TEST_F(TokenKeyStoreTest, FindsTheKeyOfThatName) {
  folder.Write("lab", CurveKey().PublicPem());
  EXPECT_TRUE(Verifies(CurveKey()));
  EXPECT_EQ(store.Find("other"), nullptr);
  EXPECT_EQ(store.Find("LAB"), nullptr);
  EXPECT_EQ(logger->TakeLines(), Lines{});
}

TEST_F(TokenKeyStoreTest, NamesWithPathsNeverLeaveTheFolder) {
  std::ofstream(folder.root() / "outside.pem") << CurveKey().PublicPem();
  EXPECT_EQ(store.Find("../outside"), nullptr);
  EXPECT_EQ(store.Find((folder.root() / "outside").string()), nullptr);
  EXPECT_EQ(store.Find(""), nullptr);
  EXPECT_EQ(store.Find(std::string("lab\0", 4)), nullptr);
}

TEST_F(TokenKeyStoreTest, KeepsWhatItReadAsLongAsTheFileStays) {
  folder.Write("lab", CurveKey().PublicPem());
  EXPECT_NE(store.Find("lab"), store.Find("lab")) << "kept though the file may change without looking so";
  wall += std::chrono::seconds(10);
  auto const key = store.Find("lab");
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(store.Find("lab"), key);
  wall -= std::chrono::hours(1);
  EXPECT_EQ(store.Find("lab"), key);
}

TEST_F(TokenKeyStoreTest, AddedReplacedAndDeletedFilesCountAtOnce) {
  EXPECT_EQ(store.Find("lab"), nullptr);
  folder.Write("lab", CurveKey().PublicPem());
  EXPECT_TRUE(Verifies(CurveKey()));

  folder.Write("lab", OtherCurveKey().PublicPem());
  EXPECT_FALSE(Verifies(CurveKey())) << "rewritten in place, same size, at once";
  EXPECT_TRUE(Verifies(OtherCurveKey()));

  wall += std::chrono::seconds(10);
  EXPECT_TRUE(Verifies(OtherCurveKey()));
  folder.Write("new", CurveKey().PublicPem());
  fs::rename(folder.file("new"), folder.file("lab"));
  EXPECT_TRUE(Verifies(CurveKey())) << "replaced by another file";
  EXPECT_FALSE(Verifies(OtherCurveKey()));

  folder.Write("lab", "gone bad");
  EXPECT_EQ(store.Find("lab"), nullptr);
  folder.Write("lab", CurveKey().PublicPem());
  EXPECT_TRUE(Verifies(CurveKey()));

  fs::remove(folder.file("lab"));
  EXPECT_EQ(store.Find("lab"), nullptr);
  fs::rename(folder.path(), folder.root() / "away");
  EXPECT_EQ(store.Find("lab"), nullptr);
}

TEST_F(TokenKeyStoreTest, FilesThatOthersMayWriteAreRefused) {
  folder.Write("lab", CurveKey().PublicPem());
  for (mode_t const mode : {0646U, 0664U, 0666U, 0777U}) {
    ASSERT_EQ(chmod(folder.file("lab").c_str(), mode), 0);
    ExpectRefused("others may write it");
    ASSERT_EQ(chmod(folder.file("lab").c_str(), 0644), 0);
    EXPECT_NE(store.Find("lab"), nullptr);
  }
  for (mode_t const mode : {0400U, 0444U, 0600U}) {
    ASSERT_EQ(chmod(folder.file("lab").c_str(), mode), 0);
    EXPECT_NE(store.Find("lab"), nullptr) << mode;
  }
}

TEST_F(TokenKeyStoreTest, FilesOfAnotherUserAreRefused) {
  folder.Write("lab", CurveKey().PublicPem());
  ASSERT_EQ(chown(folder.file("lab").c_str(), kNobody, kNobody), 0);
  ExpectRefused("it belongs to another user");
}

TEST_F(TokenKeyStoreTest, LinksAreRefusedWhereverTheyLead) {
  folder.Write("real", CurveKey().PublicPem());
  for (fs::path const& target : {fs::path("real.pem"), folder.file("real"), fs::path("nothing")}) {
    fs::create_symlink(target, folder.file("lab"));
    ExpectRefused("it is a symbolic link");
    fs::remove(folder.file("lab"));
    EXPECT_EQ(store.Find("lab"), nullptr);
  }
}

TEST_F(TokenKeyStoreTest, WhatIsNoFileIsRefusedAndHoldsNobodyUp) {
  ASSERT_EQ(mkfifo(folder.file("lab").c_str(), 0644), 0);
  ExpectRefused("it is no file");
  fs::remove(folder.file("lab"));
  EXPECT_EQ(store.Find("lab"), nullptr);
  fs::create_directory(folder.file("lab"));
  ExpectRefused("it is no file");
}

TEST_F(TokenKeyStoreTest, HugeFilesAreRefused) {
  folder.Write("lab", std::string(16384, '\n') + CurveKey().PublicPem());
  ExpectRefused("File too large");
}

TEST_F(TokenKeyStoreTest, BadKeysAreRefusedAndTheReasonLogged) {
  folder.Write("lab", SigningKey::Rsa(1024).PublicPem());
  ExpectRefused("an RSA key has 2048 to 8192 bits, this one 1024");
  folder.Write("lab", CurveKey().PrivatePem());
  ExpectRefused("it does not hold one PEM block PUBLIC KEY and nothing else");
  wall += std::chrono::seconds(10);
  EXPECT_EQ(store.Find("lab"), nullptr);
  EXPECT_EQ(store.Find("lab"), nullptr);
  EXPECT_EQ(logger->TakeLines(), Lines{});
}

TEST_F(TokenKeyStoreTest, FoldersThatOthersMayWriteAreRefused) {
  folder.Write("lab", CurveKey().PublicPem());
  for (mode_t const mode : {0775U, 0757U, 0777U, 01777U}) {
    ASSERT_EQ(chmod(folder.path().c_str(), mode), 0);
    EXPECT_EQ(store.Find("lab"), nullptr) << mode;
  }
  EXPECT_EQ(logger->TakeLines(),
            Lines{"4 Token keys can't be used: " + folder.path().string() + ": others may write it"});
  ASSERT_EQ(chmod(folder.path().c_str(), 0700), 0);
  EXPECT_NE(store.Find("lab"), nullptr);
}

TEST_F(TokenKeyStoreTest, FoldersAboveAreLookedAtToo) {
  folder.Write("lab", CurveKey().PublicPem());
  ASSERT_EQ(chmod(folder.root().c_str(), 0777), 0);
  ExpectFolderRefused(folder.root(), "others may write it");
  ASSERT_EQ(chmod(folder.root().c_str(), 01777), 0);
  EXPECT_NE(store.Find("lab"), nullptr) << "a sticky folder, as /tmp";
  ASSERT_EQ(chown(folder.root().c_str(), kNobody, kNobody), 0);
  EXPECT_EQ(store.Find("lab"), nullptr);
}

TEST_F(TokenKeyStoreTest, FoldersOfAnotherUserAreRefused) {
  ASSERT_EQ(chown(folder.path().c_str(), kNobody, kNobody), 0);
  ExpectFolderRefused(folder.path(), "it belongs to another user");
}

TEST_F(TokenKeyStoreTest, FoldersThatAreLinksAreRefused) {
  fs::rename(folder.path(), folder.root() / "real");
  fs::create_symlink("real", folder.path());
  folder.Write("lab", CurveKey().PublicPem());
  ExpectFolderRefused(folder.path(), "it is no folder");
}

TEST_F(TokenKeyStoreTest, WithoutAFolderThereAreNoKeys) {
  fs::remove(folder.path());
  ExpectFolderRefused(folder.path(), "No such file or directory");
  std::ofstream(folder.path()) << "a file";
  EXPECT_EQ(store.Find("lab"), nullptr);
  EXPECT_EQ(logger->TakeLines(),
            Lines{"4 Token keys can't be used: " + folder.path().string() + ": it is no folder"});
}

TEST_F(TokenKeyStoreTest, ProblemsThatComeAgainAreLoggedAgain) {
  for (int i = 0; i < 2; ++i) {
    fs::rename(folder.path(), folder.root() / "away");
    ExpectFolderRefused(folder.path(), "No such file or directory");
    fs::rename(folder.root() / "away", folder.path());
    folder.Write("lab", "bad");
    ExpectRefused("it does not hold one PEM block PUBLIC KEY and nothing else");
    folder.Write("lab", CurveKey().PublicPem());
    EXPECT_NE(store.Find("lab"), nullptr);
  }
}

TEST_F(TokenKeyStoreTest, LeavesNoDescriptorOpen) {
  folder.Write("lab", CurveKey().PublicPem());
  int const before = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(before);
  store.Find("lab");
  store.Find("none");
  fs::remove_all(folder.path());
  store.Find("lab");
  int const after = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(after);
  EXPECT_EQ(before, after);
}

TEST(TokenKeyStore, StandsInTheConfigurationFolder) {
  EXPECT_STREQ(TokenKeyStore::kFolder, "/etc/orbane/token-keys");
}

}  // namespace

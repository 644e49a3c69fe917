#include "security/token_key.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include "tests/unit/tokens/signing_key.h"

namespace {

using Ryn::Authn::TokenKey;

constexpr char kHeaderRs[] = R"({"alg":"RS256"})";
constexpr char kHeaderEs[] = R"({"alg":"ES256"})";

/// Why a text is no key; "" when it is one.
std::string ProblemOf(std::string const& pem) {
  std::string problem;
  bool const made = TokenKey::FromPem(pem, problem) != nullptr;
  EXPECT_EQ(made, problem.empty());
  EXPECT_EQ(ERR_peek_error(), 0UL) << "left in OpenSSL's queue";
  return problem;
}

TEST(TokenKey, RsaIsForRs256) {
  std::string problem;
  auto const key = TokenKey::FromPem(RsaKey().PublicPem(), problem);
  ASSERT_NE(key, nullptr) << problem;
  EXPECT_EQ(key->algorithm(), "RS256");
  EXPECT_EQ(key->signatureSize(), 256U);
  EXPECT_TRUE(key->Verifies(Token(kHeaderRs, "{}", RsaKey())));
  EXPECT_FALSE(key->Verifies(Token(kHeaderRs, "{}", SigningKey::Rsa(2048))));
}

TEST(TokenKey, CurveIsForEs256) {
  std::string problem;
  auto const key = TokenKey::FromPem(CurveKey().PublicPem(), problem);
  ASSERT_NE(key, nullptr) << problem;
  EXPECT_EQ(key->algorithm(), "ES256");
  EXPECT_EQ(key->signatureSize(), 64U);
  // Numbers with leading zeros come once in 128 signatures.
  for (int i = 0; i < 300; ++i) {
    ASSERT_TRUE(key->Verifies(Token(kHeaderEs, "{}", CurveKey())));
  }
  EXPECT_FALSE(key->Verifies(Token(kHeaderEs, "{}", OtherCurveKey())));
}

TEST(TokenKey, AnyChangedByteSpoilsTheSignature) {
  std::string problem;
  for (SigningKey const& pair : {CurveKey(), RsaKey()}) {
    auto const key = TokenKey::FromPem(pair.PublicPem(), problem);
    std::string const good = Token(key->algorithm() == "RS256" ? kHeaderRs : kHeaderEs, R"({"a":1})", pair);
    ASSERT_TRUE(key->Verifies(good));
    for (std::size_t i = 0; i < good.size(); ++i) {
      std::string bad = good;
      bad[i] = bad[i] == 'A' ? 'Q' : 'A';
      EXPECT_FALSE(key->Verifies(bad)) << bad;
    }
    EXPECT_EQ(ERR_peek_error(), 0UL) << "left in OpenSSL's queue";
  }
}

TEST(TokenKey, TextAroundTheBlockIsNoMatter) {
  EXPECT_EQ(ProblemOf("the lab's key\n" + CurveKey().PublicPem() + "\nmade in May\n"), "");
}

TEST(TokenKey, ShortRsaKeysAreRefused) {
  EXPECT_EQ(ProblemOf(SigningKey::Rsa(1024).PublicPem()), "an RSA key has 2048 to 8192 bits, this one 1024");
  EXPECT_EQ(ProblemOf(SigningKey::Rsa(2047).PublicPem()), "an RSA key has 2048 to 8192 bits, this one 2047");
}

TEST(TokenKey, EndlessRsaKeysAreRefused) {
  EXPECT_EQ(ProblemOf(SigningKey::RsaNumbers("1" + std::string(2048, 'F'), "10001").PublicPem()),
            "an RSA key has 2048 to 8192 bits, this one 8193");
}

TEST(TokenKey, SmallExponentsAreRefused) {
  for (char const* const exponent : {"1", "3", "11", "FFFF"}) {
    EXPECT_EQ(ProblemOf(SigningKey::RsaNumbers(RsaKey().Modulus(), exponent).PublicPem()),
              "its exponent is below 65537")
        << exponent;
  }
  EXPECT_EQ(ProblemOf(SigningKey::RsaNumbers(RsaKey().Modulus(), "10001").PublicPem()), "");
}

TEST(TokenKey, UnsoundRsaKeysAreRefused) {
  std::string even = RsaKey().Modulus();
  even.back() = '0';
  EXPECT_EQ(ProblemOf(SigningKey::RsaNumbers(even, "10001").PublicPem()), "it is not a sound key");
  EXPECT_EQ(ProblemOf(SigningKey::RsaNumbers(RsaKey().Modulus(), "10002").PublicPem()),
            "it is not a sound key");
}

TEST(TokenKey, OtherCurvesAndKindsAreRefused) {
  for (char const* const curve : {"P-384", "P-521", "secp256k1", "P-224"}) {
    EXPECT_EQ(ProblemOf(SigningKey::Curve(curve).PublicPem()), "its curve is not P-256") << curve;
  }
  for (char const* const type : {"ED25519", "ED448", "X25519"}) {
    EXPECT_EQ(ProblemOf(SigningKey::OfType(type).PublicPem()),
              "it is neither an RSA key nor one of the curve P-256")
        << type;
  }
}

TEST(TokenKey, OneBlockAndNoOther) {
  std::string const problem = "it does not hold one PEM block PUBLIC KEY and nothing else";
  std::string const good = CurveKey().PublicPem();
  EXPECT_EQ(ProblemOf(""), problem);
  EXPECT_EQ(ProblemOf("no key"), problem);
  EXPECT_EQ(ProblemOf(std::string(16384, '\0')), problem);
  EXPECT_EQ(ProblemOf(CurveKey().PrivatePem()), problem);
  EXPECT_EQ(ProblemOf(good + good), problem);
  EXPECT_EQ(ProblemOf(CurveKey().PrivatePem() + good), problem);
  EXPECT_EQ(ProblemOf(good + CurveKey().PrivatePem()), problem);
  EXPECT_EQ(ProblemOf("-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"), problem);
}

TEST(TokenKey, DamagedBlocksAreRefused) {
  std::string const good = CurveKey().PublicPem();
  std::string letters = good;
  letters[40] = letters[40] == 'A' ? 'B' : 'A';
  EXPECT_NE(ProblemOf(letters), "");
  EXPECT_EQ(ProblemOf(good.substr(0, good.size() / 2)), "its PEM block is damaged");
  EXPECT_EQ(ProblemOf("-----BEGIN PUBLIC KEY-----\n-----END PUBLIC KEY-----\n"), "its PEM block is damaged");
  EXPECT_EQ(ProblemOf("-----BEGIN PUBLIC KEY-----\n!!!!\n-----END PUBLIC KEY-----\n"),
            "its PEM block is damaged");
}

TEST(TokenKey, CutAnywhereIsNoKeyAndAsksForNothing) {
  std::string const good = CurveKey().PublicPem();
  std::size_t const end = good.find("-----END");
  for (std::size_t size = 0; size < end; ++size) {
    EXPECT_NE(ProblemOf(good.substr(0, size)), "") << size;
  }
  std::string encrypted = good;
  encrypted.insert(encrypted.find('\n') + 1, "Proc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC,00\n\n");
  EXPECT_EQ(ProblemOf(encrypted), "its PEM block is damaged");
}

}  // namespace

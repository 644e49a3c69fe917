#include "security/token_key.h"

#include <cjose/cjose.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <array>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace Ryn::Authn {
namespace {

constexpr int kFewestRsaBits = 2048;
constexpr int kMostRsaBits = 8192;            // beyond, one check takes the I/O thread milliseconds
constexpr int kFewestExponentBits = 17;       // 65537
constexpr std::size_t kCoordinateBytes = 32;  // of P-256

constexpr char kBlockBegin[] = "-----BEGIN ";
constexpr char kKeyBegin[] = "-----BEGIN PUBLIC KEY-----";

template <auto Free>
struct FreeWith {
  template <typename T>
  void operator()(T* pointer) const {
    Free(pointer);
  }
};
using Bio = std::unique_ptr<BIO, FreeWith<&BIO_free>>;
using BigNumber = std::unique_ptr<BIGNUM, FreeWith<&BN_free>>;
using OpenSslKey = std::unique_ptr<EVP_PKEY, FreeWith<&EVP_PKEY_free>>;
using OpenSslContext = std::unique_ptr<EVP_PKEY_CTX, FreeWith<&EVP_PKEY_CTX_free>>;
using JoseKey = std::unique_ptr<cjose_jwk_t, FreeWith<&cjose_jwk_release>>;
using JoseToken = std::unique_ptr<cjose_jws_t, FreeWith<&cjose_jws_release>>;
using Bytes = std::vector<std::uint8_t>;

/// Leaves nothing in this thread's queue of OpenSSL's errors, which others read.
struct ErrorsDropped {
  ErrorsDropped() = default;
  ErrorsDropped(ErrorsDropped const&) = delete;
  ErrorsDropped& operator=(ErrorsDropped const&) = delete;
  ~ErrorsDropped() { ERR_clear_error(); }
};

class JoseTokenKey final : public TokenKey {
 public:
  JoseTokenKey(JoseKey key, std::string_view algorithm, std::size_t signatureSize)
      : key_(std::move(key)), algorithm_(algorithm), signatureSize_(signatureSize) {}

  std::string_view algorithm() const override { return algorithm_; }
  std::size_t signatureSize() const override { return signatureSize_; }
  bool Verifies(std::string_view token) const override {
    ErrorsDropped const dropped;
    JoseToken const parsed(cjose_jws_import(token.data(), token.size(), nullptr));
    return parsed && cjose_jws_verify(parsed.get(), key_.get(), nullptr);
  }

 private:
  JoseKey key_;
  std::string_view algorithm_;
  std::size_t signatureSize_;
};

/// Never asks the terminal.
int NoPassphrase(char* /*buffer*/, int /*size*/, int /*forWriting*/, void* /*context*/) {
  return -1;
}

OpenSslKey ReadPem(std::string_view pem) {
  Bio const bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  return OpenSslKey(bio ? PEM_read_bio_PUBKEY(bio.get(), nullptr, &NoPassphrase, nullptr) : nullptr);
}

bool IsSound(EVP_PKEY* key) {
  OpenSslContext const context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
  return context && EVP_PKEY_public_check(context.get()) == 1;
}

BigNumber Number(EVP_PKEY const* key, char const* name) {
  BIGNUM* number = nullptr;
  EVP_PKEY_get_bn_param(key, name, &number);
  return BigNumber(number);
}

/// Big endian, with leading zeros up to `size`.
std::optional<Bytes> BytesOf(BigNumber const& number, std::size_t size) {
  Bytes bytes(size);
  if (!number || BN_bn2binpad(number.get(), bytes.data(), static_cast<int>(size)) < 0) {
    return std::nullopt;
  }
  return bytes;
}

std::shared_ptr<TokenKey const> Made(JoseKey key, std::string_view algorithm, std::size_t signatureSize,
                                     std::string& problem) {
  if (!key) {
    problem = "it is not a sound key";
    return nullptr;
  }
  return std::make_shared<JoseTokenKey const>(std::move(key), algorithm, signatureSize);
}

std::shared_ptr<TokenKey const> FromRsa(EVP_PKEY* key, std::string& problem) {
  int const bits = EVP_PKEY_get_bits(key);
  if (bits < kFewestRsaBits || bits > kMostRsaBits) {
    problem = "an RSA key has 2048 to 8192 bits, this one " + std::to_string(bits);
    return nullptr;
  }
  BigNumber const exponent = Number(key, OSSL_PKEY_PARAM_RSA_E);
  if (!exponent || BN_num_bits(exponent.get()) < kFewestExponentBits) {
    problem = "its exponent is below 65537";
    return nullptr;
  }
  auto const size = static_cast<std::size_t>(EVP_PKEY_get_size(key));
  auto n = BytesOf(Number(key, OSSL_PKEY_PARAM_RSA_N), size);
  auto e = BytesOf(exponent, static_cast<std::size_t>(BN_num_bytes(exponent.get())));
  if (!IsSound(key) || !n || !e) {
    return Made(nullptr, {}, 0, problem);
  }
  cjose_jwk_rsa_keyspec spec{};
  spec.n = n->data();
  spec.nlen = n->size();
  spec.e = e->data();
  spec.elen = e->size();
  return Made(JoseKey(cjose_jwk_create_RSA_spec(&spec, nullptr)), "RS256", size, problem);
}

std::shared_ptr<TokenKey const> FromCurve(EVP_PKEY* key, std::string& problem) {
  std::array<char, 64> curve{};
  if (EVP_PKEY_get_group_name(key, curve.data(), curve.size(), nullptr) != 1 ||
      std::string_view(curve.data()) != SN_X9_62_prime256v1) {
    problem = "its curve is not P-256";
    return nullptr;
  }
  auto x = BytesOf(Number(key, OSSL_PKEY_PARAM_EC_PUB_X), kCoordinateBytes);
  auto y = BytesOf(Number(key, OSSL_PKEY_PARAM_EC_PUB_Y), kCoordinateBytes);
  if (!IsSound(key) || !x || !y) {
    return Made(nullptr, {}, 0, problem);
  }
  cjose_jwk_ec_keyspec spec{};
  spec.crv = CJOSE_JWK_EC_P_256;
  spec.x = x->data();
  spec.xlen = x->size();
  spec.y = y->data();
  spec.ylen = y->size();
  // RFC 7518 section 3.4: R and S, each as long as a coordinate.
  return Made(JoseKey(cjose_jwk_create_EC_spec(&spec, nullptr)), "ES256", 2 * kCoordinateBytes, problem);
}

}  // namespace

std::shared_ptr<TokenKey const> TokenKey::FromPem(std::string_view pem, std::string& problem) {
  ErrorsDropped const dropped;
  // One block: which one of two would be taken is nothing that a reader of the file could see.
  if (pem.find(kKeyBegin) == std::string_view::npos || pem.find(kBlockBegin) != pem.rfind(kBlockBegin)) {
    problem = "it does not hold one PEM block PUBLIC KEY and nothing else";
    return nullptr;
  }
  OpenSslKey const key = ReadPem(pem);
  if (!key) {
    problem = "its PEM block is damaged";
    return nullptr;
  }
  switch (EVP_PKEY_get_base_id(key.get())) {
    case EVP_PKEY_RSA:
      return FromRsa(key.get(), problem);
    case EVP_PKEY_EC:
      return FromCurve(key.get(), problem);
    default:
      problem = "it is neither an RSA key nor one of the curve P-256";
      return nullptr;
  }
}

}  // namespace Ryn::Authn

#include "tests/unit/tokens/signing_key.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ecdsa.h>
#include <openssl/hmac.h>
#include <openssl/param_build.h>
#include <openssl/pem.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "runtime/json/base64.h"

namespace {

using Bio = std::unique_ptr<BIO, int (*)(BIO*)>;

void Must(bool done) {
  if (!done) {
    throw std::runtime_error("OpenSSL refuses");
  }
}

std::string TextOf(BIO* bio) {
  char* data = nullptr;
  long const size = BIO_get_mem_data(bio, &data);
  return {data, static_cast<std::size_t>(size)};
}

BIGNUM* Number(std::string const& hex) {
  BIGNUM* number = nullptr;
  Must(BN_hex2bn(&number, hex.c_str()) > 0);
  return number;
}

/// A signature in DER as two numbers of 32 bytes.
std::string SideBySide(std::string const& der) {
  auto const* data = reinterpret_cast<unsigned char const*>(der.data());
  std::unique_ptr<ECDSA_SIG, void (*)(ECDSA_SIG*)> const pair(
      d2i_ECDSA_SIG(nullptr, &data, static_cast<long>(der.size())), &ECDSA_SIG_free);
  std::string bytes(64, '\0');
  auto* const out = reinterpret_cast<unsigned char*>(bytes.data());
  Must(pair && BN_bn2binpad(ECDSA_SIG_get0_r(pair.get()), out, 32) == 32 &&
       BN_bn2binpad(ECDSA_SIG_get0_s(pair.get()), out + 32, 32) == 32);
  return bytes;
}

}  // namespace

SigningKey SigningKey::Rsa(unsigned bits) {
  return SigningKey(EVP_RSA_gen(bits));
}

SigningKey SigningKey::Curve(char const* curve) {
  return SigningKey(EVP_EC_gen(curve));
}

SigningKey SigningKey::OfType(char const* type) {
  return SigningKey(EVP_PKEY_Q_keygen(nullptr, nullptr, type));
}

SigningKey SigningKey::RsaNumbers(std::string const& modulus, std::string const& exponent) {
  BIGNUM* const n = Number(modulus);
  BIGNUM* const e = Number(exponent);
  OSSL_PARAM_BLD* const builder = OSSL_PARAM_BLD_new();
  Must(OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_N, n) == 1 &&
       OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_E, e) == 1);
  OSSL_PARAM* const numbers = OSSL_PARAM_BLD_to_param(builder);
  EVP_PKEY_CTX* const context = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
  EVP_PKEY* key = nullptr;
  Must(EVP_PKEY_fromdata_init(context) == 1 &&
       EVP_PKEY_fromdata(context, &key, EVP_PKEY_PUBLIC_KEY, numbers) == 1);
  EVP_PKEY_CTX_free(context);
  OSSL_PARAM_free(numbers);
  OSSL_PARAM_BLD_free(builder);
  BN_free(n);
  BN_free(e);
  return SigningKey(key);
}

std::string SigningKey::PublicPem() const {
  Bio const bio(BIO_new(BIO_s_mem()), &BIO_free);
  Must(PEM_write_bio_PUBKEY(bio.get(), key_.get()) == 1);
  return TextOf(bio.get());
}

std::string SigningKey::PrivatePem() const {
  Bio const bio(BIO_new(BIO_s_mem()), &BIO_free);
  Must(PEM_write_bio_PKCS8PrivateKey(bio.get(), key_.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1);
  return TextOf(bio.get());
}

std::string SigningKey::Modulus() const {
  BIGNUM* n = nullptr;
  Must(EVP_PKEY_get_bn_param(key_.get(), OSSL_PKEY_PARAM_RSA_N, &n) == 1);
  char* const hex = BN_bn2hex(n);
  std::string text = hex;
  OPENSSL_free(hex);
  BN_free(n);
  return text;
}

std::string SigningKey::Sign(std::string_view text) const {
  std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> const context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
  auto const* const data = reinterpret_cast<unsigned char const*>(text.data());
  std::size_t size = 0;
  Must(EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key_.get()) == 1 &&
       EVP_DigestSign(context.get(), nullptr, &size, data, text.size()) == 1);
  std::string signature(size, '\0');
  Must(EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size, data,
                      text.size()) == 1);
  signature.resize(size);
  return EVP_PKEY_get_base_id(key_.get()) == EVP_PKEY_EC ? SideBySide(signature) : signature;
}

SigningKey const& CurveKey() {
  static SigningKey const key = SigningKey::Curve("P-256");
  return key;
}

SigningKey const& OtherCurveKey() {
  static SigningKey const key = SigningKey::Curve("P-256");
  return key;
}

SigningKey const& RsaKey() {
  static SigningKey const key = SigningKey::Rsa(2048);
  return key;
}

std::string Base64Url(std::string_view bytes) {
  std::string text;
  Lumo::Protocol::Json::AppendBase64(bytes, text);
  std::replace(text.begin(), text.end(), '+', '-');
  std::replace(text.begin(), text.end(), '/', '_');
  text.erase(std::find(text.begin(), text.end(), '='), text.end());
  return text;
}

JsonObject JsonObject::With(std::string const& name, std::string const& json) const {
  JsonObject changed = *this;
  changed.members_[name] = json;
  return changed;
}

JsonObject JsonObject::Without(std::string const& name) const {
  JsonObject changed = *this;
  changed.members_.erase(name);
  return changed;
}

std::string JsonObject::Text() const {
  std::string text;
  for (auto const& [name, json] : members_) {
    text.append(text.empty() ? "{\"" : ",\"").append(name).append("\":").append(json);
  }
  return text.empty() ? "{}" : text + "}";
}

std::string SigningInput(std::string_view header, std::string_view payload) {
  return Base64Url(header) + "." + Base64Url(payload);
}

std::string Token(std::string_view header, std::string_view payload, SigningKey const& key) {
  std::string const input = SigningInput(header, payload);
  return input + "." + Base64Url(key.Sign(input));
}

std::string HmacToken(std::string_view header, std::string_view payload, std::string_view secret) {
  std::string const input = SigningInput(header, payload);
  std::string mac(EVP_MAX_MD_SIZE, '\0');
  unsigned size = 0;
  HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()),
       reinterpret_cast<unsigned char const*>(input.data()), input.size(),
       reinterpret_cast<unsigned char*>(mac.data()), &size);
  mac.resize(size);
  return input + "." + Base64Url(mac);
}

// Key pairs and tokens as an issuer has them, made without the code under test.
#pragma once

#include <openssl/evp.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>

/// A key pair. Copies share it.
class SigningKey {
 public:
  static SigningKey Rsa(unsigned bits);
  /// `curve` by OpenSSL's name, as "P-256".
  static SigningKey Curve(char const* curve);
  /// `type` by OpenSSL's name, of a type that needs nothing else, as "ED25519".
  static SigningKey OfType(char const* type);
  /// A public key of these two numbers in hexadecimal, which nobody can sign with.
  static SigningKey RsaNumbers(std::string const& modulus, std::string const& exponent);

  std::string PublicPem() const;
  std::string PrivatePem() const;
  /// The modulus of an RSA key in hexadecimal.
  std::string Modulus() const;
  /// A signature with SHA-256, of a curve's key as R and S side by side.
  std::string Sign(std::string_view text) const;

 private:
  explicit SigningKey(EVP_PKEY* key) : key_(key, &EVP_PKEY_free) {}
  std::shared_ptr<EVP_PKEY> key_;
};

/// Keys that are made once for all tests: making one takes long.
SigningKey const& CurveKey();
SigningKey const& OtherCurveKey();
SigningKey const& RsaKey();

std::string Base64Url(std::string_view bytes);

/// A JSON object in the making: the JSON text of each member by name.
class JsonObject {
 public:
  JsonObject(std::initializer_list<std::pair<std::string const, std::string>> members) : members_(members) {}
  JsonObject With(std::string const& name, std::string const& json) const;
  JsonObject Without(std::string const& name) const;
  std::string Text() const;

 private:
  std::map<std::string, std::string> members_;
};

/// The part of a token that is signed.
std::string SigningInput(std::string_view header, std::string_view payload);
/// A token in compact form.
std::string Token(std::string_view header, std::string_view payload, SigningKey const& key);
/// The same, with HMAC by SHA-256 under `secret`.
std::string HmacToken(std::string_view header, std::string_view payload, std::string_view secret);

#include "security/token_verifier.h"

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <cmath>
#include <optional>
#include <utility>

#include "runtime/data/value.h"
#include "runtime/json/serializers.h"
#include "security/token_text.h"

namespace Ryn::Authn {
namespace {

using Lumo::Data::As;
using Lumo::Data::DataValue;
using Lumo::Data::ListValue;
using Lumo::Data::StringValue;
using Lumo::Data::StructValue;

constexpr char kAudience[] = "keeld";
constexpr long long kSkewSeconds = 60;  // how far the issuer's clock may be off
constexpr std::size_t kMostSubjectBytes = 256;
constexpr double kMostExactDouble = 9007199254740992.0;  // 2^53

/// Why a token is refused; null while nothing is wrong with it.
using Reason = char const*;

std::shared_ptr<StructValue const> ReadObject(std::string_view json) {
  std::shared_ptr<Lumo::Data::ErrorValue const> error;
  auto const value = Lumo::Protocol::Json::JsonDirectDataDeserializer::Deserialize(json, error);
  return error ? nullptr : As<StructValue>(value);
}

/// The text of a member; nothing when it isn't there or is no text.
std::optional<std::string_view> Text(StructValue const& object, std::string_view member) {
  auto const* const text = As<StringValue>(object.Find(member));
  return text ? std::optional(text->value()) : std::nullopt;
}

struct Header {
  std::string algorithm;
  std::string key;
};

Reason ReadHeader(std::string_view json, Header& header) {
  auto const object = ReadObject(json);
  if (!object) {
    return "its header is no JSON object";
  }
  // RFC 7515 section 4.1.11: what is not understood must be refused, and nothing is understood here.
  if (object->HasField("crit")) {
    return "it asks for extensions";
  }
  if (object->HasField("typ") && !boost::algorithm::iequals(Text(*object, "typ").value_or(""), "JWT")) {
    return "it is of another type";
  }
  header.algorithm = Text(*object, "alg").value_or("");
  if (header.algorithm != "RS256" && header.algorithm != "ES256") {
    return "its algorithm is not allowed";
  }
  header.key = Text(*object, "kid").value_or("");
  return TokenKeyStore::IsKeyName(header.key) ? nullptr : "it names no key";
}

Reason CheckSignature(std::string_view token, std::string_view signature, Header const& header,
                      TokenKeyStore& keys) {
  auto const key = keys.Find(header.key);
  if (!key) {
    return "its key is not known";
  }
  if (header.algorithm != key->algorithm()) {
    return "its algorithm is not that of its key";
  }
  return signature.size() == key->signatureSize() && key->Verifies(token) ? nullptr
                                                                          : "its signature is wrong";
}

/// Seconds since 1970, rounded down; nothing for anything but a number that is exact in seconds.
std::optional<long long> NumericDate(DataValue const* value) {
  if (auto const* const whole = As<Lumo::Data::IntegerValue>(value)) {
    return whole->value();
  }
  auto const* const fraction = As<Lumo::Data::DoubleValue>(value);
  if (!fraction || !(std::fabs(fraction->value()) < kMostExactDouble)) {
    return std::nullopt;
  }
  return static_cast<long long>(std::floor(fraction->value()));
}

/// An optional claim that tells from when on the token counts.
Reason CheckBegin(StructValue const& claims, std::string_view member, long long wallTime) {
  if (!claims.HasField(member)) {
    return nullptr;
  }
  auto const begin = NumericDate(claims.Find(member));
  if (!begin) {
    return "a time in it is no number";
  }
  return wallTime + kSkewSeconds < *begin ? "it is not valid yet" : nullptr;
}

Reason CheckTimes(StructValue const& claims, TokenClock::Times const& now) {
  auto const end = NumericDate(claims.Find("exp"));
  if (!end) {
    return "it has no time of expiry";
  }
  if (now.latest - kSkewSeconds >= *end) {
    return "it has expired";
  }
  if (Reason const reason = CheckBegin(claims, "nbf", now.wall)) {
    return reason;
  }
  return CheckBegin(claims, "iat", now.wall);
}

/// The texts of a list; false when it is none, or holds anything else.
bool ReadTexts(DataValue const* value, std::vector<std::string>& texts) {
  auto const* const list = As<ListValue>(value);
  for (std::size_t i = 0; list && i < list->size(); ++i) {
    auto const* const text = As<StringValue>(list->Item(i));
    if (!text) {
      return false;
    }
    texts.emplace_back(text->value());
  }
  return list != nullptr;
}

/// RFC 7519 section 4.1.3: one text, or a list of them.
bool IsMeantForUs(DataValue const* audience) {
  if (auto const* const one = As<StringValue>(audience)) {
    return one->value() == kAudience;
  }
  std::vector<std::string> several;
  return ReadTexts(audience, several) &&
         std::find(several.begin(), several.end(), kAudience) != several.end();
}

bool IsSubject(std::string_view text) {
  return !text.empty() && text.size() <= kMostSubjectBytes &&
         std::none_of(text.begin(), text.end(),
                      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
}

Reason ReadClaims(std::string_view json, std::string_view issuer, TokenClock::Times const& now,
                  VerifiedToken& verified) {
  auto const claims = ReadObject(json);
  if (!claims) {
    return "its content is no JSON object";
  }
  if (Text(*claims, "iss") != issuer) {
    return "its issuer is not its key's";
  }
  if (!IsMeantForUs(claims->Find("aud"))) {
    return "it is meant for another audience";
  }
  if (Reason const reason = CheckTimes(*claims, now)) {
    return reason;
  }
  verified.subject = Text(*claims, "sub").value_or("");
  if (!IsSubject(verified.subject)) {
    return "it names no subject";
  }
  bool const entitled = claims->HasField("entitlements");
  if (entitled && !ReadTexts(claims->Find("entitlements"), verified.entitlements)) {
    return "its entitlements are no list of names";
  }
  return nullptr;
}

Reason Check(std::string_view token, TokenKeyStore& keys, TokenClock& clock, VerifiedToken& verified) {
  auto const parts = SplitToken(token);
  if (!parts) {
    return "it is not a signed token";
  }
  Header header;
  if (Reason const reason = ReadHeader(parts->header, header)) {
    return reason;
  }
  if (Reason const reason = CheckSignature(token, parts->signature, header, keys)) {
    return reason;
  }
  return ReadClaims(parts->payload, header.key, clock.Now(), verified);
}

}  // namespace

TokenVerifier::TokenVerifier(TokenKeyStore keys, TokenClock clock)
    : keys_(std::move(keys)), clock_(std::move(clock)) {}

std::variant<VerifiedToken, TokenRefusal> TokenVerifier::Verify(std::string_view token) {
  VerifiedToken verified;
  if (Reason const reason = Check(token, keys_, clock_, verified)) {
    return TokenRefusal{reason};
  }
  return verified;
}

}  // namespace Ryn::Authn

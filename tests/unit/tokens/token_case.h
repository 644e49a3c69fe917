// What the tests of tokens share: an issuer "lab" with a key of the curve, an issuer "works" with an RSA key,
// and a moment at which it all happens.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "security/token_verifier.h"
#include "tests/support/http/recording_logger.h"
#include "tests/unit/tokens/signing_key.h"
#include "tests/unit/tokens/token_folder.h"

inline constexpr long long kNow = 2'000'000'000;  // seconds since 1970

class TokenCase : public testing::Test {
 protected:
  TokenCase() {
    folder.Write("lab", CurveKey().PublicPem());
    folder.Write("works", RsaKey().PublicPem());
  }

  Ryn::Authn::TokenVerifier MakeVerifier() {
    return {Ryn::Authn::TokenKeyStore(logger, folder.path().string()),
            Ryn::Authn::TokenClock([this] { return wall; }, [this] { return steady; })};
  }

  /// A good token's parts.
  static JsonObject Header() { return {{"alg", R"("ES256")"}, {"kid", R"("lab")"}, {"typ", R"("JWT")"}}; }
  static JsonObject Claims() {
    return {{"iss", R"("lab")"},
            {"sub", R"("alice")"},
            {"aud", R"("keeld")"},
            {"exp", std::to_string(kNow + 600)},
            {"entitlements", R"(["Task.View","Software.Apply"])"}};
  }
  static JsonObject RsaHeader() { return Header().With("alg", R"("RS256")").With("kid", R"("works")"); }
  static JsonObject RsaClaims() { return Claims().With("iss", R"("works")"); }

  TokenFolder folder;
  std::shared_ptr<Lumo::Transport::TestSupport::RecordingLogger> logger =
      std::make_shared<Lumo::Transport::TestSupport::RecordingLogger>();
  std::chrono::system_clock::time_point wall{std::chrono::seconds(kNow)};
  std::chrono::steady_clock::time_point steady{std::chrono::seconds(5)};
};

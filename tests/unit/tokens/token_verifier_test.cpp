#include "security/token_verifier.h"

#include <gtest/gtest.h>

#include "tests/unit/tokens/token_case.h"

namespace {

using namespace std::chrono_literals;
using Ryn::Authn::TokenRefusal;
using Ryn::Authn::VerifiedToken;
using Names = std::vector<std::string>;

class TokenVerifierTest : public TokenCase {
 protected:
  /// Why the token is refused; "" when it is good.
  std::string Refusal(std::string const& token) {
    auto const verdict = verifier.Verify(token);
    auto const* const refusal = std::get_if<TokenRefusal>(&verdict);
    return refusal ? refusal->reason : "";
  }
  std::string Refusal(JsonObject const& header, JsonObject const& claims) {
    return Refusal(Token(header.Text(), claims.Text(), CurveKey()));
  }
  std::string RefusalOfClaims(JsonObject const& claims) { return Refusal(Header(), claims); }
  std::string RefusalOfHeader(JsonObject const& header) { return Refusal(header, Claims()); }

  Ryn::Authn::TokenVerifier verifier = MakeVerifier();
};

TEST_F(TokenVerifierTest, GoodTokensTellSubjectAndEntitlements) {
  for (std::string const& token : {Token(Header().Text(), Claims().Text(), CurveKey()),
                                   Token(RsaHeader().Text(), RsaClaims().Text(), RsaKey())}) {
    auto const verdict = verifier.Verify(token);
    auto const* const good = std::get_if<VerifiedToken>(&verdict);
    ASSERT_NE(good, nullptr) << std::get<TokenRefusal>(verdict).reason;
    EXPECT_EQ(good->subject, "alice");
    EXPECT_EQ(good->entitlements, (Names{"Task.View", "Software.Apply"}));
  }
}

TEST_F(TokenVerifierTest, HeadersThatPass) {
  for (JsonObject const& header :
       {Header().Without("typ"), Header().With("typ", R"("jwt")"), Header().With("x", "[1,{}]"),
        Header().With("jku", R"("https://evil.example/keys")"),
        Header().With("x5u", R"("https://evil.example")")}) {
    EXPECT_EQ(RefusalOfHeader(header), "") << header.Text();
  }
}

TEST_F(TokenVerifierTest, HeadersThatAreRefused) {
  std::string const algorithm = "its algorithm is not allowed";
  std::string const extensions = "it asks for extensions";
  std::string const type = "it is of another type";
  std::string const noKey = "it names no key";
  struct Case {
    JsonObject header;
    std::string reason;
  };
  for (Case const& c : {
           Case{Header().Without("alg"), algorithm},
           Case{Header().With("alg", "null"), algorithm},
           Case{Header().With("alg", "256"), algorithm},
           Case{Header().With("alg", R"(["ES256"])"), algorithm},
           Case{Header().With("alg", R"("")"), algorithm},
           Case{Header().With("alg", R"("es256")"), algorithm},
           Case{Header().With("alg", R"("ES256 ")"), algorithm},
           Case{Header().With("alg", R"("ES256\u0000")"), algorithm},
           Case{Header().With("alg", R"("ES384")"), algorithm},
           Case{Header().With("alg", R"("PS256")"), algorithm},
           Case{Header().With("alg", R"("RS512")"), algorithm},
           Case{Header().With("alg", R"("EdDSA")"), algorithm},
           Case{Header().With("crit", R"(["exp"])"), extensions},
           Case{Header().With("crit", "[]"), extensions},
           Case{Header().With("crit", "null"), extensions},
           Case{Header().With("crit", R"(["b64"])").With("b64", "false"), extensions},
           Case{Header().With("typ", R"("JOSE")"), type},
           Case{Header().With("typ", R"("at+jwt")"), type},
           Case{Header().With("typ", "1"), type},
           Case{Header().With("typ", "null"), type},
           Case{Header().Without("kid"), noKey},
           Case{Header().With("kid", R"("")"), noKey},
           Case{Header().With("kid", "7"), noKey},
           Case{Header().With("kid", "null"), noKey},
           Case{Header().With("kid", R"(["lab"])"), noKey},
           Case{Header().With("kid", R"("../token-keys/lab")"), noKey},
           Case{Header().With("kid", R"("/etc/orbane/token-keys/lab")"), noKey},
           Case{Header().With("kid", R"("lab\u0000")"), noKey},
           Case{Header().With("kid", R"("lab\n")"), noKey},
           Case{Header().With("kid", R"("..")"), noKey},
           Case{Header().With("kid", '"' + std::string(129, 'a') + '"'), noKey},
           Case{Header().With("kid", R"("Lab")"), "its key is not known"},
           Case{Header().With("kid", R"("lab.pem")"), "its key is not known"},
           Case{Header().With("kid", R"("nobody")"), "its key is not known"},
       }) {
    EXPECT_EQ(RefusalOfHeader(c.header), c.reason) << c.header.Text();
  }
}

TEST_F(TokenVerifierTest, AudienceIsThisDaemon) {
  for (char const* const good :
       {R"("keeld")", R"(["keeld"])", R"(["other","keeld"])", R"(["keeld","keeld"])"}) {
    EXPECT_EQ(RefusalOfClaims(Claims().With("aud", good)), "") << good;
  }
  std::string const reason = "it is meant for another audience";
  EXPECT_EQ(RefusalOfClaims(Claims().Without("aud")), reason);
  for (char const* const bad : {R"("")", R"("Keeld")", R"("keeld ")", R"("keeld\u0000")", R"("keeldx")",
                                R"("other")", "null", "1", "true", "[]", R"(["other"])", R"([["keeld"]])",
                                R"({"keeld":"keeld"})", R"(["keeld",1])", R"([null,"keeld"])"}) {
    EXPECT_EQ(RefusalOfClaims(Claims().With("aud", bad)), reason) << bad;
  }
}

TEST_F(TokenVerifierTest, IssuerIsTheKeysName) {
  std::string const reason = "its issuer is not its key's";
  EXPECT_EQ(RefusalOfClaims(Claims().Without("iss")), reason);
  for (char const* const bad :
       {R"("works")", R"("")", R"("Lab")", R"("lab\u0000")", R"("lab.pem")", "null", "1", R"(["lab"])"}) {
    EXPECT_EQ(RefusalOfClaims(Claims().With("iss", bad)), reason) << bad;
  }
}

TEST_F(TokenVerifierTest, ExpiryIsRequiredAndHeldToWithin60Seconds) {
  struct Case {
    std::string expiry;
    std::string reason;
  };
  std::string const none = "it has no time of expiry";
  std::string const over = "it has expired";
  EXPECT_EQ(RefusalOfClaims(Claims().Without("exp")), none);
  for (Case const& c : {
           Case{std::to_string(kNow - 59), ""},
           Case{std::to_string(kNow - 59) + ".9", ""},
           Case{std::to_string(kNow - 60), over},
           Case{std::to_string(kNow - 60) + ".9", over},
           Case{std::to_string(kNow - 61), over},
           Case{"0", over},
           Case{"-1", over},
           Case{"-9223372036854775808", over},
           Case{"9223372036854775807", ""},
           Case{"2e9", ""},
           Case{"9223372036854775808", none},
           Case{"1e300", none},
           Case{"-1e300", none},
           Case{"null", none},
           Case{"true", none},
           Case{R"("2000000600")", none},
           Case{"[2000000600]", none},
           Case{"{}", none},
       }) {
    std::string const got = RefusalOfClaims(Claims().With("exp", c.expiry));
    bool const unreadable = got == "its content is no JSON object";  // what the reader itself refuses
    EXPECT_TRUE(got == c.reason || (unreadable && c.reason == none)) << c.expiry << ": " << got;
  }
}

TEST_F(TokenVerifierTest, BeginIsHeldToWithin60Seconds) {
  struct Case {
    std::string begin;
    std::string reason;
  };
  std::string const wrong = "a time in it is no number";
  std::string const early = "it is not valid yet";
  for (char const* const claim : {"nbf", "iat"}) {
    for (Case const& c : {
             Case{std::to_string(kNow), ""},
             Case{std::to_string(kNow + 60), ""},
             Case{std::to_string(kNow + 61), early},
             Case{"0", ""},
             Case{"-1.5", ""},
             Case{"9223372036854775807", early},
             Case{"null", wrong},
             Case{R"("2000000000")", wrong},
             Case{"[]", wrong},
             Case{"false", wrong},
         }) {
      EXPECT_EQ(RefusalOfClaims(Claims().With(claim, c.begin)), c.reason) << claim << " " << c.begin;
    }
  }
}

TEST_F(TokenVerifierTest, AClockSetBackLengthensNoRight) {
  std::string const token = Token(Header().Text(), Claims().Text(), CurveKey());
  EXPECT_EQ(Refusal(token), "");
  wall += 700s;
  steady += 700s;
  EXPECT_EQ(Refusal(token), "it has expired");
  wall -= 700s;
  EXPECT_EQ(Refusal(token), "it has expired");
  wall -= 24h;
  EXPECT_EQ(Refusal(token), "it has expired");
}

TEST_F(TokenVerifierTest, TimeRunsOnWhileTheWallClockStandsStill) {
  std::string const token = Token(Header().Text(), Claims().Text(), CurveKey());
  steady += 659s;
  EXPECT_EQ(Refusal(token), "");
  steady += 1s;
  EXPECT_EQ(Refusal(token), "it has expired");
}

TEST_F(TokenVerifierTest, SubjectIsANameForLogs) {
  EXPECT_EQ(RefusalOfClaims(Claims().With("sub", R"("Zo\u00eb of the lab")")), "");
  EXPECT_EQ(RefusalOfClaims(Claims().With("sub", '"' + std::string(256, 'a') + '"')), "");
  std::string const reason = "it names no subject";
  EXPECT_EQ(RefusalOfClaims(Claims().Without("sub")), reason);
  for (std::string const& bad :
       {std::string(R"("")"), std::string("null"), std::string("1"), std::string(R"(["alice"])"),
        std::string(R"("root\u0000alice")"), std::string(R"("a\nb")"), std::string(R"("a\u007f")"),
        '"' + std::string(257, 'a') + '"'}) {
    EXPECT_EQ(RefusalOfClaims(Claims().With("sub", bad)), reason) << bad;
  }
}

TEST_F(TokenVerifierTest, EntitlementsAreAListOfNames) {
  EXPECT_EQ(RefusalOfClaims(Claims().Without("entitlements")), "");
  EXPECT_EQ(RefusalOfClaims(Claims().With("entitlements", "[]")), "");
  for (char const* const bad : {"null", R"("Task.View")", R"({"Task.View":true})", "[1]",
                                R"(["Task.View",null])", R"([["Task.View"]])", "true"}) {
    EXPECT_EQ(RefusalOfClaims(Claims().With("entitlements", bad)), "its entitlements are no list of names")
        << bad;
  }
}

TEST_F(TokenVerifierTest, UnknownClaimsAreIgnored) {
  EXPECT_EQ(RefusalOfClaims(Claims().With("jti", "1").With("scope", R"("all")").With("@struct", R"("x")")),
            "");
}

}  // namespace

// Tokens as an attacker would send them. Each has to end in a bare Unauthenticated, and nothing of it may
// show.
#include <gtest/gtest.h>

#include "runtime/core/activation.h"
#include "security/token_handler.h"
#include "security/token_text.h"
#include "tests/unit/tokens/token_case.h"

namespace {

using namespace Lumo::Data;
using Ryn::Authn::TokenHandler;

class TokenForgeryTest : public TokenCase {
 protected:
  TokenForgeryTest() {
    auto const context = std::make_shared<Lumo::Core::ExecutionContext>();
    context->securityContext().schemeId = "com.orbane.lumo.std.security.bearer_token";
    activation = Lumo::Core::AsyncActivation::GetInstance(context);
  }

  DataValuePtr Answer(std::string const& token) {
    activation->executionContext()->securityContext().entries["token"] = token;
    DataValuePtr answer;
    int answers = 0;
    handler.Authenticate(activation, [&](DataValuePtr const& value) {
      answer = value;
      ++answers;
    });
    EXPECT_EQ(answers, 1);
    return answer;
  }

  void ExpectGood(std::string const& token) {
    auto const answer = Answer(token);
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer->GetKind(), Kind::Structure) << logger->TakeLines().front();
  }

  void ExpectRefused(std::string const& token, std::string const& reason) {
    logger->TakeLines();
    auto const error = As<ErrorValue>(Answer(token));
    ASSERT_NE(error, nullptr) << token.substr(0, 200);
    EXPECT_EQ(error->name(), "com.orbane.lumo.std.errors.unauthenticated");
    EXPECT_EQ(As<ListValue>(error->Find("messages"))->size(), 0U);
    EXPECT_EQ(As<StringValue>(As<OptionalValue>(error->Find("error_type"))->Inner())->value(),
              "UNAUTHENTICATED");
    auto const lines = logger->TakeLines();
    EXPECT_EQ(lines, std::vector<std::string>{"4 Token authentication failed: " + reason})
        << token.substr(0, 200);
    for (std::size_t begin = 0; begin < token.size();) {
      std::size_t const end = std::min(token.find('.', begin), token.size());
      std::string const part = token.substr(begin, end - begin);
      begin = end + 1;
      if (part.size() > 8) {
        EXPECT_EQ(error->ToString().find(part), std::string::npos);
        for (std::string const& line : lines) {
          EXPECT_EQ(line.find(part), std::string::npos);
        }
      }
    }
  }

  TokenHandler handler{logger, MakeVerifier()};
  std::shared_ptr<Lumo::Core::AsyncActivation> activation;
  std::string const curveToken = Token(Header().Text(), Claims().Text(), CurveKey());
  std::string const rsaToken = Token(RsaHeader().Text(), RsaClaims().Text(), RsaKey());
};

TEST_F(TokenForgeryTest, TheirModelsAreGood) {
  ExpectGood(curveToken);
  ExpectGood(rsaToken);
}

TEST_F(TokenForgeryTest, AlgorithmNone) {
  for (char const* const none : {R"("none")", R"("None")", R"("NONE")", R"("nOnE")"}) {
    std::string const input = SigningInput(Header().With("alg", none).Text(), Claims().Text());
    ExpectRefused(input + ".", "its algorithm is not allowed");
    ExpectRefused(input + curveToken.substr(curveToken.rfind('.')), "its algorithm is not allowed");
  }
  ExpectRefused(curveToken.substr(0, curveToken.rfind('.') + 1), "its signature is wrong");
  ExpectRefused(curveToken.substr(0, curveToken.rfind('.')), "it is not a signed token");
}

TEST_F(TokenForgeryTest, HmacWithThePublicKeyAsSecret) {
  for (char const* const algorithm : {R"("HS256")", R"("HS384")", R"("HS512")"}) {
    ExpectRefused(
        HmacToken(RsaHeader().With("alg", algorithm).Text(), RsaClaims().Text(), RsaKey().PublicPem()),
        "its algorithm is not allowed");
    ExpectRefused(HmacToken(Header().With("alg", algorithm).Text(), Claims().Text(), CurveKey().PublicPem()),
                  "its algorithm is not allowed");
  }
  // The same under an allowed name.
  ExpectRefused(HmacToken(RsaHeader().Text(), RsaClaims().Text(), RsaKey().PublicPem()),
                "its signature is wrong");
}

TEST_F(TokenForgeryTest, AlgorithmOfAnotherKindOfKey) {
  ExpectRefused(Token(RsaHeader().With("alg", R"("ES256")").Text(), RsaClaims().Text(), RsaKey()),
                "its algorithm is not that of its key");
  ExpectRefused(Token(RsaHeader().With("alg", R"("ES256")").Text(), RsaClaims().Text(), CurveKey()),
                "its algorithm is not that of its key");
  ExpectRefused(Token(Header().With("alg", R"("RS256")").Text(), Claims().Text(), CurveKey()),
                "its algorithm is not that of its key");
}

TEST_F(TokenForgeryTest, SignedWithAnotherKey) {
  ExpectRefused(Token(Header().Text(), Claims().Text(), OtherCurveKey()), "its signature is wrong");
  ExpectRefused(Token(RsaHeader().Text(), RsaClaims().Text(), SigningKey::Rsa(2048)),
                "its signature is wrong");
}

TEST_F(TokenForgeryTest, SignedByAnotherIssuer) {
  ExpectRefused(Token(Header().Text(), RsaClaims().Text(), CurveKey()), "its issuer is not its key's");
  ExpectRefused(Token(RsaHeader().Text(), Claims().Text(), RsaKey()), "its issuer is not its key's");
}

TEST_F(TokenForgeryTest, KeyBroughtAlong) {
  std::string const jwk = R"({"kty":"EC","crv":"P-256","x":"AA","y":"AA"})";
  for (JsonObject const& header : {Header().With("jwk", jwk), Header().With("jku", R"("http://127.0.0.1/k")"),
                                   Header().With("x5c", R"(["AAAA"])")}) {
    ExpectRefused(Token(header.Text(), Claims().Text(), OtherCurveKey()), "its signature is wrong");
  }
}

TEST_F(TokenForgeryTest, KeyFromSomewhereElse) {
  std::ofstream(folder.root() / "planted.pem") << OtherCurveKey().PublicPem();
  ASSERT_EQ(chmod((folder.root() / "planted.pem").c_str(), 0644), 0);
  for (char const* const kid : {R"("../planted")", R"("..\/planted")", R"("..\u002fplanted")", R"("./lab")",
                                R"("lab\u0000.pem")", R"("lab.pem\u0000")"}) {
    JsonObject const header = Header().With("kid", kid);
    ExpectRefused(Token(header.Text(), Claims().With("iss", kid).Text(), OtherCurveKey()), "it names no key");
  }
}

TEST_F(TokenForgeryTest, PartsOfTwoTokens) {
  std::string const other = Token(Header().Text(), Claims().With("sub", R"("root")").Text(), CurveKey());
  std::size_t const ends = curveToken.rfind('.');
  ExpectRefused(other.substr(0, other.rfind('.')) + curveToken.substr(ends), "its signature is wrong");
}

TEST_F(TokenForgeryTest, SignaturesOfOtherLengths) {
  std::string const begin = curveToken.substr(0, curveToken.rfind('.') + 1);
  std::string const signature = CurveKey().Sign(begin.substr(0, begin.size() - 1));
  ExpectGood(begin + Base64Url(signature));
  for (std::string const& changed :
       {signature + '\0', '\0' + signature, signature.substr(0, 63), signature.substr(0, 32),
        std::string(64, '\0'), std::string(1, '\0'), std::string(2048, '\1')}) {
    ExpectRefused(begin + Base64Url(changed), "its signature is wrong");
  }
  std::string const rsaBegin = rsaToken.substr(0, rsaToken.rfind('.') + 1);
  for (std::size_t const size : {1U, 255U, 257U}) {
    ExpectRefused(rsaBegin + Base64Url(std::string(size, '\1')), "its signature is wrong");
  }
  ExpectRefused(rsaBegin + Base64Url(std::string(256, '\xff')), "its signature is wrong");
}

TEST_F(TokenForgeryTest, OtherSpellingsOfAGoodToken) {
  std::string const reason = "it is not a signed token";
  ExpectRefused(curveToken + "=", reason);
  ExpectRefused(curveToken + "\n", reason);
  ExpectRefused(" " + curveToken, reason);
  ExpectRefused(curveToken + ".", reason);
  ExpectRefused("." + curveToken, reason);
  ExpectRefused(curveToken + std::string(1, '\0'), reason);
  std::string unusedBits = curveToken;  // 64 bytes leave four bits of the last character
  unusedBits.back() = static_cast<char>(unusedBits.back() + 1);
  ExpectRefused(unusedBits, reason);
}

TEST_F(TokenForgeryTest, EncryptedTokensAndOthersForms) {
  ExpectRefused(Base64Url(R"({"alg":"dir","enc":"A128GCM","kid":"lab"})") + "..AAAA.AAAA.AAAA",
                "it is not a signed token");
  ExpectRefused(R"({"payload":"AAAA","protected":"AAAA","signature":"AAAA"})", "it is not a signed token");
}

TEST_F(TokenForgeryTest, WhatIsNoTokenAtAll) {
  for (std::string const& text :
       {std::string(), std::string("."), std::string("root"), std::string("Bearer x"),
        std::string("\xff\xfe.a.b"), std::string("%00"), std::string(3, '\0'), std::string(1'000'000, 'A'),
        std::string(1'000'000, '.')}) {
    ExpectRefused(text, "it is not a signed token");
  }
  ExpectRefused("..", "its header is no JSON object");
}

TEST_F(TokenForgeryTest, HeadersThatAreNoJsonObject) {
  std::string const good = Header().Text();
  for (std::string const& header :
       {std::string("{"), std::string("[]"), std::string("null"), std::string("\"ES256\""), std::string("7"),
        good + " x", good + good, good + '\0', "\xef\xbb\xbf" + good, std::string("{\"alg\":\"\xff\"}"),
        std::string(R"({"alg":"ES256","alg":"ES256","kid":"lab"})"),
        std::string(R"({"alg":"none","kid":"lab","alg":"ES256"})"),
        std::string(R"({"alg":"ES256","kid":"works","kid":"lab"})"), std::string(1500, '['),
        std::string("{'alg':'ES256','kid':'lab'}"), std::string(R"({"alg":"ES256","kid":"lab","x":1e999})"),
        std::string(R"({"alg":"ES256","kid":"lab","x":"\ud800"})")}) {
    ExpectRefused(Token(header, Claims().Text(), CurveKey()), "its header is no JSON object");
  }
}

TEST_F(TokenForgeryTest, ClaimsThatAreNoJsonObject) {
  std::string const good = Claims().Text();
  std::string const twice = good.substr(0, good.size() - 1);
  for (std::string const& claims :
       {std::string(), std::string("{"), std::string("[]"), std::string("null"), std::string("7"), good + "x",
        good + good, good + '\0', "\xef\xbb\xbf" + good, twice + R"(,"exp":9999999999})",
        twice + R"(,"sub":"root"})", twice + R"(,"entitlements":["Software.Apply"]})",
        twice + ",\"x\":\"\xc3\"}", std::string(1500, '{')}) {
    ExpectRefused(Token(Header().Text(), claims, CurveKey()), "its content is no JSON object");
  }
}

TEST_F(TokenForgeryTest, RightsThatAreOver) {
  ExpectRefused(Token(Header().Text(), Claims().With("exp", std::to_string(kNow - 61)).Text(), CurveKey()),
                "it has expired");
  ExpectRefused(Token(Header().Text(), Claims().Without("exp").Text(), CurveKey()),
                "it has no time of expiry");
  ExpectRefused(Token(Header().Text(), Claims().With("nbf", std::to_string(kNow + 61)).Text(), CurveKey()),
                "it is not valid yet");
  ExpectRefused(Token(Header().Text(), Claims().With("aud", R"("other")").Text(), CurveKey()),
                "it is meant for another audience");
  ExpectRefused(Token(Header().With("crit", R"(["exp"])").Text(), Claims().Text(), CurveKey()),
                "it asks for extensions");
}

TEST_F(TokenForgeryTest, TokensOfARemovedKey) {
  std::filesystem::remove(folder.file("lab"));
  ExpectRefused(curveToken, "its key is not known");
}

TEST_F(TokenForgeryTest, TokensOfAPlantedKey) {
  std::filesystem::remove(folder.file("lab"));
  std::ofstream(folder.root() / "planted.pem") << CurveKey().PublicPem();
  std::filesystem::create_symlink("../planted.pem", folder.file("lab"));
  Answer(curveToken);  // the link is logged once
  ExpectRefused(curveToken, "its key is not known");
}

TEST_F(TokenForgeryTest, EveryBeginningOfAToken) {
  for (std::size_t size = 0; size < curveToken.size(); ++size) {
    EXPECT_NE(As<ErrorValue>(Answer(curveToken.substr(0, size))), nullptr) << size;
  }
}

TEST_F(TokenForgeryTest, EveryChangedByte) {
  for (std::size_t i = 0; i < curveToken.size(); ++i) {
    for (char const c : {'A', '.', '\0', '\xff'}) {
      std::string changed = curveToken;
      changed[i] = c;
      if (changed != curveToken) {
        EXPECT_NE(As<ErrorValue>(Answer(changed)), nullptr) << i;
      }
    }
  }
}

}  // namespace

#include "security/token_text.h"

#include <algorithm>

#include "runtime/json/base64.h"

namespace Ryn::Authn {
namespace {

constexpr std::size_t kGroup = 4;  // characters that stand for whole bytes

}  // namespace

std::optional<std::string> DecodeBase64Url(std::string_view text) {
  if (text.find_first_of("+/=") != std::string_view::npos) {
    return std::nullopt;
  }
  std::string standard(text);
  std::replace(standard.begin(), standard.end(), '-', '+');
  std::replace(standard.begin(), standard.end(), '_', '/');
  standard.append((kGroup - standard.size() % kGroup) % kGroup, '=');
  auto const size = Lumo::Protocol::Json::DecodeBase64(standard, standard.data());
  if (!size) {
    return std::nullopt;
  }
  standard.resize(*size);
  return standard;
}

std::optional<TokenParts> SplitToken(std::string_view token) {
  if (token.size() > kMostTokenBytes || std::count(token.begin(), token.end(), '.') != 2) {
    return std::nullopt;
  }
  std::size_t const first = token.find('.');
  std::size_t const second = token.find('.', first + 1);
  auto header = DecodeBase64Url(token.substr(0, first));
  auto payload = DecodeBase64Url(token.substr(first + 1, second - first - 1));
  auto signature = DecodeBase64Url(token.substr(second + 1));
  if (!header || !payload || !signature) {
    return std::nullopt;
  }
  return TokenParts{std::move(*header), std::move(*payload), std::move(*signature)};
}

}  // namespace Ryn::Authn

#include "transport/update_execution_ctx_helper.h"

#include <algorithm>
#include <array>
#include <boost/utility/string_view.hpp>
#include <optional>
#include <string>

#include "runtime/json/base64.h"
#include "transport/text.h"

namespace Lumo::Provider::JsonRpc1_1 {

namespace {

/// Nothing for malformed base64 and for no base64 at all.
std::optional<std::string> Decoded(boost::string_view base64) {
  std::string bytes(base64.begin(), base64.end());
  std::optional<std::size_t> const size = Protocol::Json::DecodeBase64(bytes, bytes.data());
  if (bytes.empty() || !size) {
    return std::nullopt;
  }
  bytes.resize(*size);
  return bytes;
}

bool HoldsControl(boost::string_view text) noexcept {
  return std::any_of(text.begin(), text.end(), [](char c) {
    auto const byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
  });
}

boost::string_view TrimFront(boost::string_view text) noexcept {
  while (!text.empty() && text.front() == ' ') {
    text.remove_prefix(1);
  }
  return text;
}

/// RFC 7617: user-id and password are split by the first colon and hold no control characters.
Core::SecurityContext UserPassContext(boost::string_view credentials) {
  Core::SecurityContext security;
  std::optional<std::string> const decoded = Decoded(credentials);
  if (!decoded || HoldsControl(*decoded)) {
    return security;
  }
  std::size_t const colon = decoded->find(':');
  if (colon == std::string::npos) {
    return security;
  }
  security.schemeId = "com.orbane.lumo.std.security.user_pass";
  security.entries.emplace("userName", decoded->substr(0, colon));
  security.entries.emplace("password", decoded->substr(colon + 1));
  return security;
}

/// RFC 6750: one token without blanks.
Core::SecurityContext BearerContext(boost::string_view token) {
  Core::SecurityContext security;
  bool const malformed = token.empty() || HoldsControl(token) || token.find(' ') != boost::string_view::npos;
  if (!malformed) {
    security.schemeId = "com.orbane.lumo.std.security.bearer_token";
    security.entries.emplace("token", std::string(token.begin(), token.end()));
  }
  return security;
}

Core::SecurityContext SecurityContextOf(boost::string_view authorization) {
  std::size_t const blank = std::min(authorization.find(' '), authorization.size());
  boost::string_view const scheme = authorization.substr(0, blank);
  boost::string_view const credentials = TrimFront(authorization.substr(blank));
  if (StrICmp(scheme, "Basic") == 0) {
    return UserPassContext(credentials);
  }
  if (StrICmp(scheme, "Bearer") == 0) {
    return BearerContext(credentials);
  }
  return {};
}

/// The application entry that a header fills, null for any other header.
char const* EntryFor(boost::string_view headerName) noexcept {
  struct Entry {
    boost::string_view header;
    char const* entry;
  };
  static constexpr std::array<Entry, 4> kEntries{{
      {"lumo-ctx-opid", "opId"},
      {"accept-language", "accept-language"},
      {"lumo-ctx-format-locale", "lumo-ctx-format-locale"},
      {"lumo-ctx-timezone", "lumo-ctx-timezone"},
  }};
  auto const* const found = std::find_if(kEntries.begin(), kEntries.end(), [headerName](Entry const& entry) {
    return entry.header == headerName;
  });
  return found == kEntries.end() ? nullptr : found->entry;
}

}  // namespace

bool UpdateExecutionCtxHelper::Update(Transport::Http::HeaderRange& headers,
                                      Core::MethodIdentifier const& method, Core::ExecutionContext& context,
                                      std::shared_ptr<ContextUpdate const> const& update) {
  int authorizations = 0;
  for (headers.reset(); !headers.atEnd(); headers.advance()) {
    boost::string_view const name = headers.current().name();
    boost::string_view const value = headers.current().value();
    if (name == "authorization") {
      context.securityContext() = ++authorizations == 1 ? SecurityContextOf(value) : Core::SecurityContext();
    } else if (name == "lumo-service") {
      if (value != boost::string_view(method.service())) {
        return false;
      }
    } else if (name == "lumo-operation") {
      if (value != boost::string_view(method.operation())) {
        return false;
      }
    } else if (char const* const entry = EntryFor(name)) {
      context.applicationData()[entry] = std::string(value.begin(), value.end());
    }
  }
  if (update) {
    headers.reset();
    update->Update(headers, context);
  }
  return true;
}

}  // namespace Lumo::Provider::JsonRpc1_1

// What a request's headers say about the serialisation in each direction.
#pragma once

#include <boost/utility/string_view.hpp>
#include <cstdint>
#include <memory>
#include <string>

#include "runtime/json/serializers.h"
#include "transport/header.h"

namespace Lumo::Transport::Http {

/// The media types, one bit each. A mask of them says which texts occur in a header value.
namespace MediaType {
inline constexpr std::uint32_t kJson = 1;
inline constexpr std::uint32_t kCleanJson = 2;
inline constexpr std::uint32_t kFramed = 4;
inline constexpr std::uint32_t kCleanFramed = 8;
inline constexpr std::uint32_t kStream = 16;
inline constexpr std::uint32_t kCleanStream = 32;

/// The flags of all media types whose text is part of `headerValue`; case matters.
std::uint32_t MaskOf(boost::string_view headerValue) noexcept;
/// The media type of one flag; empty for anything else.
boost::string_view TextOf(std::uint32_t flag) noexcept;
}  // namespace MediaType

/// Outcome of the protocol selection, one a request. An empty deserializer means a request that can't be
/// understood.
struct RequestSpecExtractor {
  /// Walks the range from its start. Header names are lower case and sorted.
  static std::shared_ptr<RequestSpecExtractor const> Extract(HeaderRange& headers);

  std::uint64_t contentLength = 0;
  std::string contentType;
  std::shared_ptr<Protocol::Json::JsonApiRequestDeserializer> deserializer;
  std::shared_ptr<Core::ApiResponseSerializer> serializer;
  bool isStream = false;
  /// Nothing sets it: framed requests have no deserializer.
  bool isFramed = false;
  bool keepAlive = true;
  std::uint32_t contentTypeMask = 0;
  std::uint32_t responseFormat = MediaType::kJson;
};

}  // namespace Lumo::Transport::Http

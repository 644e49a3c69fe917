#include "transport/request_spec_extractor.h"

#include "runtime/core/recycled.h"
#include "transport/text.h"

namespace Lumo::Transport::Http {

namespace MediaType {

namespace {
struct Entry {
  std::uint32_t flag;
  boost::string_view text;
};

constexpr Entry kTypes[] = {
    {kJson, "application/json"},
    {kCleanJson, "application/vnd.orbane.lumo.cleanjson"},
    {kFramed, "application/vnd.orbane.lumo.framed"},
    {kCleanFramed, "application/vnd.orbane.lumo.cframed.cleanjson"},
    {kStream, "application/vnd.orbane.lumo.stream.json"},
    {kCleanStream, "application/vnd.orbane.lumo.clean.stream.json"},
};
}  // namespace

std::uint32_t MaskOf(boost::string_view headerValue) noexcept {
  std::uint32_t mask = 0;
  for (Entry const& type : kTypes) {
    if (headerValue.find(type.text) != boost::string_view::npos) {
      mask |= type.flag;
    }
  }
  return mask;
}

boost::string_view TextOf(std::uint32_t flag) noexcept {
  for (Entry const& type : kTypes) {
    if (type.flag == flag) {
      return type.text;
    }
  }
  return {};
}

}  // namespace MediaType

namespace {

std::uint32_t ResponseFormatOf(std::uint32_t acceptMask) noexcept {
  for (std::uint32_t flag : {MediaType::kCleanStream, MediaType::kStream, MediaType::kCleanJson}) {
    if ((acceptMask & flag) != 0) {
      return flag;
    }
  }
  return MediaType::kJson;
}

/// Serialisers and deserialiser have no state: one of each serves all requests.
std::shared_ptr<Core::ApiResponseSerializer> SerializerFor(std::uint32_t format) {
  static auto const full = std::make_shared<Protocol::Json::JsonApiResponseSerializer<0UL>>();
  static auto const direct = std::make_shared<Protocol::Json::JsonApiDirectResponseSerializer<0UL>>();
  switch (format) {
    case MediaType::kCleanJson:
    case MediaType::kCleanFramed:
    case MediaType::kCleanStream:
      return direct;
    default:
      return full;
  }
}

std::shared_ptr<Protocol::Json::JsonApiRequestDeserializer> Deserializer() {
  static auto const deserializer = std::make_shared<Protocol::Json::JsonApiRequestDeserializer>();
  return deserializer;
}

bool SaysClose(boost::string_view connection) {
  std::string value(connection.begin(), connection.end());
  InplaceLower(value);
  return value.find("close") != std::string::npos;
}

}  // namespace

std::shared_ptr<RequestSpecExtractor const> RequestSpecExtractor::Extract(HeaderRange& headers) {
  auto spec = Core::MakeRecycled<RequestSpecExtractor>();
  bool contentTypeSeen = false;
  bool acceptSeen = false;
  bool connectionSeen = false;
  for (headers.reset(); !headers.atEnd() && !(contentTypeSeen && acceptSeen && connectionSeen);
       headers.advance()) {
    boost::string_view const name = headers.current().name();
    boost::string_view const value = headers.current().value();
    if (name == "content-type") {
      spec->contentTypeMask = MediaType::MaskOf(value);
      spec->contentType.assign(value.begin(), value.end());
      if (spec->contentTypeMask == MediaType::kJson) {
        spec->deserializer = Deserializer();
      }
      contentTypeSeen = true;
    } else if (name == "accept") {
      spec->responseFormat = ResponseFormatOf(MediaType::MaskOf(value));
      spec->serializer = SerializerFor(spec->responseFormat);
      spec->isStream |= value.find(".stream.json") != boost::string_view::npos;
      acceptSeen = true;
    } else if (name == "connection") {
      spec->keepAlive &= !SaysClose(value);
      connectionSeen = true;
    } else if (name == "content-length") {
      // A value that is no number was refused with the head.
      static_cast<void>(Detail::ParseUnsigned(value, spec->contentLength));
    }
  }
  if (!acceptSeen) {
    spec->serializer = SerializerFor(spec->responseFormat);
  }
  return spec;
}

}  // namespace Lumo::Transport::Http

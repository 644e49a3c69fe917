#include "platform/text/text.h"

#include <openssl/evp.h>
#include <utf8.h>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

namespace {

/// Length of "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx": 32 hexadecimal digits and 4 dashes.
constexpr std::size_t kUuidTextLength = 32 + 4;
constexpr char kUrnPrefix[] = "urn:uuid:";

}  // namespace

bool CodeSet_Validate(char const* bytes, std::size_t length, char const* encoding) {
  return std::strcmp(encoding, "UTF-8") == 0 && utf8::is_valid(bytes, bytes + length);
}

char* Str_SafeAsprintf(std::size_t* length, char const* format, ...) {
  char* text = nullptr;
  va_list arguments;
  va_start(arguments, format);
  int const written = vasprintf(&text, format, arguments);
  va_end(arguments);
  if (written < 0) {
    text = nullptr;  // its content is undefined after a failure
  }
  if (length != nullptr) {
    *length = written < 0 ? 0 : static_cast<std::size_t>(written);
  }
  return text;
}

bool CryptoHash_ComputeSHA256(void const* data, std::size_t length, std::uint8_t* digest) {
  return EVP_Digest(data, length, digest, nullptr, EVP_sha256(), nullptr) == 1;
}

char* UUID_CreateRandom() {
  try {
    // The pure generator asks the kernel each time, so a fork can't repeat a sequence.
    return strdup(boost::uuids::to_string(boost::uuids::random_generator_pure()()).c_str());
  } catch (std::exception const&) {
    return nullptr;
  }
}

char* UUID_PackText(char* destination, char const* source, std::size_t length) {
  if (destination == nullptr || source == nullptr || length < kUuidTextLength) {
    return nullptr;
  }
  if (strncasecmp(source, kUrnPrefix, sizeof kUrnPrefix - 1) == 0) {
    source += sizeof kUrnPrefix - 1;
  }
  try {
    std::string const packed = boost::uuids::to_string(boost::uuids::string_generator()(source));
    std::memcpy(destination, packed.c_str(), packed.size() + 1);
    return destination;
  } catch (std::exception const&) {
    return nullptr;
  }
}

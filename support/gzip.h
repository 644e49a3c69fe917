// Gzip text in memory.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace LifeCycle {

/// A text is not gzip, is cut off, or inflates to more than the limit.
class GzipError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Output of GzipDecompress in bytes, inclusive: far above any result that a task stores.
constexpr std::size_t kGzipOutputLimit = std::size_t{64} << 20;

/// More than two bytes that begin with the gzip magic.
bool IsGzip(std::string_view text);

/// One member without file name, comment and time stamp, so equal texts give equal bytes.
std::string GzipCompress(std::string_view text);

/// Throws GzipError.
std::string GzipDecompress(std::string_view text, std::size_t limit = kGzipOutputLimit);

}  // namespace LifeCycle

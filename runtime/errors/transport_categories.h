// Failures of the wire: the two categories that travel with socket errors.
#pragma once

#include <boost/system/error_code.hpp>
#include <string>

// The library's base class has no virtual destructor; categories are static objects and never destroyed
// through it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

namespace Lumo::Transport::Http::Error {

enum class Errc { FrameParse = 1, MessageTooLong = 2, EndOfBody = 3 };

/// Message framing.
class transport_category final : public boost::system::error_category {
 public:
  static transport_category const& Instance() noexcept;
  char const* name() const noexcept override;
  std::string message(int code) const override;
};

boost::system::error_code make_error_code(Errc code) noexcept;

}  // namespace Lumo::Transport::Http::Error

namespace Lumo::Transport::PicoHttp::Error {

enum class Errc {
  HeadersParse = 1,
  ChunkParse = 2,
  Protocol = 3,
  ListenFailed = 4,
  InvalidRequest = 5,
  IncompleteBody = 6,
  HeadersTooLong = 7,
};

/// Reading of requests.
class transport_category final : public boost::system::error_category {
 public:
  static transport_category const& Instance() noexcept;
  char const* name() const noexcept override;
  std::string message(int code) const override;
};

boost::system::error_code make_error_code(Errc code) noexcept;

}  // namespace Lumo::Transport::PicoHttp::Error

#pragma GCC diagnostic pop

template <>
struct boost::system::is_error_code_enum<Lumo::Transport::Http::Error::Errc> : std::true_type {};
template <>
struct boost::system::is_error_code_enum<Lumo::Transport::PicoHttp::Error::Errc> : std::true_type {};

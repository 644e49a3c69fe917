#include "runtime/errors/transport_categories.h"

#include "runtime/errors/message_table.h"

namespace Lumo::Transport::Http::Error {

transport_category const& transport_category::Instance() noexcept {
  static transport_category const instance;
  return instance;
}

char const* transport_category::name() const noexcept {
  return "Lumo Transport Http";
}

std::string transport_category::message(int code) const {
  static constexpr std::string_view kTexts[] = {"frame parse error", "message too long", "end of body"};
  return Lumo::Detail::MessageFromTable(kTexts, "transport error", code);
}

boost::system::error_code make_error_code(Errc code) noexcept {
  return {static_cast<int>(code), transport_category::Instance()};
}

}  // namespace Lumo::Transport::Http::Error

namespace Lumo::Transport::PicoHttp::Error {

transport_category const& transport_category::Instance() noexcept {
  static transport_category const instance;
  return instance;
}

char const* transport_category::name() const noexcept {
  return "Lumo Transport PicoHttp";
}

std::string transport_category::message(int code) const {
  static constexpr std::string_view kTexts[] = {
      "headers parse error", "chunk parse error", "http protocol error",   "server failed to listen",
      "invalid request",     "incomplete body",   "http headers too long",
  };
  return Lumo::Detail::MessageFromTable(kTexts, "transport error", code);
}

boost::system::error_code make_error_code(Errc code) noexcept {
  return {static_cast<int>(code), transport_category::Instance()};
}

}  // namespace Lumo::Transport::PicoHttp::Error

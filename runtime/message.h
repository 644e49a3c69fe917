// Messages of errors and task records: an id, a default text and the arguments.
#pragma once

#include <initializer_list>
#include <list>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>

namespace Lumo {

/// One message. The constructor keeps `defaultMessage` as it is; formatting is MakeMessage's work.
/// Messages are localised at the edge only, so id, text and arguments travel together.
class BaseMessage {
 public:
  BaseMessage() = default;
  BaseMessage(std::string const& id, std::string const& defaultMessage, std::list<std::string> const& args)
      : id_(id), defaultMessage_(defaultMessage), args_(args) {}

  std::string const& id() const { return id_; }
  std::string const& defaultMessage() const { return defaultMessage_; }
  std::list<std::string> const& args() const { return args_; }

  friend bool operator==(BaseMessage const&, BaseMessage const&) = default;

 private:
  std::string id_;
  std::string defaultMessage_;
  std::list<std::string> args_;
};

using MessageList = std::list<BaseMessage>;

/// The text of a template ("{1}", "{}", "{{") with its arguments. A template that asks for more arguments
/// than there are sets `ec` and gives the text up to that place.
std::string FormatMessage(std::string_view messageTemplate, std::list<std::string> const& args,
                          std::error_code& ec);

/// Formats `messageTemplate` ("{1}", "{}", "{{") with `args` and keeps the arguments. A template that asks
/// for more arguments than there are gives the text up to that place.
BaseMessage MakeMessageFromList(std::string const& id, std::string const& messageTemplate,
                                std::list<std::string> const& args);

namespace Detail {
inline std::string MessageArgument(std::string_view text) {
  return std::string(text);
}
template <typename Number, typename = std::enable_if_t<std::is_integral_v<Number>>>
std::string MessageArgument(Number number) {
  return std::to_string(number);
}
}  // namespace Detail

/// `args` are texts or integers.
template <typename... Args>
BaseMessage MakeMessage(std::string const& id, std::string const& messageTemplate, Args const&... args) {
  return MakeMessageFromList(id, messageTemplate, std::list<std::string>{Detail::MessageArgument(args)...});
}

struct CoreTag {};

/// The runtime's own messages ("lumo." ids), whose texts are built in.
template <typename Tag>
class Message;

template <>
class Message<CoreTag> {
 public:
  /// The built-in template of a "lumo." id; the id itself when it is unknown.
  static std::string const& DefaultMessageForId(std::string const& id);

  template <typename... Args>
  static BaseMessage Make(std::string const& id, Args const&... args) {
    return MakeMessage(id, DefaultMessageForId(id), args...);
  }
};

}  // namespace Lumo

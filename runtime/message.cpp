#include "runtime/message.h"

#include <sstream>
#include <vector>

#include "runtime/l10n/format.h"

namespace Lumo {

std::string FormatMessage(std::string_view messageTemplate, std::list<std::string> const& args,
                          std::error_code& ec) {
  std::vector<Detail::format_arg> formatArgs;
  formatArgs.reserve(args.size());
  for (std::string const& arg : args) {
    formatArgs.emplace_back(arg);
  }
  std::ostringstream text;
  Detail::FormatTo(text, boost::string_view(messageTemplate.data(), messageTemplate.size()),
                   formatArgs.data(), formatArgs.size(), ec);
  return std::move(text).str();
}

BaseMessage MakeMessageFromList(std::string const& id, std::string const& messageTemplate,
                                std::list<std::string> const& args) {
  std::error_code ignored;
  std::string text = FormatMessage(messageTemplate, args, ignored);
  return {id, text, args};
}

}  // namespace Lumo

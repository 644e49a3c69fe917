#include "support/api_error.h"

#include "platform/logging/logging.h"

namespace LifeCycle {

void LogAdaptMessages(char const* tag, Lumo::MessageList const& messages) {
  std::string text;
  for (Lumo::BaseMessage const& message : messages) {
    text += text.empty() ? "" : "; ";
    text += message.defaultMessage();
  }
  CSLogger::Log(0, "[%s] Could not adapt to native types : %s", tag, text.c_str());
}

}  // namespace LifeCycle

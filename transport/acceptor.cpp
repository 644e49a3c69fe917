#include "transport/acceptor.h"

#include "runtime/errors/string_of_error.h"

namespace Lumo::Asio {

AcceptError AcceptError::From(boost::system::error_code const& error) {
  AcceptError outcome;
  outcome.error = error;
  if (error) {
    outcome.bits = error == boost::asio::error::no_descriptors ? kDelayAcceptError : kTerminalAcceptError;
  }
  return outcome;
}

std::string AcceptError::ToString() const {
  if (!error && bits == 0) {
    return "NoError";
  }
  std::string line = StringOfError(error);
  if (Terminal()) {
    line += ";TerminalAcceptError";
  }
  if (Delay()) {
    line += ";DelayAcceptError";
  }
  if (!text.empty()) {
    line += ";" + text;
  }
  return line;
}

}  // namespace Lumo::Asio

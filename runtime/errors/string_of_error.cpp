#include "runtime/errors/string_of_error.h"

namespace Lumo {

std::string StringOfError(boost::system::error_code const& error) {
  return std::string(error.category().name()) + ":" + std::to_string(error.value());
}

std::string StringOfError(std::error_code const& error) {
  return std::string("std:") + error.category().name() + ":" + std::to_string(error.value());
}

}  // namespace Lumo

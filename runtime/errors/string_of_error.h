#pragma once

#include <boost/system/error_code.hpp>
#include <string>
#include <system_error>

namespace Lumo {

/// Printable form for logs and message arguments: category name, ":", decimal value.
std::string StringOfError(boost::system::error_code const& error);
/// The same for a standard error code, with "std:" in front.
std::string StringOfError(std::error_code const& error);

}  // namespace Lumo

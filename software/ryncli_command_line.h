// The pieces of a command line of the administration tool: what may stand on it, and in which form.
#pragma once

#include <list>
#include <string>

#include "bindings/com/orbane/ryn/keel_daemon/data_processing_unit/ryncli_svc.h"

// The line is split into words as a shell would, so these checks are the only guard on what it holds. They
// take any length: matching needs time in proportion to it and no stack. All throw std::regex_error where a
// pattern can't be compiled and std::bad_alloc, nothing else. Any thread.
namespace Com::Orbane::Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc {

/// The program with its options; empty for an unknown value.
std::string PrefixText(Prefix const& prefix);
/// The words of the command; empty for an unknown value.
std::string CommandText(Command const& command);

/// Appends " --depot " and the depot to `command` for each depot up to the first that is refused. False when
/// one is, and for an empty list.
bool IsValidDepots(std::list<std::string> const& depots, std::string& command);

/// Whether `value` is the http address of a JSON document.
bool IsValidSpecUrl(std::string const& value);

/// Whether `text` may be a flag or, with `allowColonForms`, the value of one. With a colon in it a value has
/// to have the form a:b or a:b:c of plain names, and the filter for unsafe characters isn't asked; otherwise
/// the filter alone decides.
bool IsValidArgument(std::string const& text, bool allowColonForms);

}  // namespace Com::Orbane::Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc

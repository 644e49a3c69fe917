// Decisions about answers that depend on nothing but their arguments.
#pragma once

#include <boost/system/error_code.hpp>
#include <cstdint>
#include <memory>
#include <string>

#include "runtime/core/method.h"
#include "runtime/data/value.h"
#include "transport/request_spec_extractor.h"

namespace Lumo::Transport::Http {

using ErrorPtr = std::shared_ptr<Data::ErrorValue const>;

enum class Direction { Receive, Send };

/// Null for no error; else "system_error" with one message, "lumo.recv.failed" or "lumo.send.failed", whose
/// argument is the text of `error`.
ErrorPtr ToErrorValue(boost::system::error_code const& error, Direction direction);

/// What to do with one result of a call.
struct ResultPlan {
  /// Answer an internal error instead of the result.
  bool internalError;
  /// The flag that the serialiser gets.
  bool isStream;
  /// The response ends here.
  bool last;
};

/// `next`: the result came with a continuation. `stream`: the client asked for a result stream.
ResultPlan PlanResult(bool next, bool stream, Core::MethodResult const& result);

/// The result that stands in for a final one without error.
std::shared_ptr<Core::MethodResult const> InternalErrorResult();

/// The error in the body of the answer to a request that can't be understood: "code" 400 and "message". Which
/// one depends on the request; `bodySizeLimit` is in bytes.
std::shared_ptr<Data::ErrorValue const> InvalidRequestError(RequestSpecExtractor const& spec,
                                                            std::uint64_t bodySizeLimit);

/// That error as text; the client's wishes are of no account.
std::string InvalidRequestBody(RequestSpecExtractor const& spec, std::uint64_t bodySizeLimit);

}  // namespace Lumo::Transport::Http

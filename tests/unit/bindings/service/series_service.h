// A service whose operation answers with several results, for tests of everything that takes results.
#pragma once

#include <memory>
#include <string>

#include "runtime/provider/interface.h"

namespace TestService {

/// What has become of the calls.
struct SeriesLog {
  int delivered = 0;
  int stopped = 0;  // by a continuation with a null callback
};

/// The service "com.orbane.test.series" with the operation "count": input {"to": integer}, results 1 to `to`,
/// each delivered when the one before was taken; all but the last have a continuation. The last is not marked
/// final, as little as the result of any method; `to` of 0 or less is a single error InvalidArgument. With
/// "final" true in the input a final result without output follows the last.
std::shared_ptr<Lumo::Provider::AsyncApiInterface const> MakeSeriesService(std::shared_ptr<SeriesLog> log);

}  // namespace TestService

// What the image manager knows of the host's base image.
#pragma once

#include "bindings/com/orbane/ryn/hosts/software/ryn_svc.h"

namespace Com::Orbane::Ryn::Hosts::Software::RynSvc {

/// Without state. The call runs the tool in the foreground and blocks its thread until it has ended. A tool
/// that prints no JSON makes it throw LifeCycle::LumoJsonSerializationError, which the binder answers.
class AsyncServiceImpl final : public AsyncServiceInterface {
 public:
  void Get(std::shared_ptr<GetInput const> const& input,
           ::Lumo::AsyncResult<std::shared_ptr<Info const>> const& result) override;
};

}  // namespace Com::Orbane::Ryn::Hosts::Software::RynSvc

// What the image manager knows of the host's components.
#pragma once

#include "bindings/com/orbane/ryn/hosts/software/components_svc.h"

namespace Com::Orbane::Ryn::Hosts::Software::ComponentsSvc {

/// Without state. Each call runs the tool in the foreground and blocks its thread until it has ended. A tool
/// that prints no JSON makes a method throw LifeCycle::LumoJsonSerializationError, which the binder answers.
class AsyncServiceImpl final : public AsyncServiceInterface {
 public:
  void Get(std::shared_ptr<GetInput const> const& input,
           ::Lumo::AsyncResult<std::shared_ptr<Info const>> const& result) override;
  void List(std::shared_ptr<ListInput const> const& input,
            ::Lumo::AsyncResult<std::list<std::shared_ptr<Summary const>>> const& result) override;
};

}  // namespace Com::Orbane::Ryn::Hosts::Software::ComponentsSvc

#include "security/error_annotator_filter.h"

#include "support/originator.h"

namespace Host::Settings::SettingsApi::Filter {
namespace {

constexpr char kOriginatorField[] = "__originator__";

void Annotate(std::shared_ptr<Lumo::Data::ErrorValue const> const& error) {
  static auto const originator = Lumo::Data::StringValue::GetInstance(LifeCycle::GetBaseOriginatorId());
  if (error && !error->HasField(kOriginatorField)) {
    // In place: services hand their errors over, and nobody else reads them yet.
    const_cast<Lumo::Data::ErrorValue&>(*error).SetField(kOriginatorField, originator);
  }
}

}  // namespace

void ErrorAnnotatorFilter::Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& method,
                                  Lumo::Data::DataValuePtr const& input,
                                  std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
                                  Lumo::Core::AsyncApiResultCb const& callback) {
  next_->Invoke(
      method, input, activation,
      Lumo::Core::AsyncApiResultCb([callback](std::shared_ptr<Lumo::Core::MethodResult const> const& result,
                                              Lumo::Progress const& progress,
                                              Lumo::Core::AsyncApiResultCb::Continuation&& more) {
        if (result && (!result->output() || result->error())) {
          try {
            Annotate(result->error());
          } catch (...) {
            // The caller gets its answer all the same.
            callback(result, progress, std::move(more));
            throw;
          }
        }
        callback(result, progress, std::move(more));
      }));
}

}  // namespace Host::Settings::SettingsApi::Filter

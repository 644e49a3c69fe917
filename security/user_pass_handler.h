#pragma once

#include <memory>

#include "security/authn_handler.h"

namespace Host::Settings::SettingsApi::Authn {

/// Accepts a user's password, checked with PAM, or a single-use ticket for this service. Both come as user
/// name and password: two equal texts are a ticket, two different ones a password. Notes every attempt in the
/// call's audit map, if there is one. Calls back before it returns; PAM may block the I/O thread until then.
class UserPassHandler final : public Lumo::Authn::AuthnHandler {
 public:
  /// Succeeds with a structure "UserPassAuthentication" whose field "username" is the user name, for tickets
  /// the ticket; fails with a bare Unauthenticated.
  void Authenticate(std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
                    Lumo::Authn::AuthnCallback const& callback) override;
};

}  // namespace Host::Settings::SettingsApi::Authn

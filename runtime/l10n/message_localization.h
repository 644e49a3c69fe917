// The edge at which messages get their text in the caller's language.
#pragma once

#include "runtime/data/value.h"
#include "runtime/l10n/localizer.h"

namespace Lumo::L10n {

/// True when the caller would rather read another language than that of default texts.
bool WantsLocalization(LocaleSpec const& locale);

/// `value` with the field "localized" set in every LocalizableMessage in it, where the localizer has its text
/// in an acceptable language that is better than the default; the same pointer when there is none. A null
/// value gives null.
Data::DataValuePtr LocalizeMessages(Data::DataValuePtr const& value, RequestLocalizer const& localizer);

}  // namespace Lumo::L10n

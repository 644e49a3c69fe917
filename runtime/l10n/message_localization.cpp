#include "runtime/l10n/message_localization.h"

#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "runtime/data/localizable_message.h"

namespace Lumo::L10n {
namespace {

using Data::As;
using Data::CompoundValue;
using Data::DataValue;
using Data::DataValuePtr;
using Data::ErrorValue;
using Data::Kind;
using Data::ListValue;
using Data::OptionalValue;
using Data::StringValue;
using Data::StructValue;

constexpr std::string_view kLocalizedField = "localized";

std::string Text(CompoundValue const& from, std::string_view field) {
  auto const* const text = As<StringValue>(from.Find(field));
  return text ? std::string(text->value()) : std::string();
}

std::size_t ChildCount(DataValue const* value) {
  if (auto const* const compound = As<CompoundValue>(value)) {
    return compound->size();
  }
  if (auto const* const list = As<ListValue>(value)) {
    return list->size();
  }
  auto const* const optional = As<OptionalValue>(value);
  return optional && optional->Inner() ? 1 : 0;
}

DataValue const* Child(DataValue const* value, std::size_t index) {
  if (auto const* const compound = As<CompoundValue>(value)) {
    return compound->FieldValue(index);
  }
  if (auto const* const list = As<ListValue>(value)) {
    return list->Item(index);
  }
  return As<OptionalValue>(value)->Inner();
}

/// A container like `value` with other children.
DataValuePtr WithChildren(DataValue const* value, std::vector<DataValuePtr> const& children) {
  if (auto const* const from = As<ListValue>(value)) {
    auto list = ListValue::GetInstance(from->form());
    list->Reserve(children.size());
    for (DataValuePtr const& child : children) {
      list->Add(child);
    }
    return list;
  }
  if (As<OptionalValue>(value)) {
    auto optional = OptionalValue::GetInstance();
    optional->value(children.front());
    return optional;
  }
  auto const* const from = As<CompoundValue>(value);
  auto const fill = [&](auto const& compound) -> DataValuePtr {
    compound->ReserveFields(children.size());
    for (std::size_t i = 0; i < children.size(); ++i) {
      compound->SetField(from->FieldName(i), children[i]);
    }
    return compound;
  };
  std::string const name(from->name());
  return value->GetKind() == Kind::Error ? fill(ErrorValue::GetInstance(name))
                                         : fill(StructValue::GetInstance(name));
}

/// The same localizer, asked once for each template: an answer may hold one message a thousand times, and to
/// learn that no catalogue has a text can mean a search of them all. One thread; `localizer` must outlive it.
Localizer Remembering(Localizer const& localizer) {
  struct Found {
    std::string text;
    std::error_code error;
  };
  using Key = std::pair<std::string, std::string>;  // id and locale
  auto const templates = [&localizer, found = std::make_shared<std::map<Key, Found>>()](
                             std::string const& id, boost::string_view locale, std::error_code& ec) {
    auto const [entry, isNew] = found->try_emplace(Key(id, std::string(locale.begin(), locale.end())));
    Found& result = entry->second;
    if (isNew) {
      result.text = localizer.MessageTemplate(id, locale, result.error);
    }
    if (result.error) {
      ec = result.error;
    }
    return result.text;
  };
  return Localizer(localizer.locales(), templates, localizer.formatter(), LocalizerSpec());
}

/// Walks one value, depth first without recursion, and copies only the containers above a message that
/// changed.
class Walk {
 public:
  Walk(DataValuePtr const& root, RequestLocalizer const& localizer)
      : root_(root), localizer_(Remembering(localizer.localizer())), locale_(localizer.locale()) {}

  DataValuePtr Run() {
    Enter(root_.get());
    while (!stack_.empty()) {
      Frame& top = stack_.back();
      if (top.next < ChildCount(top.value)) {
        Enter(Child(top.value, top.next));
      } else {
        DataValuePtr const changed = top.children.empty() ? nullptr : WithChildren(top.value, top.children);
        stack_.pop_back();
        Leave(changed);
      }
    }
    return result_ ? result_ : root_;
  }

 private:
  struct Frame {
    DataValue const* value;
    std::size_t next = 0;                // the child that is looked at
    std::vector<DataValuePtr> children;  // all of them, once one has changed
  };

  void Enter(DataValue const* value) {
    auto const* const structure = As<StructValue>(value);
    if (structure && structure->GetKind() == Kind::Structure &&
        structure->name() == Data::kLocalizableMessageName) {
      Leave(Localized(*structure));
    } else if (ChildCount(value) > 0) {
      stack_.push_back(Frame{value, 0, {}});
    } else {
      Leave(nullptr);
    }
  }

  /// Goes on to the next child of the container on top; null: the present one stays as it is.
  void Leave(DataValuePtr const& changed) {
    if (stack_.empty()) {
      result_ = changed;
      return;
    }
    Frame& top = stack_.back();
    if (changed) {
      if (top.children.empty()) {
        std::size_t const count = ChildCount(top.value);
        top.children.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
          top.children.push_back(Owned(Child(top.value, i)));
        }
      }
      top.children[top.next] = changed;
    }
    ++top.next;
  }

  /// A copy of the message with its text; null when no better language has it.
  DataValuePtr Localized(StructValue const& message) const {
    std::string const text = LocalizableMessageHelpers::LocalizedText(
        localizer_, Text(message, "id"), Data::MessageArguments(message), locale_);
    if (text.empty()) {
      return nullptr;
    }
    auto copy = StructValue::GetInstance(std::string(message.name()));
    copy->ReserveFields(message.size() + 1);
    for (std::size_t i = 0; i < message.size(); ++i) {
      copy->SetField(message.FieldName(i), Owned(message.FieldValue(i)));
    }
    auto localized = OptionalValue::GetInstance();
    localized->value(StringValue::GetInstance(text));
    copy->SetField(kLocalizedField, localized);
    return copy;
  }

  DataValuePtr Owned(DataValue const* value) const { return {root_, value}; }

  DataValuePtr const& root_;
  Localizer const localizer_;
  LocaleSpec const& locale_;
  std::vector<Frame> stack_;
  DataValuePtr result_;
};

}  // namespace

bool WantsLocalization(LocaleSpec const& locale) {
  return !LocaleHelpers::IsDefaultLanguage(locale.language);
}

Data::DataValuePtr LocalizeMessages(Data::DataValuePtr const& value, RequestLocalizer const& localizer) {
  return value && WantsLocalization(localizer.locale()) ? Walk(value, localizer).Run() : value;
}

}  // namespace Lumo::L10n

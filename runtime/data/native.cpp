#include "runtime/data/native.h"

#include <algorithm>

namespace Lumo {

std::string Enum::TextOf(EnumDescriptor const& descriptor) const {
  auto const found = std::find_if(descriptor.texts.begin(), descriptor.texts.end(),
                                  [this](EnumText const& entry) { return entry.number == number_; });
  return found == descriptor.texts.end() ? unknownText_ : std::string(found->text);
}

void Enum::Assign(EnumDescriptor const& descriptor, std::string_view text) {
  auto const found = std::find_if(descriptor.texts.begin(), descriptor.texts.end(),
                                  [text](EnumText const& entry) { return entry.text == text; });
  if (found == descriptor.texts.end()) {
    number_ = descriptor.unknown;
    unknownText_ = text;
  } else {
    number_ = found->number;
    unknownText_.clear();
  }
}

void Enum::Assign(EnumDescriptor const& descriptor, long long number) {
  auto const found = std::find_if(descriptor.texts.begin(), descriptor.texts.end(),
                                  [number](EnumText const& entry) { return entry.number == number; });
  if (found == descriptor.texts.end()) {
    number_ = descriptor.unknown;
    unknownText_ = std::to_string(number);
  } else {
    number_ = found->number;
    unknownText_.clear();
  }
}

}  // namespace Lumo

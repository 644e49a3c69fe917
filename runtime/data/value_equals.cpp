#include <bit>
#include <cstdint>
#include <utility>
#include <vector>

#include "runtime/data/value.h"

namespace Lumo::Data {
namespace {

using Pair = std::pair<DataValue const*, DataValue const*>;

// Compares two values of one kind apart from their children, and adds those to `pending`.
bool SameNode(DataValue const& a, DataValue const& b, std::vector<Pair>& pending) {
  switch (a.KindTag()) {
    case Kind::Void:
      return true;
    case Kind::Boolean:
      return As<BooleanValue>(&a)->value() == As<BooleanValue>(&b)->value();
    case Kind::Integer:
      return As<IntegerValue>(&a)->value() == As<IntegerValue>(&b)->value();
    case Kind::Double: {
      double const x = As<DoubleValue>(&a)->value();
      double const y = As<DoubleValue>(&b)->value();
      return std::bit_cast<std::uint64_t>(x) == std::bit_cast<std::uint64_t>(y);
    }
    case Kind::String:
    case Kind::Binary:
    case Kind::Secret:
      return static_cast<TextStorage const&>(a).value() == static_cast<TextStorage const&>(b).value();
    case Kind::Optional: {
      auto const& x = static_cast<OptionalValue const&>(a);
      auto const& y = static_cast<OptionalValue const&>(b);
      if (x.HasValue() != y.HasValue())
        return false;
      if (x.HasValue())
        pending.emplace_back(x.Inner(), y.Inner());
      return true;
    }
    case Kind::List:
    case Kind::EnumSet: {
      auto const& x = static_cast<ListValue const&>(a);
      auto const& y = static_cast<ListValue const&>(b);
      if (x.form() != y.form() || x.size() != y.size())
        return false;
      for (std::size_t index = 0; index < x.size(); ++index)
        pending.emplace_back(x.Item(index), y.Item(index));
      return true;
    }
    case Kind::Structure:
    case Kind::Error: {
      auto const& x = static_cast<CompoundValue const&>(a);
      auto const& y = static_cast<CompoundValue const&>(b);
      if (x.name() != y.name() || x.size() != y.size())
        return false;
      for (std::size_t index = 0; index < x.size(); ++index) {
        if (x.FieldName(index) != y.FieldName(index))
          return false;
        pending.emplace_back(x.FieldValue(index), y.FieldValue(index));
      }
      return true;
    }
  }
  return false;
}

}  // namespace

bool DataValue::Equals(DataValue const& a, DataValue const& b) {
  std::vector<Pair> pending{{&a, &b}};
  while (!pending.empty()) {
    auto const [x, y] = pending.back();
    pending.pop_back();
    if (x == y)
      continue;  // an empty slot equals an empty slot only
    if (!x || !y || x->KindTag() != y->KindTag() || !SameNode(*x, *y, pending))
      return false;
  }
  return true;
}

}  // namespace Lumo::Data

#include "runtime/data/field_names.h"

#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>

namespace Lumo::Data {
namespace {

constexpr std::size_t kSlots = 4096;  // 32 KiB of pointers; the API's records have some hundred field names
constexpr std::size_t kLongestName = 64;   // generated names are far shorter
constexpr std::size_t kLongestProbe = 16;  // slots looked at before a name is left uninterned

struct Entry {
  std::size_t size;
  char text[kLongestName];

  bool Is(std::string_view name) const noexcept {
    return size == name.size() && std::memcmp(text, name.data(), size) == 0;
  }
};

std::array<std::atomic<Entry const*>, kSlots> table{};

}  // namespace

char const* InternFieldName(std::string_view name) {
  if (name.size() > kLongestName)
    return nullptr;
  std::size_t const hash = std::hash<std::string_view>{}(name);
  for (std::size_t probe = 0; probe < kLongestProbe; ++probe) {
    std::atomic<Entry const*>& slot = table[(hash + probe) % kSlots];
    Entry const* entry = slot.load(std::memory_order_acquire);
    if (!entry) {
      auto fresh = std::make_unique<Entry>();
      fresh->size = name.size();
      if (!name.empty())
        std::memcpy(fresh->text, name.data(), name.size());
      if (slot.compare_exchange_strong(entry, fresh.get(), std::memory_order_acq_rel))
        return fresh.release()->text;
    }
    if (entry->Is(name))
      return entry->text;
  }
  return nullptr;
}

}  // namespace Lumo::Data

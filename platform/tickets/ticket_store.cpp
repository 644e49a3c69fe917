#include "platform/tickets/ticket_store.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <memory>
#include <utility>

#include "platform/files/descriptor.h"
#include "platform/logging/logging.h"
#include "platform/text/text.h"
#include "platform/tickets/ticket_record.h"

namespace Orbane {
namespace {

/// A record has some 70 bytes; whatever is far from that is none.
constexpr std::size_t kMostRecordBytes = 1024;
/// The clock's corrections below this, in milliseconds, leave tickets alone; leap seconds among them.
constexpr std::int64_t kToleratedStep = 2000;
constexpr std::size_t kDigestBytes = 32;

/// True when the open file belongs to root and nobody has a right out of `forbidden` to it.
bool BelongsToRoot(int fd, mode_t forbidden, struct stat& status) {
  return fstat(fd, &status) == 0 && status.st_uid == 0 && (status.st_mode & forbidden) == 0;
}

/// The folder of tickets, if all on the way to it is root's.
Descriptor OpenFolder() {
  struct Step {
    char const* name;
    mode_t forbidden;
  };
  constexpr mode_t kWriteOfOthers = S_IWGRP | S_IWOTH;
  constexpr mode_t kAllOfOthers = S_IRWXG | S_IRWXO;
  Descriptor folder(AT_FDCWD);
  for (Step const& step :
       {Step{"/run", kWriteOfOthers}, Step{"orbane", kWriteOfOthers}, Step{"tickets", kAllOfOthers}}) {
    folder = Descriptor(openat(folder.get(), step.name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!folder || !BelongsToRoot(folder.get(), step.forbidden, status)) {
      return Descriptor(-1);
    }
  }
  return folder;
}

/// The name of a ticket's file; empty for the empty ticket, which is none.
std::string FileName(std::string_view ticket) {
  std::array<std::uint8_t, kDigestBytes> digest{};
  if (ticket.empty() || !CryptoHash_ComputeSHA256(ticket.data(), ticket.size(), digest.data())) {
    return {};
  }
  constexpr char kHexadecimal[] = "0123456789abcdef";
  std::string name;
  for (std::uint8_t const byte : digest) {
    name += kHexadecimal[byte >> 4];
    name += kHexadecimal[byte & 0xf];
  }
  return name;
}

/// All of a file of at most kMostRecordBytes; nothing for a longer or unreadable one.
std::optional<std::string> ReadAll(int fd) {
  std::array<char, kMostRecordBytes + 1> bytes{};
  std::size_t length = 0;
  while (length < bytes.size()) {
    ssize_t const got = read(fd, bytes.data() + length, bytes.size() - length);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < 0) {
      return std::nullopt;
    }
    if (got == 0) {
      return std::string(bytes.data(), length);
    }
    length += static_cast<std::size_t>(got);
  }
  return std::nullopt;
}

std::int64_t Milliseconds(timespec const& time) {
  return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

std::int64_t Now(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return Milliseconds(now);
}

void RemoveAll(int folder) {
  int const fd = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  std::unique_ptr<DIR, int (*)(DIR*)> const list(fd >= 0 ? fdopendir(fd) : nullptr, &closedir);
  if (!list) {
    if (fd >= 0) {
      close(fd);
    }
    return;
  }
  while (dirent const* const entry = readdir(list.get())) {
    unlinkat(folder, entry->d_name, 0);  // fails for folders: they are no tickets
  }
}

}  // namespace

TicketClocks TicketClocks::OfTheHost() {
  return {[] { return Now(CLOCK_REALTIME); }, [] { return Now(CLOCK_BOOTTIME); }};
}

TicketStore::TicketStore(TicketClocks clocks)
    : clocks_(std::move(clocks)), wallAtBoot_(clocks_.wall() - clocks_.boot()) {}

bool TicketStore::ClockWasSetBack() {
  std::lock_guard const lock(mutex_);
  std::int64_t const now = clocks_.wall() - clocks_.boot();
  if (now < wallAtBoot_ - kToleratedStep) {
    wallAtBoot_ = now;
    return true;
  }
  wallAtBoot_ = std::max(wallAtBoot_, now);
  return false;
}

std::optional<std::string> TicketStore::Lookup(std::string_view ticket) {
  Descriptor const folder = OpenFolder();
  std::string const name = FileName(ticket);
  if (!folder || name.empty()) {
    return std::nullopt;
  }
  if (ClockWasSetBack()) {
    CSLogger::Log(1, "The clock was set back: all tickets end.");
    RemoveAll(folder.get());
  }
  // Without waiting for the writer of a FIFO.
  Descriptor const file(
      openat(folder.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (!file || !BelongsToRoot(file.get(), S_IRWXG | S_IRWXO, status) || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  std::optional<std::string> const text = ReadAll(file.get());
  std::optional<TicketRecord> record = text ? ParseTicketRecord(*text) : std::nullopt;
  std::int64_t const now = clocks_.wall();
  // A file from the future was written before the clock was set back, while nobody looked.
  if (!record || record->expires <= now || Milliseconds(status.st_ctim) > now) {
    return std::nullopt;
  }
  return std::move(record->service);
}

bool TicketStore::Delete(std::string_view ticket) const {
  Descriptor const folder = OpenFolder();
  std::string const name = FileName(ticket);
  return folder && !name.empty() && unlinkat(folder.get(), name.c_str(), 0) == 0;
}

}  // namespace Orbane

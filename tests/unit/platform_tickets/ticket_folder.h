// The folder of tickets as tests fill it. Only in the sandbox.
#pragma once

#include <openssl/evp.h>
#include <sys/stat.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

inline constexpr char kTicketFolder[] = "/run/orbane/tickets";

/// Where the file of a ticket is expected, computed without the code under test.
inline std::string TicketPath(std::string const& ticket) {
  std::array<unsigned char, 32> digest{};
  EVP_Digest(ticket.data(), ticket.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
  std::string path = std::string(kTicketFolder) + "/";
  for (unsigned char const byte : digest) {
    char text[3];
    std::snprintf(text, sizeof text, "%02x", byte);
    path += text;
  }
  return path;
}

/// An empty folder with the right owner and mode.
inline void EmptyTicketFolder() {
  std::filesystem::remove_all(kTicketFolder);
  std::filesystem::create_directories(kTicketFolder);
  chmod("/run/orbane", 0755);
  chmod(kTicketFolder, 0700);
}

/// The time `fromNow` from now as tickets spell it.
inline std::string TicketTime(std::chrono::seconds fromNow) {
  std::time_t const time = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now() + fromNow);
  std::tm parts{};
  gmtime_r(&time, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S.000Z", &parts);
  return text;
}

inline std::string TicketText(std::string const& service = "Lifecycle",
                              std::chrono::seconds fromNow = std::chrono::minutes(5)) {
  return "{\"service\":\"" + service + "\",\"expires\":\"" + TicketTime(fromNow) + "\"}";
}

/// Issues a ticket: its file, readable by root alone.
inline void Issue(std::string const& ticket, std::string const& text = TicketText()) {
  std::string const path = TicketPath(ticket);
  std::ofstream(path) << text;
  chmod(path.c_str(), 0600);
}

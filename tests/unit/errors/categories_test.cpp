#include "runtime/errors/categories.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "runtime/errors/string_of_error.h"
#include "runtime/errors/transport_categories.h"

namespace {

using Rows = std::vector<std::pair<int, std::string>>;

template <typename Category>
void ExpectTable(char const* name, Rows const& rows) {
  auto const& category = Category::Instance();
  EXPECT_STREQ(category.name(), name);
  for (auto const& [code, text] : rows) {
    EXPECT_EQ(category.message(code), text) << name << " " << code;
  }
}

TEST(ErrorCategories, FormatTable) {
  ExpectTable<Lumo::FormatCategory>("Lumo Format Error", {{1, "Named argument not found."},
                                                          {2, "Empty Named specifier found."},
                                                          {3, "More specifiers than expected."},
                                                          {4, "format error"},
                                                          {0, "format error"},
                                                          {-1, "format error"}});
}

TEST(ErrorCategories, ToolsTable) {
  ExpectTable<Lumo::ToolsCategory>("Lumo Tools Error", {{1, "Named argument not found."},
                                                        {2, "Empty Named specifier found."},
                                                        {3, "tools error"},
                                                        {0, "tools error"},
                                                        {-2147483647 - 1, "tools error"}});
}

TEST(ErrorCategories, LocalizationTable) {
  ExpectTable<Lumo::L10n::L10nCategory>(
      "Lumo Localization Error", {{1, "Requested locale not supported"},
                                  {2, "Requested format locale not supported"},
                                  {3, "Incorrect value of accept-language or lumo-ctx-format-locale header"},
                                  {4, "Default message formatter - no formatString"},
                                  {5, "Unknown message ID"},
                                  {6, "Failed to load localization bundle"},
                                  {7, "Failed to localize ErrorValue"},
                                  {8, "localization error"},
                                  {0, "localization error"}});
}

TEST(ErrorCategories, AsioTable) {
  ExpectTable<Lumo::Asio::AsioCategory>("Lumo Asio Error",
                                        {{1, "Buffer max len error"}, {2, "asio error"}, {0, "asio error"}});
}

TEST(ErrorCategories, ProtocolTable) {
  ExpectTable<Lumo::Provider::ProtocolCategory>(
      "Lumo Protocol Error", {{1, "Mismatching operation identifier in HTTP header and payload"},
                              {2, "protocol error"},
                              {0, "protocol error"}});
}

TEST(ErrorCategories, DateTimeTable) {
  ExpectTable<Lumo::DateTimeCategory>(
      "Lumo DateTime Error", {{1, "Failed to create DateTime."}, {2, "format error"}, {0, "format error"}});
}

TEST(ErrorCategories, HttpTable) {
  ExpectTable<Lumo::Transport::Http::Error::transport_category>("Lumo Transport Http",
                                                                {{1, "frame parse error"},
                                                                 {2, "message too long"},
                                                                 {3, "end of body"},
                                                                 {4, "transport error"},
                                                                 {0, "transport error"}});
}

TEST(ErrorCategories, PicoHttpTable) {
  ExpectTable<Lumo::Transport::PicoHttp::Error::transport_category>("Lumo Transport PicoHttp",
                                                                    {{1, "headers parse error"},
                                                                     {2, "chunk parse error"},
                                                                     {3, "http protocol error"},
                                                                     {4, "server failed to listen"},
                                                                     {5, "invalid request"},
                                                                     {6, "incomplete body"},
                                                                     {7, "http headers too long"},
                                                                     {8, "transport error"},
                                                                     {0, "transport error"}});
}

TEST(ErrorCategories, CodesBelongToTheirCategories) {
  EXPECT_EQ(std::error_code(Lumo::FormatErrc::TooManySpecifiers).message(), "More specifiers than expected.");
  EXPECT_EQ(std::error_code(Lumo::ToolsErrc::EmptySpecifier).message(), "Empty Named specifier found.");
  EXPECT_EQ(std::error_code(Lumo::DateTimeErrc::CreateFailed).message(), "Failed to create DateTime.");
  EXPECT_EQ(std::error_code(Lumo::L10n::L10nErrc::UnknownMessageId).message(), "Unknown message ID");
  EXPECT_EQ(std::error_code(Lumo::Asio::AsioErrc::BufferMaxLength).message(), "Buffer max len error");
  EXPECT_EQ(std::error_code(Lumo::Provider::ProtocolErrc::OperationMismatch).message(),
            "Mismatching operation identifier in HTTP header and payload");
  EXPECT_EQ(boost::system::error_code(Lumo::Transport::Http::Error::Errc::EndOfBody).message(),
            "end of body");
  EXPECT_EQ(boost::system::error_code(Lumo::Transport::PicoHttp::Error::Errc::HeadersTooLong).message(),
            "http headers too long");
}

TEST(StringOfError, IsCategoryAndValue) {
  EXPECT_EQ(Lumo::StringOfError(boost::system::error_code(98, boost::system::system_category())),
            "system:98");
  EXPECT_EQ(Lumo::StringOfError(make_error_code(Lumo::Transport::PicoHttp::Error::Errc::ListenFailed)),
            "Lumo Transport PicoHttp:4");
}

TEST(StringOfError, MarksStandardCodes) {
  EXPECT_EQ(Lumo::StringOfError(make_error_code(Lumo::L10n::L10nErrc::IncorrectHeader)),
            "std:Lumo Localization Error:3");
  EXPECT_EQ(Lumo::StringOfError(std::make_error_code(std::errc::address_in_use)), "std:generic:98");
}

}  // namespace

// Tokens and keys: of all texts one alone is a good token, since its key's other half is gone.
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <variant>

#include "security/token_verifier.h"
#include "tests/fuzz/json_fuzz.h"

namespace {

using namespace Ryn::Authn;

constexpr char kKey[] =
    "-----BEGIN PUBLIC KEY-----\n"
    "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAExF8hJGMuxW3bauDel53p6x0AuVTI\n"
    "kJUCH93EZ/q9i0dGbqrR3DZn4ogTLVfzaC9t6j7Fwk0lOSWnb2nXyGPVdA==\n"
    "-----END PUBLIC KEY-----\n";

constexpr std::string_view kGood =
    "eyJhbGciOiJFUzI1NiIsImtpZCI6ImxhYiIsInR5cCI6IkpXVCJ9.eyJpc3MiOiJsYWIiLCJzdWIiOiJhbGljZSIsImF1ZCI6Imt"
    "lZWxkIiwiaWF0IjoxNzk1Mjc2NTI0LCJleHAiOjQ3OTUyNzY1MjQsImVudGl0bGVtZW50cyI6WyJUYXNrLlZpZXciXX0.n8xhfaX"
    "uIaji314bHzrZQrvjvM6KdmvdXeJh9cIb1a2KCJILCmSErfccdu0UPGNvXWfJGdm2rcLPLk5K8aRBZg";

constexpr std::chrono::seconds kNow(2'000'000'000);

/// A folder with the key, for the life of the process.
class KeyFolder {
 public:
  KeyFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "keeld_fuzz.XXXXXX").string();
    path_ = mkdtemp(pattern.data());
    std::ofstream(path_ / "lab.pem") << kKey;
    chmod((path_ / "lab.pem").c_str(), S_IRUSR);
  }
  KeyFolder(KeyFolder const&) = delete;
  KeyFolder& operator=(KeyFolder const&) = delete;
  ~KeyFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static KeyFolder const folder;
  static TokenVerifier verifier(
      TokenKeyStore(nullptr, folder.path(), [] { return std::chrono::system_clock::time_point::max(); }),
      TokenClock([] { return std::chrono::system_clock::time_point(kNow); }));
  std::string_view const text(reinterpret_cast<char const*>(data), size);
  auto const verdict = verifier.Verify(text);
  Lumo::Fuzz::Require(std::holds_alternative<VerifiedToken>(verdict) == (text == kGood));

  std::string problem;
  Lumo::Fuzz::Require((TokenKey::FromPem(text, problem) != nullptr) == problem.empty());
  return 0;
}

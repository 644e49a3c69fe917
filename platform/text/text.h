// Text encoding, hashing and identifiers.
#pragma once

#include <cstddef>
#include <cstdint>

/// True when the `length` bytes are valid in that encoding, of which "UTF-8" is the only one known: false for
/// any other.
bool CodeSet_Validate(char const* bytes, std::size_t length, char const* encoding);

/// printf into a new text that the caller frees with free(); null and `*length` 0 on failure. `length` may be
/// null.
char* Str_SafeAsprintf(std::size_t* length, char const* format, ...) __attribute__((format(printf, 2, 3)));

/// `digest` takes 32 bytes. False only when the library fails.
bool CryptoHash_ComputeSHA256(void const* data, std::size_t length, std::uint8_t* digest);

/// A random UUID as a text of 36 lower-case characters that the caller frees with free(); null on failure.
char* UUID_CreateRandom();
/// Rewrites the UUID text `source` of any usual spelling into the 36-character form; `destination` has room
/// for `length` + 1 bytes and may be `source`. Null when `source` is no UUID or does not fit.
char* UUID_PackText(char* destination, char const* source, std::size_t length);

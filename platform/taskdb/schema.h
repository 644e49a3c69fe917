// What lies in a task database file. Stored: docs/task-database.md describes it for those who read the file
// by other means, platform/taskdb/python writes the same.
#pragma once

#include <cstdint>

namespace TaskDB {

/// "KEEL" in the header of the file.
inline constexpr std::int32_t kApplicationId = 0x4b45454c;
inline constexpr std::int32_t kSchemaVersion = 1;
/// The file is always a whole number of pages.
inline constexpr std::int64_t kPageBytes = 4096;

/// Creates everything in an empty file.
extern char const kCreateSchema[];

}  // namespace TaskDB

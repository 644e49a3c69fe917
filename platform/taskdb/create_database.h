// Making a database file anew.
#pragma once

#include <string>

namespace TaskDB {

/// Leaves an empty database at `path`, mode 0600, whatever stood there, with journal files and reserve;
/// missing folders are made. Waits for users of the old file, 5 s at most, and then goes ahead. Throws
/// std::runtime_error with path and reason, also when others could plant files in the folder.
void CreateDatabase(std::string const& path);

}  // namespace TaskDB

# The library for signed tokens, as the target cjose::cjose.
find_path(CJOSE_INCLUDE_DIR cjose/cjose.h)
find_library(CJOSE_LIBRARY cjose)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(cjose REQUIRED_VARS CJOSE_LIBRARY CJOSE_INCLUDE_DIR)
mark_as_advanced(CJOSE_INCLUDE_DIR CJOSE_LIBRARY)
if(cjose_FOUND AND NOT TARGET cjose::cjose)
  add_library(cjose::cjose UNKNOWN IMPORTED)
  set_target_properties(cjose::cjose PROPERTIES IMPORTED_LOCATION "${CJOSE_LIBRARY}"
                        INTERFACE_INCLUDE_DIRECTORIES "${CJOSE_INCLUDE_DIR}")
endif()

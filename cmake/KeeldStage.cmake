# The stage: what `install` would put on a host, below <build>/stage. Test sandboxes lay it over the root file system.
# Include it last: it depends on every target that exists by then, tests apart.

# keeld_all_targets(OUT DIR): the names of all targets of DIR and below in OUT, without those of folder tests.
function(keeld_all_targets out dir)
  get_property(targets DIRECTORY "${dir}" PROPERTY BUILDSYSTEM_TARGETS)
  get_property(folders DIRECTORY "${dir}" PROPERTY SUBDIRECTORIES)
  foreach(folder IN LISTS folders)
    if(NOT folder STREQUAL "${CMAKE_SOURCE_DIR}/tests")
      keeld_all_targets(below "${folder}")
      list(APPEND targets ${below})
    endif()
  endforeach()
  set(${out} ${targets} PARENT_SCOPE)
endfunction()

keeld_all_targets(installable "${CMAKE_SOURCE_DIR}")
add_custom_target(stage ALL
  COMMAND "${CMAKE_COMMAND}" -E rm -rf stage
  COMMAND "${CMAKE_COMMAND}" -E make_directory stage
  COMMAND "${CMAKE_COMMAND}" -E env "DESTDIR=${CMAKE_BINARY_DIR}/stage" "${CMAKE_COMMAND}" --install . > stage.log
  WORKING_DIRECTORY "${CMAKE_BINARY_DIR}"
  COMMENT "Installing into ${CMAKE_BINARY_DIR}/stage"
  VERBATIM)
add_dependencies(stage ${installable})

# keeld_bindings(NAME OUT folder DEFINITION folder… [IMPORT folder…]): a static library of the C++ bindings of a
# definition. All other outputs are made with it, unless ONLY names the wanted ones. The generator leaves unchanged
# files alone, and they are by-products of a stamp, so that ninja rebuilds only what a change of the definition reaches.
function(keeld_bindings name)
  cmake_parse_arguments(arg "" "OUT" "DEFINITION;IMPORT;ONLY;LINK" ${ARGN})
  set(generator "${CMAKE_SOURCE_DIR}/generator/keeld_generate.py")
  set(options)
  foreach(folder IN LISTS arg_IMPORT)
    list(APPEND options --import "${folder}")
  endforeach()
  foreach(output IN LISTS arg_ONLY)
    list(APPEND options --only ${output})
  endforeach()
  set(inputs)
  foreach(folder IN LISTS arg_DEFINITION arg_IMPORT)
    file(GLOB files CONFIGURE_DEPENDS "${folder}/*.yaml")
    list(APPEND inputs ${files})
  endforeach()
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/generator/*.py" "${CMAKE_SOURCE_DIR}/generator/*.j2")
  # The set of files follows from the definition, so a changed definition is listed anew.
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${inputs} ${sources})
  execute_process(COMMAND /usr/bin/python3 -B "${generator}" --list ${options} ${arg_DEFINITION}
                  OUTPUT_VARIABLE names RESULT_VARIABLE failed OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(failed)
    message(FATAL_ERROR "The interface definition cannot be read.")
  endif()
  string(REPLACE "\n" ";" names "${names}")
  list(TRANSFORM names PREPEND "${arg_OUT}/")
  set(units ${names})
  list(FILTER units INCLUDE REGEX "\\.cpp$")

  set(stamp "${CMAKE_CURRENT_BINARY_DIR}/${name}.stamp")
  add_custom_command(
    OUTPUT "${stamp}" BYPRODUCTS ${names}
    COMMAND /usr/bin/python3 -B "${generator}" --out "${arg_OUT}" ${options} ${arg_DEFINITION}
    COMMAND "${CMAKE_COMMAND}" -E touch "${stamp}"
    DEPENDS ${inputs} ${sources} COMMENT "Generating ${name}" VERBATIM)
  add_library(${name} STATIC ${units} "${stamp}")
  target_include_directories(${name} PUBLIC "${arg_OUT}")
  target_link_libraries(${name} PUBLIC keeld_options ${arg_LINK})
  set_target_properties(${name} PROPERTIES KEELD_GENERATED "${names}")
endfunction()

# Build rules shared by all folders.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

option(KEELD_FUZZ "Build the fuzzers under tests/fuzz (clang only)" OFF)
set(KEELD_SANITIZE "" CACHE STRING "Comma separated list for -fsanitize=")

find_package(Threads REQUIRED)
find_package(Boost 1.74 REQUIRED COMPONENTS system filesystem iostreams)
find_package(OpenSSL REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(ZLIB REQUIRED)

add_library(keeld_options INTERFACE)
target_include_directories(keeld_options INTERFACE "${CMAKE_SOURCE_DIR}" "${CMAKE_BINARY_DIR}/generated")
target_compile_options(keeld_options INTERFACE -Wall -Wextra -Wpedantic -Werror -Wshadow -Wnon-virtual-dtor
                       -Woverloaded-virtual -Wformat=2)
target_compile_definitions(keeld_options INTERFACE BOOST_BIND_GLOBAL_PLACEHOLDERS _FILE_OFFSET_BITS=64)
target_link_libraries(keeld_options INTERFACE Threads::Threads)
if(KEELD_SANITIZE)
  target_compile_options(keeld_options INTERFACE -fsanitize=${KEELD_SANITIZE} -fno-omit-frame-pointer)
  target_link_options(keeld_options INTERFACE -fsanitize=${KEELD_SANITIZE})
  if(KEELD_SANITIZE MATCHES undefined)
    target_compile_options(keeld_options INTERFACE -fno-sanitize-recover=undefined)
  endif()
endif()

# keeld_library(NAME [LINK target...]): a static library of all .cpp files of the current folder and below,
# but for folders that have a CMakeLists.txt of their own.
function(keeld_library name)
  cmake_parse_arguments(arg "" "" "LINK;EXTRA_SOURCES" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  foreach(source IN LISTS sources)
    get_filename_component(dir "${source}" DIRECTORY)
    if(NOT dir STREQUAL CMAKE_CURRENT_SOURCE_DIR AND EXISTS "${dir}/CMakeLists.txt")
      list(REMOVE_ITEM sources "${source}")
    endif()
  endforeach()
  add_library(${name} STATIC ${sources} ${arg_EXTRA_SOURCES})
  target_link_libraries(${name} PUBLIC keeld_options ${arg_LINK})
endfunction()

# keeld_unit_test(NAME [SANDBOX] [LINK target...]): executable unit_NAME of all .cpp files of the current folder.
# SANDBOX: runs inside tests/sandbox/run, where the fixed paths, the services database and syslog are its own.
function(keeld_unit_test name)
  cmake_parse_arguments(arg "SANDBOX" "" "LINK" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  add_executable(unit_${name} ${sources})
  target_link_libraries(unit_${name} PRIVATE keeld_options ${arg_LINK} GTest::gmock GTest::gtest_main)
  include(GoogleTest)
  if(arg_SANDBOX)
    add_test(NAME ${name} COMMAND "${CMAKE_SOURCE_DIR}/tests/sandbox/run" $<TARGET_FILE:unit_${name}>)
  else()
    gtest_discover_tests(unit_${name} TEST_PREFIX "${name}." DISCOVERY_TIMEOUT 60)
  endif()
endfunction()

# keeld_pytest(NAME [SANDBOX]): the pytest files of the current folder as one test.
function(keeld_pytest name)
  cmake_parse_arguments(arg "SANDBOX" "" "" ${ARGN})
  if(arg_SANDBOX)
    set(launcher "${CMAKE_SOURCE_DIR}/tests/sandbox/run")
  endif()
  add_test(NAME ${name} COMMAND ${launcher} /usr/bin/python3 -m pytest -q -p no:cacheprovider
           "${CMAKE_CURRENT_SOURCE_DIR}")
endfunction()

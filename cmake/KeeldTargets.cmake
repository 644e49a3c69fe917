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
find_package(cjose REQUIRED)

add_library(keeld_options INTERFACE)
target_include_directories(keeld_options INTERFACE "${CMAKE_SOURCE_DIR}" "${CMAKE_BINARY_DIR}/generated")
target_compile_options(keeld_options INTERFACE -Wall -Wextra -Wpedantic -Werror -Wshadow -Wnon-virtual-dtor
                       -Woverloaded-virtual -Wformat=2)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # False alarms on `"text" + std::string` at -O3: GCC bug 105651.
  target_compile_options(keeld_options INTERFACE -Wno-restrict)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  # Functions that pass their caller's printf format on.
  target_compile_options(keeld_options INTERFACE -Wno-format-nonliteral)
endif()
if(KEELD_FUZZ)
  target_compile_options(keeld_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
target_compile_definitions(keeld_options INTERFACE BOOST_BIND_GLOBAL_PLACEHOLDERS _FILE_OFFSET_BITS=64)
target_link_libraries(keeld_options INTERFACE Threads::Threads)
if(KEELD_SANITIZE)
  target_compile_options(keeld_options INTERFACE -fsanitize=${KEELD_SANITIZE} -fno-omit-frame-pointer)
  target_link_options(keeld_options INTERFACE -fsanitize=${KEELD_SANITIZE})
  # The sanitizers stand in front of crypt_r(), which they find only in a library that is there from the start; PAM loads
  # it later.
  target_link_options(keeld_options INTERFACE -Wl,--push-state,--no-as-needed,-lcrypt,--pop-state)
  if(KEELD_SANITIZE MATCHES thread) # Asio's fences: the compiler warns that it cannot see them, and they do no harm
    target_compile_options(keeld_options INTERFACE -Wno-tsan)
  endif()
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
  if(NOT sources AND NOT arg_EXTRA_SOURCES) # a folder of headers alone
    file(CONFIGURE OUTPUT "${CMAKE_CURRENT_BINARY_DIR}/${name}_headers.cpp" CONTENT "// Headers only.\n")
    set(sources "${CMAKE_CURRENT_BINARY_DIR}/${name}_headers.cpp")
  endif()
  add_library(${name} STATIC ${sources} ${arg_EXTRA_SOURCES})
  target_link_libraries(${name} PUBLIC keeld_options ${arg_LINK})
endfunction()

# The command words in front of every test: sanitizers of this compiler cannot live with the widest address randomisation.
set(KEELD_TEST_LAUNCHER)
if(KEELD_SANITIZE)
  set(KEELD_TEST_LAUNCHER /usr/bin/setarch -R)
endif()
set(KEELD_TEST_ENVIRONMENT "KEELD_STAGE=${CMAKE_BINARY_DIR}/stage" "KEELD_BUILD=${CMAKE_BINARY_DIR}"
    "KEELD_SANITIZE=${KEELD_SANITIZE}" PYTHONDONTWRITEBYTECODE=1
    ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1 UBSAN_OPTIONS=print_stacktrace=1
    TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1)

# keeld_add_test(NAME [SANDBOX|BARE] [TIMEOUT seconds] COMMAND words...): a ctest entry with the environment all tests
# share. SANDBOX: runs inside tests/sandbox/run, where the fixed paths, the services database and syslog are its own.
# BARE: the same, on a host that has still to get the product.
function(keeld_add_test name)
  cmake_parse_arguments(arg "SANDBOX;BARE" "TIMEOUT" "COMMAND" ${ARGN})
  set(launcher ${KEELD_TEST_LAUNCHER})
  if(arg_SANDBOX)
    list(APPEND launcher "${CMAKE_SOURCE_DIR}/tests/sandbox/run")
  elseif(arg_BARE)
    list(APPEND launcher "${CMAKE_SOURCE_DIR}/tests/sandbox/run" --bare --keep "${CMAKE_BINARY_DIR}")
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 300)
  endif()
  add_test(NAME ${name} COMMAND ${launcher} ${arg_COMMAND})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} ENVIRONMENT "${KEELD_TEST_ENVIRONMENT}")
endfunction()

# Unit tests whose code runs in more than one thread: those that a thread sanitizer build is about.
set(KEELD_THREADED_TESTS access_lock audit daemon http_server platform_audit platform_logging platform_logging_syslog
    platform_poll platform_process platform_taskdb platform_tickets ryncli scheduler support task_service values)

# keeld_unit_test(NAME [SANDBOX] [TIMEOUT seconds] [LINK target...]): executable unit_NAME of all .cpp files of the
# current folder, and one ctest entry unit.NAME that runs all its cases (GTEST_FILTER picks some).
function(keeld_unit_test name)
  cmake_parse_arguments(arg "SANDBOX" "TIMEOUT" "LINK" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  add_executable(unit_${name} ${sources})
  target_link_libraries(unit_${name} PRIVATE keeld_options ${arg_LINK} GTest::gmock GTest::gtest_main)
  if(KEELD_SANITIZE MATCHES thread AND NOT name IN_LIST KEELD_THREADED_TESTS)
    set_target_properties(unit_${name} PROPERTIES EXCLUDE_FROM_ALL ON)
    return()
  endif()
  set(options TIMEOUT ${arg_TIMEOUT})
  if(arg_SANDBOX)
    list(APPEND options SANDBOX)
  endif()
  keeld_add_test(unit.${name} ${options}
                 COMMAND $<TARGET_FILE:unit_${name}> "--gtest_output=xml:${CMAKE_BINARY_DIR}/reports/unit.${name}.xml")
endfunction()

# keeld_pytest(NAME [SANDBOX|BARE] [NATIVE] [TIMEOUT seconds] [FILES file...]): one ctest entry py.NAME that runs the given
# test files, all test_*.py of the current folder by default. NATIVE: they run C++ programs of the build, so that they
# are of use in sanitizer builds too.
function(keeld_pytest name)
  cmake_parse_arguments(arg "SANDBOX;BARE;NATIVE" "TIMEOUT" "FILES" ${ARGN})
  if(KEELD_SANITIZE AND NOT arg_NATIVE)
    return()
  endif()
  if(NOT arg_FILES)
    file(GLOB arg_FILES CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/test_*.py")
  endif()
  set(options TIMEOUT ${arg_TIMEOUT})
  if(arg_SANDBOX)
    list(APPEND options SANDBOX)
  elseif(arg_BARE)
    list(APPEND options BARE)
  endif()
  keeld_add_test(py.${name} ${options}
                 COMMAND /usr/bin/python3 -m pytest -q -p no:cacheprovider --rootdir "${CMAKE_SOURCE_DIR}"
                 "--junitxml=${CMAKE_BINARY_DIR}/reports/py.${name}.xml" ${arg_FILES})
endfunction()

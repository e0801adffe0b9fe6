# How a module of this project becomes part of a library, and how the tests and benchmarks beside it are found:
# x.cc belongs to the library, x_test.cc becomes a test program, x_threads_test.cc one under ThreadSanitizer, x_bench.cc
# a benchmark.

set(OST_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
# Assertions name the source by its path from the project's root.
set(OST_OPTIONS ${OST_WARNINGS} -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=)
set(OST_SANITIZERS)
set(OST_LIBRARY_OPTIONS)
if(OST_SANITIZE)
  # A report tells a stack by its lines; for its variables, which -g tells of besides, there is the debug build.
  set(OST_SANITIZERS -g1 -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  # The long tests wait for what they test, which -Og makes several times as fast. It would drop what comes to nothing,
  # such as a load whose value isn't used, before the sanitizers see it, but for -fno-tree-dce.
  set(OST_LIBRARY_OPTIONS -Og -fno-tree-dce)
elseif(OST_FUZZ)
  set(OST_SANITIZERS -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined)
endif()

# The options every target of our own code is compiled with.
add_library(ost_flags INTERFACE)
target_compile_options(ost_flags INTERFACE ${OST_OPTIONS} ${OST_SANITIZERS})
target_link_options(ost_flags INTERFACE ${OST_SANITIZERS})
if(OST_SANITIZE)
  target_link_options(ost_flags INTERFACE -static-libasan -static-libubsan)
endif()
target_include_directories(ost_flags INTERFACE ${CMAKE_SOURCE_DIR}/lib/public)

# ost_library(NAME DIRECTORY...): a static library of every module in the directories. stub-x.cc, in which a program does
# without a module of the foundation, belongs to the foundation.
function(ost_library name)
  set(sources)
  foreach(directory IN LISTS ARGN)
    file(GLOB found CONFIGURE_DEPENDS ${directory}/*.cc)
    list(FILTER found EXCLUDE REGEX "_(test|bench)\\.cc$|/main\\.cc$|/stub-[^/]*\\.cc$")
    list(APPEND sources ${found})
  endforeach()
  add_library(${name} STATIC ${sources})
  target_compile_options(${name} PRIVATE ${OST_LIBRARY_OPTIONS})
  target_link_libraries(${name} PUBLIC ost_flags)
endfunction()

# The test sources are most of what is compiled, and what they test is optimised without them. A back trace needs their
# lines and not their variables, which take the compiler a third of its time: those are for the debug build.
set(OST_TEST_OPTIONS $<$<CONFIG:RelWithDebInfo>:-Og> $<$<CONFIG:RelWithDebInfo>:-g1>)

# After which a test is taken for hung. The longest take 20 seconds of a processor, on a crowded machine many times that.
set(OST_TEST_SECONDS 600)

# ost_thread_tests(SOURCES x.cc... DIRECTORIES directory...): a test program under ThreadSanitizer for each
# x_threads_test.cc of the directories, together with the sources, which it needs compiled in the same way.
function(ost_thread_tests)
  cmake_parse_arguments(arg "" "" "SOURCES;DIRECTORIES" ${ARGN})
  if(OST_FUZZ)
    return()
  endif()
  add_library(threads_library STATIC ${arg_SOURCES})
  # clang-tidy would look at each source as often as there are commands that compile it.
  set_target_properties(threads_library PROPERTIES EXPORT_COMPILE_COMMANDS OFF)
  target_compile_options(threads_library PUBLIC ${OST_OPTIONS} -fsanitize=thread)
  target_link_options(threads_library PUBLIC -fsanitize=thread)
  target_include_directories(threads_library PUBLIC ${CMAKE_SOURCE_DIR}/lib/public ${CMAKE_SOURCE_DIR}/tests/host)
  foreach(directory IN LISTS arg_DIRECTORIES)
    file(GLOB tests CONFIGURE_DEPENDS ${directory}/*_threads_test.cc)
    foreach(source IN LISTS tests)
      get_filename_component(name ${source} NAME_WE)
      add_executable(${name} ${source})
      target_link_libraries(${name} PRIVATE threads_library Threads::Threads PkgConfig::ICU GTest::gtest_main)
      target_compile_options(${name} PRIVATE ${OST_TEST_OPTIONS})
      gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT ${OST_TEST_SECONDS} ENVIRONMENT "TSAN_OPTIONS=halt_on_error=1")
    endforeach()
  endforeach()
endfunction()

# The functions whose results testhost::AllocationFault turns into failures in a test program.
set(OST_ALLOCATORS malloc calloc realloc strdup strndup)
list(TRANSFORM OST_ALLOCATORS PREPEND -Wl,--wrap= OUTPUT_VARIABLE OST_WRAP_ALLOCATORS)
# A library behind the test host's may be the first that allocates, so the linker is told to take them.
list(APPEND OST_WRAP_ALLOCATORS -Wl,--undefined=__wrap_malloc)

# ost_tests([TOOLKIT] LIBRARIES... DIRECTORIES directory...): a test program for each x_test.cc of the directories and,
# where speed is measured, a benchmark for each x_bench.cc. Every TEST is a CTest test of its own, and so a process of
# its own. TOOLKIT is for what runs the toolkit, in the test's process or in one that it starts.
function(ost_tests)
  cmake_parse_arguments(arg "TOOLKIT" "" "LIBRARIES;DIRECTORIES" ${ARGN})
  if(OST_FUZZ)
    return()
  endif()
  set(properties TIMEOUT ${OST_TEST_SECONDS})
  if(arg_TOOLKIT)
    list(APPEND properties ENVIRONMENT ${OST_TOOLKIT_LEAKS})
  endif()
  foreach(directory IN LISTS arg_DIRECTORIES)
    file(GLOB tests CONFIGURE_DEPENDS ${directory}/*_test.cc)
    list(FILTER tests EXCLUDE REGEX "_threads_test\\.cc$")
    foreach(source IN LISTS tests)
      get_filename_component(name ${source} NAME_WE)
      add_executable(${name} ${source})
      target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} testhost GTest::gtest_main)
      target_compile_options(${name} PRIVATE ${OST_TEST_OPTIONS})
      target_link_options(${name} PRIVATE ${OST_WRAP_ALLOCATORS})
      gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
    endforeach()
    # What sanitizers slow down tells nothing about speed.
    if(OST_SANITIZE)
      continue()
    endif()
    file(GLOB benchmarks CONFIGURE_DEPENDS ${directory}/*_bench.cc)
    foreach(source IN LISTS benchmarks)
      get_filename_component(name ${source} NAME_WE)
      add_executable(${name} ${source})
      target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} testhost benchmark::benchmark_main)
      set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench)
    endforeach()
  endforeach()
endfunction()

include(GoogleTest)
# The toolkit's own leaks are told by frames of libraries without frame pointers. To walk through those at each
# allocation takes a test several times as long, so that others don't, and these walk no further than the frames that
# tests/lsan.supp names and whoever called them.
set(OST_TOOLKIT_LEAKS
  "LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0:fast_unwind_on_malloc=0:malloc_context_size=12")

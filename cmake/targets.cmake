# Helpers that keep the folders' CMake files to a few lines.

# The general allocator of everything that ships. Sanitizers bring their own. It is linked first, so that no
# library binds to the C library's.
function(tarn_use_jemalloc name)
  if(NOT TARN_SANITIZE)
    target_link_options(${name} BEFORE PRIVATE -Wl,--no-as-needed -ljemalloc -Wl,--as-needed)
  endif()
endfunction()

# tarn_program(NAME SOURCES file... LIBS library...): a program that ships.
function(tarn_program name)
  cmake_parse_arguments(P "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${P_SOURCES})
  target_link_libraries(${name} PRIVATE ${P_LIBS})
  tarn_use_jemalloc(${name})
endfunction()

# tarn_test(NAME LABELS label... SOURCES file... LIBS library...): a GoogleTest program whose cases appear
# in CTest one by one. Every test carries the label of its area; suites with Soak in their name are too long for
# `make check` and carry the label soak instead. The label `threads` beside it: more than one thread is at work, and
# `make check` also runs it under the thread sanitizer (target thread_tests).
function(tarn_test name)
  cmake_parse_arguments(T "" "" "LABELS;SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gtest_main)
  if("threads" IN_LIST T_LABELS)
    add_dependencies(thread_tests ${name})
  endif()
  # gtest_discover_tests takes no list here; `ctest -L` looks for a part of the label.
  string(JOIN "-" labels ${T_LABELS})
  set(environment "ASAN_OPTIONS=handle_segv=0:handle_sigill=0:allocator_may_return_null=1")
  if(TARN_SANITIZE MATCHES thread)
    set(environment "TSAN_OPTIONS=handle_segv=0:handle_sigill=0")
  endif()
  gtest_discover_tests(${name} TEST_FILTER "-*Soak*" TEST_LIST ${name}_tests
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}
    PROPERTIES LABELS "${labels}" TIMEOUT 600 ENVIRONMENT "${environment}")
  gtest_discover_tests(${name} TEST_FILTER "*Soak*" TEST_LIST ${name}_soaks
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}
    PROPERTIES LABELS soak TIMEOUT 7200 ENVIRONMENT "${environment}")
endfunction()

# tarn_fuzz(NAME SOURCES file... LIBS library...): a fuzz target. With TARN_LIBFUZZER it is a libFuzzer
# program; otherwise it replays the files it is given, and CTest replays the stored corpus with it.
function(tarn_fuzz name)
  cmake_parse_arguments(F "" "" "LABELS;SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${F_SOURCES})
  target_link_libraries(${name} PRIVATE ${F_LIBS})
  add_dependencies(fuzz_targets ${name})
  if(TARN_LIBFUZZER)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  else()
    target_sources(${name} PRIVATE ${CMAKE_SOURCE_DIR}/fuzz/replay_main.cc)
    add_test(NAME ${name}_corpus COMMAND ${name} ${CMAKE_SOURCE_DIR}/fuzz/corpus/${name})
    set_tests_properties(${name}_corpus PROPERTIES LABELS "${F_LABELS}" TIMEOUT 300)
  endif()
endfunction()

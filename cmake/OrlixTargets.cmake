# The system's own python, where there is one: a shell script that looks for a version first (pyenv's) takes four times as
# long as the scripts below.
find_program(ORLIX_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH)
find_program(ORLIX_PYTHON python3 REQUIRED)

# The sources that a target compiles: with ORLIX_JOIN a few that join up to a dozen each, since half of the time goes
# into reading headers. The other builds compile each source alone, and so find the #include that one lacks.
function(orlix_sources result target)
  set(left ${ARGN})
  if(NOT ORLIX_JOIN)
    set(${result} ${left} PARENT_SCOPE)
    return()
  endif()
  set(joined)
  while(left)
    list(SUBLIST left 0 12 batch)
    list(REMOVE_ITEM left ${batch})
    list(LENGTH joined number)
    set(out ${PROJECT_BINARY_DIR}/joined/${target}_${number}.cpp)
    add_custom_command(OUTPUT ${out} COMMAND ${ORLIX_PYTHON} ${PROJECT_SOURCE_DIR}/cmake/join_sources.py ${out} ${batch}
                       DEPENDS ${PROJECT_SOURCE_DIR}/cmake/join_sources.py ${batch} VERBATIM)
    list(APPEND joined ${out})
  endwhile()
  set(${result} ${joined} PARENT_SCOPE)
endfunction()

# One folder is one library; its name is its path. Sources are globbed, so that a new file needs no line here.

# Nothing in these folders takes time in a run: they, and the tests, are compiled in two thirds of the time, and once more
# in half of it where sanitizers are put into the code.
if(ORLIX_SANITIZE)
  set(ORLIX_SMALL_EFFORT -O0)
else()
  set(ORLIX_SMALL_EFFORT -O1)
endif()
set(ORLIX_NOT_HOT "^(scene_file|run|apps|main|exchange|host/(description|objects|ui))")

# orlix_library(folder [DEPS libraries...])
function(orlix_library folder)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  string(REPLACE "/" "_" suffix ${folder})
  set(target orlix_${suffix})
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.cpp)
  if(sources)
    orlix_sources(compiled ${target} ${sources})
    add_library(${target} ${compiled})  # static where BUILD_SHARED_LIBS isn't set
    target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(${target} PUBLIC ${ARG_DEPS})
    target_compile_options(${target} PRIVATE ${ORLIX_WARNINGS})
    if(ORLIX_JOIN AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      # Of joined sources: a class with members of an unnamed namespace stands in one source nevertheless.
      target_compile_options(${target} PRIVATE -Wno-subobject-linkage)
    endif()
    if(folder MATCHES "${ORLIX_NOT_HOT}")
      target_compile_options(${target} PRIVATE ${ORLIX_SMALL_EFFORT})
    endif()
  else()
    add_library(${target} INTERFACE)
    target_include_directories(${target} INTERFACE ${PROJECT_SOURCE_DIR})
    target_link_libraries(${target} INTERFACE ${ARG_DEPS})
  endif()
endfunction()

# The shipped scenes as a source of a target: what `orlix new` starts from.
function(orlix_recipes target)
  file(GLOB scenes CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/scenes/*.json)
  file(GLOB beside CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/scenes/*.obj)
  set(out ${PROJECT_BINARY_DIR}/recipes.cpp)
  set(script ${PROJECT_SOURCE_DIR}/cmake/embed_recipes.py)
  add_custom_command(OUTPUT ${out} COMMAND ${ORLIX_PYTHON} ${script} ${out} ${scenes} DEPENDS ${script} ${scenes} ${beside}
                     VERBATIM)
  target_sources(${target} PRIVATE ${out})
endfunction()

# Every folder below tests/ that holds sources is one test program. It links the engine, and what stands above the engine
# only where its folder says so, so that a change of the program doesn't build the engine's tests anew.
function(orlix_tests)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/tests/*.cpp)
  set(folders)
  foreach(source ${sources})
    get_filename_component(folder ${source} DIRECTORY)
    list(APPEND folders "${folder}")
  endforeach()
  list(REMOVE_DUPLICATES folders)
  list(REMOVE_ITEM folders "support")
  add_library(orlix_test_support STATIC tests/support/Folders.cpp)
  target_include_directories(orlix_test_support PUBLIC ${PROJECT_SOURCE_DIR})
  target_compile_definitions(orlix_test_support PRIVATE ORLIX_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
                             ORLIX_BINARY_DIR="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
  foreach(folder ${folders})
    string(REPLACE "/" "_" suffix ${folder})
    file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/${folder}/*.cpp)
    set(slow)
    set(threads)
    foreach(source ${sources})
      file(STRINGS ${source} suites REGEX "^TEST.*Slow,")
      list(APPEND slow ${suites})
      file(STRINGS ${source} suites REGEX "^TEST.*Threads,")
      list(APPEND threads ${suites})
      if(ORLIX_SANITIZE STREQUAL "thread" AND NOT suites)
        list(REMOVE_ITEM sources ${source})
      endif()
    endforeach()
    if(NOT sources)
      continue()
    endif()
    orlix_sources(compiled test_${suffix} ${sources})
    add_executable(test_${suffix} ${compiled})
    if(folder MATCHES "^(globals|host|fluids)")
      set(library orlix_main)
    elseif(folder MATCHES "^exchange")
      set(library orlix_exchange orlix_main)
    else()
      set(library orlix_apps_orlix)
    endif()
    target_link_libraries(test_${suffix} PRIVATE orlix_test_support ${library} GTest::gtest GTest::gtest_main)
    target_compile_options(test_${suffix} PRIVATE ${ORLIX_WARNINGS} ${ORLIX_SMALL_EFFORT})
    if(ORLIX_SANITIZE)  # a tenth of a test's time to compile; reports still have the lines of the engine
      target_compile_options(test_${suffix} PRIVATE -g0)
    endif()
    if(ORLIX_JOIN AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      # gcc 12 sees gaps in std::regex in instrumented code.
      target_compile_options(test_${suffix} PRIVATE -Wno-maybe-uninitialized -Wno-subobject-linkage)
    endif()
    # A suite whose name ends in Slow runs only with the slow suite; one that ends in Threads runs under tsan too.
    add_test(NAME ${suffix} COMMAND test_${suffix} --gtest_filter=-*Slow.*:*Slow/*)
    set_tests_properties(${suffix} PROPERTIES LABELS fast TIMEOUT 300)
    if(slow)
      add_test(NAME ${suffix}_slow COMMAND test_${suffix} --gtest_filter=*Slow.*:*Slow/*)
      set_tests_properties(${suffix}_slow PROPERTIES LABELS slow TIMEOUT 3600)
    endif()
    if(threads AND ORLIX_SANITIZE STREQUAL "thread")  # otherwise they are part of the fast suite
      add_test(NAME ${suffix}_threads COMMAND test_${suffix} --gtest_filter=*Threads.*:*Threads/*)
      set_tests_properties(${suffix}_threads PROPERTIES LABELS threads TIMEOUT 600)
    endif()
  endforeach()
endfunction()

# Every source below benchmarks/ is one program of Google Benchmark.
function(orlix_benchmarks)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/benchmarks
       ${PROJECT_SOURCE_DIR}/benchmarks/*.cpp)
  list(FILTER sources EXCLUDE REGEX "^against/")
  if(sources)
    list(TRANSFORM sources PREPEND ${PROJECT_SOURCE_DIR}/benchmarks/)
    add_executable(orlix_bench ${sources})
    target_link_libraries(orlix_bench PRIVATE ${ARGN} orlix_test_support benchmark::benchmark)
    target_compile_options(orlix_bench PRIVATE ${ORLIX_WARNINGS})
  endif()
  # benchmarks/against: beside a library's own tools. Built when asked for.
  add_executable(orlix_bench_peers EXCLUDE_FROM_ALL ${PROJECT_SOURCE_DIR}/benchmarks/against/Peers.cpp
                 ${PROJECT_SOURCE_DIR}/benchmarks/Triad.cpp)
  target_link_libraries(orlix_bench_peers PRIVATE orlix_exchange_vdb orlix_fluids_surfacing ${OPENVDB_LIBRARY} ${TBB_LIBRARY}
                        Imath::Imath)
  target_compile_options(orlix_bench_peers PRIVATE ${ORLIX_WARNINGS})
  # The library's operators don't meet what its TBB asks of them in C++20.
  target_compile_definitions(orlix_bench_peers PRIVATE __TBB_USE_CONSTRAINTS=0)
endfunction()

# Every fuzz/NAME.cpp is a fuzz target with its corpus in fuzz/corpus/NAME. With clang it is a libFuzzer program; with
# any compiler it is a program that runs each file it is given once, which is how the corpus runs as a test.
function(orlix_fuzz)
  file(GLOB sources CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/fuzz ${PROJECT_SOURCE_DIR}/fuzz/*.cpp)
  list(REMOVE_ITEM sources RunCorpus.cpp)
  foreach(source ${sources})
    get_filename_component(name ${source} NAME_WE)
    add_executable(fuzz_${name} ${PROJECT_SOURCE_DIR}/fuzz/${source})
    target_link_libraries(fuzz_${name} PRIVATE ${ARGN})
    target_compile_options(fuzz_${name} PRIVATE ${ORLIX_WARNINGS} ${ORLIX_SMALL_EFFORT})
    if(ORLIX_FUZZ)
      target_compile_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
      target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    else()
      target_sources(fuzz_${name} PRIVATE ${PROJECT_SOURCE_DIR}/fuzz/RunCorpus.cpp)
      add_test(NAME fuzz_${name} COMMAND fuzz_${name} ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
      set_tests_properties(fuzz_${name} PROPERTIES LABELS fast TIMEOUT 120)
    endif()
  endforeach()
endfunction()

# norvane_core_library(<name> [DEPS <targets>...])
# Builds norvane_<name> from every .cpp in the calling folder. Public headers are
# included as "core/<subsystem>/<file>.h" from the repository root.
function(norvane_core_library name)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(sources)
    add_library(norvane_${name} STATIC ${sources})
    target_include_directories(norvane_${name} PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(norvane_${name} PUBLIC ${ARG_DEPS} PRIVATE norvane_warnings)
  else()
    # A subsystem with headers only (or none yet).
    add_library(norvane_${name} INTERFACE)
    target_include_directories(norvane_${name} INTERFACE ${PROJECT_SOURCE_DIR})
    target_link_libraries(norvane_${name} INTERFACE ${ARG_DEPS})
  endif()
  add_library(norvane::${name} ALIAS norvane_${name})
endfunction()

# norvane_test(<name> SOURCES <files>... LIBS <targets>...)
# One GoogleTest executable; its tests are registered with CTest one by one.
function(norvane_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} norvane_test_support GTest::gtest_main
                        GTest::gmock norvane_warnings)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES LABELS "${ARG_LABELS}")
endfunction()

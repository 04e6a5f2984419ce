# Compile settings shared by every target of the project.
add_library(zv_settings INTERFACE)
target_compile_options(zv_settings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor)
# Every product and sum is rounded as written: a compiler free to fuse them into one
# multiply-add (on any CPU that has one, with -march=native, on ARM) writes other bytes.
target_compile_options(zv_settings INTERFACE -ffp-contract=off)
if(ZV_WERROR)
  target_compile_options(zv_settings INTERFACE -Werror)
endif()
if(ZV_SANITIZE OR ZV_FUZZ)
  set(ZV_SAN_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_compile_options(zv_settings INTERFACE ${ZV_SAN_FLAGS})
  target_link_options(zv_settings INTERFACE ${ZV_SAN_FLAGS})
endif()
if(ZV_TSAN)
  target_compile_options(zv_settings INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(zv_settings INTERFACE -fsanitize=thread)
endif()
if(ZV_FUZZ)
  target_compile_options(zv_settings INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Windows programs carry the project's manifest (long paths, UTF-8 code page).
if(MINGW)
  enable_language(RC)
  add_library(zv_manifest OBJECT ${PROJECT_SOURCE_DIR}/cmake/windows/zv_manifest.rc)
  target_link_libraries(zv_settings INTERFACE
    "$<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:$<TARGET_OBJECTS:zv_manifest>>")
endif()

# zv_library(name SOURCES... DEPS...): one static library per folder of src/.
function(zv_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC zv_settings ${ARG_DEPS})
endfunction()

# zv_test(name SOURCES... DEPS...): a GoogleTest program registered with CTest.
function(zv_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE zv_settings zv_test_support ${ARG_DEPS} GTest::gtest GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES ENVIRONMENT "ZV_SOURCE_DIR=${PROJECT_SOURCE_DIR};ZV_BINARY_DIR=${PROJECT_BINARY_DIR};NO_COLOR=1")
endfunction()

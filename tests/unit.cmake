find_package(GTest REQUIRED)

# One test program per folder; each runs in a private root with the manual clock and the in-process switch.
function(pavo_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${ARG_SOURCES} support/test_main.cpp)
  target_link_libraries(${name} PRIVATE ${ARG_LINK} clock_manual fs_root_env GTest::gtest)
  # An assertion is an if-else, guarded against taking an else that is not its own; g++ 12 warns all the same when it
  # stands alone behind an if, without the braces that clang-format removes.
  target_compile_options(${name} PRIVATE -Wno-dangling-else)
  add_test(NAME ${name} COMMAND ${name} --gtest_brief=1 WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
endfunction()

# The test of a folder links that folder: what it uses below comes with it.
foreach(folder platform common store swapi vlan profile detection web ctl)
  if(NOT TARGET ${folder})
    continue()
  endif()
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*_test.cpp)
  if(folder STREQUAL platform)
    pavo_test(platform_test SOURCES ${sources} LINK platform)
  else()
    pavo_test(${folder}_test SOURCES ${sources} LINK ${folder} open_client_inprocess)
  endif()
endforeach()
file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/vswitch/*_test.cpp)
pavo_test(vswitch_test SOURCES ${sources} LINK common open_client_inprocess vswitch_ovs)
# With the switch's command line over TCP.
target_link_libraries(swapi_test PRIVATE vswitch_cli_server)
target_link_libraries(vswitch_test PRIVATE vswitch_cli_server)
# The shipped templates are tested as they stand.
target_compile_definitions(profile_test PRIVATE PAVO_DATA_DIR="${CMAKE_SOURCE_DIR}/data")
target_compile_definitions(detection_test PRIVATE PAVO_DATA_DIR="${CMAKE_SOURCE_DIR}/data")
target_compile_definitions(vlan_test PRIVATE PAVO_DATA_DIR="${CMAKE_SOURCE_DIR}/data")

# The programs whose producers of cached answers tests/system/cache_test.py lists.
if(TARGET web_test)
  pavo_link_producers(web_test)
  target_link_libraries(web_test PRIVATE web_resident web_requests detection open_client_inprocess)
endif()
pavo_link_producers(detection_test)

foreach(script check_includes make_vendor_db)
  add_test(NAME scripts_${script}
           COMMAND Python3::Interpreter -B ${CMAKE_CURRENT_SOURCE_DIR}/scripts/${script}_test.py)
endforeach()

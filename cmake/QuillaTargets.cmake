# quilla_module(NAME [SOURCES ...] [LINKS ...]): one module of the product as a static library.
function(quilla_module name)
    cmake_parse_arguments(MODULE "" "" "SOURCES;LINKS" ${ARGN})
    if(NOT MODULE_SOURCES)
        add_library(${name} INTERFACE)
        target_link_libraries(${name} INTERFACE quilla_product ${MODULE_LINKS})
        return()
    endif()
    add_library(${name} STATIC ${MODULE_SOURCES})
    target_link_libraries(${name} PUBLIC quilla_product ${MODULE_LINKS})
endfunction()

# quilla_test(NAME SOURCES ... [LINKS ...] [TIMEOUT seconds]): one GoogleTest program, run by CTest.
# Natively every case is a CTest test of its own; under Wine the whole program is one test, since each start of a
# Windows process costs a good part of a second.
function(quilla_test name)
    cmake_parse_arguments(TEST "" "TIMEOUT" "SOURCES;LINKS" ${ARGN})
    if(NOT TEST_TIMEOUT)
        set(TEST_TIMEOUT 120)
    endif()
    add_executable(${name} ${TEST_SOURCES})
    target_link_libraries(${name} PRIVATE quilla_product ${TEST_LINKS} gtest gtest_main)
    target_precompile_headers(${name} REUSE_FROM test_headers)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
    if(WIN32)
        target_link_options(${name} PRIVATE -static)
        add_test(NAME windows.${name} COMMAND ${name})
        # One Wine prefix serves all, and with it one set of named objects and one registry.
        set_tests_properties(windows.${name} PROPERTIES TIMEOUT ${TEST_TIMEOUT} LABELS windows
            RESOURCE_LOCK wine-prefix)
    else()
        gtest_discover_tests(${name} TEST_PREFIX native. DISCOVERY_MODE PRE_TEST
            PROPERTIES TIMEOUT ${TEST_TIMEOUT} LABELS native)
    endif()
endfunction()

# add_unit_test(NAME name SOURCES ... LIBS ... [LABELS unit|integration|e2e] [ENVIRONMENT ...]
#               [WRAPPER command ...])
#
# One QtTest executable per unit. Each test runs through tests/isolated, which gives it a fresh
# HOME and XDG folders of its own, with the locale and time zone pinned, so no test reads or
# writes the real user's files and results never depend on the machine's settings. WRAPPER runs
# inside those folders and starts the test, e.g. tests/with-keyring for a Secret Service.
find_package(Qt6 REQUIRED COMPONENTS Test)

function(add_unit_test)
    cmake_parse_arguments(ARG "" "NAME;TIMEOUT" "SOURCES;LIBS;LABELS;ENVIRONMENT;WRAPPER" ${ARGN})
    if(NOT ARG_LABELS)
        set(ARG_LABELS unit)
    endif()
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(${ARG_NAME} ${ARG_SOURCES})
    target_link_libraries(${ARG_NAME} PRIVATE Qt6::Test tavo_warnings ${ARG_LIBS})
    add_test(NAME ${ARG_NAME}
             COMMAND ${PROJECT_SOURCE_DIR}/tests/isolated ${CMAKE_BINARY_DIR}/test-home/${ARG_NAME}
                     ${ARG_WRAPPER} $<TARGET_FILE:${ARG_NAME}>)
    set_tests_properties(${ARG_NAME} PROPERTIES
        LABELS "${ARG_LABELS}"
        TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "LANG=en_US.UTF-8;LC_ALL=en_US.UTF-8;TZ=America/New_York;QT_QPA_PLATFORM=offscreen;${ARG_ENVIRONMENT}")
endfunction()

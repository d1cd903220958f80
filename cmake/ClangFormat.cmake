# `cmake --build build --target format` formats every source file in place;
# `format-check` fails when one differs from the committed style.
find_program(CLANG_FORMAT_PROGRAM NAMES clang-format-14 clang-format)
if(CLANG_FORMAT_PROGRAM)
    file(GLOB_RECURSE TAVO_FORMAT_SOURCES CONFIGURE_DEPENDS
         ${CMAKE_SOURCE_DIR}/src/*.cpp ${CMAKE_SOURCE_DIR}/src/*.h
         ${CMAKE_SOURCE_DIR}/tests/*.cpp ${CMAKE_SOURCE_DIR}/tests/*.h
         ${CMAKE_SOURCE_DIR}/bench/*.cpp ${CMAKE_SOURCE_DIR}/fuzz/*.cpp)
    add_custom_target(format COMMAND ${CLANG_FORMAT_PROGRAM} -i ${TAVO_FORMAT_SOURCES}
                      COMMENT "Formatting sources" VERBATIM)
    add_custom_target(format-check COMMAND ${CLANG_FORMAT_PROGRAM} --dry-run --Werror ${TAVO_FORMAT_SOURCES}
                      COMMENT "Checking source formatting" VERBATIM)
endif()

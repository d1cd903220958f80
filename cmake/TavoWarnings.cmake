# Warnings every Tavo target is compiled with.
add_library(tavo_warnings INTERFACE)
target_compile_options(tavo_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                               -Wold-style-cast -Wcast-align -Woverloaded-virtual)
target_compile_definitions(tavo_warnings INTERFACE QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII
                                                   QT_NO_URL_CAST_FROM_STRING QT_USE_QSTRINGBUILDER)

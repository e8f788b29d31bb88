# Settings every target of the project links against.
add_library(zq_common_config INTERFACE)
target_compile_features(zq_common_config INTERFACE cxx_std_20)
target_compile_definitions(zq_common_config INTERFACE
    QT_NO_CAST_FROM_ASCII
    QT_NO_CONTEXTLESS_CONNECT
    QT_USE_QSTRINGBUILDER
    QT_NO_KEYWORDS              # GLib headers use "signals" as a member name
    QT_NO_FOREACH
)
target_compile_options(zq_common_config INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
    -Wcast-align -Woverloaded-virtual -Wformat=2 -Wimplicit-fallthrough
    # Log lines name source files relative to the tree, not the build machine.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
    # Symbols for the package's separate -dbgsym file; the installed program is stripped.
    $<$<CONFIG:Release>:-g>
)
if(ZQ_WERROR)
    target_compile_options(zq_common_config INTERFACE -Werror)
endif()
# Hardened checks in every non-release build.
target_compile_definitions(zq_common_config INTERFACE
    $<$<NOT:$<CONFIG:Release>>:_GLIBCXX_ASSERTIONS QT_FORCE_ASSERTS>)

# A Qt plugin of the bundle's own, in lib/zelna-quorin/plugins/ beside bin/ in
# the build tree and in every install, built before the library that loads it.
function(zq_add_plugin target name)
    cmake_parse_arguments(ARG "" "FOR" "SOURCES;LIBS" ${ARGN})
    add_library(${target} MODULE ${ARG_SOURCES})
    set_target_properties(${target} PROPERTIES
        AUTOMOC ON
        OUTPUT_NAME ${name}
        LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib/zelna-quorin/plugins)
    target_link_libraries(${target} PRIVATE zq_common_config ${ARG_LIBS})
    add_dependencies(${ARG_FOR} ${target})
    install(TARGETS ${target} LIBRARY DESTINATION lib/zelna-quorin/plugins)
endfunction()

# TARGET is compiled against the headers of LIBS (and of what they use) without linking their code: in the
# windows module that code is the executable's, so there is one copy of its state. A program that links
# TARGET links LIBS too.
function(zq_use_headers target)
    foreach(lib IN LISTS ARGN)
        target_include_directories(${target} PUBLIC $<TARGET_PROPERTY:${lib},INTERFACE_INCLUDE_DIRECTORIES>)
    endforeach()
endfunction()

# Adds one Qt Test executable as one ctest.
function(zq_add_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    set_target_properties(${name} PROPERTIES
        AUTOMOC ON
        RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    target_link_libraries(${name} PRIVATE zq_common_config Qt6::Test ${ARG_LIBS})
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen"
        TIMEOUT 120)
endfunction()

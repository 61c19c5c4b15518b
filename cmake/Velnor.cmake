# Build helpers shared by every folder: one static library per layer, with the
# direction of dependencies checked, the warnings, the precompiled headers and
# the test registration.

include(GoogleTest)

if(VELNOR_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
endif()

if(VELNOR_TSAN)
    if(VELNOR_SANITIZE)
        message(FATAL_ERROR "VELNOR_TSAN and VELNOR_SANITIZE cannot be combined")
    endif()
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
endif()

# Which of our layers a layer may link, and which Qt modules. The logic layers
# stay free of QtGui and QtQuick so that every rule runs without a display.
set(_velnor_logic_qt Qt6::Core Qt6::Network Qt6::WebSockets)
set(VELNOR_LAYER_core_DEPS "")
set(VELNOR_LAYER_core_QT "")
set(VELNOR_LAYER_platform_DEPS "")
set(VELNOR_LAYER_platform_QT Qt6::Core Qt6::Network Qt6::DBus)
set(VELNOR_LAYER_api_DEPS platform)
set(VELNOR_LAYER_api_QT ${_velnor_logic_qt})
set(VELNOR_LAYER_telephony_DEPS core platform history)
set(VELNOR_LAYER_telephony_QT ${_velnor_logic_qt})
set(VELNOR_LAYER_live_DEPS api platform)
set(VELNOR_LAYER_live_QT ${_velnor_logic_qt})
set(VELNOR_LAYER_history_DEPS api platform)
set(VELNOR_LAYER_history_QT ${_velnor_logic_qt})
set(VELNOR_LAYER_contacts_DEPS api platform)
set(VELNOR_LAYER_contacts_QT ${_velnor_logic_qt})
set(VELNOR_LAYER_session_DEPS api telephony live history contacts platform)
set(VELNOR_LAYER_session_QT ${_velnor_logic_qt})
set(VELNOR_LAYER_screens_DEPS "")
set(VELNOR_LAYER_screens_QT Qt6::Core Qt6::Gui Qt6::Qml Qt6::Quick Qt6::QuickControls2 Qt6::Svg)
set(VELNOR_LAYER_shell_DEPS core platform api telephony live history contacts session screens)
# Widgets for the tray icon alone: Qt's tray lives in that module.
set(VELNOR_LAYER_shell_QT Qt6::Core Qt6::Network Qt6::WebSockets Qt6::DBus Qt6::Gui Qt6::Qml
    Qt6::Quick Qt6::QuickControls2 Qt6::Svg Qt6::Widgets
    # the voicemail player
    Qt6::Multimedia)
set(VELNOR_LAYERS core platform api telephony live history contacts session screens shell)

function(velnor_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()

# A handful of headers nearly every Qt source includes; built once per target.
function(velnor_pch target)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "INTERFACE_LIBRARY")
        return()
    endif()
    target_precompile_headers(${target} PRIVATE
        <memory> <optional> <string> <vector> <functional> <chrono>)
    get_target_property(links ${target} LINK_LIBRARIES)
    if(links AND "Qt6::Core" IN_LIST links)
        target_precompile_headers(${target} PRIVATE
            <QtCore/QObject> <QtCore/QString> <QtCore/QByteArray> <QtCore/QVariant>
            <QtCore/QDateTime> <QtCore/QUrl> <QtCore/QHash> <QtCore/QList>)
    endif()
endfunction()

# velnor_layer(NAME [SOURCES ...] [DEPS layer ...] [LINK other ...])
# Makes the static library velnor_NAME. A layer with no sources yet is an
# interface library, so that its place in the graph exists from the start.
function(velnor_layer name)
    cmake_parse_arguments(L "" "" "SOURCES;DEPS;LINK" ${ARGN})
    if(NOT name IN_LIST VELNOR_LAYERS)
        message(FATAL_ERROR "velnor_layer: unknown layer '${name}'")
    endif()
    set(target velnor_${name})
    foreach(dep IN LISTS L_DEPS)
        if(NOT dep IN_LIST VELNOR_LAYER_${name}_DEPS)
            message(FATAL_ERROR "layer '${name}' may not depend on '${dep}'")
        endif()
    endforeach()
    list(TRANSFORM L_DEPS PREPEND velnor_ OUTPUT_VARIABLE dep_targets)
    if(L_SOURCES)
        add_library(${target} STATIC ${L_SOURCES})
        target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/src)
        target_link_libraries(${target} PUBLIC ${dep_targets} ${L_LINK})
        velnor_warnings(${target})
        velnor_pch(${target})
    else()
        add_library(${target} INTERFACE)
        target_include_directories(${target} INTERFACE ${PROJECT_SOURCE_DIR}/src)
        target_link_libraries(${target} INTERFACE ${dep_targets} ${L_LINK})
    endif()
    add_library(velnor::${name} ALIAS ${target})
endfunction()

# Checks, once every layer exists, that no target_link_libraries elsewhere has
# bent the direction of the layers or pulled a display module into the logic.
function(velnor_check_layers)
    foreach(name IN LISTS VELNOR_LAYERS)
        set(target velnor_${name})
        if(NOT TARGET ${target})
            continue()
        endif()
        get_target_property(type ${target} TYPE)
        if(type STREQUAL "INTERFACE_LIBRARY")
            get_target_property(links ${target} INTERFACE_LINK_LIBRARIES)
        else()
            get_target_property(links ${target} LINK_LIBRARIES)
        endif()
        if(NOT links)
            continue()
        endif()
        foreach(link IN LISTS links)
            if(link MATCHES "^velnor_(.+)$")
                if(NOT CMAKE_MATCH_1 IN_LIST VELNOR_LAYER_${name}_DEPS)
                    message(FATAL_ERROR "layer '${name}' links '${link}', which it may not")
                endif()
            elseif(link MATCHES "^Qt6::")
                if(NOT link IN_LIST VELNOR_LAYER_${name}_QT)
                    message(FATAL_ERROR "layer '${name}' links '${link}', which it may not")
                endif()
            elseif(link MATCHES "^QCoro6::(.+)$")
                if(NOT "Qt6::${CMAKE_MATCH_1}" IN_LIST VELNOR_LAYER_${name}_QT)
                    message(FATAL_ERROR "layer '${name}' links '${link}', which it may not")
                endif()
            endif()
        endforeach()
    endforeach()
endfunction()

# velnor_test(NAME SOURCES ... [LINK ...] LABEL unit|integration|ui [TIMEOUT s] [MAIN core|gui|none]
#             [LOCK resource])
# One GoogleTest executable; each test case becomes its own ctest entry, so a
# test that starts a private service gets a fresh process.
function(velnor_test name)
    cmake_parse_arguments(T "" "LABEL;TIMEOUT;MAIN;LOCK" "SOURCES;LINK" ${ARGN})
    if(NOT T_LABEL)
        message(FATAL_ERROR "velnor_test(${name}): LABEL is required")
    endif()
    if(NOT T_TIMEOUT)
        if(T_LABEL STREQUAL "unit")
            set(T_TIMEOUT 60)
        else()
            set(T_TIMEOUT 180)
        endif()
    endif()
    if(NOT T_MAIN)
        set(T_MAIN core)
    endif()
    add_executable(${name} ${T_SOURCES})
    if(VELNOR_TSAN)
        # Children started by QProcess must not run on the test's own memory.
        target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/CopyingClone.cpp)
    endif()
    target_link_libraries(${name} PRIVATE ${T_LINK} velnor_testsupport GTest::gtest GTest::gmock)
    if(NOT T_MAIN STREQUAL "none")
        target_link_libraries(${name} PRIVATE velnor_testmain_${T_MAIN})
    endif()
    velnor_warnings(${name})
    # Failures print Qt text as text.
    target_compile_options(${name} PRIVATE -include ${PROJECT_SOURCE_DIR}/tests/support/QtPrinters.h)
    # Tests that share a LOCK never run at the same time, even under ctest -j.
    set(lock)
    if(T_LOCK)
        set(lock RESOURCE_LOCK ${T_LOCK})
    endif()
    gtest_discover_tests(${name}
        TEST_PREFIX "${name}."
        DISCOVERY_TIMEOUT 60
        PROPERTIES LABELS ${T_LABEL} TIMEOUT ${T_TIMEOUT} ${lock})
endfunction()

# The engine's libraries are its own business: no source outside src/core (and
# the engine's own unit tests) may include a libre or librem header. Checked on
# every configuration, so that such an include fails before anything builds.
function(velnor_check_engine_headers)
    file(GLOB_RECURSE sources
        ${PROJECT_SOURCE_DIR}/src/*.h ${PROJECT_SOURCE_DIR}/src/*.cpp
        ${PROJECT_SOURCE_DIR}/tests/*.h ${PROJECT_SOURCE_DIR}/tests/*.cpp
        ${PROJECT_SOURCE_DIR}/bench/*.h ${PROJECT_SOURCE_DIR}/bench/*.cpp)
    foreach(source IN LISTS sources)
        if(source MATCHES "^${PROJECT_SOURCE_DIR}/(src/core|tests/unit/core)/")
            continue()
        endif()
        file(STRINGS ${source} includes REGEX "^[ \t]*#[ \t]*include[ \t]*[<\"](re|rem|re/[^>\"]*|rem/[^>\"]*|re_[a-z0-9_]+|rem_[a-z0-9_]+)\\.h[>\"]")
        if(includes)
            file(RELATIVE_PATH shown ${PROJECT_SOURCE_DIR} ${source})
            message(FATAL_ERROR "${shown} includes a header of the SIP library (${includes}); "
                "only src/core may: go through core/Core.h")
        endif()
    endforeach()
endfunction()

# Installs the build into a fresh prefix and checks that a desktop finds the
# app there: the binary, a valid desktop file for its URL schemes, the icon.
set(prefix ${BUILD}/install-check)
file(REMOVE_RECURSE ${prefix})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix}
                RESULT_VARIABLE status OUTPUT_QUIET)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "cmake --install failed: ${status}")
endif()
foreach(path bin/velnor-rz share/applications/net.velnor.rz.desktop
             share/icons/hicolor/scalable/apps/net.velnor.rz.svg)
    if(NOT EXISTS ${prefix}/${path})
        message(FATAL_ERROR "not installed: ${path}")
    endif()
endforeach()
execute_process(COMMAND desktop-file-validate ${prefix}/share/applications/net.velnor.rz.desktop
                RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE out)
if(NOT status EQUAL 0 OR out MATCHES "error")
    message(FATAL_ERROR "desktop file is not valid: ${out}")
endif()
file(READ ${prefix}/share/applications/net.velnor.rz.desktop desktop)
foreach(line "Exec=velnor-rz %u"
             "MimeType=x-scheme-handler/rzmobile;x-scheme-handler/tel;x-scheme-handler/sip;x-scheme-handler/callto;")
    string(FIND "${desktop}" "${line}" at)
    if(at LESS 0)
        message(FATAL_ERROR "desktop file lacks: ${line}")
    endif()
endforeach()
# Headsets: the udev rule, pointing at the check that is installed with it.
set(rule ${prefix}/lib/udev/rules.d/70-velnor-rz-headsets.rules)
if(NOT EXISTS ${rule})
    message(FATAL_ERROR "not installed: the headsets' udev rule")
endif()
file(READ ${rule} rules)
string(REGEX MATCH "PROGRAM=\"([^ ]+) " found "${rules}")
if(NOT CMAKE_MATCH_1 MATCHES "^${prefix}/" OR NOT EXISTS ${CMAKE_MATCH_1})
    message(FATAL_ERROR "the udev rule's check is not installed where it says: ${CMAKE_MATCH_1}")
endif()
file(REMOVE_RECURSE ${prefix})

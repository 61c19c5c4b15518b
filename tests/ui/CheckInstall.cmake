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
# --- directory: GNOME Shell's search provider and KRunner's plugin point at the app ---
file(READ ${prefix}/share/gnome-shell/search-providers/net.velnor.rz.search-provider.ini provider)
foreach(line "[Shell Search Provider]" "DesktopId=net.velnor.rz.desktop" "BusName=net.velnor.rz"
             "ObjectPath=/net/velnor/rz/SearchProvider" "Version=2")
    string(FIND "${provider}" "${line}" at)
    if(at LESS 0)
        message(FATAL_ERROR "search provider lacks: ${line}")
    endif()
endforeach()
file(READ ${prefix}/share/krunner/dbusplugins/net.velnor.rz-runner.desktop runner)
foreach(line "X-Plasma-API=DBus" "X-Plasma-DBusRunner-Service=net.velnor.rz"
             "X-Plasma-DBusRunner-Path=/net/velnor/rz/runner" "X-KDE-ServiceTypes=Plasma/Runner")
    string(FIND "${runner}" "${line}" at)
    if(at LESS 0)
        message(FATAL_ERROR "KRunner plugin lacks: ${line}")
    endif()
endforeach()
file(REMOVE_RECURSE ${prefix})

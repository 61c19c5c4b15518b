# The Debian package: `cpack` (or ./run package) in the build directory makes
# velnor-rz_<version>_<arch>.deb from what `cmake --install` places, plus the
# icons rendered here, the AppStream metainfo and the package's own documents.

# --- icons: every size of the icon theme's fixed-size folders, drawn from the one SVG ---
find_program(RSVG_CONVERT rsvg-convert)
if(NOT RSVG_CONVERT)
    message(FATAL_ERROR "rsvg-convert (librsvg2-bin) is missing: run scripts/setup")
endif()
set(VELNOR_ICON_SIZES 16 22 24 32 48 64 128 256 512)
set(icon_svg ${PROJECT_SOURCE_DIR}/data/net.velnor.rz.svg)
set(icon_pngs)
foreach(size IN LISTS VELNOR_ICON_SIZES)
    set(dir ${PROJECT_BINARY_DIR}/icons/hicolor/${size}x${size}/apps)
    set(png ${dir}/net.velnor.rz.png)
    add_custom_command(OUTPUT ${png}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${dir}
        COMMAND ${RSVG_CONVERT} --width ${size} --height ${size} --keep-aspect-ratio
                --output ${png} ${icon_svg}
        DEPENDS ${icon_svg}
        COMMENT "Drawing the ${size} px icon"
        VERBATIM)
    list(APPEND icon_pngs ${png})
    install(FILES ${png} DESTINATION share/icons/hicolor/${size}x${size}/apps)
endforeach()
add_custom_target(velnor_icons ALL DEPENDS ${icon_pngs})

# --- what software centres show ---
install(FILES ${PROJECT_SOURCE_DIR}/data/net.velnor.rz.metainfo.xml DESTINATION share/metainfo)

# --- the package's documents: its manual page, its copyright (with the licenses
# of the fonts and icons in the binary's resources) and its changelog, compressed
# as Debian wants ---
set(doc_dir share/doc/velnor-rz)
set(package_dir ${PROJECT_BINARY_DIR}/package)
set(changelog_gz ${package_dir}/changelog.gz)
set(copyright ${package_dir}/copyright)
set(lucide_license ${PROJECT_SOURCE_DIR}/third_party/npm/lucide-static/LICENSE)
set(plex_license ${PROJECT_SOURCE_DIR}/third_party/npm/plex-sans/LICENSE.txt)
add_custom_command(OUTPUT ${changelog_gz}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${package_dir}
    # -n keeps the name and time out of the header: the same file on every build.
    COMMAND sh -c "gzip -9n < \"$0\" > \"$1\"" ${PROJECT_SOURCE_DIR}/data/package/changelog
            ${changelog_gz}
    DEPENDS ${PROJECT_SOURCE_DIR}/data/package/changelog
    VERBATIM)
add_custom_command(OUTPUT ${copyright}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${package_dir}
    COMMAND sh ${PROJECT_SOURCE_DIR}/data/package/make-copyright
            ${PROJECT_SOURCE_DIR}/data/package/copyright.head ${lucide_license} ${plex_license}
            ${copyright}
    DEPENDS ${PROJECT_SOURCE_DIR}/data/package/make-copyright
            ${PROJECT_SOURCE_DIR}/data/package/copyright.head ${lucide_license} ${plex_license}
    VERBATIM)
set(manual_gz ${package_dir}/velnor-rz.1.gz)
add_custom_command(OUTPUT ${manual_gz}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${package_dir}
    COMMAND sh -c "gzip -9n < \"$0\" > \"$1\"" ${PROJECT_SOURCE_DIR}/data/package/velnor-rz.1
            ${manual_gz}
    DEPENDS ${PROJECT_SOURCE_DIR}/data/package/velnor-rz.1
    VERBATIM)
add_custom_target(velnor_package_docs ALL DEPENDS ${changelog_gz} ${copyright} ${manual_gz})
install(FILES ${changelog_gz} ${copyright} DESTINATION ${doc_dir})
install(FILES ${manual_gz} DESTINATION share/man/man1)

# --- the package itself ---
# cpack (and `ninja install`) take what is built and build nothing: ./run
# package builds the installed targets first, and a full build has them.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velnor-rz)
set(CPACK_PACKAGE_VENDOR velnor)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "velnor RZ for Linux <linux@velnor.net>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "softphone for the velnor RZ cloud telephone system")
set(CPACK_PACKAGE_DESCRIPTION
    "velnor RZ makes this computer one of your phones on the velnor RZ cloud
telephone system. It signs in through your browser, registers over SIP (TCP or
TLS) and places and takes calls with echo-cancelled audio, holds, transfers and
merges them. It shows the call log, the company directory with live presence,
voicemail, forwarding rules, do-not-disturb and call queues, and lives in the
tray so that calls still arrive with the window closed.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_PREFIX /usr)
# The udev rule names its check by the installed path: install as into /usr
# under a staging root, not into the staging folder itself.
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SECTION comm)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://velnor.net/")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# The libraries the binaries link come from dpkg-shlibdeps; what it cannot
# see is named here: the QML modules the screens import, Qt's SVG plugins
# that draw the icons, and the platform plugin for Wayland.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "qml6-module-qtqml, qml6-module-qtquick, qml6-module-qtquick-controls, qml6-module-qtquick-layouts, qml6-module-qtquick-templates, qml6-module-qtquick-window, qml6-module-qtqml-workerscript, libqt6svg6")
# A Secret Service keeps the sign-in (without one the app asks again at each
# start); a PulseAudio server (or PipeWire's) plays the calls; the rest makes
# the ring, the voicemail and Qt's own texts work as on a full desktop.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
    "gnome-keyring | keepassxc, pulseaudio | pipewire-pulse, evolution-data-server, libcanberra-pulse, sound-theme-freedesktop, gstreamer1.0-plugins-base, gstreamer1.0-plugins-good, qt6-translations-l10n, qt6-wayland, xdg-utils")
include(CPack)

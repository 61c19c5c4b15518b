# The app's texts in other languages, kept with Qt Linguist's tools: the
# velnor-rz_lupdate target (also reached as update_translations, and as
# ./run translations) writes every qsTr()/tr() text of src/ into the .ts
# files, and lrelease compiles them into the binary's resources under :/i18n.
# Included from src/shell once the velnor-rz target exists.

find_package(Qt6 REQUIRED COMPONENTS LinguistTools)

set(VELNOR_TS_FILES ${PROJECT_SOURCE_DIR}/translations/velnor-rz_de.ts)

# Every file that may hold a text; a file added later is found at the next
# configuration, which the glob triggers by itself.
file(GLOB_RECURSE velnor_translated_sources CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/src/*.cpp ${PROJECT_SOURCE_DIR}/src/*.h ${PROJECT_SOURCE_DIR}/src/*.qml)

# No line numbers in the files: they would change with every edit of the
# sources, and the merges of texts from several branches would collide on them.
qt_add_lupdate(velnor-rz
    TS_FILES ${VELNOR_TS_FILES}
    SOURCES ${velnor_translated_sources}
    INCLUDE_DIRECTORIES ${PROJECT_SOURCE_DIR}/src
    OPTIONS -locations none -no-obsolete -silent)

qt_add_lrelease(velnor-rz
    TS_FILES ${VELNOR_TS_FILES}
    QM_FILES_OUTPUT_VARIABLE velnor_qm_files
    OPTIONS -silent)

qt_add_resources(velnor-rz velnor_translations
    PREFIX /i18n
    BASE ${CMAKE_CURRENT_BINARY_DIR}
    FILES ${velnor_qm_files})

pragma Singleton

import QtQuick

// System-image names of the screens, mapped to the bundled outline icons.
// Tint them with a colour rather than editing the files.
QtObject {
    readonly property var files: ({
        "chevron.right": "chevron-right"
    })

    function of(name) {
        const file = files[name]
        return file ? "qrc:/icons/" + file + ".svg" : ""
    }
}

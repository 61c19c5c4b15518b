pragma Singleton

import QtQuick

// System-image names of the screens, mapped to the bundled outline icons.
// Tint them with a colour rather than editing the files.
QtObject {
    readonly property var files: ({
        "chevron.right": "chevron-right",
        // --- call windows ---
        "phone.fill": "phone",
        "phone.down.fill": "phone-off",
        "mic.fill": "mic",
        "mic.slash.fill": "mic-off",
        "circle.grid.3x3.fill": "grid-3x3",
        "arrow.down.right.and.arrow.up.left": "minimize-2",
        "arrow.up.left.and.arrow.down.right": "maximize-2"
        // --- end of call windows ---
    })

    function of(name) {
        const file = files[name]
        return file ? "qrc:/icons/" + file + ".svg" : ""
    }
}

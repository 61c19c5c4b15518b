pragma Singleton

import QtQuick

// System-image names of the screens, mapped to the bundled outline icons.
// Tint them with a colour rather than editing the files.
QtObject {
    readonly property var files: ({
        "chevron.right": "chevron-right",
        // --- main window, keypad, tray ---
        "clock": "clock",
        "person.2": "users",
        "circle.grid.3x3": "grid-3x3",
        "recordingtape": "voicemail",
        "person.3.sequence": "users-round",
        "gearshape": "settings",
        "phone": "phone",
        "phone.fill": "phone",
        "phone.down.fill": "phone-off",
        "phone.arrow.down.left": "phone-incoming",
        "phone.arrow.up.right": "phone-outgoing",
        "mic.fill": "mic",
        "mic.slash.fill": "mic-off",
        "delete.left": "delete",
        "asterisk": "asterisk",
        "number": "hash",
        "wifi.slash": "wifi-off",
        "wifi.exclamationmark": "wifi-off",
        "exclamationmark.triangle.fill": "triangle-alert",
        "xmark": "x",
        // --- end of main window, keypad, tray ---
        // --- call windows ---
        "circle.grid.3x3.fill": "grid-3x3",
        "arrow.down.right.and.arrow.up.left": "minimize-2",
        "arrow.up.left.and.arrow.down.right": "maximize-2",
        // --- directory ---
        "magnifyingglass": "search",
        // --- two calls and statistics ---
        "pause.fill": "pause",
        "play.fill": "play",
        "arrow.turn.up.right": "phone-forwarded",
        "plus": "plus",
        "arrow.left.arrow.right": "arrow-left-right",
        "arrow.triangle.merge": "merge",
        "person.badge.plus": "user-plus",
        "person.crop.circle.badge.plus": "user-plus",
        "chart.bar.xaxis": "chart-bar",
        // --- voicemail, forwarding, do not disturb ---
        "envelope.badge": "mail",
        "envelope.open": "mail-open",
        "trash": "trash-2",
        "moon.fill": "moon",
        // --- queues and conference ---
        "person.3.fill": "users-round",
        "pause.circle.fill": "circle-pause",
        "checkmark.circle.fill": "circle-check",
        "lock": "lock",
        "lock.fill": "lock",
        "lock.open": "lock-open",
        "ellipsis.circle": "circle-ellipsis",
        "person.fill.xmark": "user-x",
        // --- settings window ---
        "camera.circle.fill": "camera",
        "arrow.up.circle.fill": "circle-arrow-up",
        "power": "power"
    })

    function of(name) {
        const file = files[name]
        return file ? "qrc:/icons/" + file + ".svg" : ""
    }
}

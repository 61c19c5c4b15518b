pragma Singleton

import QtQuick

// The app's palette: each colour has a light and a dark value. `dark` follows the
// desktop's appearance; the shell keeps it current.
QtObject {
    property bool dark: false

    readonly property color accent: dark ? "#7184F8" : "#3451F6"
    readonly property color positive: dark ? "#4ADE80" : "#16A34A"
    readonly property color danger: dark ? "#FF6467" : "#E7000B"
    readonly property color secondaryText: dark ? "#A3A6B0" : "#6B6F7B"
    readonly property color rowBackground: dark ? "#1B1C20" : "#FFFFFF"
    readonly property color windowBackground: dark ? "#151619" : "#FFFFFF"
    readonly property color fieldBackground: dark ? "#2A2B30" : "#F3F4F6"
    readonly property color separator: dark ? "#2B2C31" : "#E4E5E9"
    // Text on the window background.
    readonly property color primaryText: dark ? "#F3F4F6" : "#151619"

    // The registration badge's "connecting" and presence's "do not disturb".
    readonly property color orange: dark ? "#FB923C" : "#EA7A0C"
    readonly property color purple: dark ? "#C084FC" : "#9333EA"
    // The selected row of the sidebar.
    readonly property color selection: dark ? "#262A3F" : "#E8ECFE"

    readonly property string fontFamily: "IBM Plex Sans"
}

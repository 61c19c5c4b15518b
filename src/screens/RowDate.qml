import QtQuick

// When a call was, in a row's words (today's time, "Yesterday", a weekday, a date).
Text {
    property date date
    property QtObject shell: null

    text: shell ? shell.rowDate(date) : ""
    color: Theme.secondaryText
    font.family: Theme.fontFamily
    font.pixelSize: 12
}

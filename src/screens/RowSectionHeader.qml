import QtQuick

// The small heading above a group of rows.
Text {
    property string title
    text: title
    color: Theme.secondaryText
    font.family: Theme.fontFamily
    font.weight: Font.DemiBold
    font.pixelSize: 10
    font.capitalization: Font.AllUppercase
    Accessible.role: Accessible.Heading
    Accessible.name: title
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// How the call sounds: the level in words with the server's worst MOS and
// the one estimated here, the table of the engine's figures, and the audio's
// warning when there is one.
Rectangle {
    id: panel

    // The session's CallStatistics.
    required property QtObject stats

    implicitWidth: 280
    implicitHeight: column.implicitHeight + 24
    radius: 12
    color: Theme.fieldBackground

    component Figure: Label {
        color: Theme.primaryText
        font.family: Theme.fontFamily
        font.pixelSize: 10
    }
    component RowTitle: Label {
        color: Theme.secondaryText
        font.family: Theme.fontFamily
        font.pixelSize: 10
    }

    ColumnLayout {
        id: column
        anchors.fill: parent
        anchors.margins: 12
        spacing: 10

        RowLayout {
            spacing: 8
            Layout.fillWidth: true
            QualityBars {
                level: panel.stats.level
            }
            Label {
                objectName: "statsLevel"
                text: panel.stats.levelText
                color: Theme.primaryText
                font.family: Theme.fontFamily
                font.pixelSize: 13
            }
            Item { Layout.fillWidth: true }
            Figure {
                objectName: "statsServerMos"
                visible: text !== ""
                text: panel.stats.serverMos
                Accessible.name: qsTr("Server: ") + text
            }
            Figure {
                objectName: "statsLocalMos"
                visible: text !== ""
                text: panel.stats.localMos !== "" ? qsTr("Local %1").arg(panel.stats.localMos) : ""
                color: Theme.secondaryText
                ToolTip.visible: localHover.hovered
                ToolTip.text: qsTr("Estimated on this computer")
                Accessible.name: qsTr("Estimated here: ") + text
                HoverHandler { id: localHover }
            }
        }

        GridLayout {
            objectName: "statsTable"
            visible: panel.stats.hasStats
            columns: 3
            columnSpacing: 14
            rowSpacing: 4

            RowTitle { text: qsTr("Incoming") }
            Figure { objectName: "statsIncomingLoss"; text: panel.stats.incomingLoss }
            Figure { text: panel.stats.incomingJitter }

            RowTitle { text: qsTr("Outgoing") }
            Figure { text: panel.stats.outgoingLoss }
            Figure { text: panel.stats.outgoingJitter }

            RowTitle { text: qsTr("Round trip") }
            Figure { text: panel.stats.roundTrip }
            Item { implicitWidth: 1; implicitHeight: 1 }

            RowTitle { visible: panel.stats.packets !== ""; text: qsTr("Packets") }
            Figure { visible: panel.stats.packets !== ""; text: panel.stats.packets; Layout.columnSpan: 2 }
        }

        RowLayout {
            visible: panel.stats.warning !== ""
            spacing: 6
            TintedIcon {
                name: "exclamationmark.triangle.fill"
                size: 14
                color: Theme.orange
            }
            Label {
                objectName: "statsWarning"
                Layout.fillWidth: true
                wrapMode: Text.WordWrap
                text: panel.stats.warning
                color: Theme.orange
                font.family: Theme.fontFamily
                font.pixelSize: 11
            }
        }
    }
}

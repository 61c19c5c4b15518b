import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One queue: its name and summary with the logged-in switch, the pause row
// while logged in, the waiting calls, and the agents. The switch and the
// button hold no state of their own: they show what the queue list and the
// live board say, so a refused change puts them back by itself.
Rectangle {
    id: card

    required property string queueId
    required property string name
    required property string summary
    required property bool loggedIn
    required property bool paused
    required property bool hasBoard
    required property var waiting
    required property var agents
    property QtObject queues: null

    implicitHeight: column.implicitHeight + 28
    radius: 14
    color: Theme.rowBackground
    border.width: 1
    border.color: Theme.separator

    ColumnLayout {
        id: column
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.margins: 14
        spacing: 12

        RowLayout {
            Layout.fillWidth: true
            spacing: 8
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 2
                Text {
                    objectName: "queueName"
                    Layout.fillWidth: true
                    elide: Text.ElideRight
                    text: card.name
                    color: Theme.primaryText
                    font.family: Theme.fontFamily
                    font.weight: Font.DemiBold
                    font.pixelSize: 13
                    Accessible.role: Accessible.Heading
                    Accessible.name: text
                }
                Text {
                    objectName: "queueSummary"
                    Layout.fillWidth: true
                    elide: Text.ElideRight
                    text: card.summary
                    color: Theme.secondaryText
                    font.family: Theme.fontFamily
                    font.pixelSize: 10
                }
            }
            Switch {
                id: loggedInSwitch
                Accessible.onPressAction: { toggle(); toggled() }
                objectName: "loggedInSwitch"
                checked: card.loggedIn
                palette.highlight: Theme.positive
                palette.dark: Theme.positive
                Accessible.name: qsTr("Logged in to %1").arg(card.name)
                onToggled: {
                    card.queues.setLoggedIn(card.queueId, checked)
                    // What the session and the board say wins, now and after a refusal.
                    checked = Qt.binding(() => card.loggedIn)
                }
            }
        }

        RowLayout {
            objectName: "pauseRow"
            visible: card.loggedIn
            Layout.fillWidth: true
            spacing: 8
            TintedIcon {
                name: card.paused ? "pause.circle.fill" : "checkmark.circle.fill"
                color: card.paused ? Theme.orange : Theme.positive
            }
            Text {
                objectName: "pauseText"
                text: card.paused ? qsTr("Paused: no queue calls") : qsTr("Available for queue calls")
                color: Theme.primaryText
                font.family: Theme.fontFamily
                font.pixelSize: 10
            }
            Item { Layout.fillWidth: true }
            Button {
                Accessible.onPressAction: clicked()
                objectName: "pauseButton"
                text: card.paused ? qsTr("Resume") : qsTr("Pause")
                icon.source: Icons.of(card.paused ? "play.fill" : "pause.fill")
                icon.width: 12
                icon.height: 12
                icon.color: Theme.primaryText
                palette.buttonText: Theme.primaryText
                font.family: Theme.fontFamily
                font.weight: Font.Medium
                font.pixelSize: 11
                Accessible.name: text
                background: Rectangle {
                    implicitHeight: 26
                    radius: 13
                    color: parent.down ? Theme.separator : Theme.fieldBackground
                    border.width: parent.visualFocus ? 2 : 0
                    border.color: Theme.accent
                }
                onClicked: card.queues.setPaused(card.queueId, !card.paused)
            }
        }

        Rectangle {
            objectName: "waitingPanel"
            visible: card.waiting.length > 0
            Layout.fillWidth: true
            implicitHeight: waitingColumn.implicitHeight + 20
            radius: 8
            color: Qt.rgba(Theme.fieldBackground.r, Theme.fieldBackground.g,
                           Theme.fieldBackground.b, 0.6)
            Accessible.role: Accessible.List
            Accessible.name: qsTr("Waiting calls")

            ColumnLayout {
                id: waitingColumn
                anchors.left: parent.left
                anchors.right: parent.right
                anchors.top: parent.top
                anchors.margins: 10
                spacing: 6

                Repeater {
                    model: card.waiting
                    RowLayout {
                        id: waitingRow
                        required property var modelData
                        objectName: "waitingRow"
                        Layout.fillWidth: true
                        spacing: 6
                        Accessible.role: Accessible.ListItem
                        Accessible.name: modelData.caller
                                         + (modelData.agent.length > 0 ? ", " + modelData.agent : "")
                                         + (modelData.timed ? ", " + timer.text : "")
                        Text {
                            Layout.preferredWidth: 18
                            text: waitingRow.modelData.place
                            color: Theme.secondaryText
                            font.family: Theme.fontFamily
                            font.pixelSize: 10
                        }
                        Text {
                            objectName: "waitingCaller"
                            Layout.fillWidth: !waitingRow.modelData.agent
                            elide: Text.ElideRight
                            text: waitingRow.modelData.caller
                            color: Theme.primaryText
                            font.family: Theme.fontFamily
                            font.pixelSize: 13
                        }
                        Text {
                            objectName: "waitingAgent"
                            visible: waitingRow.modelData.agent.length > 0
                            Layout.fillWidth: true
                            elide: Text.ElideRight
                            text: "\u2192 " + waitingRow.modelData.agent
                            color: Theme.accent
                            font.family: Theme.fontFamily
                            font.pixelSize: 10
                        }
                        Text {
                            id: timer
                            objectName: "waitingTimer"
                            visible: waitingRow.modelData.timed
                            Layout.minimumWidth: 40
                            horizontalAlignment: Text.AlignRight
                            text: waitingRow.modelData.timed && card.queues
                                  ? card.queues.waitingText(waitingRow.modelData.sinceMs,
                                                            card.queues.now)
                                  : ""
                            color: Theme.secondaryText
                            font.family: Theme.fontFamily
                            font.pixelSize: 10
                        }
                    }
                }
            }
        }

        FlowAgents {
            objectName: "flowAgents"
            visible: card.hasBoard && card.agents.length > 0
            Layout.fillWidth: true
            agents: card.agents
        }
    }
}

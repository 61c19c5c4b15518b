import QtQuick
import QtQuick.Layouts

// One person, group or call flow of the directory: picture with the
// presence dot, name over presence or address, the extension, and the call
// button while there is an extension to call.
CallableRow {
    id: line

    required property string name
    required property string subtitle
    required property string extension
    required property string presence
    required property bool dialable
    required property string avatar
    required property string accessibleHint
    property QtObject phone
    property QtObject shell

    objectName: "directoryRow"
    callEnabled: dialable && phone !== null
    Accessible.name: name + (subtitle.length > 0 ? ", " + subtitle : "")
    Accessible.description: accessibleHint
    onCall: line.phone.dialOrQueue(line.extension)

    ListRow {
        title: line.name
        subtitle: line.subtitle
        leading: Component {
            Item {
                implicitWidth: 40
                implicitHeight: 40
                Avatar {
                    anchors.fill: parent
                    size: 40
                    name: line.name
                    image: line.avatar
                    shell: line.shell
                }
                PresenceDot {
                    objectName: "presenceDot"
                    visible: line.presence.length > 0
                    presence: line.presence.length > 0 ? line.presence : "offline"
                    anchors.right: parent.right
                    anchors.bottom: parent.bottom
                    anchors.rightMargin: -2
                    anchors.bottomMargin: -2
                    border.width: 2
                    border.color: Theme.windowBackground
                }
            }
        }
        trailing: line.extension.length > 0 ? pill : null
        Component {
            id: pill
            ExtensionPill { text: line.extension }
        }
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// A chosen picture moved and scaled inside a square frame; the crop object
// keeps it covering the frame and makes the JPEG.
Item {
    id: view

    required property QtObject crop
    signal use()
    signal cancel()

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 12
        spacing: 10

        RowLayout {
            Layout.fillWidth: true
            ToolButton {
                Accessible.onPressAction: clicked()
                objectName: "cropCancelButton"
                text: qsTr("Cancel")
                icon.source: Icons.of("xmark")
                icon.color: Theme.primaryText
                palette.buttonText: Theme.primaryText
                Accessible.name: text
                onClicked: view.cancel()
            }
            Label {
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                text: qsTr("Move and scale")
                color: Theme.primaryText
                font.weight: Font.DemiBold
            }
            Button {
                Accessible.onPressAction: clicked()
                objectName: "cropUseButton"
                text: qsTr("Use")
                highlighted: true
                Accessible.name: text
                onClicked: view.use()
            }
        }

        Item {
            id: area
            objectName: "cropArea"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true

            readonly property real side: Math.max(1, Math.min(width, height) - 24)
            onSideChanged: view.crop.side = side
            Component.onCompleted: view.crop.side = side

            Image {
                objectName: "cropPicture"
                source: view.crop.source
                autoTransform: true
                asynchronous: true
                smooth: true
                mipmap: true
                sourceSize: Qt.size(2048, 2048)
                width: view.crop.displayWidth * view.crop.scale
                height: view.crop.displayHeight * view.crop.scale
                x: (area.width - width) / 2 + view.crop.offsetX
                y: (area.height - height) / 2 + view.crop.offsetY
            }

            // The mask leaves the frame open.
            readonly property real frameX: (width - side) / 2
            readonly property real frameY: (height - side) / 2
            readonly property color shade: Qt.rgba(0, 0, 0, 0.55)
            Rectangle { x: 0; y: 0; width: area.width; height: area.frameY; color: area.shade }
            Rectangle {
                x: 0; y: area.frameY + area.side
                width: area.width; height: area.height - y; color: area.shade
            }
            Rectangle { x: 0; y: area.frameY; width: area.frameX; height: area.side; color: area.shade }
            Rectangle {
                x: area.frameX + area.side; y: area.frameY
                width: area.width - x; height: area.side; color: area.shade
            }
            Rectangle {
                objectName: "cropFrame"
                x: area.frameX
                y: area.frameY
                width: area.side
                height: area.side
                color: "transparent"
                border.width: 1
                border.color: Qt.rgba(1, 1, 1, 0.8)
            }

            DragHandler {
                target: null
                dragThreshold: 10
                onTranslationChanged: if (active) view.crop.drag(translation.x, translation.y)
                onActiveChanged: if (!active) view.crop.endDrag()
            }
            PinchHandler {
                target: null
                property real lastSent: 1
                onActiveScaleChanged: {
                    if (Math.abs(activeScale - lastSent) >= 0.01) {
                        lastSent = activeScale
                        view.crop.magnify(activeScale)
                    }
                }
                onActiveChanged: {
                    if (!active) {
                        view.crop.endMagnify()
                        lastSent = 1
                    }
                }
            }
            WheelHandler {
                target: null
                onWheel: (event) => view.crop.zoomTo(view.crop.scale * Math.pow(1.0015, event.angleDelta.y))
            }
        }

        Slider {
            objectName: "cropZoom"
            Layout.fillWidth: true
            from: 1
            to: 6
            value: view.crop.scale
            Accessible.name: qsTr("Zoom")
            onMoved: view.crop.zoomTo(value)
        }
    }
}

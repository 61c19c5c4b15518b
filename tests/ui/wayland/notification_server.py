#!/usr/bin/python3
"""A freedesktop notification server on a private bus for the Wayland tests.

Debian 12's notification servers that run on a wlroots compositor do not
hand an xdg-activation token over with an action the way a desktop's own
server does: mako 1.7 sends ActivationToken only for the default action
clicked with a pointer, dunst 1.9 never. This one keeps the published
interface (Notify, CloseNotification, GetCapabilities, GetServerInformation
and the NotificationClosed, ActionInvoked and ActivationToken signals) and
adds two methods of its own under net.velnor.test.Notifications: Shown(),
the notifications on screen, and Invoke(id, action), which plays the person
choosing an action. Like a server that supports activation, it asks the
compositor for a token (through the program given as the first argument,
for the app named in the notification's desktop-entry hint) and sends
ActivationToken just before ActionInvoked. Everything is logged to the file
given as the second argument."""

import subprocess
import sys

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
token_client = sys.argv[1]
log = open(sys.argv[2], "a", buffering=1)
INTERFACE = "org.freedesktop.Notifications"
CONTROL = "net.velnor.test.Notifications"


class Server(dbus.service.Object):
    def __init__(self):
        self.name = dbus.service.BusName(INTERFACE, bus)
        dbus.service.Object.__init__(self, self.name, "/org/freedesktop/Notifications")
        self.shown = {}
        self.last_id = 0

    @dbus.service.method(INTERFACE, in_signature="", out_signature="as")
    def GetCapabilities(self):
        return ["actions", "body"]

    @dbus.service.method(INTERFACE, in_signature="", out_signature="ssss")
    def GetServerInformation(self):
        return ("velnor-test-notifications", "velnor", "1", "1.2")

    @dbus.service.method(INTERFACE, in_signature="susssasa{sv}i", out_signature="u")
    def Notify(self, app_name, replaces_id, icon, summary, body, actions, hints, timeout):
        if replaces_id and replaces_id in self.shown:
            notification_id = int(replaces_id)
        else:
            self.last_id += 1
            notification_id = self.last_id
        self.shown[notification_id] = {
            "summary": str(summary),
            "actions": [str(a) for a in actions],
            "desktop_entry": str(hints.get("desktop-entry", "")),
        }
        log.write("shown %d %s %s\n" % (notification_id, summary, list(actions)))
        return dbus.UInt32(notification_id)

    @dbus.service.method(INTERFACE, in_signature="u", out_signature="")
    def CloseNotification(self, notification_id):
        if self.shown.pop(int(notification_id), None) is not None:
            log.write("closed %d\n" % notification_id)
            self.NotificationClosed(notification_id, 3)

    @dbus.service.signal(INTERFACE, signature="uu")
    def NotificationClosed(self, notification_id, reason):
        pass

    @dbus.service.signal(INTERFACE, signature="us")
    def ActionInvoked(self, notification_id, action):
        pass

    @dbus.service.signal(INTERFACE, signature="us")
    def ActivationToken(self, notification_id, token):
        pass

    @dbus.service.method(CONTROL, in_signature="", out_signature="a(usas)")
    def Shown(self):
        return [(dbus.UInt32(i), n["summary"], n["actions"]) for i, n in sorted(self.shown.items())]

    @dbus.service.method(CONTROL, in_signature="us", out_signature="s")
    def Invoke(self, notification_id, action):
        notification = self.shown.get(int(notification_id))
        if notification is None:
            raise dbus.exceptions.DBusException("no notification %d" % notification_id)
        if action not in notification["actions"][0::2]:
            raise dbus.exceptions.DBusException("no action %s" % action)
        asked = subprocess.run([token_client, notification["desktop_entry"]],
                               capture_output=True, text=True, timeout=10)
        if asked.returncode != 0:
            raise dbus.exceptions.DBusException("no token: " + asked.stderr.strip())
        token = asked.stdout.strip()
        log.write("invoked %d %s with token %s\n" % (notification_id, action, token))
        self.ActivationToken(notification_id, token)
        self.ActionInvoked(notification_id, action)
        # Choosing an action dismisses the notification, as servers do.
        self.shown.pop(int(notification_id), None)
        self.NotificationClosed(notification_id, 2)
        return token


server = Server()
GLib.MainLoop().run()

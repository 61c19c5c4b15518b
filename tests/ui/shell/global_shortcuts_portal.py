#!/usr/bin/python3
"""A stand-in for the desktop's global shortcuts portal on a private bus.

Debian 12's xdg-desktop-portal (1.16) predates the GlobalShortcuts
interface, so the tests speak to this process instead. It implements the
interface as published (CreateSession and BindShortcuts answering through a
Request object's Response signal, the Activated signal) and adds one method of
its own, Press(id), with which a test plays the person pressing a bound
shortcut. Every binding is written to the log file given as the argument."""

import sys

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
log = open(sys.argv[1], "a", buffering=1)
PORTAL = "org.freedesktop.portal.GlobalShortcuts"


class Request(dbus.service.Object):
    @dbus.service.signal("org.freedesktop.portal.Request", signature="ua{sv}")
    def Response(self, response, results):
        pass


class Portal(dbus.service.Object):
    def __init__(self):
        self.name = dbus.service.BusName("org.freedesktop.portal.Desktop", bus)
        dbus.service.Object.__init__(self, self.name, "/org/freedesktop/portal/desktop")
        self.sessions = []

    def request(self, sender, options):
        path = "/org/freedesktop/portal/desktop/request/%s/%s" % (
            sender[1:].replace(".", "_"), options["handle_token"])
        return Request(bus, path), path

    @dbus.service.method(PORTAL, in_signature="a{sv}", out_signature="o", sender_keyword="sender")
    def CreateSession(self, options, sender=None):
        request, path = self.request(sender, options)
        session = "/org/freedesktop/portal/desktop/session/%s/%s" % (
            sender[1:].replace(".", "_"), options["session_handle_token"])
        self.sessions.append(session)
        GLib.idle_add(lambda: request.Response(dbus.UInt32(0), {"session_handle": session}) and False)
        return path

    @dbus.service.method(PORTAL, in_signature="oa(sa{sv})sa{sv}", out_signature="o",
                         sender_keyword="sender")
    def BindShortcuts(self, session, shortcuts, parent, options, sender=None):
        request, path = self.request(sender, options)
        for shortcut_id, properties in shortcuts:
            log.write("bound %s: %s\n" % (shortcut_id, properties.get("description", "")))
        results = {"shortcuts": dbus.Array(shortcuts, signature="(sa{sv})")}
        GLib.idle_add(lambda: request.Response(dbus.UInt32(0), results) and False)
        return path

    @dbus.service.signal(PORTAL, signature="osta{sv}")
    def Activated(self, session, shortcut_id, timestamp, options):
        pass

    @dbus.service.method("net.velnor.test.Keys", in_signature="s")
    def Press(self, shortcut_id):
        for session in self.sessions:
            self.Activated(dbus.ObjectPath(session), shortcut_id, dbus.UInt64(0), {})


portal = Portal()
log.write("ready\n")
GLib.MainLoop().run()

#!/usr/bin/python3
"""Reads an application's accessibility tree over AT-SPI, as a screen reader
does, and prints one line per showing element that can take the focus or is
a button or menu item: its role and its name. The last line counts those
that have no name. Given a window's name as the second argument, it
reads only the showing windows of that name, waiting for one to show.

    accessible_tree.py APP [WINDOW]

Exits 2 when the application is not on the bus within the bound, 3 when no
such window showed."""

import sys
import time

import pyatspi



def walk(node, depth=0):
    if node is None or depth > 60:
        return
    yield node
    for index in range(node.childCount):
        try:
            child = node.getChildAtIndex(index)
        except Exception:  # an element that went away while being read
            continue
        yield from walk(child, depth + 1)


def find_application(name, bound):
    deadline = time.monotonic() + bound
    while time.monotonic() < deadline:
        desktop = pyatspi.Registry.getDesktop(0)
        for index in range(desktop.childCount):
            application = desktop.getChildAtIndex(index)
            if application is not None and application.name == name:
                return application
        time.sleep(0.2)
    return None


def showing_windows(application, name, bound):
    deadline = time.monotonic() + bound
    while time.monotonic() < deadline:
        windows = []
        for index in range(application.childCount):
            try:
                window = application.getChildAtIndex(index)
                if (window is not None and window.name == name
                        and window.getState().contains(pyatspi.STATE_SHOWING)):
                    windows.append(window)
            except Exception:  # a window that went away while being read
                continue
        if windows:
            return windows
        time.sleep(0.2)
    return []


def main():
    name = sys.argv[1]
    application = find_application(name, 20)
    if application is None:
        print("no application named", name)
        return 2
    roots = [application]
    if len(sys.argv) > 2:
        roots = showing_windows(application, sys.argv[2], 20)
        if not roots:
            print("no window named", sys.argv[2], "showed")
            return 3
    unnamed = 0
    for node in (element for root in roots for element in walk(root)):
        states = node.getState()
        role = node.getRoleName()
        focusable = states.contains(pyatspi.STATE_FOCUSABLE)
        button = node.getRole() in (pyatspi.ROLE_PUSH_BUTTON, pyatspi.ROLE_TOGGLE_BUTTON,
                                    pyatspi.ROLE_MENU_ITEM)
        if not (focusable or button) or not states.contains(pyatspi.STATE_SHOWING):
            continue
        label = node.name or ""
        print(f"{role}\t{label}")
        if not label.strip():
            unnamed += 1
    print(f"unnamed: {unnamed}")
    return 0


if __name__ == "__main__":
    sys.exit(main())

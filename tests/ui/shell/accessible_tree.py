#!/usr/bin/python3
"""Reads an application's accessibility tree over AT-SPI, as a screen reader
does, and prints one line per element that can take the focus or is a button:
its role, its name and whether it is showing. The last line counts the
focusable or button elements that have no name. Exits 2 when the application
is not on the bus within the bound."""

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


def main():
    name = sys.argv[1]
    application = find_application(name, 20)
    if application is None:
        print("no application named", name)
        return 2
    unnamed = 0
    for node in walk(application):
        states = node.getState()
        role = node.getRoleName()
        focusable = states.contains(pyatspi.STATE_FOCUSABLE)
        button = node.getRole() in (pyatspi.ROLE_PUSH_BUTTON, pyatspi.ROLE_TOGGLE_BUTTON)
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
